// SPDX-License-Identifier: MIT
#include "AudioToolbox/Extended/FrameRing.h"

#include <algorithm>

namespace qmx
{

UInt32 FrameRing::capacityFor(const PcmLayout& layout, Float64 rate, Float64 seconds, std::size_t leastBytes,
                              std::size_t mostBytes)
{
    const auto wanted = static_cast<std::size_t>(rate * seconds) * layout.frameBytes();
    return static_cast<UInt32>(std::clamp(wanted, leastBytes, mostBytes) / layout.frameBytes());
}

FrameRing::FrameRing(const PcmLayout& layout, UInt32 capacity)
    : layout_(layout), capacity_(capacity), planeBytes_(capacity * layout.planeFrameBytes()),
      memory_(planeBytes_ * layout.planes()), adderList_(layout), adderSource_(layout), takerList_(layout),
      takerTarget_(layout)
{
}

UInt32 FrameRing::ready() const
{
    // the taker's count first: it never passes the adder's
    const UInt64 taken = taken_.load(std::memory_order_acquire);
    const UInt64 ready = added_.load(std::memory_order_acquire) - taken;
    return static_cast<UInt32>(std::min<UInt64>(ready, capacity_));
}

AudioBufferList& FrameRing::piece(PlaneList& list, UInt64 from, UInt32 available, UInt32& count)
{
    const auto first = static_cast<UInt32>(from % capacity_);
    count = std::min({count, available, capacity_ - first});
    return list.aimAt(memory_.data(), planeBytes_, first, count);
}

AudioBufferList& FrameRing::ahead(UInt32& count)
{
    return piece(adderList_, added_.load(std::memory_order_relaxed), room(), count);
}

void FrameRing::add(UInt32 count)
{
    added_.store(added_.load(std::memory_order_relaxed) + count, std::memory_order_release);
}

void FrameRing::copyIn(const AudioBufferList& frames, UInt32 count)
{
    for (UInt32 done = 0; done < count;) {
        UInt32 length = count - done;
        AudioBufferList& target = ahead(length);
        copyFrames(adderSource_.aimAt(frames, done, length), target);
        add(length);
        done += length;
    }
}

AudioBufferList& FrameRing::next(UInt32& count)
{
    return piece(takerList_, taken_.load(std::memory_order_relaxed), ready(), count);
}

void FrameRing::take(UInt32 count)
{
    taken_.store(taken_.load(std::memory_order_relaxed) + count, std::memory_order_release);
}

void FrameRing::copyOut(const AudioBufferList& frames, UInt32 count)
{
    for (UInt32 done = 0; done < count;) {
        UInt32 length = count - done;
        const AudioBufferList& source = next(length);
        copyFrames(source, takerTarget_.aimAt(frames, done, length));
        take(length);
        done += length;
    }
}

void FrameRing::clear()
{
    taken_.store(added_.load(std::memory_order_relaxed), std::memory_order_release);
}

} // namespace qmx
