// SPDX-License-Identifier: MIT
#include "AudioToolbox/Containers/ContainerProperties.h"

#include "Foundation/Text/Format.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <limits>

namespace qmx
{
namespace
{

template <class Value> Bytes bytesOf(const Value& value)
{
    Bytes bytes(sizeof value);
    std::memcpy(bytes.data(), &value, sizeof value);
    return bytes;
}

std::string linearName(const AudioStreamBasicDescription& format)
{
    const bool isFloat = (format.mFormatFlags & kAudioFormatFlagIsFloat) != 0;
    const bool isSigned = (format.mFormatFlags & kAudioFormatFlagIsSignedInteger) != 0;
    const bool hasOrder = format.mBitsPerChannel > 8;
    const bool isBig = (format.mFormatFlags & kAudioFormatFlagIsBigEndian) != 0;
    return qmx::format("Linear PCM, %u bit %s%s", format.mBitsPerChannel,
                       !hasOrder ? ""
                       : isBig   ? "big-endian "
                                 : "little-endian ",
                       isFloat    ? "floating point"
                       : isSigned ? "signed integer"
                                  : "unsigned integer");
}

std::string formatName(const AudioStreamBasicDescription& format)
{
    switch (format.mFormatID) {
    case kAudioFormatLinearPCM:
        return linearName(format);
    case kAudioFormatULaw:
        return "\xC2\xB5Law 2:1";
    case kAudioFormatALaw:
        return "aLaw 2:1";
    case kAudioFormatMPEG4AAC:
        return "MPEG-4 AAC";
    case kAudioFormatMPEG4AAC_HE:
    case kAudioFormatMPEG4AAC_HE_V2:
        return "MPEG-4 High Efficiency AAC";
    case kAudioFormatAppleLossless:
        return "Lossless (ALAC)";
    case kAudioFormatFLAC:
        return "FLAC";
    case kAudioFormatMPEGLayer3:
        return "MPEG Layer 3";
    default:
        return fourCharString(format.mFormatID);
    }
}

Float64 secondsOf(const Container& container)
{
    const auto& format = container.format();
    AudioFilePacketTableInfo info;
    const Float64 frames = container.packetTableInfo(info) == noErr
                               ? static_cast<Float64>(info.mNumberValidFrames)
                               : static_cast<Float64>(container.packetCount()) * format.mFramesPerPacket;
    return frames / format.mSampleRate;
}

UInt32 bitRateOf(const Container& container)
{
    const auto& format = container.format();
    const Float64 rate = format.mBytesPerPacket > 0
                             ? format.mSampleRate / format.mFramesPerPacket * format.mBytesPerPacket * 8
                             : static_cast<Float64>(container.byteCount()) * 8 / secondsOf(container);
    return std::isfinite(rate) && rate < std::numeric_limits<UInt32>::max() ? static_cast<UInt32>(std::lround(rate))
                                                                            : 0;
}

OSStatus packetTable(const Container& container, Bytes& value)
{
    AudioFilePacketTableInfo info;
    const OSStatus status = container.packetTableInfo(info);
    if (status == noErr)
        value = bytesOf(info);
    return status;
}

OSStatus channelLayout(const Container& container, Bytes& value)
{
    const AudioChannelLayoutTag tag = container.channelLayoutTag();
    if (tag == 0)
        return kAudioFileUnsupportedPropertyError;
    AudioChannelLayout layout;
    layout.mChannelLayoutTag = tag;
    value = bytesOf(layout);
    return noErr;
}

// The properties whose value does not depend on what the caller passes in.
OSStatus plainProperty(Container& container, AudioFilePropertyID property, Bytes& value)
{
    switch (property) {
    case kAudioFilePropertyFileFormat:
        value = bytesOf(container.type());
        return noErr;
    case kAudioFilePropertyDataFormat:
        value = bytesOf(container.format());
        return noErr;
    case kAudioFilePropertyIsOptimized:
        value = bytesOf(UInt32{container.isOptimized()});
        return noErr;
    case kAudioFilePropertyMagicCookieData:
        return container.magicCookie(value);
    case kAudioFilePropertyPacketTableInfo:
        return packetTable(container, value);
    case kAudioFilePropertyChannelLayout:
        return channelLayout(container, value);
    case kAudioFilePropertyAudioDataByteCount:
        value = bytesOf(container.byteCount());
        return noErr;
    case kAudioFilePropertyAudioDataPacketCount:
        value = bytesOf(container.packetCount());
        return noErr;
    case kAudioFilePropertyMaximumPacketSize:
    case kAudioFilePropertyPacketSizeUpperBound:
        value = bytesOf(container.maximumPacketSize());
        return noErr;
    case kAudioFilePropertyDataOffset:
        value = bytesOf(container.dataOffset());
        return noErr;
    case kAudioFilePropertyDeferSizeUpdates:
        value = bytesOf(UInt32{container.defersSizeUpdates()});
        return noErr;
    case kAudioFilePropertyKeepsReadable:
        value = bytesOf(UInt32{container.keepsReadable()});
        return noErr;
    case kAudioFilePropertyEstimatedDuration:
        value = bytesOf(secondsOf(container));
        return noErr;
    case kAudioFilePropertyBitRate:
        value = bytesOf(bitRateOf(container));
        return noErr;
    default:
        return kAudioFileUnsupportedPropertyError;
    }
}

// The size of question-and-answer records; 0 for other properties.
UInt32 translationSize(AudioFilePropertyID property)
{
    if (property == kAudioFilePropertyPacketToRollDistance)
        return sizeof(AudioPacketRollDistanceTranslation);
    const bool isFrames = property == kAudioFilePropertyPacketToFrame || property == kAudioFilePropertyFrameToPacket;
    return isFrames ? sizeof(AudioFramePacketTranslation) : 0;
}

OSStatus translateFrames(const Container& container, AudioFilePropertyID property, void* value)
{
    AudioFramePacketTranslation asked;
    std::memcpy(&asked, value, sizeof asked);
    if ((property == kAudioFilePropertyFrameToPacket ? asked.mFrame : asked.mPacket) < 0)
        return paramErr;
    if (property == kAudioFilePropertyFrameToPacket) {
        const auto [packet, offset] = container.packetOfFrame(static_cast<UInt64>(asked.mFrame));
        asked.mPacket = static_cast<SInt64>(packet);
        asked.mFrameOffsetInPacket = offset;
    } else {
        const auto frame = container.frameOfPacket(static_cast<UInt64>(asked.mPacket));
        if (!frame)
            return paramErr;
        asked.mFrame = static_cast<SInt64>(*frame);
    }
    std::memcpy(value, &asked, sizeof asked);
    return noErr;
}

OSStatus translateRollDistance(const Container& container, void* value)
{
    AudioPacketRollDistanceTranslation asked;
    std::memcpy(&asked, value, sizeof asked);
    if (asked.mPacket < 0)
        return paramErr;
    asked.mRollDistance = std::min<SInt64>(asked.mPacket, container.rollDistance());
    std::memcpy(value, &asked, sizeof asked);
    return noErr;
}

OSStatus copyOut(const Bytes& bytes, UInt32& size, void* value)
{
    if (size != bytes.size())
        return kAudioFileBadPropertySizeError;
    std::memcpy(value, bytes.data(), bytes.size());
    return noErr;
}

// As many whole codes as there is room for.
OSStatus copyCodes(const std::vector<UInt32>& codes, UInt32& size, void* value)
{
    const std::size_t count = std::min(codes.size(), size / sizeof(UInt32));
    size = static_cast<UInt32>(count * sizeof(UInt32));
    if (count > 0)
        std::memcpy(value, codes.data(), size);
    return noErr;
}

} // namespace

OSStatus containerPropertyInfo(Container& container, AudioFilePropertyID property, UInt32& size, bool& isWritable)
{
    isWritable = property == kAudioFilePropertyDeferSizeUpdates || property == kAudioFilePropertyMagicCookieData ||
                 property == kAudioFilePropertyPacketTableInfo || property == kAudioFilePropertyKeepsReadable;
    if (property == kAudioFilePropertyChunkIDs) {
        size = static_cast<UInt32>(container.chunkIDs().size() * sizeof(UInt32));
        return noErr;
    }
    if (property == kAudioFilePropertyDataFormatName || translationSize(property) > 0) {
        size = std::max<UInt32>(translationSize(property), sizeof(CFStringRef));
        return noErr;
    }
    Bytes value;
    const OSStatus status = plainProperty(container, property, value);
    size = static_cast<UInt32>(value.size());
    return status;
}

OSStatus containerProperty(Container& container, AudioFilePropertyID property, UInt32& size, void* value)
{
    if (property == kAudioFilePropertyChunkIDs)
        return copyCodes(container.chunkIDs(), size, value);
    if (property == kAudioFilePropertyDataFormatName) {
        if (size != sizeof(CFStringRef))
            return kAudioFileBadPropertySizeError;
        const CFStringRef name = CFStringCreate(formatName(container.format()));
        std::memcpy(value, &name, sizeof name);
        return noErr;
    }
    if (const UInt32 asked = translationSize(property); asked > 0) {
        if (size != asked)
            return kAudioFileBadPropertySizeError;
        return property == kAudioFilePropertyPacketToRollDistance ? translateRollDistance(container, value)
                                                                  : translateFrames(container, property, value);
    }
    Bytes bytes;
    const OSStatus status = plainProperty(container, property, bytes);
    // a layout stated by its tag has no descriptions that a caller must have room for
    if (property == kAudioFilePropertyChannelLayout && status == noErr &&
        size >= offsetof(AudioChannelLayout, mChannelDescriptions))
        bytes.resize(size = std::min(size, UInt32{sizeof(AudioChannelLayout)}));
    return status == noErr ? copyOut(bytes, size, value) : status;
}

OSStatus setContainerProperty(Container& container, AudioFilePropertyID property, UInt32 size, const void* value)
{
    if (property == kAudioFilePropertyMagicCookieData)
        return container.setMagicCookie({static_cast<const UInt8*>(value), size});
    if (property == kAudioFilePropertyPacketTableInfo) {
        AudioFilePacketTableInfo info;
        if (size != sizeof info)
            return kAudioFileBadPropertySizeError;
        std::memcpy(&info, value, sizeof info);
        return container.setPacketTableInfo(info);
    }
    if (property == kAudioFilePropertyDeferSizeUpdates || property == kAudioFilePropertyKeepsReadable) {
        UInt32 wanted = 0;
        if (size != sizeof wanted)
            return kAudioFileBadPropertySizeError;
        std::memcpy(&wanted, value, sizeof wanted);
        if (property == kAudioFilePropertyKeepsReadable)
            return container.setKeepsReadable(wanted != 0);
        container.setDefersSizeUpdates(wanted != 0);
        return noErr;
    }
    UInt32 known = 0;
    bool isWritable = false;
    const OSStatus status = containerPropertyInfo(container, property, known, isWritable);
    return status == noErr ? kAudioFileOperationNotSupportedError : status;
}

} // namespace qmx
