// SPDX-License-Identifier: MIT
#include "CoreAudio/HAL/DescriptionChanges.h"

#include <algorithm>
#include <set>

namespace qmx
{
namespace
{

constexpr UInt32 globalProperties[] = {
    kAudioDevicePropertyDeviceUID,
    kAudioDevicePropertyModelUID,
    kAudioDevicePropertyDeviceName,
    kAudioDevicePropertyDeviceNameCFString,
    kAudioDevicePropertyDeviceManufacturer,
    kAudioDevicePropertyDeviceManufacturerCFString,
    kAudioDevicePropertyTransportType,
    kAudioDevicePropertyDeviceCanBeDefaultSystemDevice,
    kAudioDevicePropertySupportsMixing,
    kAudioDevicePropertyAvailableNominalSampleRates,
    kAudioDevicePropertyNominalSampleRate,
    kAudioDevicePropertyActualSampleRate,
    kAudioDevicePropertyBufferFrameSizeRange,
    kAudioDevicePropertyBufferFrameSize,
    kAudioDevicePropertyUsesVariableBufferFrameSizes,
    kAudioDevicePropertyDeviceIsRunning,
    kAudioDevicePropertyDeviceIsRunningSomewhere,
};

constexpr UInt32 sectionProperties[] = {
    kAudioDevicePropertyStreams,
    kAudioDevicePropertyStreamConfiguration,
    kAudioDevicePropertyBufferSizeRange,
    kAudioDevicePropertyBufferSize,
    kAudioDevicePropertyDeviceCanBeDefaultDevice,
    kAudioDevicePropertyLatency,
    kAudioDevicePropertySafetyOffset,
    kAudioDevicePropertyPreferredChannelsForStereo,
    kAudioDevicePropertyPreferredChannelLayout,
    kAudioDevicePropertyDataSources,
    kAudioDevicePropertyDataSource,
    kAudioDevicePropertyJackIsConnected,
};

constexpr UInt32 formatProperties[] = {
    kAudioDevicePropertyStreamFormat,
    kAudioDevicePropertyStreamFormats,
    kAudioStreamPropertyPhysicalFormat,
};

constexpr UInt32 streamProperties[] = {
    kAudioDevicePropertyStreamFormat,    kAudioDevicePropertyStreamFormats, kAudioStreamPropertyPhysicalFormat,
    kAudioStreamPropertyPhysicalFormats, kAudioStreamPropertyTerminalType,  kAudioStreamPropertyLatency,
    kAudioStreamPropertyStartingChannel,
};

constexpr UInt32 controlProperties[] = {
    kAudioDevicePropertyVolumeScalar,
    kAudioDevicePropertyVolumeDecibels,
    kAudioDevicePropertyVolumeRangeDecibels,
    kAudioDevicePropertyMute,
};

constexpr AudioHardwarePropertyID bootChimeProperties[] = {
    kAudioHardwarePropertyBootChimeVolumeScalar,
    kAudioHardwarePropertyBootChimeVolumeDecibels,
    kAudioHardwarePropertyBootChimeVolumeRangeDecibels,
};

bool isSame(const std::optional<PropertyValue>& one, const std::optional<PropertyValue>& other)
{
    if (!one || !other)
        return !one == !other;
    return one->bytes == other->bytes && one->text == other->text;
}

// Compares the stream layout alone: its buffer sizes follow the buffer frame size, which is announced by itself.
bool hasSameStreams(const SectionDescription& one, const SectionDescription& other)
{
    return std::ranges::equal(one.streams, other.streams, {}, &StreamDescription::channels,
                              &StreamDescription::channels);
}

class Comparison
{
public:
    Comparison(const DeviceView& before, const DeviceView& after) : before_(before), after_(after) {}

    std::vector<PropertyChange> changes()
    {
        for (const UInt32 property : globalProperties)
            for (const bool isInput : announcedSections(*after_.description))
                compareDevice({property, 0, isInput});
        for (const UInt32 property : sectionProperties)
            for (const bool isInput : {true, false})
                compareSection({property, 0, isInput});
        for (const UInt32 property : formatProperties)
            for (const bool isInput : {true, false})
                compareFormats(property, isInput);
        for (const bool isInput : {true, false})
            compareControls(isInput);
        compareRawProperties();
        for (const bool isInput : {true, false})
            compareStreams(isInput);
        return std::move(changes_);
    }

private:
    const SectionDescription& before(bool isInput) const { return before_.description->section(isInput); }
    const SectionDescription& after(bool isInput) const { return after_.description->section(isInput); }

    void compareDevice(const PropertyAddress& address)
    {
        if (!isSame(deviceProperty(before_, address), deviceProperty(after_, address)))
            changes_.push_back({kAudioStreamUnknown, address});
    }

    void compareSection(const PropertyAddress& address)
    {
        if (address.property != kAudioDevicePropertyStreamConfiguration)
            compareDevice(address);
        else if (!hasSameStreams(before(address.isInput), after(address.isInput)))
            changes_.push_back({kAudioStreamUnknown, address});
    }

    void compareFormats(UInt32 property, bool isInput)
    {
        const std::size_t streams = std::max(before(isInput).streams.size(), after(isInput).streams.size());
        for (std::size_t stream = 0; stream < streams; ++stream) {
            const auto& section = stream < after(isInput).streams.size() ? after(isInput) : before(isInput);
            compareDevice({property, stream == 0 ? 0 : startingChannel(section, stream), isInput});
        }
    }

    void compareControls(bool isInput)
    {
        std::set<UInt32> channels;
        for (const SectionDescription* section : {&before(isInput), &after(isInput)}) {
            for (const auto& [channel, volume] : section->volumes)
                channels.insert(channel);
            for (const auto& [channel, mute] : section->mutes)
                channels.insert(channel);
        }
        for (const UInt32 channel : channels)
            for (const UInt32 property : controlProperties)
                compareDevice({property, channel, isInput});
    }

    // Skips raw properties that override a property that was announced above.
    void compareRawProperties()
    {
        std::set<PropertyAddress> addresses;
        for (const DeviceView* view : {&before_, &after_})
            for (const auto& [address, raw] : view->description->rawProperties)
                addresses.insert(address);
        for (const PropertyAddress& address : addresses)
            if (std::ranges::none_of(changes_, [&](const auto& change) { return change.address == address; }))
                compareDevice(address);
    }

    void compareStreams(bool isInput)
    {
        const std::vector<AudioStreamID>& ids = after_.streams(isInput);
        const std::size_t kept = std::min(before_.streams(isInput).size(), ids.size());
        for (std::size_t stream = 0; stream < kept; ++stream)
            for (const UInt32 property : streamProperties) {
                const StreamPlace place{isInput, stream};
                if (!isSame(streamProperty(before_, place, property), streamProperty(after_, place, property)))
                    changes_.push_back({ids[stream], {property, 0, isInput}});
            }
    }

    const DeviceView& before_;
    const DeviceView& after_;
    std::vector<PropertyChange> changes_;
};

} // namespace

std::vector<bool> announcedSections(const DeviceDescription& device)
{
    std::vector<bool> sections;
    for (const bool isInput : {true, false})
        if (!device.section(isInput).streams.empty())
            sections.push_back(isInput);
    if (sections.empty())
        sections.push_back(false);
    return sections;
}

std::vector<PropertyChange> changesBetween(const DeviceView& before, const DeviceView& after)
{
    return Comparison(before, after).changes();
}

std::vector<AudioHardwarePropertyID> bootChimeChanges(const std::optional<VolumeControl>& before,
                                                      const std::optional<VolumeControl>& after)
{
    std::vector<AudioHardwarePropertyID> changes;
    std::ranges::copy_if(bootChimeProperties, std::back_inserter(changes), [&](AudioHardwarePropertyID property) {
        return !isSame(bootChimeProperty(before, property), bootChimeProperty(after, property));
    });
    return changes;
}

} // namespace qmx
