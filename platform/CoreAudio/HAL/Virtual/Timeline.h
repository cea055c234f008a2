// SPDX-License-Identifier: MIT
// The line of time that all virtual devices share, and whose turn it is on it.
#pragma once

#include "CoreAudio/VirtualHardware.h"
#include "Foundation/Threads/LastingThread.h"

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <vector>

namespace qmx
{

/// Each running device has a seat, which an I/O thread waits in for the device's next cycle. In real time each thread
/// goes by the clock; else somebody drives: gives the turn to the seat that is due first, and waits until it is given
/// back.
class Timeline
{
public:
    struct Seat {
        virtual ~Seat() = default;
        // guarded by the line's lock
        AudioDeviceID id = kAudioDeviceUnknown;
        UInt64 due = 0;
        bool hasTurn = false;
        bool hasLeft = false;
        std::condition_variable changed;
    };
    using Lock = std::unique_lock<std::mutex>;

    /// Guards the seats and all that devices keep for their cycles.
    Lock lock() { return Lock(mutex_); }

    /// The present. No lock.
    UInt64 now() const;
    VirtualTime mode() const { return mode_.load(); }
    /// Time goes on from where it is. Fast time does not start where the system has no thread left for it. Ending fast
    /// time returns when no driven cycle is in flight (except inside a callback).
    void setMode(VirtualTime mode);
    /// Starts the line again at 0.
    void reset(VirtualTime mode);

    // --- For I/O threads; with the lock held
    void join(std::shared_ptr<Seat> seat, const Lock& held);
    /// Ends the seat's waiting.
    void leave(Seat& seat, const Lock& held);
    /// Tells that a seat's due time is another.
    void reschedule(Seat& seat, UInt64 due, const Lock& held);
    /// Waits until the seat's cycle is due. False when it has left.
    bool waitForTurn(Seat& seat, Lock& held);
    void giveTurnBack(Seat& seat, const Lock& held);

    // --- For whoever drives
    /// Runs the cycle that is due first, if it is by `limit`; whether there was one.
    bool step(UInt64 limit);
    /// Lets the present be `time`, when it is before that.
    void moveTo(UInt64 time);

private:
    [[noreturn]] void driveFast();
    void waitForStep();

    std::mutex driving_; // one cycle at a time
    std::mutex mutex_;
    std::condition_variable turnIsBack_;
    std::condition_variable canDrive_;
    std::vector<std::shared_ptr<Seat>> seats_;
    std::atomic<VirtualTime> mode_{VirtualTime::real};
    std::atomic<UInt64> line_{0};       // the present, when it is not real
    std::atomic<SInt64> realOffset_{0}; // from the host's clock to the line, when it is
    LastingThread fastDriver_{"qmx-time", [this] { driveFast(); }};
};

} // namespace qmx
