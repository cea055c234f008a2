// SPDX-License-Identifier: MIT
// The frames of one file on their way from a real-time thread to the disk.
#pragma once

#include "AudioToolbox/Extended/BackgroundThread.h"
#include "AudioToolbox/Extended/FrameRing.h"

#include <functional>
#include <memory>
#include <mutex>

namespace qmx
{

class AsyncWrites : public BackgroundWork
{
public:
    /// Writes frames to the file or, after a failure, drops them: nobody may wait for a disk that accepts no more.
    /// Called by one thread at a time.
    using Sink = std::function<void(const AudioBufferList& frames, UInt32 count)>;

    /// Memory for four seconds at `rate` Hz, within bounds. Null if the system has no thread left for it.
    static std::shared_ptr<AsyncWrites> make(const PcmLayout& layout, Float64 rate, Sink sink);
    /// The thread that writes is woken for more than `wakeAfter` frames.
    AsyncWrites(const PcmLayout& layout, UInt32 capacity, UInt32 wakeAfter, Sink sink);

    /// Queues `count` frames of a list that holds as many. See ExtAudioFileWriteAsync. Neither locks nor allocates on a
    /// thread marked real-time.
    OSStatus add(const AudioBufferList& frames, UInt32 count);

    /// Waits until the sink got all frames added so far. For the adding thread, or while it does not add. Afterwards
    /// nothing calls the sink until more is added.
    void drain();
    /// The same, and forgets the sink for good.
    void finish();

    void work() override;

private:
    bool isWorthAWake() const;
    bool writeSome();
    void waitForRoom();

    FrameRing ring_;
    PlaneList part_; // of a list larger than the room
    UInt32 wakeAfter_;
    std::mutex takerMutex_; // its holder is the taker
    Sink sink_;
};

} // namespace qmx
