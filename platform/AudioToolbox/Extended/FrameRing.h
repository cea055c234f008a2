// SPDX-License-Identifier: MIT
// A ring of frames between one thread that adds and one that takes. Neither waits, locks or allocates.
//
// Two counters only grow: frames added and frames taken. The adder publishes frames through the first, the taker frees
// room through the second; each reads the other's with acquire, so that samples are seen before the count that covers
// them.
#pragma once

#include "AudioToolbox/Extended/PlaneList.h"

#include <atomic>
#include <vector>

namespace qmx
{

class FrameRing
{
public:
    /// Frames in `seconds` at `rate` Hz, clamped to the byte bounds.
    static UInt32 capacityFor(const PcmLayout& layout, Float64 rate, Float64 seconds, std::size_t leastBytes,
                              std::size_t mostBytes);
    /// Memory for `capacity` frames, all of it touched.
    FrameRing(const PcmLayout& layout, UInt32 capacity);

    UInt32 capacity() const { return capacity_; }
    /// Any thread: may be out of date at once, but what the caller may use only grows meanwhile.
    UInt32 ready() const;
    UInt32 room() const { return capacity_ - ready(); }

    // only for the adder
    /// Room for frames in one piece, at most `count` of them; `count` becomes what there is.
    AudioBufferList& ahead(UInt32& count);
    /// Publishes `count` frames that were written into that room.
    void add(UInt32 count);
    /// Adds the first `count` frames of a list; there must be room for them.
    void copyIn(const AudioBufferList& frames, UInt32 count);

    // only for the taker
    /// The next frames in one piece, at most `count` of them; `count` becomes what there is.
    AudioBufferList& next(UInt32& count);
    /// `count` of those frames are no longer needed.
    void take(UInt32 count);
    /// Takes `count` frames, which must be ready, into a list.
    void copyOut(const AudioBufferList& frames, UInt32 count);

    /// Forgets all frames. Only while neither side is at work.
    void clear();

private:
    AudioBufferList& piece(PlaneList& list, UInt64 from, UInt32 available, UInt32& count);

    PcmLayout layout_;
    UInt32 capacity_;
    std::size_t planeBytes_;
    std::vector<std::byte> memory_;
    PlaneList adderList_, adderSource_, takerList_, takerTarget_;
    alignas(64) std::atomic<UInt64> added_{0};
    alignas(64) std::atomic<UInt64> taken_{0};
};

} // namespace qmx
