// SPDX-License-Identifier: MIT
#include "AudioToolbox/Containers/Libav/MPEG4Fragments.h"

#include "AudioToolbox/AudioFile.h"

#include <array>
#include <limits>

namespace qmx
{
namespace
{

constexpr std::size_t pageBytes = 4096; // the system stores a page of a file whole or not at all
constexpr std::size_t atomHeader = 8;
constexpr std::size_t editBytes = 36;
constexpr std::size_t emptyFragmentBytes = 92;
constexpr std::size_t mostPacketsOfFragment = (pageBytes - emptyFragmentBytes - 2 * atomHeader) / 4;
// the size of a fragment's data is a field of 32 bits
constexpr UInt64 mostBytesOfFragment = UInt64{1} << 30, largestBlock = UInt64{1} << 31;

UInt32 sizeAt(std::span<const UInt8> atoms, std::size_t at)
{
    return load32(&atoms[at], ByteOrder::big);
}

/// The place of the first atom of a type, which must exist, from `at` on.
std::size_t placeOf(std::span<const UInt8> atoms, std::size_t at, FourCharCode type)
{
    while (load32(&atoms[at + 4], ByteOrder::big) != type)
        at += sizeAt(atoms, at);
    return at;
}

void appendFree(ByteWriter& writer, std::size_t size)
{
    writer.u32(static_cast<UInt32>(size)).code(fourCharCode("free")).zeros(size - atomHeader);
}

/// The movie of one track with an edit that skips the priming.
Bytes withEdit(std::span<const UInt8> movie, UInt32 priming)
{
    const std::size_t track = placeOf(movie, atomHeader, fourCharCode("trak"));
    const std::size_t header = placeOf(movie, track + atomHeader, fourCharCode("tkhd"));
    const std::size_t edit = header + sizeAt(movie, header);
    ByteWriter writer(ByteOrder::big);
    writer.append(movie.first(edit)).u32(editBytes).code(fourCharCode("edts"));
    writer.u32(editBytes - atomHeader).code(fourCharCode("elst")).u32(0).u32(1);
    writer.u32(0).u32(priming).u32(1 << 16).append(movie.subspan(edit)); // to the end, at the usual speed
    Bytes edited = writer.bytes();
    for (const std::size_t grown : {std::size_t{0}, track})
        store32(&edited[grown], sizeAt(movie, grown) + UInt32{editBytes}, ByteOrder::big);
    return edited;
}

} // namespace

UInt64 MPEG4Fragments::Fragment::dataStart() const
{
    return start + pageBytes;
}

/// Without packets the page is filler. The data extend to the end of the file.
Bytes MPEG4Fragments::Fragment::page(UInt32 framesPerPacket) const
{
    ByteWriter writer(ByteOrder::big);
    if (!sizes.empty()) {
        const auto sizesBytes = static_cast<UInt32>(4 * sizes.size());
        writer.u32(emptyFragmentBytes + sizesBytes).code(fourCharCode("moof"));
        writer.u32(16).code(fourCharCode("mfhd")).u32(0).u32(number);
        writer.u32(emptyFragmentBytes - 24 + sizesBytes).code(fourCharCode("traf"));
        constexpr UInt32 tellsDuration = 8, tellsPlace = 1, tellsSizes = 0x200, isLong = 1U << 24, track = 1;
        writer.u32(20).code(fourCharCode("tfhd")).u32(tellsDuration).u32(track).u32(framesPerPacket);
        writer.u32(20).code(fourCharCode("tfdt")).u32(isLong).u64(firstPacket * framesPerPacket);
        writer.u32(20 + sizesBytes).code(fourCharCode("trun")).u32(tellsPlace | tellsSizes);
        writer.u32(static_cast<UInt32>(sizes.size())).u32(pageBytes);
        for (const UInt32 size : sizes)
            writer.u32(size);
    }
    appendFree(writer, pageBytes - atomHeader - writer.bytes().size());
    return writer.u32(0).code(fourCharCode("mdat")).bytes();
}

OSStatus MPEG4Fragments::begin(ContainerFile& file, std::span<const UInt8> ordinary, std::span<const UInt8> empty,
                               UInt32 priming, UInt64& endOfData)
{
    movieStart_ = sizeAt(ordinary, 0);
    const Bytes movie = withEdit(empty.subspan(sizeAt(empty, 0)), priming);
    if (movieStart_ + movie.size() + atomHeader > pageBytes)
        return kAudioFileUnspecifiedError;
    current_ = {.start = pageBytes, .sizes = {}};
    ByteWriter writer(ByteOrder::big);
    writer.append(ordinary.first(static_cast<std::size_t>(movieStart_))).append(movie);
    appendFree(writer, pageBytes - writer.bytes().size());
    const OSStatus status = file.writeAll(0, writer.append(current_.page(0)).bytes());
    if (status == noErr)
        endOfData = current_.dataStart();
    return status;
}

bool MPEG4Fragments::isFull(UInt64 endOfData) const
{
    return current_.sizes.size() == mostPacketsOfFragment || endOfData - current_.start > mostBytesOfFragment;
}

std::size_t MPEG4Fragments::room(UInt64 endOfData) const
{
    return mostPacketsOfFragment - (isFull(endOfData) ? 0 : current_.sizes.size());
}

OSStatus MPEG4Fragments::append(ContainerFile& file, std::span<const UInt8> block, std::span<PacketPlace> places,
                                UInt32 framesPerPacket, UInt64& endOfData)
{
    if (block.size() > largestBlock)
        return kAudioFileDoesNotAllow64BitDataSizeError;
    const bool isNew = isFull(endOfData);
    Fragment grown = current_;
    if (isNew)
        grown = {.start = (endOfData + pageBytes - 1) / pageBytes * pageBytes,
                 .firstPacket = current_.firstPacket + current_.sizes.size(),
                 .number = current_.number + 1,
                 .sizes = {}};
    const UInt64 start = isNew ? grown.dataStart() : endOfData;
    for (PacketPlace& place : places) {
        place.position += start;
        grown.sizes.push_back(place.size);
    }
    const Bytes page = grown.page(framesPerPacket);
    OSStatus status = file.writeAll(start, block);
    if (status == noErr)
        status = isNew ? file.writeAll(grown.start, page) : file.replace(grown.start, page);
    if (status == noErr && isNew) { // until now it was part of the data of the previous one
        std::array<UInt8, 4> size{};
        store32(size.data(), static_cast<UInt32>(grown.start - current_.dataStart() + atomHeader), ByteOrder::big);
        status = file.replace(current_.dataStart() - atomHeader, size);
    }
    if (status != noErr) {
        (void)file.truncate(endOfData); // the first failure counts
        return status;
    }
    current_ = std::move(grown);
    endOfData = start + block.size();
    return noErr;
}

OSStatus MPEG4Fragments::endAsMovie(ContainerFile& file, UInt64 endOfData) const
{
    const UInt64 size = endOfData - movieStart_;
    ByteWriter writer(ByteOrder::big);
    if (size <= std::numeric_limits<UInt32>::max()) {
        appendFree(writer, atomHeader);
        writer.u32(static_cast<UInt32>(size - atomHeader)).code(fourCharCode("mdat"));
    } else {
        writer.u32(1).code(fourCharCode("mdat")).u64(size);
    }
    return file.replace(movieStart_, writer.bytes());
}

} // namespace qmx
