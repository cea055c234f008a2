// SPDX-License-Identifier: MIT
#include "CoreAudio/HAL/Virtual/VirtualDevice.h"

#include "CoreAudio/HAL/DescriptionChanges.h"
#include "CoreAudio/HAL/Virtual/VirtualDescription.h"
#include "Foundation/Threads/Thread.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace qmx
{

VirtualDevice::VirtualDevice(AudioDeviceID id, DeviceDescription description, Timeline& timeline, HardwareSink& sink)
    : id_(id), timeline_(timeline), sink_(sink), description_(std::move(description)),
      inputGains_(channelGains(description_.input)), outputGains_(channelGains(description_.output))
{
    clock_.anchorTime = timeline.now();
    clock_.rate = description_.actualSampleRate;
}

DeviceDescription VirtualDevice::description()
{
    const auto held = timeline_.lock();
    return description_;
}

void VirtualDevice::change(const std::function<void(DeviceDescription&)>& edit)
{
    const std::scoped_lock change(changing_);
    DeviceDescription next = description();
    edit(next);
    standardise(next);
    {
        const auto held = timeline_.lock();
        if (next.actualSampleRate != clock_.rate) {
            clock_.setRate(next.actualSampleRate, timeline_.now());
            if (run_)
                timeline_.reschedule(*run_, clock_.timeOf(run_->nextNow), held);
        }
        inputGains_ = channelGains(next.input);
        outputGains_ = channelGains(next.output);
        description_ = next;
    }
    sink_.deviceChanged(id_, next);
}

OSStatus VirtualDevice::perform(const DeviceRequest& request)
{
    change([&request](DeviceDescription& description) { apply(description, request); });
    return noErr;
}

UInt32 VirtualDevice::framesPerCycle() const
{
    return cycleFrames_ ? cycleFrames_ : description_.bufferFrameSize;
}

OSStatus VirtualDevice::startIO(const std::shared_ptr<DeviceIO>& io, const DeviceDescription& description)
{
    auto run = std::make_shared<VirtualRun>(io, description);
    const auto held = timeline_.lock();
    constexpr Float64 rounding = 1e-6;
    const Float64 start = std::ceil(clock_.sampleAt(static_cast<Float64>(timeline_.now() + startDelay_)) - rounding);
    run->id = id_;
    run->nextFrames = framesPerCycle();
    run->nextNow = start + run->nextFrames;
    run->nextOutput = run->nextNow + run->nextFrames + description.output.safetyOffset;
    run->due = clock_.timeOf(run->nextNow);
    run->previous = lastRun_;
    if (!Thread::detachNewThread("qmx-io", [self = shared_from_this(), run] { self->runThread(run); }))
        return kAudioHardwareUnspecifiedError;
    lastRun_ = nullptr;
    timeline_.join(run, held);
    run_ = std::move(run);
    return noErr;
}

void VirtualDevice::stopIO()
{
    const auto held = timeline_.lock();
    if (!run_)
        return;
    timeline_.leave(*run_, held);
    lastRun_ = std::exchange(run_, nullptr);
}

void VirtualDevice::runThread(const std::shared_ptr<VirtualRun>& run)
{
    constexpr double highest = 1.0;
    (void)Thread::setThreadPriority(highest); // best effort
    bool isRealTime = false;
    auto held = timeline_.lock();
    waitForPrevious(*run, held);
    while (timeline_.waitForTurn(*run, held)) {
        const VirtualCycle cycle = planCycle(*run);
        held.unlock();
        // in simulated time a real-time priority would starve other programs
        if (const bool isDue = timeline_.mode() == VirtualTime::real; isDue != isRealTime) {
            (void)Thread::setRealTime(isDue); // a refusal leaves it as it was
            isRealTime = isDue;
        }
        run->makeRoom(cycle.frames);
        run->runCycle(cycle);
        held.lock();
        ++cycleCount_;
        scheduleNext(*run, held);
        timeline_.giveTurnBack(*run, held);
    }
    run->isFinished = true;
    run->changed.notify_all();
}

void VirtualDevice::waitForPrevious(VirtualRun& run, Timeline::Lock& held)
{
    if (const auto previous = std::exchange(run.previous, nullptr))
        previous->changed.wait(held, [&previous] { return previous->isFinished; });
}

VirtualCycle VirtualDevice::planCycle(VirtualRun& run)
{
    VirtualCycle cycle;
    cycle.frames = run.nextFrames;
    cycle.now = run.nextNow;
    cycle.inputSample = run.nextNow - run.nextFrames - description_.input.safetyOffset;
    cycle.outputSample = run.nextOutput;
    cycle.clock = clock_;
    cycle.nominalRate = description_.nominalSampleRate;
    cycle.inputGains = inputGains_;
    cycle.outputGains = outputGains_;
    cycle.input = input_;
    cycle.output = output_;
    cycle.capture = capture_;
    cycle.played = played_;
    if (const auto looped = loopedTo_.lock()) {
        cycle.looped = looped->played_;
        cycle.loopedClock = looped->clock_;
    }
    return cycle;
}

void VirtualDevice::scheduleNext(VirtualRun& run, const Timeline::Lock& held)
{
    run.nextOutput += run.nextFrames;
    run.nextFrames = framesPerCycle();
    run.nextNow += run.nextFrames;
    // longer cycles than before leave a gap: the next output must not lie in the past
    run.nextOutput = std::max(run.nextOutput, run.nextNow + description_.output.safetyOffset);
    if (timeline_.mode() == VirtualTime::real)
        catchUp(run);
    timeline_.reschedule(run, clock_.timeOf(run.nextNow), held);
}

// If the thread comes much too late, it leaves cycles out, as hardware does.
void VirtualDevice::catchUp(VirtualRun& run)
{
    constexpr Float64 patience = 4; // cycles
    const Float64 late = clock_.sampleAt(static_cast<Float64>(timeline_.now())) - run.nextNow;
    if (late < patience * run.nextFrames)
        return;
    const Float64 lost = std::ceil(late / run.nextFrames) * run.nextFrames;
    run.nextNow += lost;
    run.nextOutput += lost;
    announceOverload();
}

void VirtualDevice::announceOverload()
{
    for (const bool isInput : announcedSections(description_))
        sink_.announce(id_, {kAudioDeviceProcessorOverload, 0, isInput});
}

OSStatus VirtualDevice::currentTime(AudioTimeStamp& time)
{
    const auto held = timeline_.lock();
    const UInt64 present = timeline_.now();
    time = {};
    time.mSampleTime = clock_.sampleAt(static_cast<Float64>(present));
    time.mHostTime = present;
    time.mRateScalar = description_.nominalSampleRate / clock_.rate;
    time.mFlags = kAudioTimeStampSampleHostTimeValid | kAudioTimeStampRateScalarValid;
    return noErr;
}

void VirtualDevice::setInput(VirtualInput input)
{
    auto next = input ? std::make_shared<VirtualInput>(std::move(input)) : nullptr;
    const auto held = timeline_.lock();
    input_.swap(next);
    loopedTo_.reset();
}

void VirtualDevice::setOutput(VirtualOutput output)
{
    auto next = output ? std::make_shared<VirtualOutput>(std::move(output)) : nullptr;
    const auto held = timeline_.lock();
    output_.swap(next);
}

void VirtualDevice::captureOutput(std::size_t maximumFrames)
{
    const UInt32 channels = numberOfChannels(description().output);
    auto next = maximumFrames ? std::make_shared<VirtualCapture>(maximumFrames, channels) : nullptr;
    const auto held = timeline_.lock();
    capture_.swap(next);
}

std::vector<Float32> VirtualDevice::capturedOutput()
{
    std::shared_ptr<VirtualCapture> capture;
    {
        const auto held = timeline_.lock();
        capture = capture_;
    }
    if (!capture)
        return {};
    const auto used = static_cast<std::ptrdiff_t>(capture->used.load(std::memory_order_acquire));
    return {capture->samples.begin(), capture->samples.begin() + used};
}

void VirtualDevice::loopFrom(const std::shared_ptr<VirtualDevice>& output)
{
    auto ring = std::make_shared<LoopbackRing>(numberOfChannels(output->description().output));
    std::shared_ptr<VirtualInput> old;
    const auto held = timeline_.lock();
    if (!output->played_)
        output->played_ = std::move(ring);
    loopedTo_ = output;
    old.swap(input_);
}

void VirtualDevice::setStartDelay(UInt64 nanoseconds)
{
    const auto held = timeline_.lock();
    startDelay_ = nanoseconds;
}

void VirtualDevice::setCycleFrames(UInt32 frames)
{
    constexpr UInt32 most = 65536;
    const auto held = timeline_.lock();
    cycleFrames_ = std::min(frames, most);
}

void VirtualDevice::jump(SInt64 frames)
{
    const auto held = timeline_.lock();
    clock_.anchorSample += static_cast<Float64>(frames);
    if (run_) {
        run_->nextNow += static_cast<Float64>(frames);
        run_->nextOutput += static_cast<Float64>(frames);
    }
}

void VirtualDevice::skip(UInt32 cycles)
{
    const auto held = timeline_.lock();
    if (!run_)
        return;
    const Float64 frames = Float64(run_->nextFrames) * cycles;
    run_->nextNow += frames;
    run_->nextOutput += frames;
    timeline_.reschedule(*run_, clock_.timeOf(run_->nextNow), held);
    announceOverload();
}

UInt64 VirtualDevice::cycleCount()
{
    const auto held = timeline_.lock();
    return cycleCount_;
}

bool VirtualDevice::runs()
{
    const auto held = timeline_.lock();
    return run_ != nullptr;
}

} // namespace qmx
