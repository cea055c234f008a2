// SPDX-License-Identifier: MIT
// The I/O side of one device: its procedures, and what happens in a cycle.
#pragma once

#include "CoreAudio/AudioHardware.h"
#include "CoreAudio/DeviceDescription.h"
#include "Foundation/Threads/Publication.h"

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <vector>

namespace qmx
{

/// The interleaved frames of one stream in one cycle.
struct IOBlock {
    UInt32 channels = 0;
    Float32* samples = nullptr;
};

/// One cycle as a backend has it: one block per stream, of `frames` frames. Output blocks need not be cleared.
struct IOCycle {
    UInt32 frames = 0;
    Float64 sampleRate = 0; ///< actual, for the times of slices
    AudioTimeStamp now;
    AudioTimeStamp inputTime;
    AudioTimeStamp outputTime;
    std::span<const IOBlock> input;
    std::span<const IOBlock> output;
};

/// Procedures are an immutable list, which cycles read and changes replace.
class DeviceIO : public std::enable_shared_from_this<DeviceIO>
{
public:
    /// `becameIdle` is called on a thread of its own after a procedure stopped the last one (itself) in a callback.
    DeviceIO(AudioDeviceID device, std::function<void()> becameIdle);
    ~DeviceIO();

    /// The one whose cycle the calling thread is in, if any.
    static DeviceIO* ofCallingThread();
    AudioDeviceID device() const { return device_; }

    // Any thread but the real-time ones.
    OSStatus add(AudioDeviceIOProc procedure, void* clientData);
    OSStatus remove(AudioDeviceIOProc procedure, void* clientData);
    /// Does not wait for the cycle in flight.
    void stopAll();
    OSStatus markRunning(AudioDeviceIOProc procedure, void* clientData);
    OSStatus markStopped(AudioDeviceIOProc procedure, void* clientData);
    bool hasProcedures();
    /// Fixes the streams and the maximum of frames for the cycles from now on. Before the device starts.
    void prepare(const DeviceDescription& description);
    /// Makes sure that a later stop in a cycle can be reported. Before a procedure starts.
    void armIdleReport();

    /// The same as markStopped within this device's own cycle: no lock. The last to stop has becameIdle called.
    OSStatus markStoppedInCycle(AudioDeviceIOProc procedure, void* clientData) noexcept;
    /// The same, and unregisters it.
    OSStatus removeInCycle(AudioDeviceIOProc procedure, void* clientData) noexcept;
    /// Has becameIdle called soon, on another thread. Real time.
    void reportIdle() noexcept;
    bool hasRunningProcedures() const { return runningCount_.load() > 0; }
    /// See qmx::waitForIOCycle.
    void waitForCycle() const { cycles_.waitForReaders(); }

    /// Runs the procedures. Marks the thread as real-time and inside a callback. One thread at a time. A cycle with
    /// other streams than were fixed (the tail of an earlier run) is left out.
    void runCycle(const IOCycle& cycle) noexcept;

private:
    struct Procedure;
    struct List;
    struct Layout;
    struct IdleReport;
    Procedure* find(const List& list, AudioDeviceIOProc procedure, void* clientData) const;
    template <class Object> void replace(std::atomic<Object*>& slot, std::unique_ptr<Object> next);
    void publish(std::unique_ptr<List> next);
    bool stop(Procedure& procedure) noexcept;
    void runSlice(const List& list, Layout& layout, const IOCycle& cycle, UInt32 first, UInt32 frames) const;

    const AudioDeviceID device_;
    const std::function<void()> becameIdle_;
    std::mutex mutex_;   // of changes to the list
    Publication cycles_; // read the list and the layout
    std::atomic<const List*> list_;
    std::atomic<Layout*> layout_{nullptr};
    std::atomic<int> runningCount_{0};
    std::atomic<IdleReport*> idleReport_{nullptr};
};

} // namespace qmx
