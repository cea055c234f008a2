// SPDX-License-Identifier: MIT
#include "AudioToolbox/Containers/Libav/MPEG4Atoms.h"

#include "AudioToolbox/AudioFile.h"

#include <algorithm>
#include <array>
#include <limits>

namespace qmx
{
namespace
{

constexpr int mostAtoms = 1 << 20;              // of the file's own level: several for each fragment
constexpr int deepest = 10;                     // levels of atoms in atoms
constexpr UInt64 largestAtom = UInt64{1} << 28; // of those that are examined
constexpr std::size_t atomHeader = 8;
constexpr std::size_t largestHeader = 16; // with a long size, or with the type of the first atom inside

/// The big-endian number of `width` bytes; bytes past the end are 0.
UInt64 field(std::span<const UInt8> bytes, std::size_t offset, std::size_t width = 4)
{
    return offset <= bytes.size() && width <= bytes.size() - offset ? loadInteger(&bytes[offset], width, ByteOrder::big)
                                                                    : 0;
}

bool isVersion1(std::span<const UInt8> atom)
{
    return field(atom, 0, 1) == 1;
}

/// Where a table has the count of its entries, each of which takes at least a byte of the file; empty for other atoms.
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

/// Where the atoms inside one start; nothing for one that libavformat does not look into.
std::optional<std::size_t> placeOfAtoms(FourCharCode type, std::span<const UInt8> contents)
{
    switch (type) {
    case fourCharCode("moov"):
    case fourCharCode("hoov"):
    case fourCharCode("trak"):
    case fourCharCode("mdia"):
    case fourCharCode("minf"):
    case fourCharCode("dinf"):
    case fourCharCode("stbl"):
    case fourCharCode("edts"):
    case fourCharCode("tref"):
    case fourCharCode("udta"):
    case fourCharCode("ilst"):
    case fourCharCode("mvex"):
    case fourCharCode("moof"):
    case fourCharCode("traf"):
    case fourCharCode("wave"):
    case fourCharCode("sinf"):
    case fourCharCode("schi"):
        return 0;
    case fourCharCode("free"): // a movie may be hidden in there
        return field(contents, 4) == fourCharCode("mvhd") || field(contents, 4) == fourCharCode("cmov")
                   ? std::optional<std::size_t>(0)
                   : std::nullopt;
    case fourCharCode("meta"): // some have a version first
        for (std::size_t at = 4; at + 4 < contents.size(); at += 4)
            if (field(contents, at) == fourCharCode("hdlr"))
                return at - 4;
        return std::nullopt;
    default:
        return std::nullopt;
    }
}

bool isFact(FourCharCode type)
{
    return type == fourCharCode("mvhd") || type == fourCharCode("tkhd") || type == fourCharCode("elst") ||
           type == fourCharCode("stsd") || type == fourCharCode("cmov") || placeOfCount(type);
}

struct AtomHeader {
    UInt64 size = 0; ///< of all the atom, as it says
    FourCharCode type = 0;
    std::size_t length = atomHeader;
};

/// Nothing for a size that is smaller than the header itself. `rest`: bytes from the atom's start on.
std::optional<AtomHeader> headerOf(std::span<const UInt8> bytes, UInt64 rest)
{
    AtomHeader header{field(bytes, 0), static_cast<FourCharCode>(field(bytes, 4))};
    if (header.size == 1) {
        header.size = field(bytes, 8, 8);
        header.length = largestHeader;
    } else if (header.size == 0) {
        header.size = rest;
    }
    return header.size >= header.length ? std::optional(header) : std::nullopt;
}

} // namespace

// As libavformat does, it takes an atom by its type wherever it is.
OSStatus MPEG4Atoms::read(ContainerFile& file)
{
    end_ = largestCount_ = file.length();
    UInt64 at = 0;
    for (int count = 0; count < mostAtoms && file.length() - at >= atomHeader; ++count) {
        std::array<UInt8, largestHeader> begin{};
        const UInt64 rest = file.length() - at;
        if (const OSStatus status = file.readAll(at, std::span(begin).first(std::min(rest, UInt64{begin.size()})));
            status != noErr)
            return status;
        const auto header = headerOf(begin, rest);
        if (!header)
            return noErr;
        const auto contents = std::span<const UInt8>(begin).subspan(atomHeader);
        if (isFact(header->type) || header->type == fourCharCode("meta") || placeOfAtoms(header->type, contents)) {
            const bool isFragment = header->type == fourCharCode("moof");
            if (isFragment && header->size > rest) {
                end_ = at;
                return noErr;
            }
            if (header->size > std::min(rest, largestAtom))
                return kAudioFileInvalidFileError;
            Bytes atom(static_cast<std::size_t>(header->size));
            if (const OSStatus status = file.readAll(at, atom); status != noErr)
                return status;
            isFragmented_ = isFragmented_ || isFragment;
            if (const OSStatus status = readAtoms(atom, 0); status != noErr)
                return status;
        }
        at += std::min(header->size, rest);
    }
    return noErr;
}

OSStatus MPEG4Atoms::readAtoms(std::span<const UInt8> atoms, int depth)
{
    if (depth > deepest)
        return kAudioFileInvalidFileError;
    while (const auto header = atoms.size() >= atomHeader ? headerOf(atoms, atoms.size()) : std::nullopt) {
        const auto size = static_cast<std::size_t>(std::min<UInt64>(header->size, atoms.size()));
        const auto contents = atoms.first(size).subspan(header->length);
        OSStatus status = readFact(header->type, contents);
        if (const auto inside = placeOfAtoms(header->type, contents); inside && status == noErr)
            status = readAtoms(contents.subspan(*inside), depth + 1);
        if (status != noErr)
            return status;
        atoms = atoms.subspan(size);
    }
    return noErr;
}

OSStatus MPEG4Atoms::readFact(FourCharCode type, std::span<const UInt8> contents)
{
    if (type == fourCharCode("cmov")) // its tables are compressed
        return kAudioFileUnsupportedDataFormatError;
    if (type == fourCharCode("mvhd"))
        movieScale_ = static_cast<UInt32>(field(contents, isVersion1(contents) ? 20 : 12));
    else if (type == fourCharCode("tkhd"))
        track_ = static_cast<UInt32>(field(contents, isVersion1(contents) ? 20 : 12));
    else if (type == fourCharCode("elst"))
        readEdit(contents);
    else if (type == fourCharCode("stsd"))
        return readDescriptions(contents);
    const auto count = placeOfCount(type);
    return count && field(contents, *count) > largestCount_ ? kAudioFileInvalidFileError : noErr;
}

// Where the atoms of a description start depends on its kind: anything that could be one is examined.
OSStatus MPEG4Atoms::readDescriptions(std::span<const UInt8> descriptions)
{
    for (std::size_t at = 4; at + 4 < descriptions.size(); ++at)
        if (const auto type = static_cast<FourCharCode>(field(descriptions, at)); type != fourCharCode("stsd"))
            if (const OSStatus status = readFact(type, descriptions.subspan(at + 4)); status != noErr)
                return status;
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
