// SPDX-License-Identifier: MIT
// The frames of one file that are read before a real-time thread asks for them.
#pragma once

#include "AudioToolbox/Extended/BackgroundThread.h"
#include "AudioToolbox/Extended/FrameRing.h"
#include "Foundation/Threads/ConditionLock.h"

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>

namespace qmx
{

class ReadAhead : public BackgroundWork
{
public:
    /// Reads frames from the file to fill a list; fewer than it holds mean the end.
    using Source = std::function<OSStatus(AudioBufferList& frames, UInt32& count)>;

    /// Memory for four seconds at `rate` Hz, within bounds, which is filled again as soon as a quarter is free. Null if
    /// the system has no thread left for it. Nothing is read yet.
    static std::shared_ptr<ReadAhead> make(const PcmLayout& layout, Float64 rate, Source source);
    ReadAhead(const PcmLayout& layout, UInt32 capacity, Source source);

    /// The right to take frames and to move: one thread has it at a time. A thread marked real-time does not wait for
    /// it.
    ConditionLockTurn turn();

    /// Called within a turn: copies the next frames into a list with room for `count`; `count` becomes the frames
    /// copied. A thread marked real-time takes what is ready, any other waits for all; fewer then mean the end or a
    /// failure, after which reading is tried again.
    OSStatus take(const AudioBufferList& data, UInt32& count);

    /// Whether nothing follows.
    bool isAtEnd() const
    {
        return hasEnded_.load(std::memory_order_acquire) && failure_.load(std::memory_order_relaxed) == noErr &&
               ring_.ready() == 0;
    }

    /// Forgets what was read, calls `move`, and reads the first frames from there.
    void restart(const std::function<void()>& move);
    /// Waits for a read in flight and forgets the source for good.
    void finish();

    void work() override;

    /// Frames that real-time threads asked for but did not get, though the file goes on.
    UInt64 missedFrames() const { return missed_.load(std::memory_order_relaxed); }
    void countMissed(UInt32 frames) { missed_.fetch_add(frames, std::memory_order_relaxed); }

private:
    bool readSome();

    FrameRing ring_;
    PlaneList part_;
    std::mutex adderMutex_; // its holder is the adder
    Source source_;
    // by the end or a failure; set after the last frames were added, cleared by the taker when it reports a failure
    std::atomic<bool> hasEnded_{false};
    std::atomic<OSStatus> failure_{noErr};
    ConditionLock turn_;
    std::atomic<UInt64> missed_{0};
};

} // namespace qmx
