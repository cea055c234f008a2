// SPDX-License-Identifier: MIT
// The frames of one file on their way from a real-time thread to the disk.
#pragma once

#include "AudioToolbox/Extended/BackgroundThread.h"
#include "AudioToolbox/Extended/FrameRing.h"

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>

namespace qmx
{

class AsyncWrites : public BackgroundWork
{
public:
    /// Writes frames to the file. Called by one thread at a time.
    using Sink = std::function<OSStatus(const AudioBufferList& frames, UInt32 count)>;

    /// Memory for four seconds at `rate` Hz, within bounds. Null where the system has no thread left for it.
    static std::shared_ptr<AsyncWrites> make(const PcmLayout& layout, Float64 rate, Sink sink);
    AsyncWrites(const PcmLayout& layout, UInt32 capacity, Sink sink);

    /// Queues `count` frames of a list that holds as many. See ExtAudioFileWriteAsync. Neither locks nor allocates on a thread
    /// marked real-time.
    OSStatus add(const AudioBufferList& frames, UInt32 count);

    /// Waits until all that was added is written, and gives the status of the first write that failed. The adding thread, or while
    /// it does not add. After it nothing calls the sink until more is added.
    OSStatus drain();
    /// The same, and forgets the sink for good.
    OSStatus finish();

    void work() override;

private:
    bool isWorthAWake() const;
    bool writeSome();
    void waitForRoom();

    FrameRing ring_;
    PlaneList part_; // of a list that is larger than the room
    std::atomic<OSStatus> failure_{noErr};
    std::mutex takerMutex_; // the taker is whoever holds it
    Sink sink_;
};

} // namespace qmx
