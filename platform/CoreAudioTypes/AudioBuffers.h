// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/CoreAudioTypes.h>

#include <span>

namespace qmx
{

/// All buffers of a list. Any thread.
inline std::span<AudioBuffer> buffersOf(AudioBufferList& list)
{
    AudioBuffer* const first = list.mBuffers;
    return {first, list.mNumberBuffers};
}

inline std::span<const AudioBuffer> buffersOf(const AudioBufferList& list)
{
    const AudioBuffer* const first = list.mBuffers;
    return {first, list.mNumberBuffers};
}

} // namespace qmx
