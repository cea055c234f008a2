// SPDX-License-Identifier: MIT
#include "AudioUnit/Units/OutputUnit.h"

#include "AudioUnit/Units/ConverterEngine.h"
#include "CoreAudio/AudioHardware.h"
#include "Foundation/RealTime.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace qmx
{
namespace
{

constexpr UnitPropertyAddress running{kAudioOutputUnitProperty_IsRunning, kAudioUnitScope_Global, 0};
constexpr UnitPropertyAddress currentDevice{kAudioOutputUnitProperty_CurrentDevice, kAudioUnitScope_Global, 0};

void applyGain(Float32 gain, const AudioBuffer& buffer)
{
    auto* const samples = static_cast<Float32*>(buffer.mData);
    if (gain == 0)
        std::memset(buffer.mData, 0, buffer.mDataByteSize);
    else if (gain != 1)
        std::transform(samples, samples + buffer.mDataByteSize / sizeof(Float32), samples,
                       [gain](Float32 sample) { return sample * gain; });
}

} // namespace

const Unit::ParameterRange OutputUnit::volume{.id = kHALOutputParam_Volume, .minimum = 0, .maximum = 1, .initial = 1};

OutputUnit::OutputUnit(std::unique_ptr<OutputHardware> hardware)
    : Unit({.inputs = 1, .outputs = 1}, {&volume, 1}), hardware_(std::move(hardware))
{
}

OSStatus OutputUnit::uninitialise()
{
    stop();
    return Unit::uninitialise();
}

OSStatus OutputUnit::makeEngine(UInt32, std::unique_ptr<RenderEngine>& engine)
{
    ConverterEngine::Conversion conversion = ConverterEngine::between(input(0).format, outputFormat(0));
    const InputSource* const source = input(0).source.load();
    if (source && source->unit())
        conversion.ratio.reset();
    return ConverterEngine::make(input(0), 0, conversion, maximumFrames(), engine);
}

void OutputUnit::coupleFormats(AudioUnitScope, AudioUnitElement)
{
    followFormats();
}

void OutputUnit::followFormats()
{
    outputFormat(0) = knowsDevice_.load() ? device_.format() : input(0).format;
}

/// Makes the output side follow a device, or none if it is unknown. On failure nothing changes. Under the control lock.
OSStatus OutputUnit::adopt(const OutputDevice& device)
{
    if (device == device_)
        return noErr;
    const auto set = [this](const OutputDevice& next) {
        device_ = next;
        knowsDevice_.store(next.id != kAudioDeviceUnknown);
        followFormats();
    };
    const OutputDevice old = device_;
    set(device);
    if (old.sampleRate != device.sampleRate ||
        old.channels != device.channels) { // otherwise the engines go on undisturbed
        if (const OSStatus status = remakeEngines(); status != noErr) {
            set(old);
            return status;
        }
        noteChange({kAudioUnitProperty_StreamFormat, kAudioUnitScope_Output, 0});
    }
    if (old.id != device.id)
        noteChange(currentDevice);
    return noErr;
}

OSStatus OutputUnit::start()
{
    if (!mayWait())
        return kAudioUnitErr_CannotDoInCurrentContext;
    if (!isInitialised())
        return kAudioUnitErr_Uninitialized;
    wantsToRun_.store(true);
    const OSStatus status = resume();
    if (status != noErr)
        wantsToRun_.store(false);
    return status;
}

OSStatus OutputUnit::stop()
{
    wantsToRun_.store(false);
    const bool wasRunning = halt();
    if (!mayWait())
        return noErr;
    hardware_->waitUntilStopped();
    if (wasRunning)
        tell(running);
    return noErr;
}

/// Stops without changing `wantsToRun_`; returns whether it was running.
bool OutputUnit::halt()
{
    const bool wasRunning = isRunning_.exchange(false);
    hardware_->stop();
    return wasRunning;
}

/// Starts on the current device, unless it runs already. With no lock held.
OSStatus OutputUnit::resume()
{
    hardware_->waitUntilStopped(); // for the rest of a stop on a real-time thread
    const bool wasRunning = isRunning();
    OSStatus status = noErr;
    {
        Replacement replacement = afterRenders();
        status = startOnDevice(replacement);
    }
    tellChanges();
    if (!wantsToRun_.load())
        halt(); // stopped meanwhile
    else if (status == noErr && !wasRunning)
        tell(running);
    return status;
}

OSStatus OutputUnit::startOnDevice(Replacement& replacement)
{
    const std::scoped_lock lock(starting_);
    if (isRunning())
        return noErr;
    const std::shared_ptr<OutputClient> client(shared_from_this(), this);
    OutputDevice device;
    UInt32 frames = 0;
    OSStatus status = controlLocked(
        [&] {
            frames = maximumFrames();
            const OSStatus found = hardware_->examine(hardware_->watch(client), device);
            return found == noErr ? adopt(device) : found;
        },
        replacement);
    if (status != noErr)
        return status;
    isRunning_.store(true);
    status = hardware_->start(device, client, frames);
    if (status != noErr)
        isRunning_.store(false);
    return status;
}

void OutputUnit::deviceChanged()
{
    if (!wantsToRun_.load() || isOnCurrentDevice())
        return;
    const bool wasRunning = halt();
    if (resume() != noErr && wasRunning)
        tell(running);
}

/// Whether it runs on the device that it should run on, and with that device's current rate and channels.
bool OutputUnit::isOnCurrentDevice()
{
    const std::scoped_lock lock(starting_); // a start in progress may have looked before the change
    OutputDevice device;
    Replacement nothing = afterRenders();
    const OSStatus status = controlLocked(
        [&] {
            const OSStatus found = hardware_->examine(hardware_->device(), device);
            return found != noErr || device == device_ ? found : kAudioHardwareBadDeviceError;
        },
        nothing);
    return status == noErr && isRunning();
}

void OutputUnit::renderCycle(const AudioTimeStamp& time, UInt32 frames, const PcmLayout& layout, AudioBufferList& data)
{
    if (!isRunning() || !isInitialised())
        return;
    AudioUnitRenderActionFlags flags = 0;
    render({flags, time, 0, frames}, data, &layout);
    Float32 gain = 1;
    parameter(kHALOutputParam_Volume, kAudioUnitScope_Global, gain);
    if (!isRunning()) // a stop inside the callback silences its slice
        gain = 0;
    for (const AudioBuffer& buffer : buffersOf(data))
        applyGain(gain, buffer);
}

/// Four-character codes are the device's; the unit's own are small numbers. Without a device the nominal rate is the
/// client's.
bool OutputUnit::isOfDevice(AudioUnitPropertyID property) const
{
    constexpr AudioUnitPropertyID lowestCode = 1U << 24;
    return property >= lowestCode && (property != kAudioDevicePropertyNominalSampleRate || knowsDevice_.load());
}

OSStatus OutputUnit::propertyInfo(const UnitPropertyAddress& address, UInt32* size, Boolean* isWritable) const
{
    return isOfDevice(address.id) ? hardware_->propertyInfo(address.id, size, isWritable)
                                  : Unit::propertyInfo(address, size, isWritable);
}

OSStatus OutputUnit::property(const UnitPropertyAddress& address, void* value, UInt32& size)
{
    return isOfDevice(address.id) ? hardware_->read(address.id, size, value) : Unit::property(address, value, size);
}

OSStatus OutputUnit::setProperty(const UnitPropertyAddress& address, const void* value, UInt32 size)
{
    if (isOfDevice(address.id))
        return hardware_->write(address.id, size, value);
    if (address.id != kAudioOutputUnitProperty_CurrentDevice)
        return Unit::setProperty(address, value, size);
    if (!mayWait())
        return kAudioUnitErr_CannotDoInCurrentContext;
    const bool wasRunning = halt();
    const OSStatus status = Unit::setProperty(address, value, size);
    const OSStatus startStatus = wantsToRun_.load() ? resume() : noErr;
    if (wasRunning && !isRunning())
        tell(running);
    return status != noErr ? status : startStatus;
}

OSStatus OutputUnit::shapeOf(const UnitPropertyAddress& address, PropertyShape& shape) const
{
    const bool isFormat = address.id == kAudioUnitProperty_StreamFormat || address.id == kAudioUnitProperty_SampleRate;
    OSStatus status = noErr;
    switch (address.id) {
    case kAudioOutputUnitProperty_IsRunning:
        shape = {.size = sizeof(UInt32)};
        return noErr;
    case kAudioOutputUnitProperty_CurrentDevice:
        shape = {.size = sizeof(AudioDeviceID), .isWritable = true};
        return noErr;
    case kAudioDevicePropertyNominalSampleRate:
        shape = {.size = sizeof(Float64)};
        return noErr;
    default:
        status = Unit::shapeOf(address, shape);
        if (isFormat && address.scope == kAudioUnitScope_Output)
            shape.isWritable = false; // the device's
        return status;
    }
}

OSStatus OutputUnit::read(const UnitPropertyAddress& address, void* value) const
{
    switch (address.id) {
    case kAudioOutputUnitProperty_CurrentDevice: {
        const AudioDeviceID device = hardware_->device();
        std::memcpy(value, &device, sizeof device);
        return noErr;
    }
    case kAudioDevicePropertyNominalSampleRate:
        std::memcpy(value, &input(0).format.mSampleRate, sizeof(Float64));
        return noErr;
    default:
        return Unit::read(address, value);
    }
}

OSStatus OutputUnit::write(const UnitPropertyAddress& address, const void* value)
{
    if (address.id != kAudioOutputUnitProperty_CurrentDevice)
        return Unit::write(address, value);
    AudioDeviceID device = kAudioDeviceUnknown;
    std::memcpy(&device, value, sizeof device);
    return setDevice(device);
}

OSStatus OutputUnit::setDevice(AudioDeviceID id)
{
    OutputDevice device; // the default one is looked up at the start
    OSStatus status = id == kAudioDeviceUnknown ? noErr : hardware_->examine(id, device);
    if (status == noErr)
        status = adopt(device);
    if (status != noErr)
        return status;
    hardware_->name(id);
    if (id != kAudioDeviceUnknown && !isInitialised()) {
        input(0).format.mSampleRate = device.sampleRate;
        noteChange({kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input, 0});
    }
    return noErr;
}

std::optional<UInt32> OutputUnit::liveValue(const UnitPropertyAddress& address)
{
    return address.id == kAudioOutputUnitProperty_IsRunning ? std::optional<UInt32>(isRunning())
                                                            : Unit::liveValue(address);
}

} // namespace qmx
