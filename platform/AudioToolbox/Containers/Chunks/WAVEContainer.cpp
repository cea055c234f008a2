// SPDX-License-Identifier: MIT
#include "AudioToolbox/Containers/Chunks/WAVEContainer.h"

#include "AudioToolbox/Containers/Chunks/ChunkContainer.h"
#include "AudioToolbox/Containers/SampleLayout.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace qmx
{
namespace
{

using Coding = SampleLayout::Coding;

constexpr FourCharCode riffID = fourCharCode("RIFF");
constexpr FourCharCode rifxID = fourCharCode("RIFX");
constexpr FourCharCode rf64ID = fourCharCode("RF64");
constexpr FourCharCode bw64ID = fourCharCode("BW64");
constexpr FourCharCode waveID = fourCharCode("WAVE");
constexpr FourCharCode sizes64ID = fourCharCode("ds64");
constexpr FourCharCode formatChunkID = fourCharCode("fmt ");
constexpr FourCharCode factID = fourCharCode("fact");
constexpr FourCharCode dataID = fourCharCode("data");
constexpr FourCharCode fillerID = fourCharCode("JUNK");

constexpr UInt16 tagPCM = 1;
constexpr UInt16 tagFloat = 3;
constexpr UInt16 tagALaw = 6;
constexpr UInt16 tagULaw = 7;
constexpr UInt16 tagExtensible = 0xFFFE;
// what follows the tag in the identifier of an extensible format
constexpr UInt8 identifierTail[14] = {0, 0, 0, 0, 0x10, 0, 0x80, 0, 0, 0xAA, 0, 0x38, 0x9B, 0x71};

constexpr UInt64 largestField = std::numeric_limits<UInt32>::max();
constexpr UInt32 sizeIn64Bits = std::numeric_limits<UInt32>::max(); // also: to the end of the file
constexpr UInt64 firstChunk = 12;
constexpr std::size_t sizes64Bytes = 28;
constexpr std::size_t plainFormatBytes = 16;
constexpr std::size_t extensibleFormatBytes = 40;

/// The tag in the identifier of an extensible format; none for an unknown coding. Writers of big-endian files swap the
/// bytes of the whole identifier, of its tag alone, or none: all three are accepted.
std::optional<UInt16> tagIn(std::span<const UInt8> identifier)
{
    if (!std::ranges::equal(identifier.last(8), std::span(identifierTail).last(8)))
        return std::nullopt;
    const UInt64 head = load64(identifier.data(), ByteOrder::big);
    for (const UInt64 tag : {tagPCM, tagFloat, tagALaw, tagULaw})
        if (head == (tag << 32 | 0x10) || head == (tag << 48 | 0x1000) || head == (tag << 56 | 0x1000))
            return static_cast<UInt16>(tag);
    return std::nullopt;
}

UInt16 tagFor(Coding coding)
{
    switch (coding) {
    case Coding::floatingPoint:
        return tagFloat;
    case Coding::aLaw:
        return tagALaw;
    case Coding::uLaw:
        return tagULaw;
    default:
        return tagPCM;
    }
}

bool isCompanded(const SampleLayout& layout)
{
    return layout.coding == Coding::aLaw || layout.coding == Coding::uLaw;
}

// The layout as a file holds it; empty if it cannot: 8-bit samples are unsigned, all wider ones signed, rates whole.
std::optional<SampleLayout> layoutInFile(const AudioStreamBasicDescription& format)
{
    auto layout = layoutOf(format);
    if (!layout || format.mSampleRate != std::floor(format.mSampleRate))
        return std::nullopt;
    if (layout->bytes == 1 || isCompanded(*layout))
        layout->order = ByteOrder::little;
    const bool isInteger = layout->coding == Coding::signedInteger || layout->coding == Coding::unsignedInteger;
    return isInteger && (layout->coding == Coding::unsignedInteger) != (layout->bytes == 1) ? std::nullopt : layout;
}

// More than two channels, and samples that do not fill their bytes, need the long format chunk.
bool needsExtensible(const SampleLayout& layout, UInt32 channels)
{
    return channels > 2 || layout.bits != layout.bytes * 8;
}

UInt32 channelMask(UInt32 channels)
{
    return channels == 1 ? 0x4 : channels == 2 ? 0x3 : 0; // centre; left and right; unspecified
}

// The loudspeaker arrangements that have a name; a mask of 0 means unspecified.
AudioChannelLayoutTag layoutTagFor(UInt32 mask, UInt32 channels)
{
    constexpr std::pair<UInt32, AudioChannelLayoutTag> tags[] = {
        {0x4, kAudioChannelLayoutTag_Mono},         {0x3, kAudioChannelLayoutTag_Stereo},
        {0x7, kAudioChannelLayoutTag_MPEG_3_0_A},   {0x33, kAudioChannelLayoutTag_Quadraphonic},
        {0x107, kAudioChannelLayoutTag_MPEG_4_0_A}, {0x37, kAudioChannelLayoutTag_MPEG_5_0_A},
        {0x607, kAudioChannelLayoutTag_MPEG_5_0_A}, {0x3F, kAudioChannelLayoutTag_MPEG_5_1_A},
        {0x60F, kAudioChannelLayoutTag_MPEG_5_1_A}, {0x13F, kAudioChannelLayoutTag_MPEG_6_1_A},
        {0xFF, kAudioChannelLayoutTag_MPEG_7_1_A}};
    const auto found = std::ranges::find(tags, mask, &std::pair<UInt32, AudioChannelLayoutTag>::first);
    const bool isNamed =
        found != std::end(tags) && AudioChannelLayoutTag_GetNumberOfChannels(found->second) == channels;
    return isNamed ? found->second : 0;
}

Bytes formatChunk(const SampleLayout& layout, const AudioStreamBasicDescription& format)
{
    const UInt32 channels = format.mChannelsPerFrame;
    const auto rate = static_cast<UInt32>(format.mSampleRate);
    const UInt32 frameBytes = layout.bytes * channels;
    const UInt16 tag = tagFor(layout.coding);
    const bool extensible = needsExtensible(layout, channels);
    ByteWriter data(layout.order);
    data.u16(extensible ? tagExtensible : tag).u16(static_cast<UInt16>(channels)).u32(rate);
    data.u32(static_cast<UInt32>(std::min(UInt64{rate} * frameBytes, largestField)))
        .u16(static_cast<UInt16>(frameBytes))
        .u16(static_cast<UInt16>(layout.bytes * 8));
    if (extensible)
        data.u16(extensibleFormatBytes - plainFormatBytes - 2)
            .u16(static_cast<UInt16>(layout.bits))
            .u32(channelMask(channels))
            .u16(tag)
            .append(identifierTail);
    else if (tag != tagPCM)
        data.u16(0);
    return ByteWriter(layout.order).chunk(formatChunkID, data.bytes()).bytes();
}

// Little-endian files start with room for 64-bit sizes; there is no big-endian form with such sizes.
Bytes headerFor(const AudioStreamBasicDescription& format)
{
    const SampleLayout layout = *layoutInFile(format);
    const bool isLittle = layout.order == ByteOrder::little;
    ByteWriter chunks(layout.order);
    chunks.code(waveID);
    if (isLittle)
        chunks.chunk(fillerID, Bytes(sizes64Bytes));
    chunks.append(formatChunk(layout, format));
    if (layout.coding != Coding::signedInteger && layout.coding != Coding::unsignedInteger)
        chunks.chunk(factID, Bytes(4));
    chunks.chunk(dataID, {});
    return ByteWriter(layout.order).chunk(isLittle ? riffID : rifxID, chunks.bytes()).bytes();
}

class WAVEContainer : public ChunkContainer
{
public:
    explicit WAVEContainer(std::unique_ptr<File> file) : ChunkContainer(std::move(file), fillerID) {}

    AudioFileTypeID type() const override { return kAudioFileWAVEType; }
    AudioChannelLayoutTag channelLayoutTag() const override { return layoutTagFor(channelMask_, channels_); }

protected:
    UInt64 readFormHeader(const UInt8* header) override
    {
        const FourCharCode form = load32(header, ByteOrder::big);
        order_ = form == rifxID ? ByteOrder::big : ByteOrder::little;
        is64_ = form == rf64ID || form == bw64ID;
        return UInt64{load32(header + 4, order_)} + chunkHeaderBytes;
    }

    OSStatus visit(Chunk& chunk) override
    {
        switch (chunk.id) {
        case sizes64ID:
            return is64_ && chunk.position == firstChunk ? readSizes64(chunk) : noErr;
        case fillerID:
            if (chunk.position == firstChunk && chunk.size >= sizes64Bytes)
                reserved_ = order_ == ByteOrder::little;
            return noErr;
        case formatChunkID:
            return formatFound_ ? noErr : readFormat(chunk);
        case factID:
            if (fact_ == 0 && chunk.size >= 4 && chunk.end() <= fileLength())
                fact_ = chunk.position;
            return noErr;
        case dataID:
            if (!hasAudioChunk()) {
                chunk.size = sizeOfData(chunk);
                setAudioChunk(chunk, chunk.dataStart());
            }
            return noErr;
        default:
            return noErr;
        }
    }

    OSStatus finishLoading() override
    {
        if (!formatFound_ || !hasAudioChunk() || (is64_ && sizes64_ == 0))
            return kAudioFileInvalidFileError;
        if (!layout_ || !isPlausible(rate_, channels_))
            return kAudioFileUnsupportedDataFormatError;
        format_ = formatOf(*layout_, rate_, channels_);
        setAudioBytes(audioRoom());
        return noErr;
    }

    bool canHold(const Sizes& sizes) const override
    {
        if (sizes.formEnd > static_cast<UInt64>(std::numeric_limits<SInt64>::max()))
            return false;
        return reserved_ || is64_ || fitsIn32Bits(sizes);
    }

    // A file that outgrows 32-bit sizes becomes one of 64-bit sizes, in the room that was kept for them.
    std::vector<Patch> patchesFor(const Sizes& sizes) override
    {
        const UInt64 frames = sizes.audioBytes / format_.mBytesPerFrame;
        const UInt64 formBytes = sizes.formEnd - chunkHeaderBytes;
        const UInt64 dataBytes = sizes.audioChunkEnd - audioChunk() - chunkHeaderBytes;
        const bool has64BitSizes = is64_ || !fitsIn32Bits(sizes);
        std::vector<Patch> patches{field(4, has64BitSizes ? sizeIn64Bits : formBytes),
                                   field(audioChunk() + 4, has64BitSizes ? sizeIn64Bits : dataBytes)};
        if (fact_ != 0)
            patches.push_back(field(fact_ + chunkHeaderBytes, std::min(frames, largestField)));
        if (is64_)
            patches.push_back(
                {sizes64_ + chunkHeaderBytes, ByteWriter(order_).u64(formBytes).u64(dataBytes).u64(frames).bytes()});
        else if (reserved_)
            addReserved(has64BitSizes, ByteWriter(order_).u64(formBytes).u64(dataBytes).u64(frames).u32(0), patches);
        return patches;
    }

    void chunksMoved(UInt64 from, SInt64 by) override
    {
        if (fact_ >= from)
            fact_ += static_cast<UInt64>(by);
    }

private:
    Patch field(UInt64 position, UInt64 value) const
    {
        return {position, ByteWriter(order_).u32(static_cast<UInt32>(value)).bytes()};
    }

    void addReserved(bool used, const ByteWriter& sizes, std::vector<Patch>& patches) const
    {
        patches.push_back({0, ByteWriter(order_).code(used ? rf64ID : riffID).bytes()});
        patches.push_back({firstChunk, ByteWriter(order_).code(used ? sizes64ID : fillerID).bytes()});
        if (used)
            patches.push_back({firstChunk + chunkHeaderBytes, sizes.bytes()});
    }

    static bool fitsIn32Bits(const Sizes& sizes) { return sizes.formEnd - chunkHeaderBytes < largestField; }

    OSStatus readSizes64(const Chunk& chunk)
    {
        Bytes data;
        if (const OSStatus status = readChunk(chunk, sizes64Bytes, data); status != noErr)
            return status;
        if (data.size() < sizes64Bytes - 4) // some writers leave out the count of the table
            return kAudioFileInvalidFileError;
        sizes64_ = chunk.position;
        dataBytes64_ = load64(data.data() + 8, order_);
        const UInt64 formBytes = load64(data.data(), order_);
        setFormEnd(std::min(formBytes, fileLength()) + chunkHeaderBytes);
        return noErr;
    }

    // A writer that could not go back leaves 0 or the largest value, one that ignored the limit a value modulo 2^32;
    // all mean the rest of the file, unless a chunk starts where the data would end.
    UInt64 sizeOfData(Chunk chunk)
    {
        const UInt64 rest = fileLength() - chunk.dataStart();
        if (is64_ && chunk.size == sizeIn64Bits)
            chunk.size = std::min(dataBytes64_, rest);
        const bool wrapped = rest > largestField && rest > chunk.size && (rest - chunk.size) % (largestField + 1) <= 1;
        const bool unknown = chunk.size == 0 || chunk.size == sizeIn64Bits || wrapped;
        return unknown && !isChunkAt(chunk.paddedEnd()) ? rest : std::min(chunk.size, rest);
    }

    OSStatus readFormat(const Chunk& chunk)
    {
        Bytes data;
        if (const OSStatus status = readChunk(chunk, extensibleFormatBytes, data); status != noErr)
            return status;
        if (data.size() < plainFormatBytes)
            return kAudioFileInvalidFileError;
        formatFound_ = true;
        UInt16 tag = load16(data.data(), order_);
        channels_ = load16(data.data() + 2, order_);
        rate_ = load32(data.data() + 4, order_);
        channelMask_ = channelMask(channels_);
        const UInt32 frameBytes = load16(data.data() + 12, order_);
        UInt32 bits = load16(data.data() + 14, order_);
        UInt32 bytes = (bits + 7) / 8;
        const UInt32 stated = channels_ > 0 && frameBytes % channels_ == 0 ? frameBytes / channels_ : 0;
        if (stated > bytes && stated <= 4)
            bytes = stated;
        if (tag == tagExtensible) {
            const auto found = data.size() < extensibleFormatBytes ? std::nullopt : tagIn(std::span(data).last(16));
            if (!found)
                return noErr; // an unknown coding
            tag = *found;
            channelMask_ = load32(data.data() + 20, order_);
            const UInt32 validBits = load16(data.data() + 18, order_);
            bits = validBits > 0 && validBits <= bits ? validBits : bits;
        }
        layout_ = layoutFor(tag, bits, bytes);
        return noErr;
    }

    std::optional<SampleLayout> layoutFor(UInt16 tag, UInt32 bits, UInt32 bytes) const
    {
        switch (tag) {
        case tagPCM:
            if (bits < 1 || bytes > 4)
                return std::nullopt;
            return bytes == 1 ? SampleLayout{Coding::unsignedInteger, ByteOrder::little, bits, bytes}
                              : SampleLayout{Coding::signedInteger, order_, bits, bytes};
        case tagFloat:
            return bits == bytes * 8 && (bits == 32 || bits == 64)
                       ? std::optional(SampleLayout{Coding::floatingPoint, order_, bits, bytes})
                       : std::nullopt;
        case tagALaw:
            return SampleLayout{Coding::aLaw, ByteOrder::big, 8, 1};
        case tagULaw:
            return SampleLayout{Coding::uLaw, ByteOrder::big, 8, 1};
        default:
            return std::nullopt;
        }
    }

    bool is64_ = false;
    bool reserved_ = false;  // room for 64-bit sizes is the first chunk
    UInt64 sizes64_ = 0;     // position of the chunk of 64-bit sizes
    UInt64 dataBytes64_ = 0; // as stored there
    UInt64 fact_ = 0;        // position of the chunk of the frame count
    bool formatFound_ = false;
    UInt32 channels_ = 0;
    UInt32 channelMask_ = 0;
    Float64 rate_ = 0;
    std::optional<SampleLayout> layout_;
};

bool matches(const FileSigns& signs)
{
    const UInt8* const head = signs.head.data();
    const FourCharCode form = load32(head, ByteOrder::big);
    const bool isForm = form == riffID || form == rifxID || form == rf64ID || form == bw64ID;
    return isForm && load32(head + 8, ByteOrder::big) == waveID;
}

bool holds(const AudioStreamBasicDescription& format)
{
    return layoutInFile(format).has_value();
}

OSStatus open(PlacedFile placed, bool forWriting, std::unique_ptr<Container>& container)
{
    return loadContainer<WAVEContainer>(std::move(placed.file), forWriting, container);
}

OSStatus create(PlacedFile placed, const AudioStreamBasicDescription& format, std::unique_ptr<Container>& container)
{
    return createContainer<WAVEContainer>(std::move(placed.file), headerFor(format), container);
}

} // namespace

const ContainerKind waveKind{kAudioFileWAVEType, matches, open, holds, create};

} // namespace qmx
