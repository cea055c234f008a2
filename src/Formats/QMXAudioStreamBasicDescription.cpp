// SPDX-License-Identifier: MIT
#include "Formats/QMXAudioStreamBasicDescription.h"

#include "AudioToolbox/AudioFormat.h"
#include "Formats/CodeTexts.h"
#include "Formats/QMXAudioDeviceUtils.h"
#include "Foundation/Text/Format.h"

#include <array>
#include <cstddef>
#include <cstring>

namespace
{

constexpr AudioFormatFlags kNativeFloat = kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked;
constexpr AudioFormatFlags kBigEndianFloat = kNativeFloat | kAudioFormatFlagIsBigEndian;
constexpr AudioFormatFlags kBigEndianInteger =
    kAudioFormatFlagIsBigEndian | kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsPacked;

constexpr AudioStreamBasicDescription linearPCM(Float64 sampleRate, UInt32 channels, UInt32 bits, UInt32 bytesPerFrame,
                                                AudioFormatFlags flags)
{
    return {.mSampleRate = sampleRate,
            .mFormatID = kAudioFormatLinearPCM,
            .mFormatFlags = flags,
            .mBytesPerPacket = bytesPerFrame,
            .mFramesPerPacket = 1,
            .mBytesPerFrame = bytesPerFrame,
            .mChannelsPerFrame = channels,
            .mBitsPerChannel = bits,
            .mReserved = 0};
}

// The 20-bit entries say "packed" and hold 3 bytes a sample; this is intended.
constexpr std::array<AudioStreamBasicDescription, 12> kStandardFormats{
    linearPCM(44100, 2, 32, 8, kNativeFloat),
    linearPCM(44100, 2, 32, 4, kNativeFloat | kAudioFormatFlagIsNonInterleaved),
    linearPCM(48000, 2, 32, 8, kBigEndianFloat),
    linearPCM(48000, 2, 20, 6, kBigEndianInteger),
    linearPCM(48000, 2, 16, 4, kBigEndianInteger),
    linearPCM(44100, 2, 32, 8, kBigEndianFloat),
    linearPCM(44100, 2, 20, 6, kBigEndianInteger),
    linearPCM(44100, 2, 16, 4, kBigEndianInteger),
    linearPCM(22050, 2, 16, 4, kBigEndianInteger),
    linearPCM(11025, 2, 8, 2, kBigEndianInteger),
    linearPCM(11025, 1, 8, 1, kBigEndianInteger),
    linearPCM(8000, 1, 8, 1, kBigEndianInteger),
};

constexpr qmx::CodeText kFlagNames[] = {
    QMX_NAMED(kAudioFormatFlagIsFloat),         QMX_NAMED(kAudioFormatFlagIsBigEndian),
    QMX_NAMED(kAudioFormatFlagIsSignedInteger), QMX_NAMED(kAudioFormatFlagIsPacked),
    QMX_NAMED(kAudioFormatFlagIsAlignedHigh),   QMX_NAMED(kAudioFormatFlagIsNonInterleaved),
};

std::string channelText(UInt32 channels)
{
    if (channels == 1)
        return ", mono";
    if (channels == 2)
        return ", stereo";
    return qmx::format(", %u channels", channels);
}

} // namespace

QMXAudioStreamBasicDescription::QMXAudioStreamBasicDescription(const AudioStreamBasicDescription& record)
    : mAudioStreamBasicDescription(record)
{
}

std::shared_ptr<QMXAudioStreamBasicDescription>
QMXAudioStreamBasicDescription::initWithAudioStreamBasicDescription(const AudioStreamBasicDescription* record)
{
    return record ? std::make_shared<QMXAudioStreamBasicDescription>(*record) : nullptr;
}

std::shared_ptr<QMXAudioStreamBasicDescription> QMXAudioStreamBasicDescription::standardFormat(SInt32 number)
{
    const bool isListed = number >= 0 && static_cast<std::size_t>(number) < kStandardFormats.size();
    return std::make_shared<QMXAudioStreamBasicDescription>(
        kStandardFormats[isListed ? static_cast<std::size_t>(number) : 0]);
}

std::shared_ptr<QMXAudioStreamBasicDescription> QMXAudioStreamBasicDescription::defaultStandardFileFormat()
{
    return standardFormat(7);
}

std::shared_ptr<QMXAudioStreamBasicDescription> QMXAudioStreamBasicDescription::defaultStandardDeviceFormat()
{
    return standardFormat(0);
}

std::shared_ptr<QMXAudioStreamBasicDescription>
QMXAudioStreamBasicDescription::standardFormatWithId_sampleRate(AudioFormatID formatID, Float64 sampleRate)
{
    AudioStreamBasicDescription record;
    record.mSampleRate = sampleRate;
    record.mFormatID = formatID;
    record.mChannelsPerFrame = 2;

    // Both statuses are ignored: an unknown coding keeps what is set so far, which is intended.
    UInt32 size = sizeof record;
    (void)AudioFormatGetPropertyInfo(kAudioFormatProperty_FormatInfo, sizeof record, nullptr, &size);
    size = sizeof record;
    (void)AudioFormatGetProperty(kAudioFormatProperty_FormatInfo, sizeof record, nullptr, &size, &record);
    return std::make_shared<QMXAudioStreamBasicDescription>(record);
}

std::string QMXAudioStreamBasicDescription::formatIDName() const
{
    return QMXAudioDeviceUtils::formatNameForID(formatID());
}

std::string QMXAudioStreamBasicDescription::description() const
{
    return qmx::format("%.0fHz", sampleRate()) + channelText(channelsPerFrame()) +
           qmx::format(", %u bits", bitsPerChannel());
}

std::string QMXAudioStreamBasicDescription::debugDescription() const
{
    return qmx::format("\tSample rate:      %.0fHz\n", sampleRate()) +
           qmx::format("\tFormat ID:        0x%X\n", formatID()) +
           qmx::format("\tFormat name:      %@\n", formatIDName()) +
           qmx::format("\tFormat flags:     0x%X\n", formatFlags()) + printStreamFormatFlagNames() +
           qmx::format("\tBytes/packet:     %u\n", bytesPerPacket()) +
           qmx::format("\tFrames/packet:    %u\n", framesPerPacket()) +
           qmx::format("\tBytes/frame:      %u\n", bytesPerFrame()) +
           qmx::format("\tChannels/frame:   %u\n", channelsPerFrame()) +
           qmx::format("\tBits/channel:     %u\n", bitsPerChannel()) +
           qmx::format("\tReserved:         0x%X\n", reserved());
}

std::string QMXAudioStreamBasicDescription::printStreamFormatFlagNames() const
{
    std::string names;
    for (const qmx::CodeText& entry : kFlagNames)
        if (hasFlag(entry.code))
            names += qmx::format("\t\t%@\n", entry.text);
    return names;
}

bool QMXAudioStreamBasicDescription::isEqual(const qmx::Object* other) const
{
    if (other == this)
        return true;
    const auto* format = dynamic_cast<const QMXAudioStreamBasicDescription*>(other);
    return format && std::memcmp(&mAudioStreamBasicDescription, &format->mAudioStreamBasicDescription,
                                 offsetof(AudioStreamBasicDescription, mReserved)) == 0;
}

bool QMXAudioStreamBasicDescription::isEqualToString(const std::string& text) const
{
    return text == description();
}
