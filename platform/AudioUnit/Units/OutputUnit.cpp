// SPDX-License-Identifier: MIT
#include "AudioUnit/Units/OutputUnit.h"

#include "AudioUnit/Units/PullEngine.h"
#include "CoreAudio/AudioHardware.h"
#include "Foundation/RealTime.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace qmx
{
namespace
{

constexpr PropertyAddress running{kAudioOutputUnitProperty_IsRunning, kAudioUnitScope_Global, 0};

void applyGain(Float32 gain, const AudioBuffer& buffer)
{
    auto* const samples = static_cast<Float32*>(buffer.mData);
    if (gain == 0)
        std::memset(buffer.mData, 0, buffer.mDataByteSize);
    else if (gain != 1)
        std::transform(samples, samples + buffer.mDataByteSize / sizeof(Float32), samples,
                       [gain](Float32 sample) { return sample * gain; });
}

bool mayWait()
{
    return !isRealTime() && !isInsideCallback();
}

} // namespace

const Unit::ParameterRange OutputUnit::volume{.id = kHALOutputParam_Volume, .minimum = 0, .maximum = 1, .initial = 1};

OutputUnit::OutputUnit(std::unique_ptr<OutputHardware> hardware)
    : Unit({.inputs = 1, .outputs = 1}, {&volume, 1}), hardware_(std::move(hardware))
{
    followFormats();
}

OSStatus OutputUnit::uninitialise()
{
    stop();
    return Unit::uninitialise();
}

OSStatus OutputUnit::setProperty(const PropertyAddress& address, const void* value, UInt32 size)
{
    const bool isInterrupted = address.id == kAudioOutputUnitProperty_CurrentDevice && isRunning();
    if (isInterrupted)
        stop();
    const OSStatus status = Unit::setProperty(address, value, size);
    if (!isInterrupted)
        return status;
    const OSStatus startStatus = start();
    return status != noErr ? status : startStatus;
}

OSStatus OutputUnit::makeEngine(UInt32, std::unique_ptr<RenderEngine>& engine)
{
    PullEngine::Conversion conversion = PullEngine::between(input(0).format, outputFormat(0));
    const InputSource* const source = input(0).source.load();
    if (source && source->unit())
        conversion.ratio.reset();
    return PullEngine::make(input(0), 0, conversion, maximumFrames(), engine);
}

void OutputUnit::coupleFormats(AudioUnitScope, AudioUnitElement)
{
    followFormats();
}

void OutputUnit::followFormats()
{
    outputFormat(0) = hardware_ ? hardware_->format() : input(0).format;
}

OSStatus OutputUnit::start()
{
    if (!isInitialised())
        return kAudioUnitErr_Uninitialized;
    if (!hardware_)
        return kAudioHardwareBadDeviceError;
    if (isRunning())
        return noErr;
    hardware_->waitUntilStopped(); // an earlier stop on a real-time thread
    isRunning_.store(true);
    const OSStatus status = hardware_->start(*this);
    if (status == noErr)
        tell(running);
    else
        isRunning_.store(false);
    return status;
}

OSStatus OutputUnit::stop()
{
    const bool wasRunning = isRunning_.exchange(false);
    if (!hardware_)
        return noErr;
    if (wasRunning)
        hardware_->stop();
    if (!mayWait())
        return noErr;
    hardware_->waitUntilStopped();
    if (wasRunning)
        tell(running);
    return noErr;
}

void OutputUnit::renderCycle(const AudioTimeStamp& time, UInt32 frames, AudioBufferList& data)
{
    AudioUnitRenderActionFlags flags = 0;
    const bool isRendered = isRunning() && isInitialised();
    if (isRendered)
        render({flags, time, 0, frames}, data);
    Float32 gain = 1;
    parameter(kHALOutputParam_Volume, kAudioUnitScope_Global, gain);
    // a stop in the callback silences the slice it came with
    if (!isRendered || !isRunning())
        gain = 0;
    for (const AudioBuffer& buffer : buffersOf(data))
        applyGain(gain, buffer);
}

OSStatus OutputUnit::shapeOf(const PropertyAddress& address, PropertyShape& shape) const
{
    if (address.id == kAudioOutputUnitProperty_IsRunning) {
        shape = {.size = sizeof(UInt32)};
        return noErr;
    }
    const OSStatus status = Unit::shapeOf(address, shape);
    if (status == kAudioUnitErr_InvalidProperty)
        return shapeOfDeviceProperty(address.id, shape);
    const bool isFormat = address.id == kAudioUnitProperty_StreamFormat || address.id == kAudioUnitProperty_SampleRate;
    if (isFormat && address.scope == kAudioUnitScope_Output)
        shape.isWritable = false; // the device's
    return status;
}

OSStatus OutputUnit::shapeOfDeviceProperty(AudioUnitPropertyID property, PropertyShape& shape) const
{
    if (hardware_)
        return hardware_->propertySize(property, shape.size, shape.isWritable);
    switch (property) {
    case kAudioDevicePropertyNominalSampleRate:
        shape = {.size = sizeof(Float64)};
        return noErr;
    case kAudioOutputUnitProperty_CurrentDevice:
        shape = {.size = sizeof(UInt32), .isWritable = true};
        return noErr;
    default:
        return kAudioUnitErr_InvalidProperty;
    }
}

OSStatus OutputUnit::read(const PropertyAddress& address, void* value) const
{
    const OSStatus status = Unit::read(address, value);
    if (status != kAudioUnitErr_InvalidProperty)
        return status;
    PropertyShape shape;
    shapeOfDeviceProperty(address.id, shape);
    if (hardware_)
        return hardware_->read(address.id, shape.size, value);
    std::memset(value, 0, shape.size); // no current device
    if (address.id == kAudioDevicePropertyNominalSampleRate)
        std::memcpy(value, &input(0).format.mSampleRate, sizeof(Float64));
    return noErr;
}

OSStatus OutputUnit::write(const PropertyAddress& address, const void* value)
{
    const OSStatus status = Unit::write(address, value);
    if (status != kAudioUnitErr_InvalidProperty)
        return status;
    if (!hardware_)
        return kAudioHardwareBadDeviceError;
    PropertyShape shape;
    shapeOfDeviceProperty(address.id, shape);
    if (const OSStatus refusal = hardware_->write(address.id, shape.size, value); refusal != noErr)
        return refusal;
    if (address.id == kAudioOutputUnitProperty_CurrentDevice && !isInitialised()) {
        input(0).format.mSampleRate = hardware_->format().mSampleRate;
        noteChange({kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input, 0});
    }
    followFormats();
    noteChange(address);
    return remakeEngines();
}

std::optional<UInt32> OutputUnit::liveValue(const PropertyAddress& address)
{
    return address.id == kAudioOutputUnitProperty_IsRunning ? std::optional<UInt32>(isRunning())
                                                            : Unit::liveValue(address);
}

} // namespace qmx
