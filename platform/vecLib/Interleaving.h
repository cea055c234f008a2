// SPDX-License-Identifier: MIT
// Frames between planar order, each channel in memory of its own, and interleaved order. Pure, without allocation: any
// thread, the real-time ones included. Memory may have any alignment.
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/AudioBuffers.h>
#include <QMXCoreAudio/Foundation/Export.h>

#include <cstddef>

namespace qmx
{

/// `frames` samples of each plane become the first channels of interleaved frames of `channels` channels each. A null
/// plane is silent. Channels beyond the planes stay as they are.
QMX_EXPORT void interleave(std::span<const Float32* const> planes, Float32* interleaved, std::size_t channels,
                           std::size_t frames);

/// The way back: each plane that is not null receives its channel.
QMX_EXPORT void deinterleave(const Float32* interleaved, std::size_t channels, std::span<Float32* const> planes,
                             std::size_t frames);

} // namespace qmx
