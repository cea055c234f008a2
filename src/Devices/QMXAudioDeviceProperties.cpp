// SPDX-License-Identifier: MIT
// What a device is and is set to: each value is asked of the hardware when it is wanted.
#include "Devices/QMXAudioDevice.h"
#include "Devices/QMXAudioStream.h"
#include "Formats/PropertyBlock.h"
#include "Formats/QMXAudioDeviceUtils.h"
#include "Formats/QMXAudioStreamBasicDescription.h"
#include "Formats/QMXAudioValueRange.h"
#include "Foundation/Text/CFString.h"
#include "Foundation/Text/Format.h"

#include <algorithm>
#include <cstddef>

namespace
{

using Format = QMXAudioStreamBasicDescription;
using Utils = QMXAudioDeviceUtils;

/// A text that the hardware gave, whose reference is released.
std::optional<std::string> takeText(CFStringRef reference)
{
    if (!reference)
        return std::nullopt;
    std::string text = CFStringGetText(reference);
    CFRelease(reference);
    return text;
}

/// How many of `stated` entries the value really has behind a header of `headerSize` bytes.
template <class Entry> UInt32 entriesWithin(const qmx::PropertyBlock& value, std::size_t headerSize, UInt32 stated)
{
    const std::size_t room = value.size < headerSize ? 0 : (value.size - headerSize) / sizeof(Entry);
    return static_cast<UInt32>(std::min<std::size_t>(stated, room));
}

} // namespace

UInt32 QMXAudioDevice::word(AudioDevicePropertyID propertyID, bool isInput) const
{
    return Utils::integerProperty_propertyID_isInput(deviceID_, propertyID, isInput);
}

std::optional<std::string> QMXAudioDevice::text(AudioDevicePropertyID propertyID, bool isInput) const
{
    CFStringRef reference = nullptr;
    UInt32 size = sizeof reference;
    const OSStatus status = AudioDeviceGetProperty(deviceID_, 0, isInput, propertyID, &size, &reference);
    return qmx::reported(status) == noErr ? takeText(reference) : std::nullopt;
}

std::optional<std::string> QMXAudioDevice::cachedText(std::optional<std::string>& cache,
                                                      AudioDevicePropertyID propertyID) const
{
    const std::scoped_lock lock(nameLock);
    if (!cache)
        cache = text(propertyID, true);
    return cache;
}

std::shared_ptr<QMXAudioStreamBasicDescription> QMXAudioDevice::format(AudioDevicePropertyID propertyID, UInt32 channel,
                                                                       bool isInput) const
{
    const auto value = qmx::readDeviceProperty(deviceID_, propertyID, channel, isInput);
    return Format::initWithAudioStreamBasicDescription(
        static_cast<const AudioStreamBasicDescription*>(value.block.get()));
}

bool QMXAudioDevice::canSet(AudioDevicePropertyID propertyID, UInt32 channel, bool isInput) const
{
    return Utils::canSetDeviceProperty_inPropertyID_inChannel_isInput(deviceID_, propertyID, channel, isInput);
}

template <class Value>
bool QMXAudioDevice::set(AudioDevicePropertyID propertyID, UInt32 channel, bool isInput, const Value& value) const
{
    return Utils::setDeviceProperty_inPropertyID_inChannel_isInput_inPropertyDataSize_inPropertyData(
        deviceID_, propertyID, channel, isInput, sizeof value, &value);
}

std::optional<std::string> QMXAudioDevice::deviceUID() const
{
    return text(kAudioDevicePropertyDeviceUID, false);
}

std::optional<std::string> QMXAudioDevice::name() const
{
    return cachedText(deviceName, kAudioDevicePropertyDeviceNameCFString);
}

std::optional<std::string> QMXAudioDevice::manufacturer() const
{
    return cachedText(deviceManufacturer, kAudioDevicePropertyDeviceManufacturerCFString);
}

bool QMXAudioDevice::isAlive() const
{
    return word(kAudioDevicePropertyDeviceIsAlive, true) != 0;
}

bool QMXAudioDevice::isRunning() const
{
    return word(kAudioDevicePropertyDeviceIsRunning, true) != 0;
}

bool QMXAudioDevice::canBeDefaultDevice() const
{
    return word(kAudioDevicePropertyDeviceCanBeDefaultDevice, true) != 0;
}

bool QMXAudioDevice::canBeDefaultSystemDevice() const
{
    return word(kAudioDevicePropertyDeviceCanBeDefaultSystemDevice, true) != 0;
}

bool QMXAudioDevice::canBeInputDevice() const
{
    return numberOfStreams(true) != 0;
}

bool QMXAudioDevice::canBeOutputDevice() const
{
    return numberOfStreams(false) != 0;
}

bool QMXAudioDevice::jackIsConnected(bool isInput) const
{
    return Utils::integerProperty_propertyID_forChannel_isInput(deviceID_, kAudioDevicePropertyJackIsConnected, 1,
                                                                isInput) != 0;
}

bool QMXAudioDevice::supportsMixing() const
{
    return word(kAudioDevicePropertySupportsMixing, false) != 0;
}

bool QMXAudioDevice::hasVolumeControl_isInput(UInt32 channel, bool isInput) const
{
    return canSetVolumeDecibels_isInput(channel, isInput) || canSetVolumeScalar_isInput(channel, isInput);
}

bool QMXAudioDevice::canSetVolumeDecibels_isInput(UInt32 channel, bool isInput) const
{
    return canSet(kAudioDevicePropertyVolumeDecibels, channel, isInput);
}

bool QMXAudioDevice::canSetVolumeScalar_isInput(UInt32 channel, bool isInput) const
{
    return canSet(kAudioDevicePropertyVolumeScalar, channel, isInput);
}

Float32 QMXAudioDevice::volumeDecibels_isInput(UInt32 channel, bool isInput) const
{
    return Utils::float32Property_propertyID_forChannel_isInput(deviceID_, kAudioDevicePropertyVolumeDecibels, channel,
                                                                isInput);
}

Float32 QMXAudioDevice::volumeScalar_isInput(UInt32 channel, bool isInput) const
{
    return Utils::float32Property_propertyID_forChannel_isInput(deviceID_, kAudioDevicePropertyVolumeScalar, channel,
                                                                isInput);
}

bool QMXAudioDevice::setVolumeDecibels_forChannel_isInput(Float32 decibels, UInt32 channel, bool isInput)
{
    return set(kAudioDevicePropertyVolumeDecibels, channel, isInput, decibels);
}

bool QMXAudioDevice::setVolumeScalar_forChannel_isInput(Float32 scalar, UInt32 channel, bool isInput)
{
    return set(kAudioDevicePropertyVolumeScalar, channel, isInput, scalar);
}

std::shared_ptr<QMXAudioValueRange> QMXAudioDevice::volumeRangeDecibels_isInput(UInt32 channel, bool isInput) const
{
    const auto value = qmx::readDeviceProperty(deviceID_, kAudioDevicePropertyVolumeRangeDecibels, channel, isInput);
    return QMXAudioValueRange::initWithAudioValueRange(static_cast<const AudioValueRange*>(value.block.get()));
}

// The reader asks with a block of zeros, so both conversions give what 0.0 is; this is intended.
Float32 QMXAudioDevice::volumeScalarToDecibels_isInput(UInt32 channel, bool isInput) const
{
    return Utils::float32Property_propertyID_forChannel_isInput(deviceID_, kAudioDevicePropertyVolumeScalarToDecibels,
                                                                channel, isInput);
}

Float32 QMXAudioDevice::volumeDecibelsToScalar_isInput(UInt32 channel, bool isInput) const
{
    return Utils::float32Property_propertyID_forChannel_isInput(deviceID_, kAudioDevicePropertyVolumeDecibelsToScalar,
                                                                channel, isInput);
}

// Setting goes to the output section, asking to the input section; this is intended.
bool QMXAudioDevice::canMute() const
{
    return canSet(kAudioDevicePropertyMute, 0, true);
}

bool QMXAudioDevice::mute(bool isMuted)
{
    return set(kAudioDevicePropertyMute, 0, false, UInt32{isMuted});
}

bool QMXAudioDevice::isMuted() const
{
    return word(kAudioDevicePropertyMute, true) == 1;
}

UInt32* QMXAudioDevice::dataSourceIDs(bool isInput) const
{
    return qmx::readDeviceProperty(deviceID_, kAudioDevicePropertyDataSources, 0, isInput).release<UInt32>();
}

std::optional<std::string> QMXAudioDevice::dataSourceNameForID_isInput(UInt32 dataSourceID, bool isInput) const
{
    CFStringRef reference = nullptr;
    AudioValueTranslation translation{&dataSourceID, sizeof dataSourceID, &reference, sizeof reference};
    UInt32 size = sizeof translation;
    const OSStatus status = AudioDeviceGetProperty(
        deviceID_, 0, isInput, kAudioDevicePropertyDataSourceNameForIDCFString, &size, &translation);
    return qmx::reported(status) == noErr && size != 0 ? takeText(reference) : std::nullopt;
}

std::vector<std::string> QMXAudioDevice::dataSourceNames(bool isInput) const
{
    std::vector<std::string> names;
    for (const UInt32 id :
         qmx::readDeviceProperty(deviceID_, kAudioDevicePropertyDataSources, 0, isInput).entries<UInt32>()) {
        if (id == 0)
            break;
        const auto name = dataSourceNameForID_isInput(id, isInput);
        names.push_back(name ? *name : qmx::format("Unnamed data source %u", names.size()));
    }
    return names;
}

UInt32 QMXAudioDevice::currentDataSourceID(bool isInput) const
{
    return word(kAudioDevicePropertyDataSource, isInput);
}

bool QMXAudioDevice::canSetCurrentDataSourceID(bool isInput) const
{
    return canSet(kAudioDevicePropertyDataSource, 0, isInput);
}

bool QMXAudioDevice::setCurrentDataSourceID_isInput(UInt32 dataSourceID, bool isInput)
{
    return set(kAudioDevicePropertyDataSource, 0, isInput, dataSourceID);
}

std::optional<std::string> QMXAudioDevice::currentDataSourceName(bool isInput) const
{
    return dataSourceNameForID_isInput(currentDataSourceID(isInput), isInput);
}

Float64 QMXAudioDevice::nominalSampleRate(bool isInput) const
{
    return Utils::float64Property_propertyID_isInput(deviceID_, kAudioDevicePropertyNominalSampleRate, isInput);
}

Float64 QMXAudioDevice::actualSampleRate(bool isInput) const
{
    return Utils::float64Property_propertyID_isInput(deviceID_, kAudioDevicePropertyActualSampleRate, isInput);
}

std::vector<std::shared_ptr<QMXAudioValueRange>> QMXAudioDevice::availableNominalSampleRates(bool isInput) const
{
    std::vector<std::shared_ptr<QMXAudioValueRange>> ranges;
    const auto value = qmx::readDeviceProperty(deviceID_, kAudioDevicePropertyAvailableNominalSampleRates, 0, isInput);
    for (const AudioValueRange& range : value.entries<AudioValueRange>())
        ranges.push_back(std::make_shared<QMXAudioValueRange>(range));
    return ranges;
}

bool QMXAudioDevice::canSetActualStreamFormat_isInput(UInt32 channel, bool isInput) const
{
    return canSet(kAudioDevicePropertyStreamFormat, channel, isInput);
}

bool QMXAudioDevice::canSetPhysicalStreamFormat_isInput(UInt32 channel, bool isInput) const
{
    return canSet(kAudioDevicePropertyPhysicalFormat, channel, isInput);
}

std::shared_ptr<QMXAudioStreamBasicDescription> QMXAudioDevice::actualStreamFormat_isInput(UInt32 channel,
                                                                                           bool isInput) const
{
    return format(kAudioDevicePropertyStreamFormat, channel, isInput);
}

std::shared_ptr<QMXAudioStreamBasicDescription> QMXAudioDevice::physicalStreamFormat_isInput(UInt32 channel,
                                                                                             bool isInput) const
{
    return format(kAudioDevicePropertyPhysicalFormat, channel, isInput);
}

bool QMXAudioDevice::setActualStreamFormat_forChannel_isInput(const QMXAudioStreamBasicDescription& format,
                                                              UInt32 channel, bool isInput)
{
    return canSetActualStreamFormat_isInput(channel, isInput) &&
           set(kAudioDevicePropertyStreamFormat, channel, isInput, *format.audioStreamBasicDescription());
}

bool QMXAudioDevice::setPhysicalStreamFormat_forChannel_isInput(const QMXAudioStreamBasicDescription& format,
                                                                UInt32 channel, bool isInput)
{
    return canSetPhysicalStreamFormat_isInput(channel, isInput) &&
           set(kAudioDevicePropertyPhysicalFormat, channel, isInput, *format.audioStreamBasicDescription());
}

std::vector<std::shared_ptr<QMXAudioStreamBasicDescription>> QMXAudioDevice::streamFormats_isInput(UInt32 channel,
                                                                                                   bool isInput) const
{
    std::vector<std::shared_ptr<Format>> formats;
    const auto value = qmx::readDeviceProperty(deviceID_, kAudioDevicePropertyStreamFormats, channel, isInput);
    for (const auto& record : value.entries<AudioStreamBasicDescription>())
        formats.push_back(std::make_shared<Format>(record));
    return formats;
}

std::shared_ptr<QMXAudioStreamBasicDescription>
QMXAudioDevice::findMatchingStreamFormat_forChannel_isInput(const QMXAudioStreamBasicDescription& format,
                                                            UInt32 channel, bool isInput) const
{
    AudioStreamBasicDescription record = *format.audioStreamBasicDescription();
    UInt32 size = sizeof record;
    const OSStatus status =
        AudioDeviceGetProperty(deviceID_, channel, isInput, kAudioDevicePropertyStreamFormatMatch, &size, &record);
    return qmx::reported(status) == noErr ? std::make_shared<Format>(record) : nullptr;
}

AudioStreamID* QMXAudioDevice::streamIDs(bool isInput) const
{
    return qmx::readDeviceProperty(deviceID_, kAudioDevicePropertyStreams, 0, isInput).release<AudioStreamID>();
}

std::vector<std::shared_ptr<QMXAudioStream>> QMXAudioDevice::streams(bool isInput)
{
    std::vector<std::shared_ptr<QMXAudioStream>> streams;
    for (const AudioStreamID id :
         qmx::readDeviceProperty(deviceID_, kAudioDevicePropertyStreams, 0, isInput).entries<AudioStreamID>()) {
        if (id <= streams.size()) // no stream has so small an ID; this is intended
            break;
        streams.push_back(QMXAudioStream::initWithAudioDevice_streamID(shared_from_this(), id));
    }
    return streams;
}

UInt32 QMXAudioDevice::numberOfStreams(bool isInput) const
{
    const std::unique_ptr<AudioBufferList, qmx::PropertyBlock::Free> configuration(streamConfiguration(isInput));
    return configuration ? configuration->mNumberBuffers : 0;
}

UInt32 QMXAudioDevice::numberOfChannels(bool isInput) const
{
    const std::unique_ptr<AudioBufferList, qmx::PropertyBlock::Free> configuration(streamConfiguration(isInput));
    UInt32 channels = 0;
    for (UInt32 i = 0; configuration && i < configuration->mNumberBuffers; ++i)
        channels += configuration->mBuffers[i].mNumberChannels;
    return channels;
}

AudioBufferList* QMXAudioDevice::streamConfiguration(bool isInput) const
{
    auto value = qmx::readDeviceProperty(deviceID_, kAudioDevicePropertyStreamConfiguration, 0, isInput);
    if (auto* list = static_cast<AudioBufferList*>(value.block.get()))
        list->mNumberBuffers =
            entriesWithin<AudioBuffer>(value, offsetof(AudioBufferList, mBuffers), list->mNumberBuffers);
    return value.release<AudioBufferList>();
}

UInt32 QMXAudioDevice::transportType(bool isInput) const
{
    return word(kAudioDevicePropertyTransportType, isInput);
}

UInt32 QMXAudioDevice::latency(bool isInput) const
{
    return word(kAudioDevicePropertyLatency, isInput);
}

UInt32 QMXAudioDevice::bufferSize(bool isInput) const
{
    return word(kAudioDevicePropertyBufferSize, isInput);
}

UInt32 QMXAudioDevice::bufferFrameSize(bool isInput) const
{
    return word(kAudioDevicePropertyBufferFrameSize, isInput);
}

UInt32 QMXAudioDevice::safetyOffset(bool isInput) const
{
    return word(kAudioDevicePropertySafetyOffset, isInput);
}

UInt32* QMXAudioDevice::preferredChannelsForStereo(bool isInput) const
{
    return qmx::readDeviceProperty(deviceID_, kAudioDevicePropertyPreferredChannelsForStereo, 0, isInput)
        .release<UInt32>();
}

AudioChannelLayout* QMXAudioDevice::channelLayout(bool isInput) const
{
    auto value = qmx::readDeviceProperty(deviceID_, kAudioDevicePropertyPreferredChannelLayout, 0, isInput);
    if (auto* layout = static_cast<AudioChannelLayout*>(value.block.get()))
        layout->mNumberChannelDescriptions = entriesWithin<AudioChannelDescription>(
            value, offsetof(AudioChannelLayout, mChannelDescriptions), layout->mNumberChannelDescriptions);
    return value.release<AudioChannelLayout>();
}

Float64 QMXAudioDevice::sampleRate(bool isInput) const
{
    const auto actual = actualStreamFormat_isInput(0, isInput);
    return actual ? actual->sampleRate() : 0;
}

AudioFormatID QMXAudioDevice::formatID(bool isInput) const
{
    const auto actual = actualStreamFormat_isInput(0, isInput);
    return actual ? actual->formatID() : 0;
}

std::optional<std::string> QMXAudioDevice::formatIDName(bool isInput) const
{
    const auto actual = actualStreamFormat_isInput(0, isInput);
    return actual ? std::optional(actual->formatIDName()) : std::nullopt;
}

AudioFormatFlags QMXAudioDevice::formatFlags(bool isInput) const
{
    const auto actual = actualStreamFormat_isInput(0, isInput);
    return actual ? actual->formatFlags() : 0;
}

UInt32 QMXAudioDevice::bytesPerPacket(bool isInput) const
{
    const auto actual = actualStreamFormat_isInput(0, isInput);
    return actual ? actual->bytesPerPacket() : 0;
}

UInt32 QMXAudioDevice::framesPerPacket(bool isInput) const
{
    const auto actual = actualStreamFormat_isInput(0, isInput);
    return actual ? actual->framesPerPacket() : 0;
}

UInt32 QMXAudioDevice::bytesPerFrame(bool isInput) const
{
    const auto actual = actualStreamFormat_isInput(0, isInput);
    return actual ? actual->bytesPerFrame() : 0;
}

UInt32 QMXAudioDevice::channelsPerFrame(bool isInput) const
{
    const auto actual = actualStreamFormat_isInput(0, isInput);
    return actual ? actual->channelsPerFrame() : 0;
}

UInt32 QMXAudioDevice::bitsPerChannel(bool isInput) const
{
    const auto actual = actualStreamFormat_isInput(0, isInput);
    return actual ? actual->bitsPerChannel() : 0;
}
