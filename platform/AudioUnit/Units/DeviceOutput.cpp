// SPDX-License-Identifier: MIT
#include "AudioUnit/Units/DeviceOutput.h"

#include "AudioUnit/Units/DeviceRun.h"
#include "AudioUnit/Units/DeviceWatch.h"
#include "AudioUnit/Units/SliceBuffers.h"
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

AudioDeviceID defaultOutputDevice()
{
    AudioDeviceID device = kAudioDeviceUnknown;
    UInt32 size = sizeof device;
    const OSStatus status = AudioHardwareGetProperty(kAudioHardwarePropertyDefaultOutputDevice, &size, &device);
    return status == noErr ? device : kAudioDeviceUnknown;
}

/// Sums the channels of all output streams.
OSStatus countChannels(AudioDeviceID device, UInt32& channels)
{
    constexpr AudioDevicePropertyID streams = kAudioDevicePropertyStreamConfiguration;
    UInt32 size = 0;
    OSStatus status = AudioDeviceGetPropertyInfo(device, 0, false, streams, &size, nullptr);
    if (status != noErr)
        return status;
    const HeapBlock block = zeroedHeapBlock(std::max<std::size_t>(size, sizeof(AudioBufferList)));
    if (!block)
        return kAudio_MemFullError;
    status = AudioDeviceGetProperty(device, 0, false, streams, &size, block.get());
    if (status != noErr)
        return status;
    for (const AudioBuffer& stream : buffersOf(*static_cast<AudioBufferList*>(block.get())))
        channels += stream.mNumberChannels;
    return noErr;
}

} // namespace

AudioStreamBasicDescription OutputDevice::format() const
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

DeviceOutput::DeviceOutput() = default;
DeviceOutput::~DeviceOutput() = default;

OSStatus DeviceOutput::examine(AudioDeviceID id, OutputDevice& device) const
{
    if (id == kAudioDeviceUnknown)
        return kAudioHardwareBadDeviceError;
    device = {.id = id};
    UInt32 size = sizeof device.sampleRate;
    const OSStatus status =
        AudioDeviceGetProperty(id, 0, false, kAudioDevicePropertyNominalSampleRate, &size, &device.sampleRate);
    if (status != noErr)
        return status;
    const OSStatus channelStatus = countChannels(id, device.channels);
    return channelStatus == noErr && device.channels == 0 ? kAudioHardwareBadDeviceError : channelStatus;
}

AudioDeviceID DeviceOutput::device() const
{
    const AudioDeviceID named = named_.load();
    return named != kAudioDeviceUnknown ? named : defaultOutputDevice();
}

AudioDeviceID DeviceOutput::watch(const std::shared_ptr<OutputClient>& client)
{
    if (!watch_)
        watch_ = std::make_unique<DeviceWatch>(client);
    const AudioDeviceID found = device();
    watch_->add(found);
    return found;
}

OSStatus DeviceOutput::start(const OutputDevice& device, std::shared_ptr<OutputClient> client, UInt32 maximumFrames)
try {
    auto made = std::make_unique<DeviceRun>(device, std::move(client), maximumFrames);
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

void DeviceOutput::stop() noexcept
{
    const Publication::Reader stop(stops_); // whoever sees the run gone must see a stop in progress
    end(run_.exchange(nullptr), mayWait());
}

void DeviceOutput::end(DeviceRun* run, bool waits) noexcept
{
    if (!run)
        return;
    run->end(stops_);
    if (waits)
        delete run;
    else
        retire(run);
}

void DeviceOutput::waitUntilStopped()
{
    stops_.waitForReaders();
}

OSStatus DeviceOutput::propertyInfo(AudioDevicePropertyID property, UInt32* size, Boolean* isWritable) const
{
    return asUnitStatus(AudioDeviceGetPropertyInfo(device(), 0, false, property, size, isWritable));
}

OSStatus DeviceOutput::read(AudioDevicePropertyID property, UInt32& size, void* value) const
{
    return value ? asUnitStatus(AudioDeviceGetProperty(device(), 0, false, property, &size, value))
                 : propertyInfo(property, &size, nullptr);
}

OSStatus DeviceOutput::write(AudioDevicePropertyID property, UInt32 size, const void* value)
{
    return asUnitStatus(AudioDeviceSetProperty(device(), nullptr, 0, false, property, size, value));
}

} // namespace qmx
