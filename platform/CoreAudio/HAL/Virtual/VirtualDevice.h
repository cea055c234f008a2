// SPDX-License-Identifier: MIT
#pragma once

#include "CoreAudio/HAL/Backend.h"
#include "CoreAudio/HAL/Virtual/VirtualRun.h"

#include <functional>
#include <memory>
#include <mutex>

namespace qmx
{

/// One virtual device: its record, its clock, its source and its destination.
class VirtualDevice final : public BackendDevice, public std::enable_shared_from_this<VirtualDevice>
{
public:
    VirtualDevice(AudioDeviceID id, DeviceDescription description, Timeline& timeline, HardwareSink& sink);

    AudioDeviceID id() const { return id_; }
    DeviceDescription description();
    /// Changes the record and reports it.
    void change(const std::function<void(DeviceDescription&)>& edit);

    OSStatus perform(const DeviceRequest& request) override;
    OSStatus startIO(const std::shared_ptr<DeviceIO>& io, const DeviceDescription& description) override;
    void stopIO() override;
    OSStatus currentTime(AudioTimeStamp& time) override;

    // --- The control side
    void setInput(VirtualInput input);
    void setOutput(VirtualOutput output);
    void captureOutput(std::size_t maximumFrames);
    std::vector<Float32> capturedOutput();
    /// Makes this input capture what `output` plays.
    void loopFrom(const std::shared_ptr<VirtualDevice>& output);
    void setStartDelay(UInt64 nanoseconds);
    void setCycleFrames(UInt32 frames);
    void jump(SInt64 frames);
    void skip(UInt32 cycles);
    UInt64 cycleCount();
    bool runs();

private:
    void runThread(const std::shared_ptr<VirtualRun>& run);
    void waitForPrevious(VirtualRun& run, Timeline::Lock& held);
    VirtualCycle planCycle(VirtualRun& run);
    void scheduleNext(VirtualRun& run, const Timeline::Lock& held);
    void catchUp(VirtualRun& run);
    UInt32 framesPerCycle() const;
    void announceOverload();

    const AudioDeviceID id_;
    Timeline& timeline_;
    HardwareSink& sink_;
    std::mutex changing_; // orders changes of the record and their reports
    // guarded by the timeline's lock; description_ is written under both locks
    DeviceDescription description_;
    VirtualClock clock_;
    std::vector<Float32> inputGains_, outputGains_;
    std::shared_ptr<VirtualInput> input_;
    std::shared_ptr<VirtualOutput> output_;
    std::shared_ptr<VirtualCapture> capture_;
    std::shared_ptr<LoopbackRing> played_;
    std::weak_ptr<VirtualDevice> loopedTo_;
    std::shared_ptr<VirtualRun> run_, lastRun_;
    UInt64 startDelay_ = 0;
    UInt32 cycleFrames_ = 0;
    UInt64 cycleCount_ = 0;
};

} // namespace qmx
