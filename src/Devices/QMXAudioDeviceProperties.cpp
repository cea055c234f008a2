// SPDX-License-Identifier: MIT
// A device's properties; each call queries the hardware.
#include "Devices/QMXAudioDevice.h"
#include "Devices/QMXAudioStream.h"
#include "Formats/FileFailureReason.h"
#include "Formats/LastFailure.h"
#include "Formats/PropertyBlock.h"
#include "Formats/QMXAudioDeviceUtils.h"
#include "Formats/QMXAudioStreamBasicDescription.h"
#include "Formats/QMXAudioValueRange.h"
#include "Foundation/Text/CFString.h"
#include "Foundation/Text/Format.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace
{

using Format = QMXAudioStreamBasicDescription;
using Utils = QMXAudioDeviceUtils;

/// The text of a reference from the hardware; the reference is released.
std::optional<std::string> takeText(CFStringRef reference)
{
    if (!reference)
        return std::nullopt;
    std::string text = CFStringGetText(reference);
    CFRelease(reference);
    return text;
}

/// How many of the `stated` entries the value really holds after a header of `headerSize` bytes.
template <class Entry> UInt32 entriesWithin(const qmx::PropertyBlock& value, std::size_t headerSize, UInt32 stated)
{
    const std::size_t room = value.size < headerSize ? 0 : (value.size - headerSize) / sizeof(Entry);
    return static_cast<UInt32>(std::min<std::size_t>(stated, room));
}

} // namespace

OSStatus QMXAudioDevice::lastStatus() const
{
    return failure().status();
}

std::string QMXAudioDevice::lastError() const
{
    return failure().sentence();
}

void QMXAudioDevice::fail(OSStatus status, const std::string& what) const
{
    failure().set(status, nameForPeople() + " " + what + ": " + qmx::fileFailureReason(status));
}

/// Records a failure and returns the status.
OSStatus QMXAudioDevice::noted(OSStatus status, UInt32 propertyID, const char* verb) const
{
    if (status != noErr)
        fail(status, std::string("could not ") + verb + " its " + Utils::propertyName(propertyID));
    return status;
}

qmx::PropertyBlock QMXAudioDevice::read(AudioDevicePropertyID propertyID, UInt32 channel, bool isInput) const
{
    const qmx::LastFailure::Operation operation(failure());
    auto value = qmx::readDeviceProperty(deviceID(), propertyID, channel, isInput);
    noted(value.status, propertyID, "give");
    return value;
}

UInt32 QMXAudioDevice::word(AudioDevicePropertyID propertyID, bool isInput) const
{
    return read(propertyID, 0, isInput).first<UInt32>();
}

std::optional<std::string> QMXAudioDevice::text(AudioDevicePropertyID propertyID, bool isInput) const
{
    const qmx::LastFailure::Operation operation(failure());
    CFStringRef reference = nullptr;
    UInt32 size = sizeof reference;
    const OSStatus status =
        qmx::reported(AudioDeviceGetProperty(deviceID(), 0, isInput, propertyID, &size, &reference));
    return noted(status, propertyID, "give") == noErr ? takeText(reference) : std::nullopt;
}

std::shared_ptr<QMXAudioStreamBasicDescription> QMXAudioDevice::format(AudioDevicePropertyID propertyID, UInt32 channel,
                                                                       bool isInput) const
{
    const auto value = read(propertyID, channel, isInput);
    return Format::initWithAudioStreamBasicDescription(
        static_cast<const AudioStreamBasicDescription*>(value.block.get()));
}

bool QMXAudioDevice::canSet(AudioDevicePropertyID propertyID, UInt32 channel, bool isInput) const
{
    const qmx::LastFailure::Operation operation(failure());
    Boolean isWritable = false;
    noted(AudioDeviceGetPropertyInfo(deviceID(), channel, isInput, propertyID, nullptr, &isWritable), propertyID,
          "give");
    return isWritable;
}

template <class Value>
bool QMXAudioDevice::set(AudioDevicePropertyID propertyID, UInt32 channel, bool isInput, const Value& value) const
{
    const qmx::LastFailure::Operation operation(failure());
    return noted(qmx::setDeviceProperty(deviceID(), propertyID, channel, isInput, sizeof value, &value), propertyID,
                 "change") == noErr;
}

std::optional<std::string> QMXAudioDevice::deviceUID() const
{
    return text(kAudioDevicePropertyDeviceUID, false);
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
    return read(kAudioDevicePropertyJackIsConnected, 1, isInput).first<UInt32>() != 0;
}

bool QMXAudioDevice::supportsMixing() const
{
    return word(kAudioDevicePropertySupportsMixing, false) != 0;
}

bool QMXAudioDevice::hasVolumeControl_isInput(UInt32 channel, bool isInput) const
{
    const qmx::LastFailure::Operation operation(failure());
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
    return read(kAudioDevicePropertyVolumeDecibels, channel, isInput).first<Float32>();
}

Float32 QMXAudioDevice::volumeScalar_isInput(UInt32 channel, bool isInput) const
{
    return read(kAudioDevicePropertyVolumeScalar, channel, isInput).first<Float32>();
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
    const auto value = read(kAudioDevicePropertyVolumeRangeDecibels, channel, isInput);
    return QMXAudioValueRange::initWithAudioValueRange(static_cast<const AudioValueRange*>(value.block.get()));
}

// The query passes zeros, so both conversions return the value for 0.0; this is intended.
Float32 QMXAudioDevice::volumeScalarToDecibels_isInput(UInt32 channel, bool isInput) const
{
    return read(kAudioDevicePropertyVolumeScalarToDecibels, channel, isInput).first<Float32>();
}

Float32 QMXAudioDevice::volumeDecibelsToScalar_isInput(UInt32 channel, bool isInput) const
{
    return read(kAudioDevicePropertyVolumeDecibelsToScalar, channel, isInput).first<Float32>();
}

// mute() sets the output section, the other two query the input section; this is intended.
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

qmx::HeapBlock QMXAudioDevice::dataSourceIDs(bool isInput) const
{
    return read(kAudioDevicePropertyDataSources, 0, isInput).block;
}

std::optional<std::string> QMXAudioDevice::dataSourceNameForID_isInput(UInt32 dataSourceID, bool isInput) const
{
    const qmx::LastFailure::Operation operation(failure());
    CFStringRef reference = nullptr;
    AudioValueTranslation translation{&dataSourceID, sizeof dataSourceID, &reference, sizeof reference};
    UInt32 size = sizeof translation;
    constexpr AudioDevicePropertyID property = kAudioDevicePropertyDataSourceNameForIDCFString;
    const OSStatus status =
        qmx::reported(AudioDeviceGetProperty(deviceID(), 0, isInput, property, &size, &translation));
    return noted(status, property, "give") == noErr && size != 0 ? takeText(reference) : std::nullopt;
}

std::vector<std::string> QMXAudioDevice::dataSourceNames(bool isInput) const
{
    const qmx::LastFailure::Operation operation(failure());
    std::vector<std::string> names;
    for (const UInt32 id : read(kAudioDevicePropertyDataSources, 0, isInput).entries<UInt32>()) {
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
    const qmx::LastFailure::Operation operation(failure());
    return dataSourceNameForID_isInput(currentDataSourceID(isInput), isInput);
}

Float64 QMXAudioDevice::nominalSampleRate(bool isInput) const
{
    return read(kAudioDevicePropertyNominalSampleRate, 0, isInput).first<Float64>();
}

Float64 QMXAudioDevice::actualSampleRate(bool isInput) const
{
    return read(kAudioDevicePropertyActualSampleRate, 0, isInput).first<Float64>();
}

std::vector<std::shared_ptr<QMXAudioValueRange>> QMXAudioDevice::availableNominalSampleRates(bool isInput) const
{
    std::vector<std::shared_ptr<QMXAudioValueRange>> ranges;
    const auto value = read(kAudioDevicePropertyAvailableNominalSampleRates, 0, isInput);
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

bool QMXAudioDevice::setFormat(AudioDevicePropertyID propertyID, UInt32 channel, bool isInput,
                               const QMXAudioStreamBasicDescription& format) const
{
    const qmx::LastFailure::Operation operation(failure());
    if (canSet(propertyID, channel, isInput))
        return set(propertyID, channel, isInput, *format.audioStreamBasicDescription());
    if (failure().status() == noErr)
        noted(kAudioHardwareUnsupportedOperationError, propertyID, "change");
    return false;
}

bool QMXAudioDevice::setActualStreamFormat_forChannel_isInput(const QMXAudioStreamBasicDescription& format,
                                                              UInt32 channel, bool isInput)
{
    return setFormat(kAudioDevicePropertyStreamFormat, channel, isInput, format);
}

bool QMXAudioDevice::setPhysicalStreamFormat_forChannel_isInput(const QMXAudioStreamBasicDescription& format,
                                                                UInt32 channel, bool isInput)
{
    return setFormat(kAudioDevicePropertyPhysicalFormat, channel, isInput, format);
}

std::vector<std::shared_ptr<QMXAudioStreamBasicDescription>> QMXAudioDevice::streamFormats_isInput(UInt32 channel,
                                                                                                   bool isInput) const
{
    std::vector<std::shared_ptr<Format>> formats;
    const auto value = read(kAudioDevicePropertyStreamFormats, channel, isInput);
    for (const auto& record : value.entries<AudioStreamBasicDescription>())
        formats.push_back(std::make_shared<Format>(record));
    return formats;
}

std::shared_ptr<QMXAudioStreamBasicDescription>
QMXAudioDevice::findMatchingStreamFormat_forChannel_isInput(const QMXAudioStreamBasicDescription& format,
                                                            UInt32 channel, bool isInput) const
{
    const qmx::LastFailure::Operation operation(failure());
    AudioStreamBasicDescription record = *format.audioStreamBasicDescription();
    UInt32 size = sizeof record;
    constexpr AudioDevicePropertyID property = kAudioDevicePropertyStreamFormatMatch;
    const OSStatus status =
        qmx::reported(AudioDeviceGetProperty(deviceID(), channel, isInput, property, &size, &record));
    return noted(status, property, "give") == noErr ? std::make_shared<Format>(record) : nullptr;
}

qmx::HeapBlock QMXAudioDevice::streamIDs(bool isInput) const
{
    return read(kAudioDevicePropertyStreams, 0, isInput).block;
}

std::vector<std::shared_ptr<QMXAudioStream>> QMXAudioDevice::streams(bool isInput)
{
    std::vector<std::shared_ptr<QMXAudioStream>> streams;
    for (const AudioStreamID id : read(kAudioDevicePropertyStreams, 0, isInput).entries<AudioStreamID>()) {
        if (id <= streams.size()) // no stream has so small an ID; this is intended
            break;
        streams.push_back(QMXAudioStream::initWithAudioDevice_streamID(shared_from_this(), id));
    }
    return streams;
}

UInt32 QMXAudioDevice::numberOfStreams(bool isInput) const
{
    const auto configuration = streamConfiguration(isInput);
    const auto* const list = static_cast<const AudioBufferList*>(configuration.get());
    return list ? list->mNumberBuffers : 0;
}

UInt32 QMXAudioDevice::numberOfChannels(bool isInput) const
{
    const auto configuration = streamConfiguration(isInput);
    const auto* const list = static_cast<const AudioBufferList*>(configuration.get());
    UInt32 channels = 0;
    for (UInt32 i = 0; list && i < list->mNumberBuffers; ++i)
        channels += list->mBuffers[i].mNumberChannels;
    return channels;
}

qmx::HeapBlock QMXAudioDevice::streamConfiguration(bool isInput) const
{
    auto value = read(kAudioDevicePropertyStreamConfiguration, 0, isInput);
    if (auto* list = static_cast<AudioBufferList*>(value.block.get()))
        list->mNumberBuffers =
            entriesWithin<AudioBuffer>(value, offsetof(AudioBufferList, mBuffers), list->mNumberBuffers);
    return std::move(value.block);
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

qmx::HeapBlock QMXAudioDevice::preferredChannelsForStereo(bool isInput) const
{
    return read(kAudioDevicePropertyPreferredChannelsForStereo, 0, isInput).block;
}

qmx::HeapBlock QMXAudioDevice::channelLayout(bool isInput) const
{
    auto value = read(kAudioDevicePropertyPreferredChannelLayout, 0, isInput);
    if (auto* layout = static_cast<AudioChannelLayout*>(value.block.get()))
        layout->mNumberChannelDescriptions = entriesWithin<AudioChannelDescription>(
            value, offsetof(AudioChannelLayout, mChannelDescriptions), layout->mNumberChannelDescriptions);
    return std::move(value.block);
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
