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

/// One cycle from a backend: one block of `frames` frames per stream. Output blocks need not be cleared.
struct IOCycle {
    UInt32 frames = 0;
    Float64 sampleRate = 0; ///< actual rate in Hz, for the times of slices
    AudioTimeStamp now;
    AudioTimeStamp inputTime;
    AudioTimeStamp outputTime;
    std::span<const IOBlock> input;
    std::span<const IOBlock> output;
};

/// The procedures are an immutable list, which cycles read and changes replace.
class DeviceIO : public std::enable_shared_from_this<DeviceIO>
{
public:
    /// `becameIdle` is called on another thread after the last running procedure has stopped itself in a callback.
    DeviceIO(AudioDeviceID device, std::function<void()> becameIdle);
    ~DeviceIO();

    /// The object whose cycle the calling thread is in; null if none.
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
    /// Fixes the streams and the maximum frames of later cycles. Called before the device starts.
    void prepare(const DeviceDescription& description);
    /// Allocates what a stop inside a cycle needs to be reported. Called before a procedure starts.
    void armIdleReport();

    /// As markStopped, inside this device's own cycle and without a lock. The last one to stop reports idle.
    OSStatus markStoppedInCycle(AudioDeviceIOProc procedure, void* clientData) noexcept;
    /// As markStoppedInCycle, and unregisters the procedure.
    OSStatus removeInCycle(AudioDeviceIOProc procedure, void* clientData) noexcept;
    /// Makes another thread call becameIdle soon. Real-time safe.
    void reportIdle() noexcept;
    bool hasRunningProcedures() const { return runningCount_.load() > 0; }
    /// See qmx::waitForIOCycle.
    void waitForCycle() const { cycles_.waitForReaders(); }

    /// Runs the procedures. Marks the thread as real-time and inside a callback. One thread at a time. Ignores a cycle
    /// whose streams differ from the fixed ones (a late cycle of an earlier run).
    QMX_MODULE_EXPORT void runCycle(const IOCycle& cycle) noexcept;

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
    std::mutex mutex_;   // held to change the list
    Publication cycles_; // cycles are its readers, of the list and the layout
    std::atomic<const List*> list_;
    std::atomic<Layout*> layout_{nullptr};
    std::atomic<int> runningCount_{0};
    std::atomic<IdleReport*> idleReport_{nullptr};
};

} // namespace qmx
