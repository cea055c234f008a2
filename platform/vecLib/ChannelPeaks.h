// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/MacTypes.h>
#include <QMXCoreAudio/Foundation/Export.h>

#include <cstddef>

namespace qmx
{

/// The maximum above 0 of each of the first `peakCount` channels (at most `channels`) of `count` interleaved samples, 0
/// if there is none; negative samples and NaN never count. Pure, without allocation: any thread.
QMX_EXPORT void channelPeaks(const Float32* samples, std::size_t count, std::size_t channels, Float32* peaks,
                             std::size_t peakCount);

} // namespace qmx
