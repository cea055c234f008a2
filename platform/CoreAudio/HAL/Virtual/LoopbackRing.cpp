// SPDX-License-Identifier: MIT
#include "CoreAudio/HAL/Virtual/LoopbackRing.h"

#include <algorithm>
#include <utility>

namespace qmx
{

LoopbackRing::LoopbackRing(UInt32 channels)
    : channels_(channels), samples_(static_cast<std::size_t>(capacity) * channels)
{
}

const std::atomic<Float32>& LoopbackRing::slot(SInt64 frame, UInt32 channel) const
{
    const auto place = static_cast<std::size_t>(((frame % capacity) + capacity) % capacity);
    return samples_[place * channels_ + channel];
}

std::atomic<Float32>& LoopbackRing::slot(SInt64 frame, UInt32 channel)
{
    return const_cast<std::atomic<Float32>&>(std::as_const(*this).slot(frame, channel));
}

void LoopbackRing::clear(SInt64 from, SInt64 to)
{
    for (SInt64 frame = from; frame < to; ++frame)
        for (UInt32 channel = 0; channel < channels_; ++channel)
            slot(frame, channel).store(0, std::memory_order_relaxed);
}

void LoopbackRing::write(SInt64 first, const Float32* samples, UInt32 frames, UInt32 channels)
{
    const SInt64 end = end_.load(std::memory_order_relaxed);
    const SInt64 next = first + frames;
    if (first < end || first - end >= capacity)
        begin_.store(first, std::memory_order_relaxed); // time jumped
    else
        clear(end, first);
    begin_.store(std::max(begin_.load(std::memory_order_relaxed), next - capacity), std::memory_order_relaxed);
    const UInt32 kept = std::min(channels, channels_);
    for (UInt32 frame = 0; frame < frames; ++frame)
        for (UInt32 channel = 0; channel < kept; ++channel)
            slot(first + frame, channel).store(samples[frame * channels + channel], std::memory_order_relaxed);
    end_.store(next, std::memory_order_release);
}

Float32 LoopbackRing::sample(SInt64 frame, UInt32 channel) const
{
    const SInt64 end = end_.load(std::memory_order_acquire);
    if (channel >= channels_ || frame >= end || frame < begin_.load(std::memory_order_relaxed))
        return 0;
    return slot(frame, channel).load(std::memory_order_relaxed);
}

} // namespace qmx
