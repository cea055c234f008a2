// SPDX-License-Identifier: MIT
#include "CoreAudio/HAL/DeviceView.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <tuple>

namespace qmx
{
namespace
{

bool isSameFormat(const AudioStreamBasicDescription& one, const AudioStreamBasicDescription& other)
{
    const auto fields = [](const AudioStreamBasicDescription& format) {
        return std::tie(format.mSampleRate, format.mFormatID, format.mFormatFlags, format.mBytesPerPacket,
                        format.mFramesPerPacket, format.mBytesPerFrame, format.mChannelsPerFrame,
                        format.mBitsPerChannel);
    };
    return fields(one) == fields(other);
}

// Whether `listed` includes a format: the same apart from the rate, at a rate that `listed` allows.
bool allows(const DeviceDescription& device, const AudioStreamBasicDescription& listed,
            AudioStreamBasicDescription format)
{
    if (listed.mSampleRate == kAudioStreamAnyRate ? !hasSampleRate(device, format.mSampleRate)
                                                  : format.mSampleRate != listed.mSampleRate)
        return false;
    format.mSampleRate = listed.mSampleRate;
    return isSameFormat(listed, format);
}

bool isPhysicalFormat(const DeviceDescription& device, const StreamDescription& stream,
                      const AudioStreamBasicDescription& format)
{
    return std::ranges::any_of(stream.physicalFormats,
                               [&](const auto& listed) { return allows(device, listed, format); });
}

bool isVirtualFormat(const DeviceDescription& device, const StreamDescription& stream,
                     const AudioStreamBasicDescription& format)
{
    AudioStreamBasicDescription listed = virtualFormat(device, stream);
    listed.mSampleRate = kAudioStreamAnyRate;
    return allows(device, listed, format);
}

Float64 nearestRate(const DeviceDescription& device, Float64 wanted)
{
    Float64 nearest = device.nominalSampleRate;
    for (const AudioValueRange& range : device.availableSampleRates) {
        const Float64 inRange = wanted > range.mMaximum ? range.mMaximum : std::max(wanted, range.mMinimum);
        if (std::abs(inRange - wanted) < std::abs(nearest - wanted))
            nearest = inRange;
    }
    return nearest;
}

// The distance of a listed format from a wanted one; the kind of sample counts most, then the width.
UInt32 distance(const AudioStreamBasicDescription& listed, const AudioStreamBasicDescription& wanted)
{
    const auto bits = static_cast<int>(std::min(wanted.mBitsPerChannel, 1024U));
    const bool sameCoding = listed.mFormatID == wanted.mFormatID;
    const bool sameKind = ((listed.mFormatFlags ^ wanted.mFormatFlags) & kAudioFormatFlagIsFloat) == 0;
    return (sameCoding ? 0U : 100000U) + (sameKind ? 0U : 10000U) +
           static_cast<UInt32>(std::abs(static_cast<int>(listed.mBitsPerChannel) - bits));
}

AudioStreamBasicDescription nearestPhysicalFormat(const DeviceDescription& device, const StreamDescription& stream,
                                                  const AudioStreamBasicDescription& wanted)
{
    AudioStreamBasicDescription nearest = stream.physicalFormat;
    const auto found = std::ranges::min_element(stream.physicalFormats, {},
                                                [&wanted](const auto& listed) { return distance(listed, wanted); });
    if (found != stream.physicalFormats.end())
        nearest = *found;
    if (nearest.mSampleRate == kAudioStreamAnyRate)
        nearest.mSampleRate = nearestRate(device, wanted.mSampleRate);
    return nearest;
}

AudioStreamBasicDescription nearestVirtualFormat(const DeviceDescription& device, const StreamDescription& stream,
                                                 const AudioStreamBasicDescription& wanted)
{
    AudioStreamBasicDescription nearest = virtualFormat(device, stream);
    nearest.mSampleRate = nearestRate(device, wanted.mSampleRate);
    return nearest;
}

std::vector<AudioStreamBasicDescription> virtualFormats(const DeviceDescription& device,
                                                        const StreamDescription& stream)
{
    std::vector<AudioStreamBasicDescription> formats;
    for (const AudioValueRange& range : device.availableSampleRates) {
        formats.push_back(virtualFormat(device, stream));
        formats.back().mSampleRate = range.mMinimum == range.mMaximum ? range.mMinimum : kAudioStreamAnyRate;
    }
    return formats;
}

} // namespace

std::optional<std::size_t> streamOfChannel(const SectionDescription& section, UInt32 channel)
{
    for (std::size_t stream = 0; stream < section.streams.size(); ++stream)
        if (channel < startingChannel(section, stream) + section.streams[stream].channels)
            return stream;
    return {};
}

UInt32 startingChannel(const SectionDescription& section, std::size_t stream)
{
    UInt32 channel = 1;
    for (std::size_t earlier = 0; earlier < stream; ++earlier)
        channel += section.streams[earlier].channels;
    return channel;
}

AudioStreamBasicDescription virtualFormat(const DeviceDescription& device, const StreamDescription& stream)
{
    return packedPhysicalFormat(device.nominalSampleRate, stream.channels, 32, true);
}

bool hasSampleRate(const DeviceDescription& device, Float64 rate)
{
    return std::ranges::any_of(device.availableSampleRates, [rate](const AudioValueRange& range) {
        return range.mMinimum <= rate && rate <= range.mMaximum;
    });
}

std::optional<PropertyValue> formatProperty(const DeviceDescription& device, const StreamDescription& stream,
                                            UInt32 property)
{
    switch (property) {
    case kAudioDevicePropertyStreamFormat:
        return PropertyValue::of(virtualFormat(device, stream), device.sampleRateIsSettable);
    case kAudioDevicePropertyStreamFormats:
        return PropertyValue::listOf(virtualFormats(device, stream));
    case kAudioStreamPropertyPhysicalFormat:
        return PropertyValue::of(stream.physicalFormat, device.sampleRateIsSettable && !stream.physicalFormats.empty());
    case kAudioStreamPropertyPhysicalFormats:
        return PropertyValue::listOf(stream.physicalFormats);
    case kAudioDevicePropertyStreamFormatMatch:
    case kAudioDevicePropertyStreamFormatSupported:
    case kAudioStreamPropertyPhysicalFormatMatch:
    case kAudioStreamPropertyPhysicalFormatSupported:
        return PropertyValue::of(AudioStreamBasicDescription{});
    default:
        return {};
    }
}

std::optional<OSStatus> translateFormat(const DeviceDescription& device, const StreamDescription& stream,
                                        UInt32 property, UInt32* ioSize, void* block)
{
    using Format = AudioStreamBasicDescription;
    const auto answer = [](bool isSupported) -> OSStatus {
        return isSupported ? noErr : kAudioDeviceUnsupportedFormatError;
    };
    switch (property) {
    case kAudioDevicePropertyStreamFormatMatch:
        return translateInPlace<Format>(ioSize, block, [&](Format& format) -> OSStatus {
            format = nearestVirtualFormat(device, stream, format);
            return noErr;
        });
    case kAudioStreamPropertyPhysicalFormatMatch:
        return translateInPlace<Format>(ioSize, block, [&](Format& format) -> OSStatus {
            format = nearestPhysicalFormat(device, stream, format);
            return noErr;
        });
    case kAudioDevicePropertyStreamFormatSupported:
        return translateInPlace<Format>(
            ioSize, block, [&](const Format& format) { return answer(isVirtualFormat(device, stream, format)); });
    case kAudioStreamPropertyPhysicalFormatSupported:
        return translateInPlace<Format>(
            ioSize, block, [&](const Format& format) { return answer(isPhysicalFormat(device, stream, format)); });
    default:
        return {};
    }
}

CheckedRequest formatRequest(const DeviceDescription& device, StreamPlace place, UInt32 property, UInt32 size,
                             const void* data)
{
    AudioStreamBasicDescription format;
    if (const OSStatus status = takeValue(size, data, format))
        return {.status = status, .request = {}};
    const StreamDescription& stream = device.section(place.isInput).streams[place.index];
    const bool isVirtual = property == kAudioDevicePropertyStreamFormat;
    if (!(isVirtual ? isVirtualFormat(device, stream, format) : isPhysicalFormat(device, stream, format)))
        return {.status = kAudioDeviceUnsupportedFormatError, .request = {}};
    if (isVirtual)
        return {.status = noErr, .request = SetSampleRate{format.mSampleRate}};
    return {.status = noErr, .request = SetPhysicalFormat{place.isInput, place.index, format}};
}

} // namespace qmx
