// SPDX-License-Identifier: MIT
// The timeline that all virtual devices share, and the order of their cycles on it.
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

/// Each running device has a seat, on which its I/O thread waits for the next cycle. In real time each thread waits by
/// the clock. Otherwise a driver gives the turn to the seat that is due first, and waits until it is given back.
class Timeline
{
public:
    struct Seat {
        virtual ~Seat() = default;
        // guarded by the timeline's lock
        AudioDeviceID id = kAudioDeviceUnknown;
        UInt64 due = 0;
        bool hasTurn = false;
        bool hasLeft = false;
        std::condition_variable changed;
    };
    using Lock = std::unique_lock<std::mutex>;

    /// Guards the seats and the members that devices use for their cycles.
    Lock lock() { return Lock(mutex_); }

    /// The present, in nanoseconds. No lock.
    UInt64 now() const;
    VirtualTime mode() const { return mode_.load(); }
    /// Time goes on from the present. Without a thread for fast time the mode stays, which is logged. Changing to
    /// another mode returns when no driven cycle is in flight (at once inside a callback).
    void setMode(VirtualTime mode);
    /// Sets the mode and restarts the timeline at 0 (in real time, at the host's clock).
    void reset(VirtualTime mode);

    // --- For I/O threads; with the lock held
    void join(std::shared_ptr<Seat> seat, const Lock& held);
    /// Ends the seat's waiting.
    void leave(Seat& seat, const Lock& held);
    /// Changes a seat's due time.
    void reschedule(Seat& seat, UInt64 due, const Lock& held);
    /// Waits until the seat's cycle is due; false if the seat has left.
    bool waitForTurn(Seat& seat, Lock& held);
    void giveTurnBack(Seat& seat, const Lock& held);

    // --- For drivers
    /// Runs the cycle that is due first, unless that is after `limit`; false if there is none.
    bool step(UInt64 limit);
    /// Moves the present forward to `time`; never back.
    void moveTo(UInt64 time);

private:
    [[noreturn]] void driveFast();
    void waitForStep();

    std::mutex driving_; // held while one cycle is driven
    std::mutex mutex_;
    std::condition_variable turnIsBack_;
    std::condition_variable canDrive_;
    std::vector<std::shared_ptr<Seat>> seats_;
    std::atomic<VirtualTime> mode_{VirtualTime::real};
    std::atomic<UInt64> line_{0};       // the present, in fast and manual time
    std::atomic<SInt64> realOffset_{0}; // the timeline minus the host's clock, in real time
    LastingThread fastDriver_{"qmx-time", [this] { driveFast(); }};
};

} // namespace qmx
