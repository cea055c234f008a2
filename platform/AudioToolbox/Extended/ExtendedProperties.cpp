// SPDX-License-Identifier: MIT
#include "AudioToolbox/Extended/ExtendedProperties.h"

#include "AudioToolbox/Conversion/ChannelLayouts.h"
#include "AudioToolbox/Extended/FileValues.h"

#include <algorithm>
#include <cstring>

namespace qmx
{
namespace
{

constexpr UInt32 leastBuffer = 1U << 12, largestBuffer = 1U << 24;
constexpr std::size_t layoutHead = offsetof(AudioChannelLayout, mChannelDescriptions);

/// Codecs in software, the only ones that exist here.
constexpr UInt32 softwareCodecs = fourCharCode("appl");

template <class T> LayoutBlock bytesOf(const T& value)
{
    LayoutBlock bytes(sizeof value);
    std::memcpy(bytes.data(), &value, sizeof value);
    return bytes;
}

bool isWritableProperty(const ExtendedFile& file, ExtAudioFilePropertyID property)
{
    switch (property) {
    case kExtAudioFileProperty_FileChannelLayout:
    case kExtAudioFileProperty_ClientDataFormat:
    case kExtAudioFileProperty_ClientChannelLayout:
    case kExtAudioFileProperty_AudioConverter:
    case kExtAudioFileProperty_ConverterConfig:
    case kExtAudioFileProperty_IOBufferSizeBytes:
    case kExtAudioFileProperty_IOBuffer:
        return true;
    case kExtAudioFileProperty_KeepsFileReadable:
        return file.canSetKeepsReadable();
    case kExtAudioFileProperty_CodecManufacturer:
        return file.canChooseCodec();
    case kExtAudioFileProperty_FileLengthFrames:
        return file.canSetLength();
    default:
        return false;
    }
}

/// The size of a value that cannot be read without waiting for the file's threads; 0 for others.
UInt32 sizeWithoutRest(ExtAudioFilePropertyID property)
{
    if (property == kExtAudioFileProperty_AudioConverter)
        return sizeof(AudioConverterRef);
    return property == kExtAudioFileProperty_FileLengthFrames ? sizeof(SInt64) : 0;
}

OSStatus present(LayoutBlock& value, LayoutBlock found)
{
    value = std::move(found);
    return value.empty() ? kExtAudioFileError_InvalidProperty : noErr;
}

template <class T> OSStatus present(LayoutBlock& value, OSStatus status, const T& found)
{
    value = bytesOf(found);
    return status;
}

/// The value of a property; InvalidProperty if there is none.
OSStatus valueOf(ExtendedFile& file, ExtAudioFilePropertyID property, LayoutBlock& value)
{
    UInt32 packetSize = 0;
    SInt64 frames = 0;
    OSStatus status = noErr;
    switch (property) {
    case kExtAudioFileProperty_FileDataFormat:
        return present(value, noErr, file.fileFormat());
    case kExtAudioFileProperty_ClientDataFormat:
        return present(value, noErr, file.clientFormat());
    case kExtAudioFileProperty_FileChannelLayout:
        return present(value, file.fileLayout());
    case kExtAudioFileProperty_ClientChannelLayout:
        return present(value, file.clientLayout());
    case kExtAudioFileProperty_AudioConverter:
        return present(value, noErr, file.converter());
    case kExtAudioFileProperty_ConverterConfig:
        return present(value, noErr, static_cast<const void*>(nullptr));
    case kExtAudioFileProperty_FileMaxPacketSize:
        status = file.maximumPacketSize(packetSize);
        return present(value, status, packetSize);
    case kExtAudioFileProperty_ClientMaxPacketSize:
        return present(value, noErr, file.clientFormat().mBytesPerPacket);
    case kExtAudioFileProperty_FileLengthFrames:
        status = file.length(frames);
        return present(value, status, frames);
    case kExtAudioFileProperty_IOBufferSizeBytes:
        return present(value, noErr, file.bufferSize());
    case kExtAudioFileProperty_IOBuffer:
        return present(value, noErr, file.buffer().data());
    case kExtAudioFileProperty_AudioFile:
        return present(value, noErr, file.file());
    case kExtAudioFileProperty_CodecManufacturer:
        return present(value, file.isCoded() ? noErr : kExtAudioFileError_InvalidProperty, softwareCodecs);
    case kExtAudioFileProperty_KeepsFileReadable:
        return present(value, fileBlock(file.file(), kAudioFilePropertyKeepsReadable));
    case kExtAudioFileProperty_PacketTable:
        return present(value, fileBlock(file.file(), kAudioFilePropertyPacketTableInfo));
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

/// 0 if the layout does not say.
std::size_t channelsOf(const LayoutBlock& layout)
{
    const auto labels = channelLabels(layout);
    AudioChannelLayoutTag tag = 0;
    std::memcpy(&tag, layout.data(), sizeof tag);
    constexpr AudioChannelLayoutTag countBits = 0xFFFF;
    return labels.empty() ? tag & countBits : labels.size();
}

/// A layout as it was given, for `channels` channels.
OSStatus readLayout(LayoutBlock& layout, UInt32 size, const void* value, UInt32 channels)
{
    if (size < layoutHead)
        return kExtAudioFileError_InvalidPropertySize;
    const auto* const bytes = static_cast<const std::byte*>(value);
    layout.assign(bytes, bytes + size);
    const std::size_t told = channelsOf(layout);
    return told > 0 && channels > 0 && told != channels ? kExtAudioFileError_InvalidChannelMap : noErr;
}

/// Accepts the file's own format only: a file keeps the format it was made with.
OSStatus setFileFormat(const ExtendedFile& file, const AudioStreamBasicDescription& format)
{
    const bool isSame =
        std::ranges::equal(std::as_bytes(std::span(&format, 1)), std::as_bytes(std::span(&file.fileFormat(), 1)));
    return isSame ? noErr : kExtAudioFileError_InvalidDataFormat;
}

OSStatus setCodecManufacturer(const ExtendedFile& file, UInt32 manufacturer)
{
    if (!file.isCoded())
        return kExtAudioFileError_InvalidProperty;
    if (manufacturer != softwareCodecs)
        return kAudioConverterErr_FormatNotSupported;
    return file.canChooseCodec() ? noErr : kExtAudioFileError_InvalidOperationOrder;
}

/// Takes the file's own converter, or null, as notice that its settings changed.
OSStatus setConverter(ExtendedFile& file, AudioConverterRef converter)
{
    return converter && converter != file.converter() ? kAudio_ParamError : file.converterChanged();
}

OSStatus setConverterConfig(ExtendedFile& file, const void* config)
{
    return config ? kAudio_ParamError : file.converterChanged();
}

/// Reads a value of the type that `set` takes and passes it on.
template <class T, class Set> OSStatus setTo(UInt32 size, const void* value, Set set)
{
    T given{};
    const OSStatus status = read(given, size, value);
    return status == noErr ? set(given) : status;
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
    UInt32 found = sizeWithoutRest(property);
    const bool canBeSet = isWritableProperty(file, property);
    if (found == 0) {
        LayoutBlock value;
        const OSStatus status = valueOf(file, property, value);
        if (status == kExtAudioFileError_InvalidProperty && !canBeSet)
            return status;
        found = static_cast<UInt32>(value.size());
    }
    if (size)
        *size = found;
    if (isWritable)
        *isWritable = canBeSet;
    return noErr;
}

OSStatus extendedProperty(ExtendedFile& file, ExtAudioFilePropertyID property, UInt32& size, void* value)
{
    LayoutBlock bytes;
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
    OSStatus status = noErr;
    switch (property) {
    case kExtAudioFileProperty_FileDataFormat:
        return setTo<AudioStreamBasicDescription>(size, value,
                                                  [&](const auto& format) { return setFileFormat(file, format); });
    case kExtAudioFileProperty_ClientDataFormat:
        return setTo<AudioStreamBasicDescription>(size, value,
                                                  [&](const auto& format) { return file.setClientFormat(format); });
    case kExtAudioFileProperty_FileChannelLayout:
        status = readLayout(layout, size, value, file.fileFormat().mChannelsPerFrame);
        return status == noErr ? file.setFileLayout(std::move(layout)) : status;
    case kExtAudioFileProperty_ClientChannelLayout:
        status = readLayout(layout, size, value, file.clientFormat().mChannelsPerFrame);
        return status == noErr ? file.setClientLayout(std::move(layout)) : status;
    case kExtAudioFileProperty_AudioConverter:
        return setTo<AudioConverterRef>(size, value, [&](auto converter) { return setConverter(file, converter); });
    case kExtAudioFileProperty_ConverterConfig:
        return setTo<const void*>(size, value, [&](auto config) { return setConverterConfig(file, config); });
    case kExtAudioFileProperty_FileLengthFrames:
        return setTo<SInt64>(size, value, [&](auto frames) { return file.setLength(frames); });
    case kExtAudioFileProperty_IOBufferSizeBytes:
        return setTo<UInt32>(size, value, [&](auto bytes) {
            file.setBufferSize(std::clamp(bytes, leastBuffer, largestBuffer));
            return OSStatus{noErr};
        });
    case kExtAudioFileProperty_IOBuffer:
        return setTo<std::byte*>(size, value, [&](auto* memory) {
            file.setBuffer(memory);
            return OSStatus{noErr};
        });
    case kExtAudioFileProperty_KeepsFileReadable:
        return setTo<UInt32>(size, value, [&](auto keeps) { return file.setKeepsReadable(keeps); });
    case kExtAudioFileProperty_CodecManufacturer:
        return setTo<UInt32>(size, value, [&](auto maker) { return setCodecManufacturer(file, maker); });
    default:
        return extendedPropertyInfo(file, property, nullptr, nullptr) == noErr ? kAudioFileOperationNotSupportedError
                                                                               : kExtAudioFileError_InvalidProperty;
    }
}

} // namespace qmx
