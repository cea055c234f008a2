// SPDX-License-Identifier: MIT
#include "AudioToolbox/Extended/ExtendedProperties.h"

#include "AudioToolbox/Extended/FileValues.h"

#include <algorithm>
#include <cstring>

namespace qmx
{
namespace
{

constexpr UInt32 leastBuffer = 1U << 12, largestBuffer = 1U << 24;
constexpr std::size_t layoutHead = offsetof(AudioChannelLayout, mChannelDescriptions);

template <class T> LayoutBlock bytesOf(const T& value)
{
    LayoutBlock bytes(sizeof value);
    std::memcpy(bytes.data(), &value, sizeof value);
    return bytes;
}

bool isWritableProperty(ExtAudioFilePropertyID property)
{
    switch (property) {
    case kExtAudioFileProperty_FileChannelLayout:
    case kExtAudioFileProperty_ClientDataFormat:
    case kExtAudioFileProperty_ClientChannelLayout:
    case kExtAudioFileProperty_AudioConverter:
    case kExtAudioFileProperty_ConverterConfig:
    case kExtAudioFileProperty_IOBufferSizeBytes:
        return true;
    default:
        return false;
    }
}

OSStatus fileFact(const ExtendedFile& file, AudioFilePropertyID property, std::vector<std::byte>& value)
{
    value = fileBlock(file.file(), property);
    return value.empty() ? kExtAudioFileError_InvalidProperty : noErr;
}

/// The value of a property; InvalidProperty where there is none.
OSStatus valueOf(ExtendedFile& file, ExtAudioFilePropertyID property, std::vector<std::byte>& value)
{
    switch (property) {
    case kExtAudioFileProperty_FileDataFormat:
        value = bytesOf(file.fileFormat());
        return noErr;
    case kExtAudioFileProperty_ClientDataFormat:
        value = bytesOf(file.clientFormat());
        return noErr;
    case kExtAudioFileProperty_FileChannelLayout:
        value = file.fileLayout();
        return value.empty() ? kExtAudioFileError_InvalidProperty : noErr;
    case kExtAudioFileProperty_ClientChannelLayout:
        value = file.clientLayout();
        return value.empty() ? kExtAudioFileError_InvalidProperty : noErr;
    case kExtAudioFileProperty_AudioConverter:
        value = bytesOf(file.converter());
        return noErr;
    case kExtAudioFileProperty_FileMaxPacketSize:
        return fileFact(file, kAudioFilePropertyMaximumPacketSize, value);
    case kExtAudioFileProperty_ClientMaxPacketSize:
        value = bytesOf(file.clientFormat().mBytesPerPacket);
        return noErr;
    case kExtAudioFileProperty_FileLengthFrames: {
        SInt64 frames = 0;
        const OSStatus status = file.length(frames);
        value = bytesOf(frames);
        return status;
    }
    case kExtAudioFileProperty_IOBufferSizeBytes:
        value = bytesOf(file.bufferSize());
        return noErr;
    case kExtAudioFileProperty_AudioFile:
        value = bytesOf(file.file());
        return noErr;
    case kExtAudioFileProperty_PacketTable:
        return fileFact(file, kAudioFilePropertyPacketTableInfo, value);
    default:
        return kExtAudioFileError_InvalidProperty;
    }
}

template <class T> OSStatus read(T& target, UInt32 size, const void* value)
{
    if (size != sizeof target)
        return kExtAudioFileError_InvalidPropertySize;
    std::memcpy(&target, value, sizeof target);
    return noErr;
}

OSStatus readLayout(LayoutBlock& layout, UInt32 size, const void* value)
{
    if (size < layoutHead)
        return kExtAudioFileError_InvalidPropertySize;
    const auto* const bytes = static_cast<const std::byte*>(value);
    layout.assign(bytes, bytes + size);
    return noErr;
}

OSStatus setBufferSize(ExtendedFile& file, UInt32 size, const void* value)
{
    UInt32 bytes = 0;
    const OSStatus status = read(bytes, size, value);
    if (status == noErr)
        file.setBufferSize(std::clamp(bytes, leastBuffer, largestBuffer));
    return status;
}

/// The file's own format only: a file keeps what it was made with.
OSStatus setFileFormat(const ExtendedFile& file, UInt32 size, const void* value)
{
    AudioStreamBasicDescription format;
    const OSStatus status = read(format, size, value);
    const bool isSame =
        std::ranges::equal(std::as_bytes(std::span(&format, 1)), std::as_bytes(std::span(&file.fileFormat(), 1)));
    return status == noErr && !isSame ? kExtAudioFileError_InvalidDataFormat : status;
}

} // namespace

LayoutBlock layoutBlock(const AudioChannelLayout& layout)
{
    const auto* const bytes = reinterpret_cast<const std::byte*>(&layout);
    const bool isDescribed = layout.mChannelLayoutTag == kAudioChannelLayoutTag_UseChannelDescriptions;
    const std::size_t described = isDescribed ? layout.mNumberChannelDescriptions : 0;
    return {bytes, bytes + layoutHead + described * sizeof(AudioChannelDescription)};
}

OSStatus extendedPropertyInfo(ExtendedFile& file, ExtAudioFilePropertyID property, UInt32* size, Boolean* isWritable)
{
    std::vector<std::byte> value;
    const OSStatus status = valueOf(file, property, value);
    if (status != noErr && !isWritableProperty(property))
        return status;
    if (size)
        *size = static_cast<UInt32>(value.size());
    if (isWritable)
        *isWritable = isWritableProperty(property);
    return noErr;
}

OSStatus extendedProperty(ExtendedFile& file, ExtAudioFilePropertyID property, UInt32& size, void* value)
{
    std::vector<std::byte> bytes;
    const OSStatus status = valueOf(file, property, bytes);
    if (status != noErr)
        return status;
    if (size < bytes.size())
        return kExtAudioFileError_InvalidPropertySize;
    size = static_cast<UInt32>(bytes.size());
    std::memcpy(value, bytes.data(), bytes.size());
    return noErr;
}

OSStatus setExtendedProperty(ExtendedFile& file, ExtAudioFilePropertyID property, UInt32 size, const void* value)
{
    LayoutBlock layout;
    AudioStreamBasicDescription format;
    OSStatus status = noErr;
    switch (property) {
    case kExtAudioFileProperty_FileDataFormat:
        return setFileFormat(file, size, value);
    case kExtAudioFileProperty_ClientDataFormat:
        status = read(format, size, value);
        return status == noErr ? file.setClientFormat(format) : status;
    case kExtAudioFileProperty_FileChannelLayout:
        status = readLayout(layout, size, value);
        return status == noErr ? file.setFileLayout(std::move(layout)) : status;
    case kExtAudioFileProperty_ClientChannelLayout:
        status = readLayout(layout, size, value);
        return status == noErr ? file.setClientLayout(std::move(layout)) : status;
    case kExtAudioFileProperty_AudioConverter:
    case kExtAudioFileProperty_ConverterConfig:
        return file.converterChanged();
    case kExtAudioFileProperty_IOBufferSizeBytes:
        return setBufferSize(file, size, value);
    default:
        return extendedPropertyInfo(file, property, nullptr, nullptr) == noErr ? kAudioFileOperationNotSupportedError
                                                                               : kExtAudioFileError_InvalidProperty;
    }
}

} // namespace qmx
