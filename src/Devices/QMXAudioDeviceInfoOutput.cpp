// SPDX-License-Identifier: MIT
#include "Devices/QMXAudioDeviceInfoOutput.h"

#include "Devices/QMXAudioDevice.h"
#include "Devices/QMXAudioStream.h"
#include "Formats/ChannelNames.h"
#include "Formats/QMXAudioStreamBasicDescription.h"
#include "Formats/QMXAudioValueRange.h"
#include "Foundation/Text/Format.h"

namespace
{

using Output = QMXAudioDeviceInfoOutput;
using qmx::format;

const char* yesOrNo(bool yes)
{
    return yes ? "Yes" : "No";
}

std::string formatsText(const QMXAudioDevice& device, bool isInput)
{
    return "Current actual stream format for device:\n" +
           Output::printStreamBasicInfo(device.actualStreamFormat_isInput(0, isInput).get()) +
           "Current physical stream format for device:\n" +
           Output::printStreamBasicInfo(device.physicalStreamFormat_isInput(0, isInput).get());
}

std::string buffersText(const QMXAudioDevice& device, bool isInput)
{
    const auto stereo = device.preferredChannelsForStereo(isInput);
    const auto* const preferred = static_cast<const UInt32*>(stereo.get());
    return format("\n---- %@ BUFFER INFO ----\n\n", isInput ? "INPUT" : "OUTPUT") +
           format("Latency:           %u\n", device.latency(isInput)) +
           format("Buffer size:       %u\n", device.bufferSize(isInput)) +
           format("Buffer frame size: %u\n\n", device.bufferFrameSize(isInput)) +
           format("Preferred channels for stereo: %u, %u\n", preferred ? preferred[0] : 0,
                  preferred ? preferred[1] : 0);
}

std::string streamsText(QMXAudioDevice& device, bool isInput, const char* direction)
{
    std::string text = format("\n---- Available %@ streams: ----\n\n", direction);
    for (const auto& stream : device.streams(isInput))
        text += Output::printStreamInfo(*stream);
    return text;
}

std::string sourcesText(const QMXAudioDevice& device, bool isInput, const char* direction)
{
    std::string text = format("%@ source names:\n", direction);
    for (const auto& name : device.dataSourceNames(isInput))
        text += format("\t%@\n", name.empty() ? "Unavailable" : name);
    return text;
}

std::string ratesText(const QMXAudioDevice& device, bool isInput, const char* direction)
{
    std::string text = format("\n\n---- Available nominal %@ sample rates: ----\n\n", direction);
    for (const auto& range : device.availableNominalSampleRates(isInput))
        text += format("Minimum: %.0fHz\n", range->mMinimum()) + format("Maximum: %.0fHz\n", range->mMaximum());
    return text;
}

std::string currentSourceText(const QMXAudioDevice& device, bool isInput, const char* direction)
{
    if (const auto name = device.currentDataSourceName(isInput))
        return format("\nCurrent %@ source name: %@\n", direction, *name);
    return format("\nNo current %@ source name available", direction);
}

} // namespace

std::string QMXAudioDeviceInfoOutput::printGlobalDeviceInfo(QMXAudioDevice& device)
{
    return "\n---- GLOBAL DEVICE DATA ---\n\n" + format("Device ID:                    0x%X\n", device.deviceID()) +
           format("Device UID:                   %@\n", device.deviceUID()) +
           format("Device Name:                  %@\n", device.name()) +
           format("Device Manufacturers name:    %@\n", device.manufacturer()) +
           format("Supports mixing:              %@\n", yesOrNo(device.supportsMixing())) +
           format("Is running:                   %@\n", yesOrNo(device.isRunning())) +
           format("Is alive:                     %@\n", yesOrNo(device.isAlive())) +
           format("Can be default device:        %@\n", yesOrNo(device.canBeDefaultDevice())) +
           format("Can be default system device: %@\n", yesOrNo(device.canBeDefaultSystemDevice())) +
           format("Can be input device:          %@\n", yesOrNo(device.canBeInputDevice())) +
           format("Can be output device:         %@\n", yesOrNo(device.canBeOutputDevice()));
}

std::string QMXAudioDeviceInfoOutput::printDirectionalDeviceInfo_isInput(QMXAudioDevice& device, bool isInput)
{
    const char* direction = isInput ? "input" : "output";
    return format("\n---- %@ ----\n\n", isInput ? "INPUTS" : "OUTPUTS") +
           format("Number of streams:   %u\n", device.numberOfStreams(isInput)) +
           format("Number of channels:  %u\n", device.numberOfChannels(isInput)) +
           format("Nominal sample rate: %.0fHz\n", device.nominalSampleRate(isInput)) +
           format("Actual sample rate:  %.0fHz\n\n", device.actualSampleRate(isInput)) +
           format("Jack is connected:   %@\n", yesOrNo(device.jackIsConnected(isInput))) +
           formatsText(device, isInput) + buffersText(device, isInput) + streamsText(device, isInput, direction) +
           sourcesText(device, isInput, direction) + ratesText(device, isInput, direction) +
           currentSourceText(device, isInput, direction) +
           format("\n%@ volume decibels: %.2f\n", direction, device.volumeDecibels_isInput(0, isInput)) +
           format("%@ volume scalar:   %.2f\n", direction, device.volumeScalar_isInput(0, isInput));
}

std::string QMXAudioDeviceInfoOutput::printStreamInfo(const QMXAudioStream& stream)
{
    std::string text = format("Stream ID: 0x%X\n", stream.streamID()) + "Stream's current physical format:\n" +
                       printStreamBasicInfo(stream.physicalFormat().get());
    int number = 0;
    for (const auto& physicalFormat : stream.physicalFormats())
        text += format("Physical format #%d:\n", number++) + printStreamBasicInfo(physicalFormat.get());
    return text;
}

std::string QMXAudioDeviceInfoOutput::printStreamBasicInfo(const QMXAudioStreamBasicDescription* streamFormat)
{
    return streamFormat ? streamFormat->debugDescription() : std::string();
}

std::string QMXAudioDeviceInfoOutput::printStreamFormatFlagNames(AudioFormatFlags formatFlags)
{
    AudioStreamBasicDescription record;
    record.mFormatFlags = formatFlags;
    return QMXAudioStreamBasicDescription(record).printStreamFormatFlagNames();
}

std::string QMXAudioDeviceInfoOutput::printChannelLayoutInfo(const AudioChannelLayout* layout)
{
    if (!layout)
        return {};
    std::string text = format("Channel Layout Tag: %@\n", channelLayoutTagName(layout->mChannelLayoutTag)) +
                       format("Channel Layout Bitmap: 0x%X\n", layout->mChannelBitmap);
    for (UInt32 i = 0; i < layout->mNumberChannelDescriptions; ++i) {
        const AudioChannelDescription& channel = layout->mChannelDescriptions[i];
        text += format("\tChannel Label: %@\n", channelLabelName(channel.mChannelLabel)) +
                format("\tChannel Flags: 0x%X\n", channel.mChannelFlags);
        for (int axis = 0; axis < 3; ++axis)
            text += format("\tChannel Coord[%d]: %f\n", axis, channel.mCoordinates[axis]);
    }
    return text;
}

std::string QMXAudioDeviceInfoOutput::channelLayoutTagName(AudioChannelLayoutTag tag)
{
    const char* name = qmx::channelLayoutTagName(tag);
    return name ? name : "Unknown Channel Layout";
}

std::string QMXAudioDeviceInfoOutput::channelLabelName(AudioChannelLabel label)
{
    const char* name = qmx::channelLabelName(label);
    return name ? name : "Unknown Audio Channel Label";
}
