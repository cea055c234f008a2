// SPDX-License-Identifier: MIT
#include "CoreAudio/HAL/DeviceView.h"
#include "Foundation/Text/CFString.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace qmx
{
namespace
{

constexpr UInt32 bytesPerSample = sizeof(Float32);

// A property of the device as a whole, the same in both sections.
std::optional<PropertyValue> globalProperty(const DeviceView& view, UInt32 property)
{
    const DeviceDescription& device = *view.description;
    switch (property) {
    case kAudioDevicePropertyDeviceUID:
        return PropertyValue::reference(device.uid);
    case kAudioDevicePropertyModelUID:
        return PropertyValue::reference(device.modelUID);
    case kAudioDevicePropertyDeviceName:
        return PropertyValue::cText(device.name);
    case kAudioDevicePropertyDeviceNameCFString:
        return PropertyValue::reference(device.name);
    case kAudioDevicePropertyDeviceManufacturer:
        return PropertyValue::cText(device.manufacturer);
    case kAudioDevicePropertyDeviceManufacturerCFString:
        return PropertyValue::reference(device.manufacturer);
    case kAudioDevicePropertyTransportType:
        return PropertyValue::of(device.transportType);
    case kAudioDevicePropertyDeviceIsAlive:
        return PropertyValue::flag(true);
    case kAudioDevicePropertyDeviceIsRunning:
    case kAudioDevicePropertyDeviceIsRunningSomewhere:
        return PropertyValue::flag(view.isRunning);
    case kAudioDevicePropertyDeviceCanBeDefaultSystemDevice:
        return PropertyValue::flag(device.canBeDefaultSystemDevice);
    case kAudioDevicePropertySupportsMixing:
        return PropertyValue::flag(device.supportsMixing);
    case kAudioDevicePropertyHogMode:
        return PropertyValue::of(SInt32{-1}); // no process: exclusive use is not offered
    case kAudioDevicePropertyUsesVariableBufferFrameSizes:
        if (!device.usesVariableBufferFrameSizes)
            return {};
        return PropertyValue::of(device.maximumBufferFrameSize);
    case kAudioDevicePropertyNominalSampleRate:
        return PropertyValue::of(device.nominalSampleRate, device.sampleRateIsSettable);
    case kAudioDevicePropertyActualSampleRate:
        return PropertyValue::of(device.actualSampleRate);
    case kAudioDevicePropertyAvailableNominalSampleRates:
        return PropertyValue::listOf(device.availableSampleRates);
    case kAudioDevicePropertyBufferFrameSize:
        return PropertyValue::of(device.bufferFrameSize, true);
    case kAudioDevicePropertyBufferFrameSizeRange:
        return PropertyValue::of(
            AudioValueRange{Float64(device.minimumBufferFrameSize), Float64(device.maximumBufferFrameSize)});
    default:
        return {};
    }
}

// An AudioBufferList with the channels and byte sizes of a cycle and no data.
PropertyValue streamConfiguration(const DeviceDescription& device, const SectionDescription& section)
{
    PropertyValue value;
    value.bytes.resize(offsetof(AudioBufferList, mBuffers) + section.streams.size() * sizeof(AudioBuffer));
    const auto count = static_cast<UInt32>(section.streams.size());
    std::memcpy(value.bytes.data(), &count, sizeof count);
    std::byte* place = value.bytes.data() + offsetof(AudioBufferList, mBuffers);
    for (const StreamDescription& stream : section.streams) {
        const AudioBuffer buffer{.mNumberChannels = stream.channels,
                                 .mDataByteSize = device.bufferFrameSize * stream.channels * bytesPerSample,
                                 .mData = nullptr};
        std::memcpy(place, &buffer, sizeof buffer);
        place += sizeof buffer;
    }
    return value;
}

// A tag if there is one, otherwise a description of each channel. Always at least one whole record in size.
PropertyValue channelLayout(const SectionDescription& section)
{
    const UInt32 channels = numberOfChannels(section);
    AudioChannelLayout layout;
    layout.mChannelLayoutTag = section.channelLayoutTag ? section.channelLayoutTag
                               : channels == 1          ? kAudioChannelLayoutTag_Mono
                               : channels == 2          ? kAudioChannelLayoutTag_Stereo
                                                        : kAudioChannelLayoutTag_UseChannelDescriptions;
    PropertyValue value = PropertyValue::of(layout);
    if (layout.mChannelLayoutTag != kAudioChannelLayoutTag_UseChannelDescriptions)
        return value;
    std::memcpy(value.bytes.data() + offsetof(AudioChannelLayout, mNumberChannelDescriptions), &channels,
                sizeof channels);
    value.bytes.resize(offsetof(AudioChannelLayout, mChannelDescriptions) + channels * sizeof(AudioChannelDescription));
    for (UInt32 channel = 0; channel < channels; ++channel) {
        AudioChannelDescription description;
        description.mChannelLabel = kAudioChannelLabel_Unknown;
        std::memcpy(value.bytes.data() + offsetof(AudioChannelLayout, mChannelDescriptions) +
                        channel * sizeof description,
                    &description, sizeof description);
    }
    return value;
}

std::optional<PropertyValue> dataSourceProperty(const SectionDescription& section, UInt32 property)
{
    if (section.dataSources.empty())
        return {};
    switch (property) {
    case kAudioDevicePropertyDataSource:
        return PropertyValue::of(section.dataSource, section.dataSourceIsSettable);
    case kAudioDevicePropertyDataSources: {
        std::vector<UInt32> ids;
        std::ranges::transform(section.dataSources, std::back_inserter(ids), &DataSource::id);
        return PropertyValue::listOf(ids);
    }
    case kAudioDevicePropertyDataSourceNameForID:
    case kAudioDevicePropertyDataSourceNameForIDCFString:
        return PropertyValue::of(AudioValueTranslation{});
    default:
        return {};
    }
}

std::optional<PropertyValue> controlProperty(const SectionDescription& section, UInt32 channel, UInt32 property)
{
    if (property == kAudioDevicePropertyMute) {
        const auto mute = section.mutes.find(channel);
        if (mute == section.mutes.end())
            return {};
        return PropertyValue::flag(mute->second.isMuted, mute->second.isSettable);
    }
    const auto found = section.volumes.find(channel);
    if (found == section.volumes.end())
        return {};
    const VolumeControl& volume = found->second;
    switch (property) {
    case kAudioDevicePropertyVolumeScalar:
        return PropertyValue::of(volume.scalar, volume.isSettable);
    case kAudioDevicePropertyVolumeDecibels:
        return PropertyValue::of(decibelsOf(volume, volume.scalar), volume.isSettable);
    case kAudioDevicePropertyVolumeRangeDecibels:
        return PropertyValue::of(AudioValueRange{volume.minimumDecibels, volume.maximumDecibels});
    case kAudioDevicePropertyVolumeScalarToDecibels:
    case kAudioDevicePropertyVolumeDecibelsToScalar:
        return PropertyValue::of(Float32{0});
    default:
        return {};
    }
}

// A property of a direction as a whole.
std::optional<PropertyValue> sectionProperty(const DeviceView& view, const PropertyAddress& address)
{
    const DeviceDescription& device = *view.description;
    const SectionDescription& section = device.section(address.isInput);
    switch (address.property) {
    case kAudioDevicePropertyStreamConfiguration:
        return streamConfiguration(device, section);
    case kAudioDevicePropertyStreams:
        return PropertyValue::listOf(view.streams(address.isInput));
    case kAudioDevicePropertyDeviceCanBeDefaultDevice: // a missing direction reports the other one's value
        return PropertyValue::flag(section.streams.empty() ? device.section(!address.isInput).canBeDefaultDevice
                                                           : section.canBeDefaultDevice);
    default:
        break;
    }
    if (section.streams.empty())
        return {};
    switch (address.property) {
    case kAudioDevicePropertyLatency:
        return PropertyValue::of(section.latency);
    case kAudioDevicePropertySafetyOffset:
        return PropertyValue::of(section.safetyOffset);
    case kAudioDevicePropertyBufferSize:
        return PropertyValue::of(device.bufferFrameSize * section.streams.front().channels * bytesPerSample, true);
    case kAudioDevicePropertyBufferSizeRange: {
        const Float64 frameSize = section.streams.front().channels * bytesPerSample;
        return PropertyValue::of(
            AudioValueRange{device.minimumBufferFrameSize * frameSize, device.maximumBufferFrameSize * frameSize});
    }
    case kAudioDevicePropertyPreferredChannelsForStereo:
        return PropertyValue::of(section.preferredChannelsForStereo);
    case kAudioDevicePropertyPreferredChannelLayout:
        return channelLayout(section);
    case kAudioDevicePropertyJackIsConnected:
        if (!section.jackIsConnected)
            return {};
        return PropertyValue::flag(*section.jackIsConnected);
    default:
        break;
    }
    if (auto value = dataSourceProperty(section, address.property))
        return value;
    if (auto value = controlProperty(section, address.channel, address.property))
        return value;
    const auto stream = streamOfChannel(section, address.channel);
    return stream ? formatProperty(device, section.streams[*stream], address.property) : std::nullopt;
}

OSStatus translateDataSourceName(const SectionDescription& section, bool isReference, UInt32* ioSize, void* block)
{
    AudioValueTranslation translation;
    const UInt32 room = isReference ? sizeof(CFStringRef) : 1;
    if (const OSStatus status = takeTranslation(ioSize, block, sizeof(UInt32), room, translation))
        return status;
    UInt32 id = 0;
    std::memcpy(&id, translation.mInputData, sizeof id);
    const auto source = std::ranges::find(section.dataSources, id, &DataSource::id);
    if (source == section.dataSources.end())
        return kAudioHardwareIllegalOperationError;
    if (!source->name)
        return kAudioHardwareUnknownPropertyError;
    const auto name = isReference ? PropertyValue::reference(*source->name) : PropertyValue::cText(*source->name);
    const OSStatus status = name.copyTo(&translation.mOutputDataSize, translation.mOutputData);
    std::memcpy(block, &translation, sizeof translation);
    return status;
}

} // namespace

Float32 decibelsOf(const VolumeControl& volume, Float32 scalar)
{
    if (!(scalar > 0))
        return volume.minimumDecibels;
    return std::clamp(volume.maximumDecibels + 20 * std::log10(scalar), volume.minimumDecibels,
                      std::max(volume.minimumDecibels, volume.maximumDecibels));
}

Float32 scalarOf(const VolumeControl& volume, Float32 decibels)
{
    if (!(decibels > volume.minimumDecibels))
        return 0;
    return std::min(1.0F, std::pow(10.0F, (decibels - volume.maximumDecibels) / 20));
}

std::optional<PropertyValue> bootChimeProperty(const std::optional<VolumeControl>& volume,
                                               AudioHardwarePropertyID property)
{
    if (!volume)
        return {};
    switch (property) {
    case kAudioHardwarePropertyBootChimeVolumeScalar:
        return PropertyValue::of(volume->scalar, volume->isSettable);
    case kAudioHardwarePropertyBootChimeVolumeDecibels:
        return PropertyValue::of(decibelsOf(*volume, volume->scalar), volume->isSettable);
    case kAudioHardwarePropertyBootChimeVolumeRangeDecibels:
        return PropertyValue::of(AudioValueRange{volume->minimumDecibels, volume->maximumDecibels});
    case kAudioHardwarePropertyBootChimeVolumeScalarToDecibels:
    case kAudioHardwarePropertyBootChimeVolumeDecibelsToScalar:
        return PropertyValue::of(Float32{0});
    default:
        return {};
    }
}

bool canBeDefault(const DeviceDescription& device, AudioHardwarePropertyID which)
{
    const SectionDescription& section = device.section(which == kAudioHardwarePropertyDefaultInputDevice);
    const bool isAllowed = which == kAudioHardwarePropertyDefaultSystemOutputDevice ? device.canBeDefaultSystemDevice
                                                                                    : section.canBeDefaultDevice;
    return isAllowed && !section.streams.empty();
}

std::optional<PropertyValue> deviceProperty(const DeviceView& view, const PropertyAddress& address)
{
    const DeviceDescription& device = *view.description;
    if (const auto raw = device.rawProperties.find(address); raw != device.rawProperties.end())
        return PropertyValue{.kind = PropertyValue::Kind::fixed,
                             .bytes = raw->second.value,
                             .entrySize = 1,
                             .text = {},
                             .isWritable = raw->second.isWritable};
    if (address.channel > numberOfChannels(device.section(address.isInput)))
        return {};
    if (auto value = globalProperty(view, address.property))
        return value;
    return sectionProperty(view, address);
}

std::optional<OSStatus> translateDeviceProperty(const DeviceView& view, const PropertyAddress& address, UInt32* ioSize,
                                                void* block)
{
    const DeviceDescription& device = *view.description;
    const SectionDescription& section = device.section(address.isInput);
    if (device.rawProperties.contains(address) || !deviceProperty(view, address))
        return {};
    switch (address.property) {
    case kAudioDevicePropertyDataSourceNameForID:
    case kAudioDevicePropertyDataSourceNameForIDCFString:
        return translateDataSourceName(section, address.property == kAudioDevicePropertyDataSourceNameForIDCFString,
                                       ioSize, block);
    case kAudioDevicePropertyVolumeScalarToDecibels:
    case kAudioDevicePropertyVolumeDecibelsToScalar:
        return translateInPlace<Float32>(ioSize, block, [&](Float32& value) -> OSStatus {
            const VolumeControl& volume = section.volumes.at(address.channel);
            value = address.property == kAudioDevicePropertyVolumeScalarToDecibels ? decibelsOf(volume, value)
                                                                                   : scalarOf(volume, value);
            return noErr;
        });
    default: {
        const auto stream = streamOfChannel(section, address.channel);
        return stream ? translateFormat(device, section.streams[*stream], address.property, ioSize, block)
                      : std::nullopt;
    }
    }
}

std::optional<PropertyValue> streamProperty(const DeviceView& device, StreamPlace place, AudioStreamPropertyID property)
{
    const SectionDescription& section = device.description->section(place.isInput);
    const StreamDescription& stream = section.streams[place.index];
    switch (property) {
    case kAudioStreamPropertyDirection:
        return PropertyValue::flag(place.isInput);
    case kAudioStreamPropertyOwningDevice:
        return PropertyValue::of(device.id);
    case kAudioStreamPropertyStartingChannel:
        return PropertyValue::of(startingChannel(section, place.index));
    case kAudioStreamPropertyTerminalType:
        return PropertyValue::of(stream.terminalType);
    case kAudioStreamPropertyLatency:
        return PropertyValue::of(stream.latency);
    default:
        return formatProperty(*device.description, stream, property);
    }
}

std::optional<OSStatus> translateStreamProperty(const DeviceView& device, StreamPlace place,
                                                AudioStreamPropertyID property, UInt32* ioSize, void* block)
{
    return translateFormat(*device.description, device.description->section(place.isInput).streams[place.index],
                           property, ioSize, block);
}

} // namespace qmx
