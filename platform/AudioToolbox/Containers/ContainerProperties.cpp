// SPDX-License-Identifier: MIT
#include "AudioToolbox/Containers/ContainerProperties.h"

#include "Foundation/Format.h"

#include <cmath>
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
    default:
        return fourCharString(format.mFormatID);
    }
}

Float64 secondsOf(const Container& container)
{
    const auto& format = container.format();
    return static_cast<Float64>(container.packetCount()) * format.mFramesPerPacket / format.mSampleRate;
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

bool isTranslation(AudioFilePropertyID property)
{
    return property == kAudioFilePropertyPacketToFrame || property == kAudioFilePropertyFrameToPacket;
}

OSStatus translate(const Container& container, AudioFilePropertyID property, AudioFramePacketTranslation& value)
{
    const SInt64 frames = container.format().mFramesPerPacket;
    if (frames == 0)
        return kAudioFileUnsupportedPropertyError;
    if (property == kAudioFilePropertyFrameToPacket) {
        if (value.mFrame < 0)
            return paramErr;
        value.mPacket = value.mFrame / frames;
        value.mFrameOffsetInPacket = static_cast<UInt32>(value.mFrame % frames);
        return noErr;
    }
    if (value.mPacket < 0 || value.mPacket > std::numeric_limits<SInt64>::max() / frames)
        return paramErr;
    value.mFrame = value.mPacket * frames;
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
    isWritable = property == kAudioFilePropertyDeferSizeUpdates || property == kAudioFilePropertyMagicCookieData;
    if (property == kAudioFilePropertyChunkIDs) {
        size = static_cast<UInt32>(container.chunkIDs().size() * sizeof(UInt32));
        return noErr;
    }
    if (property == kAudioFilePropertyDataFormatName || isTranslation(property)) {
        size = isTranslation(property) ? sizeof(AudioFramePacketTranslation) : sizeof(CFStringRef);
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
    if (isTranslation(property)) {
        AudioFramePacketTranslation translation;
        if (size != sizeof translation)
            return kAudioFileBadPropertySizeError;
        std::memcpy(&translation, value, sizeof translation);
        const OSStatus status = translate(container, property, translation);
        std::memcpy(value, &translation, sizeof translation);
        return status;
    }
    Bytes bytes;
    const OSStatus status = plainProperty(container, property, bytes);
    return status == noErr ? copyOut(bytes, size, value) : status;
}

OSStatus setContainerProperty(Container& container, AudioFilePropertyID property, UInt32 size, const void* value)
{
    if (property == kAudioFilePropertyMagicCookieData)
        return container.setMagicCookie({static_cast<const UInt8*>(value), size});
    if (property == kAudioFilePropertyDeferSizeUpdates) {
        UInt32 defers = 0;
        if (size != sizeof defers)
            return kAudioFileBadPropertySizeError;
        std::memcpy(&defers, value, sizeof defers);
        container.setDefersSizeUpdates(defers != 0);
        return noErr;
    }
    UInt32 known = 0;
    bool isWritable = false;
    const OSStatus status = containerPropertyInfo(container, property, known, isWritable);
    return status == noErr ? kAudioFileOperationNotSupportedError : status;
}

} // namespace qmx
