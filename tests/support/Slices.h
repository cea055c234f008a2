// SPDX-License-Identifier: MIT
// Audio data for tests: contiguous bytes, and buffer lists over parts of them.
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/CoreAudioTypes.h>

#include <cstddef>
#include <random>
#include <vector>

namespace qmx::test
{

inline AudioStreamBasicDescription linearFormat(UInt32 bits, UInt32 channels, AudioFormatFlags flags,
                                                Float64 rate = 44100)
{
    const UInt32 frame = (flags & kAudioFormatFlagIsNonInterleaved ? 1 : channels) * ((bits + 7) / 8);
    return {rate, kAudioFormatLinearPCM, flags | kAudioFormatFlagIsPacked, frame, 1, frame, channels, bits};
}

/// A buffer list over contiguous memory, with non-interleaved channels one after the other.
class BufferList
{
public:
    /// For `frames` frames from frame `first` on of `bytes`, which holds `total` frames.
    BufferList(const AudioStreamBasicDescription& format, std::byte* bytes, std::size_t total, std::size_t first,
               std::size_t frames)
    {
        const bool isSplit = format.mFormatFlags & kAudioFormatFlagIsNonInterleaved;
        const UInt32 planes = isSplit ? format.mChannelsPerFrame : 1;
        memory_.resize(offsetof(AudioBufferList, mBuffers) + planes * sizeof(AudioBuffer));
        list()->mNumberBuffers = planes;
        for (UInt32 i = 0; i < planes; ++i)
            buffer(i) = {format.mChannelsPerFrame / planes, static_cast<UInt32>(frames * format.mBytesPerFrame),
                         bytes + (i * total + first) * format.mBytesPerFrame};
    }
    /// The whole of `samples`, one channel after the other.
    BufferList(std::vector<Float32>& samples, UInt32 channels)
        : BufferList(linearFormat(32, channels, kAudioFormatFlagIsFloat | kAudioFormatFlagIsNonInterleaved),
                     reinterpret_cast<std::byte*>(samples.data()), samples.size() / channels, 0,
                     samples.size() / channels)
    {
    }

    AudioBufferList* list() { return reinterpret_cast<AudioBufferList*>(memory_.data()); }
    AudioBuffer& buffer(UInt32 index)
    {
        AudioBuffer* const first = list()->mBuffers;
        return first[index];
    }

private:
    std::vector<std::byte> memory_;
};

} // namespace qmx::test
