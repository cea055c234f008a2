// SPDX-License-Identifier: MIT
#include "AudioToolbox/Containers/MPEG4Atoms.h"

#include "AudioToolbox/AudioFile.h"

#include <algorithm>
#include <array>
#include <limits>

namespace qmx
{
namespace
{

constexpr int mostAtoms = 1 << 20;              // of the file's own level: several for each fragment
constexpr UInt64 largestAtom = UInt64{1} << 28; // but that of the sound
constexpr UInt64 largestHeader = 16;            // of an atom

/// The big-endian number of `width` bytes; what lies behind the end is 0.
UInt64 field(std::span<const UInt8> bytes, std::size_t offset, std::size_t width = 4)
{
    return offset <= bytes.size() && width <= bytes.size() - offset ? loadInteger(&bytes[offset], width, ByteOrder::big)
                                                                    : 0;
}

bool isVersion1(std::span<const UInt8> atom)
{
    return field(atom, 0, 1) == 1;
}

/// Where a table has the count of its entries, each of which takes a byte of the file at least; empty for other atoms.
std::optional<std::size_t> placeOfCount(FourCharCode code)
{
    switch (code) {
    case fourCharCode("stsz"):
    case fourCharCode("stz2"):
        return 8;
    case fourCharCode("stts"):
    case fourCharCode("ctts"):
    case fourCharCode("stsc"):
    case fourCharCode("stco"):
    case fourCharCode("co64"):
    case fourCharCode("stss"):
    case fourCharCode("stps"):
    case fourCharCode("trun"):
        return 4;
    default:
        return std::nullopt;
    }
}

} // namespace

OSStatus MPEG4Atoms::read(ContainerFile& file)
{
    UInt64 at = 0;
    for (int count = 0; count < mostAtoms && file.length() - at >= 8; ++count) {
        std::array<UInt8, largestHeader> header{};
        const UInt64 rest = file.length() - at;
        const auto headerBytes = static_cast<std::size_t>(std::min(rest, largestHeader));
        if (const OSStatus status = file.readAll(at, std::span(header).first(headerBytes)); status != noErr)
            return status;
        UInt64 size = field(header, 0);
        const auto type = static_cast<FourCharCode>(field(header, 4));
        if (size == 1)
            size = field(header, 8, 8);
        else if (size == 0) // to the end of the file
            size = rest;
        if (type == fourCharCode("mdat")) {
            if (size > rest)
                return noErr;
        } else {
            if (size < 8 || size > std::min(rest, largestAtom))
                return kAudioFileInvalidFileError;
            Bytes atom(static_cast<std::size_t>(size));
            if (const OSStatus status = file.readAll(at, atom); status != noErr)
                return status;
            isFragmented_ = isFragmented_ || type == fourCharCode("moof");
            if (const OSStatus status = readAtom(atom, file.length()); status != noErr)
                return status;
        }
        at += std::max(size, UInt64{8});
    }
    return noErr;
}

// libavformat takes an atom for what its code says wherever it stands; so does this.
OSStatus MPEG4Atoms::readAtom(std::span<const UInt8> atom, UInt64 largestCount)
{
    for (std::size_t at = 4; at + 4 < atom.size(); ++at) {
        const auto code = load32(&atom[at], ByteOrder::big);
        const auto contents = atom.subspan(at + 4);
        if (code == fourCharCode("cmov")) // its tables are compressed
            return kAudioFileUnsupportedDataFormatError;
        if (code == fourCharCode("mvhd"))
            movieScale_ = static_cast<UInt32>(field(contents, isVersion1(contents) ? 20 : 12));
        else if (code == fourCharCode("tkhd"))
            track_ = static_cast<UInt32>(field(contents, isVersion1(contents) ? 20 : 12));
        else if (code == fourCharCode("elst"))
            readEdit(contents);
        else if (code == fourCharCode("tfhd"))
            mayHaveRuns_ = true;
        const auto count = placeOfCount(code);
        const bool isTable = count && (code != fourCharCode("trun") || mayHaveRuns_); // and no text of a tree's trunk
        if (isTable && field(contents, *count) > largestCount)
            return kAudioFileInvalidFileError;
    }
    return noErr;
}

void MPEG4Atoms::readEdit(std::span<const UInt8> table)
{
    const bool isLong = isVersion1(table);
    const std::size_t width = isLong ? 8 : 4, size = 2 * width + 4;
    const UInt64 empty = isLong ? std::numeric_limits<UInt64>::max() : std::numeric_limits<UInt32>::max();
    const std::size_t count = std::min<std::size_t>(field(table, 4), table.size() / size);
    for (std::size_t i = 0; i < count; ++i) {
        const Edit edit{field(table, 8 + i * size + width, width), field(table, 8 + i * size, width)};
        if (edit.start != empty) {
            edits_.try_emplace(track_, edit);
            return;
        }
    }
}

std::optional<MPEG4Atoms::Edit> MPEG4Atoms::editOf(UInt32 track) const
{
    const auto found = edits_.find(track);
    return found == edits_.end() ? std::nullopt : std::optional(found->second);
}

} // namespace qmx
