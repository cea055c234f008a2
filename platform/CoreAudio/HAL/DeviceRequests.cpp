// SPDX-License-Identifier: MIT
// Checks the values that callers set; the backend carries them out.
#include "CoreAudio/HAL/DeviceView.h"

#include <algorithm>

namespace qmx
{
namespace
{

CheckedRequest refused(OSStatus status)
{
    return {.status = status, .request = {}};
}

CheckedRequest sampleRateRequest(const DeviceDescription& device, UInt32 size, const void* data)
{
    Float64 rate = 0;
    if (const OSStatus status = takeValue(size, data, rate))
        return refused(status);
    if (!hasSampleRate(device, rate))
        return refused(kAudioDeviceUnsupportedFormatError);
    return {.status = noErr, .request = SetSampleRate{rate}};
}

CheckedRequest bufferSizeRequest(const DeviceDescription& device, UInt32 bytesPerUnit, UInt32 size, const void* data)
{
    UInt32 units = 0;
    if (const OSStatus status = takeValue(size, data, units))
        return refused(status);
    const UInt32 frames = units / bytesPerUnit;
    if (frames < device.minimumBufferFrameSize || frames > device.maximumBufferFrameSize)
        return refused(kAudioHardwareIllegalOperationError);
    return {.status = noErr, .request = SetBufferFrameSize{frames}};
}

CheckedRequest volumeRequest(const SectionDescription& section, const PropertyAddress& address, UInt32 size,
                             const void* data)
{
    const bool isDecibels = address.property == kAudioDevicePropertyVolumeDecibels;
    Float32 scalar = 0;
    if (const OSStatus status = takeVolume(section.volumes.at(address.channel), isDecibels, size, data, scalar))
        return refused(status);
    return {.status = noErr, .request = SetVolume{address.isInput, address.channel, scalar}};
}

CheckedRequest muteRequest(const PropertyAddress& address, UInt32 size, const void* data)
{
    UInt32 flag = 0;
    if (const OSStatus status = takeValue(size, data, flag))
        return refused(status);
    return {.status = noErr, .request = SetMute{address.isInput, address.channel, flag != 0}};
}

CheckedRequest dataSourceRequest(const SectionDescription& section, bool isInput, UInt32 size, const void* data)
{
    UInt32 id = 0;
    if (const OSStatus status = takeValue(size, data, id))
        return refused(status);
    if (std::ranges::find(section.dataSources, id, &DataSource::id) == section.dataSources.end())
        return refused(kAudioHardwareIllegalOperationError);
    return {.status = noErr, .request = SetDataSource{isInput, id}};
}

CheckedRequest rawRequest(const PropertyAddress& address, const RawProperty& raw, UInt32 size, const void* data)
{
    if (!data)
        return refused(kAudio_ParamError);
    if (size != raw.value.size())
        return refused(kAudioHardwareBadPropertySizeError);
    const auto* const bytes = static_cast<const std::byte*>(data);
    return {.status = noErr, .request = SetRawProperty{address, {bytes, bytes + size}}};
}

} // namespace

OSStatus takeVolume(const VolumeControl& volume, bool isDecibels, UInt32 size, const void* data, Float32& scalar)
{
    Float32 value = 0;
    if (const OSStatus status = takeValue(size, data, value))
        return status;
    if (value != value)
        return kAudioHardwareIllegalOperationError;
    scalar = isDecibels ? scalarOf(volume, value) : std::clamp(value, 0.0F, 1.0F);
    return noErr;
}

CheckedRequest deviceRequest(const DeviceView& view, const PropertyAddress& address, UInt32 size, const void* data)
{
    const DeviceDescription& device = *view.description;
    const SectionDescription& section = device.section(address.isInput);
    const auto present = deviceProperty(view, address);
    if (!present)
        return refused(kAudioHardwareUnknownPropertyError);
    if (!present->isWritable)
        return refused(kAudioHardwareUnsupportedOperationError);
    if (const auto raw = device.rawProperties.find(address); raw != device.rawProperties.end())
        return rawRequest(address, raw->second, size, data);
    switch (address.property) {
    case kAudioDevicePropertyNominalSampleRate:
        return sampleRateRequest(device, size, data);
    case kAudioDevicePropertyBufferFrameSize:
        return bufferSizeRequest(device, 1, size, data);
    case kAudioDevicePropertyBufferSize:
        return bufferSizeRequest(device, section.streams.front().channels * static_cast<UInt32>(sizeof(Float32)), size,
                                 data);
    case kAudioDevicePropertyVolumeScalar:
    case kAudioDevicePropertyVolumeDecibels:
        return volumeRequest(section, address, size, data);
    case kAudioDevicePropertyMute:
        return muteRequest(address, size, data);
    case kAudioDevicePropertyDataSource:
        return dataSourceRequest(section, address.isInput, size, data);
    default: // formats; nothing else is writable
        return formatRequest(device, {address.isInput, *streamOfChannel(section, address.channel)}, address.property,
                             size, data);
    }
}

CheckedRequest streamRequest(const DeviceView& device, StreamPlace place, AudioStreamPropertyID property, UInt32 size,
                             const void* data)
{
    const auto present = streamProperty(device, place, property);
    if (!present)
        return refused(kAudioHardwareUnknownPropertyError);
    if (!present->isWritable)
        return refused(kAudioHardwareUnsupportedOperationError);
    return formatRequest(*device.description, place, property, size, data);
}

} // namespace qmx
