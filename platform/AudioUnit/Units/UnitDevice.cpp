// SPDX-License-Identifier: MIT
#include "AudioUnit/Units/UnitDevice.h"

#include "AudioUnit/Units/DeviceRun.h"
#include "AudioUnit/Units/DeviceWatch.h"
#include "AudioUnit/Units/SliceBuffers.h"
#include "CoreAudioTypes/AudioBuffers.h"
#include "Foundation/HeapBlock.h"
#include "Foundation/RealTime.h"

#include <algorithm>
#include <new>
#include <utility>

namespace qmx
{
namespace
{

OSStatus asUnitStatus(OSStatus status)
{
    switch (status) {
    case kAudioHardwareUnknownPropertyError:
        return kAudioUnitErr_InvalidProperty;
    case kAudioHardwareUnsupportedOperationError:
        return kAudioUnitErr_PropertyNotWritable;
    case kAudioHardwareBadPropertySizeError:
        return kAudioUnitErr_InvalidPropertyValue;
    default:
        return status;
    }
}

AudioDeviceID defaultDevice(AudioHardwarePropertyID which)
{
    AudioDeviceID device = kAudioDeviceUnknown;
    UInt32 size = sizeof device;
    const OSStatus status = AudioHardwareGetProperty(which, &size, &device);
    return status == noErr ? device : kAudioDeviceUnknown;
}

/// Sums the channels of all streams of a section.
OSStatus countChannels(AudioDeviceID device, bool isInput, UInt32& channels)
{
    constexpr AudioDevicePropertyID streams = kAudioDevicePropertyStreamConfiguration;
    UInt32 size = 0;
    OSStatus status = AudioDeviceGetPropertyInfo(device, 0, isInput, streams, &size, nullptr);
    if (status != noErr)
        return status;
    const HeapBlock block = zeroedHeapBlock(std::max<std::size_t>(size, sizeof(AudioBufferList)));
    if (!block)
        return kAudio_MemFullError;
    status = AudioDeviceGetProperty(device, 0, isInput, streams, &size, block.get());
    if (status != noErr)
        return status;
    for (const AudioBuffer& stream : buffersOf(*static_cast<AudioBufferList*>(block.get())))
        channels += stream.mNumberChannels;
    return noErr;
}

/// Counts the channels of a section that is used, which has some.
OSStatus countUsedChannels(AudioDeviceID device, bool isInput, bool isUsed, UInt32& channels)
{
    if (!isUsed)
        return noErr;
    const OSStatus status = countChannels(device, isInput, channels);
    return status == noErr && channels == 0 ? kAudioHardwareBadDeviceError : status;
}

} // namespace

AudioStreamBasicDescription UsedDevice::format(UInt32 channels) const
{
    const auto frameBytes = static_cast<UInt32>(channels * sizeof(Float32));
    return {.mSampleRate = sampleRate,
            .mFormatID = kAudioFormatLinearPCM,
            .mFormatFlags = kAudioFormatFlagsNativeFloatPacked,
            .mBytesPerPacket = frameBytes,
            .mFramesPerPacket = 1,
            .mBytesPerFrame = frameBytes,
            .mChannelsPerFrame = channels,
            .mBitsPerChannel = 32};
}

UnitDevice::UnitDevice() = default;
UnitDevice::~UnitDevice() = default;

OSStatus UnitDevice::examine(AudioDeviceID id, UsedDevice& device) const
{
    if (id == kAudioDeviceUnknown)
        return kAudioHardwareBadDeviceError;
    const Directions used = directions();
    device = {.id = id};
    UInt32 size = sizeof device.sampleRate;
    OSStatus status =
        AudioDeviceGetProperty(id, 0, !used.output, kAudioDevicePropertyNominalSampleRate, &size, &device.sampleRate);
    if (status == noErr)
        status = countUsedChannels(id, true, used.input, device.inputChannels);
    return status == noErr ? countUsedChannels(id, false, used.output, device.outputChannels) : status;
}

AudioDeviceID UnitDevice::device() const
{
    const AudioDeviceID named = named_.load();
    if (named != kAudioDeviceUnknown)
        return named;
    return defaultDevice(directions().output ? kAudioHardwarePropertyDefaultOutputDevice
                                             : kAudioHardwarePropertyDefaultInputDevice);
}

AudioDeviceID UnitDevice::watch(const std::shared_ptr<CycleClient>& client)
{
    if (!watch_)
        watch_ = std::make_unique<DeviceWatch>(client);
    const AudioDeviceID found = device();
    watch_->add(found);
    return found;
}

OSStatus UnitDevice::start(const UsedDevice& device, std::shared_ptr<CycleClient> client, UInt32 maximumFrames,
                           const RunEnds& earlier)
try {
    auto made = std::make_unique<DeviceRun>(device, std::move(client), maximumFrames, earlier);
    if (!canRetire()) // a stop inside a cycle must be able to retire the run
        return kAudioHardwareUnspecifiedError;
    if (const OSStatus status = made->enroll(); status != noErr)
        return status;
    DeviceRun* const run = made.release();
    end(run_.exchange(run), false); // left over if a stop came before its run was stored
    const OSStatus status = DeviceRun::start(device.id, run);
    if (status == noErr || run_.load() != run)
        return noErr; // started, or stopped meanwhile
    end(run_.exchange(nullptr), false);
    return status;
} catch (const std::bad_alloc&) {
    return kAudio_MemFullError;
}

void UnitDevice::stop() noexcept
{
    const Publication::Reader stop(stops_); // whoever sees the run gone must see a stop in progress
    end(run_.exchange(nullptr), mayWait());
}

void UnitDevice::end(DeviceRun* run, bool waits) noexcept
{
    if (!run)
        return;
    run->end(stops_);
    if (waits)
        delete run;
    else
        retire(run);
}

void UnitDevice::waitUntilStopped()
{
    stops_.waitForReaders();
}

bool UnitDevice::has(bool isInput) const
{
    UInt32 channels = 0;
    return countChannels(device(), isInput, channels) == noErr && channels > 0;
}

OSStatus UnitDevice::propertyInfo(bool isInput, AudioDevicePropertyID property, UInt32* size, Boolean* isWritable) const
{
    return asUnitStatus(AudioDeviceGetPropertyInfo(device(), 0, isInput, property, size, isWritable));
}

OSStatus UnitDevice::read(bool isInput, AudioDevicePropertyID property, UInt32& size, void* value) const
{
    return value ? asUnitStatus(AudioDeviceGetProperty(device(), 0, isInput, property, &size, value))
                 : propertyInfo(isInput, property, &size, nullptr);
}

OSStatus UnitDevice::write(bool isInput, AudioDevicePropertyID property, UInt32 size, const void* value)
{
    return asUnitStatus(AudioDeviceSetProperty(device(), nullptr, 0, isInput, property, size, value));
}

} // namespace qmx
