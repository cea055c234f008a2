// SPDX-License-Identifier: MIT
#include "AudioToolbox/Containers/Chunks/CAFContainer.h"

#include "AudioToolbox/Codings/CodingFacts.h"
#include "AudioToolbox/Codings/CodingsModule.h"
#include "AudioToolbox/Containers/Chunks/ChunkContainer.h"
#include "AudioToolbox/Containers/PacketContainer.h"
#include "AudioToolbox/Containers/SampleLayout.h"

#include <algorithm>
#include <bit>
#include <limits>

namespace qmx
{
namespace
{

using Coding = SampleLayout::Coding;

constexpr FourCharCode fileID = fourCharCode("caff");
constexpr FourCharCode descriptionID = fourCharCode("desc");
constexpr FourCharCode dataID = fourCharCode("data");
constexpr FourCharCode channelsID = fourCharCode("chan");
constexpr FourCharCode fillerID = fourCharCode("free");

constexpr UInt32 floatFlag = 1, littleEndianFlag = 2; // of linear samples
constexpr UInt64 formatCodePlace = 28;                // of the coding's code in the file

bool isCompanded(AudioFormatID coding)
{
    return coding == kAudioFormatULaw || coding == kAudioFormatALaw;
}

/// The samples that a description states; empty unless it states constant frames of samples.
std::optional<SampleLayout> layoutOfDescription(const AudioStreamBasicDescription& description)
{
    const UInt32 channels = description.mChannelsPerFrame, bits = description.mBitsPerChannel;
    if (isCompanded(description.mFormatID))
        return SampleLayout{description.mFormatID == kAudioFormatULaw ? Coding::uLaw : Coding::aLaw, ByteOrder::big, 8,
                            1};
    if (description.mFormatID != kAudioFormatLinearPCM || channels == 0 || description.mFramesPerPacket != 1 ||
        description.mBytesPerPacket % channels != 0)
        return std::nullopt;
    const UInt32 bytes = description.mBytesPerPacket / channels;
    const ByteOrder order = description.mFormatFlags & littleEndianFlag ? ByteOrder::little : ByteOrder::big;
    if (description.mFormatFlags & floatFlag)
        return bits == 8 * bytes && (bits == 32 || bits == 64)
                   ? std::optional(SampleLayout{Coding::floatingPoint, order, bits, bytes})
                   : std::nullopt;
    return bits > 0 && bytes > 0 && bytes <= 4 && bits <= 8 * bytes
               ? std::optional(SampleLayout{Coding::signedInteger, order, bits, bytes})
               : std::nullopt;
}

/// How a format of samples is written; empty for one that cannot be.
std::optional<AudioFormatFlags> flagsInFile(const AudioStreamBasicDescription& format)
{
    const auto layout = layoutOf(format);
    if (!layout || layout->coding == Coding::unsignedInteger)
        return std::nullopt;
    if (layout->coding == Coding::uLaw || layout->coding == Coding::aLaw)
        return 0;
    return (layout->coding == Coding::floatingPoint ? floatFlag : 0) |
           (layout->order == ByteOrder::little ? littleEndianFlag : 0);
}

class CAFContainer : public ChunkContainer
{
public:
    explicit CAFContainer(std::unique_ptr<File> file) : ChunkContainer(std::move(file), fillerID, cafShape) {}

    AudioFileTypeID type() const override { return kAudioFileCAFType; }
    AudioChannelLayoutTag channelLayoutTag() const override { return layoutTag_; }

protected:
    // the file's length is the form's
    UInt64 readFormHeader(const UInt8*) override { return UInt64{1} << 62; }

    OSStatus visit(Chunk& chunk) override
    {
        if (chunk.id == descriptionID && !isDescribed_)
            return readDescription(chunk);
        if (chunk.id == dataID && !hasAudioChunk())
            return readData(chunk);
        if (chunk.id == channelsID) {
            Bytes data;
            if (const OSStatus status = readChunk(chunk, 12, data); status != noErr)
                return status;
            layoutTag_ = cafLayoutTag(data, description_.mChannelsPerFrame);
        }
        return noErr;
    }

    OSStatus finishLoading() override
    {
        if (!isDescribed_ || !hasAudioChunk())
            return kAudioFileInvalidFileError;
        const auto layout = layoutOfDescription(description_);
        if (!layout || !isPlausible(description_.mSampleRate, description_.mChannelsPerFrame))
            return kAudioFileUnsupportedDataFormatError;
        format_ = formatOf(*layout, description_.mSampleRate, description_.mChannelsPerFrame);
        setAudioBytes(audioRoom());
        return noErr;
    }

    bool canHold(const Sizes& sizes) const override { return sizes.formEnd < cafShape.largestSize(); }

    std::vector<Patch> patchesFor(const Sizes& sizes) override
    {
        const UInt64 size = sizes.audioChunkEnd - audioChunk() - cafShape.headerBytes();
        return {{audioChunk() + 4, ByteWriter(ByteOrder::big).u64(size).u32(editCount_).bytes()}};
    }

    // The form does not state its end. Audio of a killed writer may start with printable characters, but then its size
    // is absurd; a known chunk that the file cuts off remains a chunk.
    bool mayFollowAudio(const Chunk& chunk) override
    {
        constexpr FourCharCode known[] = {fourCharCode("pakt"), fourCharCode("kuki"), channelsID,
                                          fourCharCode("info"), fourCharCode("strg"), fourCharCode("mark"),
                                          fourCharCode("regn"), fourCharCode("inst"), fourCharCode("midi"),
                                          fourCharCode("ovvw"), fourCharCode("peak"), fourCharCode("edct"),
                                          fourCharCode("umid"), fourCharCode("uuid"), fillerID};
        return chunk.end() <= fileLength() || std::ranges::count(known, chunk.id) > 0;
    }

    // the chunks that matter lie before the audio, or are read only once
    void chunksMoved(UInt64, SInt64) override {}

private:
    OSStatus readDescription(const Chunk& chunk)
    {
        Bytes data;
        if (const OSStatus status = readChunk(chunk, cafDescriptionBytes, data); status != noErr)
            return status;
        if (data.size() < cafDescriptionBytes)
            return kAudioFileInvalidFileError;
        description_ = cafDescription(data);
        isDescribed_ = true;
        return noErr;
    }

    OSStatus readData(Chunk& chunk)
    {
        Bytes data;
        if (const OSStatus status = readChunk(chunk, cafEditCountBytes, data); status != noErr)
            return status;
        if (data.size() < cafEditCountBytes)
            return kAudioFileInvalidFileError;
        // growing the data makes whatever was computed from them out of date
        editCount_ = load32(data.data(), ByteOrder::big) + (chunk.size > cafEditCountBytes ? 1 : 0);
        setAudioChunk(chunk, chunk.dataStart() + cafEditCountBytes);
        return noErr;
    }

    AudioStreamBasicDescription description_;
    bool isDescribed_ = false;
    UInt32 editCount_ = 0;
    AudioChannelLayoutTag layoutTag_ = 0;
};

bool matches(const FileSigns& signs)
{
    return load32(signs.head.data(), ByteOrder::big) == fileID;
}

OSStatus open(PlacedFile placed, bool forWriting, std::unique_ptr<Container>& container)
{
    UInt8 code[4] = {};
    (void)placed.file->read(code, sizeof code, formatCodePlace); // loading reports what cannot be read
    const AudioFormatID coding = load32(code, ByteOrder::big);
    const bool isMissing = hasPackets(coding) && !CodingsModule::find();
    if (coding == kAudioFormatLinearPCM || isCompanded(coding) || isMissing)
        return loadContainer<CAFContainer>(std::move(placed.file), forWriting, container);
    return openCAFPackets(std::move(placed.file), container);
}

bool holds(const AudioStreamBasicDescription& format)
{
    return flagsInFile(format).has_value() || holdsPackets(format);
}

OSStatus create(PlacedFile placed, const AudioStreamBasicDescription& format, std::unique_ptr<Container>& container)
{
    const auto flags = flagsInFile(format);
    if (!flags)
        return createCAFPackets(std::move(placed.file), format, container);
    const auto complete = formatOf(*layoutOf(format), format.mSampleRate, format.mChannelsPerFrame);
    return createContainer<CAFContainer>(std::move(placed.file), cafHeader(complete, *flags, 0), container);
}

} // namespace

Bytes cafHeader(const AudioStreamBasicDescription& format, AudioFormatFlags flags, UInt64 dataBytes)
{
    constexpr UInt64 unknown = std::numeric_limits<UInt64>::max();
    ByteWriter header(ByteOrder::big);
    header.code(fileID).u16(1).u16(0).code(descriptionID).u64(cafDescriptionBytes);
    header.u64(std::bit_cast<UInt64>(format.mSampleRate)).code(format.mFormatID).u32(flags);
    header.u32(format.mBytesPerPacket)
        .u32(format.mFramesPerPacket)
        .u32(format.mChannelsPerFrame)
        .u32(format.mBitsPerChannel);
    header.code(dataID).u64(dataBytes == unknown ? unknown : dataBytes + cafEditCountBytes).u32(0);
    return header.bytes();
}

AudioStreamBasicDescription cafDescription(std::span<const UInt8> data)
{
    const auto field = [&](std::size_t offset) { return load32(&data[offset], ByteOrder::big); };
    AudioStreamBasicDescription description;
    description.mSampleRate = std::bit_cast<Float64>(load64(data.data(), ByteOrder::big));
    description.mFormatID = field(8);
    description.mFormatFlags = field(12);
    description.mBytesPerPacket = field(16);
    description.mFramesPerPacket = field(20);
    description.mChannelsPerFrame = field(24);
    description.mBitsPerChannel = field(28);
    return description;
}

AudioChannelLayoutTag cafLayoutTag(std::span<const UInt8> data, UInt32 channels)
{
    const AudioChannelLayoutTag tag = data.size() >= 4 ? load32(data.data(), ByteOrder::big) : 0;
    return tag > kAudioChannelLayoutTag_UseChannelBitmap && AudioChannelLayoutTag_GetNumberOfChannels(tag) == channels
               ? tag
               : 0;
}

const ContainerKind cafKind{kAudioFileCAFType, matches, open, holds, create};

} // namespace qmx
