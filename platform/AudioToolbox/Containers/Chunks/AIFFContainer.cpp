// SPDX-License-Identifier: MIT
#include "AudioToolbox/Containers/Chunks/AIFFContainer.h"

#include "AudioToolbox/Containers/Chunks/ChunkContainer.h"
#include "AudioToolbox/Containers/Chunks/ExtendedFloat.h"
#include "AudioToolbox/Containers/SampleLayout.h"

#include <algorithm>
#include <limits>

namespace qmx
{
namespace
{

using Coding = SampleLayout::Coding;

constexpr FourCharCode formID = fourCharCode("FORM");
constexpr FourCharCode commonID = fourCharCode("COMM");
constexpr FourCharCode soundID = fourCharCode("SSND");
constexpr FourCharCode versionID = fourCharCode("FVER");
constexpr FourCharCode fillerID = fourCharCode("FLLR");
constexpr UInt32 version1 = 0xA2805140;
constexpr UInt64 largestField = std::numeric_limits<UInt32>::max();

constexpr std::size_t commonBytes = 18;         // of AIFF
constexpr std::size_t extendedCommonBytes = 22; // of AIFF-C, without the name
constexpr std::size_t framesFieldOffset = 2;    // in the common chunk
constexpr std::size_t soundHeaderBytes = 8;     // offset and block size

// A compression type and its samples. 0 bits: as many as the common chunk says.
struct Compression {
    FourCharCode type;
    SampleLayout layout;
    const char* name;
};

constexpr FourCharCode notCompressed = fourCharCode("NONE");

// A format is written as the first type that represents it.
constexpr Compression compressions[] = {
    {notCompressed, {Coding::signedInteger, ByteOrder::big, 0, 0}, "not compressed"},
    {fourCharCode("twos"), {Coding::signedInteger, ByteOrder::big, 0, 0}, ""},
    {fourCharCode("42n1"), {Coding::signedInteger, ByteOrder::little, 24, 3}, "24-bit little endian"},
    {fourCharCode("23ni"), {Coding::signedInteger, ByteOrder::little, 32, 4}, "32-bit little endian"},
    {fourCharCode("sowt"), {Coding::signedInteger, ByteOrder::little, 0, 0}, "little endian"},
    {fourCharCode("in24"), {Coding::signedInteger, ByteOrder::big, 24, 3}, ""},
    {fourCharCode("in32"), {Coding::signedInteger, ByteOrder::big, 32, 4}, ""},
    {fourCharCode("raw "), {Coding::unsignedInteger, ByteOrder::little, 8, 1}, ""},
    {fourCharCode("fl32"), {Coding::floatingPoint, ByteOrder::big, 32, 4}, "32-bit floating point"},
    {fourCharCode("FL32"), {Coding::floatingPoint, ByteOrder::big, 32, 4}, ""},
    {fourCharCode("fl64"), {Coding::floatingPoint, ByteOrder::big, 64, 8}, "64-bit floating point"},
    {fourCharCode("FL64"), {Coding::floatingPoint, ByteOrder::big, 64, 8}, ""},
    {fourCharCode("ulaw"), {Coding::uLaw, ByteOrder::big, 8, 1}, "uLaw 2:1"},
    {fourCharCode("ULAW"), {Coding::uLaw, ByteOrder::big, 8, 1}, ""},
    {fourCharCode("alaw"), {Coding::aLaw, ByteOrder::big, 8, 1}, "aLaw 2:1"},
    {fourCharCode("ALAW"), {Coding::aLaw, ByteOrder::big, 8, 1}, ""},
};

SampleLayout withBits(SampleLayout layout, UInt32 bits)
{
    if (layout.bits == 0) {
        layout.bits = bits;
        layout.bytes = (bits + 7) / 8;
    }
    return layout;
}

// The samples of a file of this compression type whose common chunk says `bits`.
std::optional<SampleLayout> layoutFor(FourCharCode type, UInt32 bits)
{
    const auto found = std::ranges::find(compressions, type, &Compression::type);
    if (found == std::end(compressions))
        return std::nullopt;
    if (found->layout.bits == 0 && (bits < 1 || bits > 32))
        return std::nullopt;
    return withBits(found->layout, bits);
}

// How a format is written; null if it cannot be.
const Compression* compressionFor(const AudioStreamBasicDescription& format, bool isAIFC)
{
    auto layout = layoutOf(format);
    if (!layout)
        return nullptr;
    if (layout->bytes == 1) // no order of bytes to speak of
        layout->order = layout->coding == Coding::unsignedInteger ? ByteOrder::little : ByteOrder::big;
    const auto found = std::ranges::find_if(compressions, [&](const Compression& compression) {
        return withBits(compression.layout, layout->bits) == *layout;
    });
    const bool isWritten = found != std::end(compressions) && (isAIFC || found->type == notCompressed);
    return isWritten ? found : nullptr;
}

Bytes commonChunk(const AudioStreamBasicDescription& format, const Compression& compression, bool isAIFC)
{
    ByteWriter data(ByteOrder::big);
    data.u16(static_cast<UInt16>(format.mChannelsPerFrame)).u32(0);
    data.u16(static_cast<UInt16>(layoutOf(format)->bits)).append(extendedFromDouble(format.mSampleRate));
    if (isAIFC)
        data.code(compression.type).pascalString(compression.name);
    return ByteWriter(ByteOrder::big).chunk(commonID, data.bytes()).bytes();
}

Bytes emptySoundChunk()
{
    return ByteWriter(ByteOrder::big).chunk(soundID, Bytes(soundHeaderBytes)).bytes();
}

Bytes headerFor(const AudioStreamBasicDescription& format, bool isAIFC)
{
    ByteWriter chunks(ByteOrder::big);
    chunks.code(isAIFC ? kAudioFileAIFCType : kAudioFileAIFFType);
    if (isAIFC)
        chunks.code(versionID).u32(4).u32(version1);
    chunks.append(commonChunk(format, *compressionFor(format, isAIFC), isAIFC)).append(emptySoundChunk());
    return ByteWriter(ByteOrder::big).chunk(formID, chunks.bytes()).bytes();
}

class AIFFContainer : public ChunkContainer
{
public:
    explicit AIFFContainer(std::unique_ptr<File> file) : ChunkContainer(std::move(file), fillerID) {}

    AudioFileTypeID type() const override { return type_; }

protected:
    UInt64 readFormHeader(const UInt8* header) override
    {
        type_ = load32(header + 8, ByteOrder::big);
        return UInt64{load32(header + 4, ByteOrder::big)} + chunkHeaderBytes;
    }

    OSStatus visit(Chunk& chunk) override
    {
        if (chunk.id == commonID && common_ == 0)
            return readCommon(chunk);
        if (chunk.id == soundID && !hasAudioChunk() && chunk.size >= soundHeaderBytes)
            return readSoundHeader(chunk);
        return noErr;
    }

    // The frame count of the common chunk decides: some writers leave slack after the samples.
    OSStatus finishLoading() override
    {
        if (common_ == 0 || (!hasAudioChunk() && frames_ > 0))
            return kAudioFileInvalidFileError;
        if (!layout_ || !isPlausible(rate_, channels_))
            return kAudioFileUnsupportedDataFormatError;
        format_ = formatOf(*layout_, rate_, channels_);
        if (hasAudioChunk())
            setAudioBytes(std::min(frames_, audioRoom() / format_.mBytesPerFrame) * format_.mBytesPerFrame);
        return noErr;
    }

    bool canHold(const Sizes& sizes) const override
    {
        return sizes.formEnd - chunkHeaderBytes <= largestField &&
               sizes.audioBytes / format_.mBytesPerFrame <= largestField;
    }

    std::vector<Patch> patchesFor(const Sizes& sizes) override
    {
        std::vector<Patch> patches{
            field(4, sizes.formEnd - chunkHeaderBytes),
            field(common_ + chunkHeaderBytes + framesFieldOffset, sizes.audioBytes / format_.mBytesPerFrame)};
        if (hasAudioChunk())
            patches.push_back(field(audioChunk() + 4, sizes.audioChunkEnd - audioChunk() - chunkHeaderBytes));
        return patches;
    }

    void chunksMoved(UInt64 from, SInt64 by) override
    {
        if (common_ >= from)
            common_ += static_cast<UInt64>(by);
    }

    Bytes emptyAudioChunk() const override { return emptySoundChunk(); }

private:
    static Patch field(UInt64 position, UInt64 value)
    {
        return {position, ByteWriter(ByteOrder::big).u32(static_cast<UInt32>(value)).bytes()};
    }

    OSStatus readCommon(const Chunk& chunk)
    {
        Bytes data;
        if (const OSStatus status = readChunk(chunk, extendedCommonBytes, data); status != noErr)
            return status;
        const bool isAIFC = type_ == kAudioFileAIFCType;
        if (data.size() < (isAIFC ? extendedCommonBytes : commonBytes))
            return kAudioFileInvalidFileError;
        common_ = chunk.position;
        channels_ = load16(data.data(), ByteOrder::big);
        frames_ = load32(data.data() + framesFieldOffset, ByteOrder::big);
        ExtendedFloat rate{};
        std::copy_n(data.begin() + 8, rate.size(), rate.begin());
        rate_ = doubleFromExtended(rate);
        const FourCharCode type = isAIFC ? load32(data.data() + commonBytes, ByteOrder::big) : notCompressed;
        layout_ = layoutFor(type, load16(data.data() + 6, ByteOrder::big));
        return noErr;
    }

    OSStatus readSoundHeader(Chunk& chunk)
    {
        Bytes data;
        if (const OSStatus status = readChunk(chunk, soundHeaderBytes, data); status != noErr)
            return status;
        if (data.size() < soundHeaderBytes)
            return kAudioFileInvalidFileError;
        const UInt64 start = chunk.dataStart() + soundHeaderBytes + load32(data.data(), ByteOrder::big);
        unwrapSize(chunk, start);
        if (start > std::min(chunk.end(), fileLength()))
            return kAudioFileInvalidFileError;
        setAudioChunk(chunk, start);
        return noErr;
    }

    // Beyond 4 GiB some writers let the size wrap, while the frame count stays right.
    void unwrapSize(Chunk& chunk, UInt64 start) const
    {
        if (!layout_)
            return;
        const UInt64 end = start + frames_ * channels_ * layout_->bytes;
        const UInt64 size = end - chunk.dataStart();
        if (size > largestField && (size & largestField) == chunk.size && end <= fileLength())
            chunk.size = size;
    }

    AudioFileTypeID type_ = kAudioFileAIFFType;
    UInt64 common_ = 0; // position of the common chunk
    UInt32 channels_ = 0;
    UInt64 frames_ = 0;
    Float64 rate_ = 0;
    std::optional<SampleLayout> layout_;
};

template <AudioFileTypeID type> bool matches(const FileSigns& signs)
{
    const UInt8* const head = signs.head.data();
    return load32(head, ByteOrder::big) == formID && load32(head + 8, ByteOrder::big) == type;
}

template <bool isAIFC> bool holds(const AudioStreamBasicDescription& format)
{
    return compressionFor(format, isAIFC) != nullptr;
}

OSStatus open(PlacedFile placed, bool forWriting, std::unique_ptr<Container>& container)
{
    return loadContainer<AIFFContainer>(std::move(placed.file), forWriting, container);
}

template <bool isAIFC>
OSStatus create(PlacedFile placed, const AudioStreamBasicDescription& format, std::unique_ptr<Container>& container)
{
    return createContainer<AIFFContainer>(std::move(placed.file), headerFor(format, isAIFC), container);
}

} // namespace

const ContainerKind aiffKind{kAudioFileAIFFType, matches<kAudioFileAIFFType>, open, holds<false>, create<false>};
const ContainerKind aifcKind{kAudioFileAIFCType, matches<kAudioFileAIFCType>, open, holds<true>, create<true>};

} // namespace qmx
