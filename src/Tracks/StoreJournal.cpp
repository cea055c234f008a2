// SPDX-License-Identifier: MIT
#include "Tracks/StoreJournal.h"

#include "CoreAudioTypes/FourCharCode.h"
#include "Tracks/ApplicationChunk.h"

#include <algorithm>
#include <array>
#include <optional>

namespace qmx
{
namespace
{

constexpr FourCharCode applicationChunk = fourCharCode("APPL"), journalSignature = fourCharCode("tRaJ");
constexpr std::size_t chunkHeaderSize = 8, headSize = 12, fieldsSize = 44, trailerSize = 16;
constexpr std::size_t longestJournal = fieldsSize + chunkHeaderSize + applicationBlockSize + 1 + trailerSize;

SInt64 even(SInt64 position)
{
    return position + (position & 1);
}

UInt32 code(std::span<const UInt8> bytes, std::size_t at)
{
    return load32(&bytes[at], ByteOrder::big);
}

SInt64 position(std::span<const UInt8> bytes, std::size_t at)
{
    return static_cast<SInt64>(load64(&bytes[at], ByteOrder::big));
}

Bytes readAt(FileHandle& file, SInt64 offset, std::size_t count)
{
    file.seekToFileOffset(offset);
    return file.readDataOfLength(count);
}

/// FNV-1a over 64 bits.
UInt64 checksum(std::span<const UInt8> bytes)
{
    UInt64 sum = 0xcbf29ce484222325;
    for (const UInt8 byte : bytes)
        sum = (sum ^ byte) * 0x100000001b3;
    return sum;
}

/// The first bytes of a journal chunk.
Bytes head(std::size_t chunkSize)
{
    ByteWriter head(ByteOrder::big);
    return head.code(applicationChunk)
        .u32(static_cast<UInt32>(chunkSize - chunkHeaderSize))
        .code(journalSignature)
        .bytes();
}

bool isOurs(std::span<const UInt8> signature)
{
    const auto matches = [&](UInt32 value, ByteOrder order) { return load32(signature.data(), order) == value; };
    return matches(applicationSignature, ByteOrder::big) || matches(applicationSignature, hostByteOrder) ||
           matches(journalSignature, ByteOrder::big);
}

/// The journal that ends the file without its trailer, if it is whole and stands where it was written; else empty.
Bytes endingJournal(FileHandle& file)
{
    const SInt64 end = file.seekToEndOfFile();
    const Bytes ending = readAt(file, end - static_cast<SInt64>(chunkHeaderSize), chunkHeaderSize);
    if (ending.size() != chunkHeaderSize || code(ending, 4) != journalSignature)
        return {};
    const std::size_t size = code(ending, 0);
    if (size < fieldsSize + headSize + trailerSize || size > longestJournal || static_cast<SInt64>(size) > end)
        return {};
    const SInt64 start = end - static_cast<SInt64>(size);
    Bytes journal = readAt(file, start, size);
    if (journal.size() != size || !std::ranges::equal(head(size), std::span(journal).first(headSize)))
        return {};
    const UInt64 sum = load64(&journal[size - trailerSize], ByteOrder::big);
    journal.resize(size - trailerSize);
    return sum == checksum(journal) && position(journal, headSize) == start ? journal : Bytes();
}

/// What the journal that ends the file asks for; none unless there is such a chunk of ours.
std::optional<ChunkOverwrite> findJournal(FileHandle& file)
{
    const Bytes journal = endingJournal(file);
    if (journal.empty())
        return std::nullopt;
    ChunkOverwrite found{position(journal, 20), Bytes(journal.begin() + fieldsSize, journal.end()),
                         position(journal, 36)};
    const SInt64 length = position(journal, 28);
    const bool fits = found.position >= SInt64{headSize} && found.fileEnd >= found.position &&
                      found.fileEnd <= position(journal, headSize) && length >= SInt64{headSize} &&
                      length <= std::min(found.fileEnd - found.position, SInt64{longestJournal});
    const Bytes target = readAt(file, found.position, headSize);
    if (!fits || target.size() != headSize || code(target, 0) != applicationChunk ||
        !isOurs(std::span(target).subspan(chunkHeaderSize)))
        return std::nullopt;
    found.bytes.resize(static_cast<std::size_t>(length)); // the filler again, or without the pad byte
    return found;
}

bool isForm(FileHandle& file)
{
    const Bytes id = readAt(file, 0, 4);
    return id.size() == 4 && code(id, 0) == fourCharCode("FORM");
}

/// The file's own end where it is no form.
SInt64 formEnd(FileHandle& file)
{
    const Bytes size = readAt(file, 4, 4);
    return isForm(file) && size.size() == 4 ? SInt64{code(size, 0)} + static_cast<SInt64>(chunkHeaderSize)
                                            : file.seekToEndOfFile();
}

/// What was appended of a store: where it begins, where its chunk says that it ends, and its first bytes.
struct Tail {
    SInt64 start;
    SInt64 end;
    Bytes head;
};

/// None in a file that ends with its form, or behind whose form stands something else.
std::optional<Tail> findTail(FileHandle& file)
{
    const SInt64 start = even(formEnd(file));
    const SInt64 fileEnd = file.seekToEndOfFile();
    if (fileEnd <= start)
        return std::nullopt;
    Tail tail{start, fileEnd, readAt(file, start, headSize)};
    if (tail.head.size() < 4 || code(tail.head, 0) != applicationChunk)
        return std::nullopt;
    if (tail.head.size() < headSize)
        return tail;
    tail.end = start + static_cast<SInt64>(chunkHeaderSize) + code(tail.head, 4);
    const bool isOfStore = isOurs(std::span(tail.head).subspan(chunkHeaderSize)) && tail.end >= fileEnd;
    return isOfStore ? std::optional(tail) : std::nullopt;
}

SystemError writeAt(FileHandle& file, SInt64 offset, std::span<const UInt8> bytes)
{
    file.seekToFileOffset(offset);
    return file.writeData(bytes);
}

void replay(FileHandle& file, const ChunkOverwrite& overwrite)
{
    if (writeAt(file, overwrite.position, overwrite.bytes) != 0)
        return; // the journal stays for the next time
    if (isForm(file) && writeAt(file, 4, formSizeField(overwrite.fileEnd)) != 0)
        return;
    file.truncateFileAtOffset(overwrite.fileEnd);
}

/// Whether the file ends in a chunk of tracks that only the form's size does not count yet.
bool endsInWholeChunk(FileHandle& file)
{
    const auto tail = findTail(file);
    return tail && tail->head.size() == headSize && code(tail->head, chunkHeaderSize) != journalSignature &&
           tail->end == file.seekToEndOfFile();
}

/// Completes a store from its journal, or where its chunk only waits for being counted.
void complete(FileHandle& file, const std::optional<ChunkOverwrite>& journal)
{
    if (journal)
        replay(file, *journal);
    else if (endsInWholeChunk(file))
        writeAt(file, 4, formSizeField(file.seekToEndOfFile()));
}

} // namespace

Bytes journalOf(const ChunkOverwrite& overwrite, SInt64 fileEnd)
{
    const bool grows = overwrite.fileEnd > fileEnd;
    const SInt64 tail = even(fileEnd);
    const SInt64 start = grows ? even(std::max(overwrite.fileEnd, tail + static_cast<SInt64>(headSize))) : tail;
    const auto filler =
        std::find_if(overwrite.bytes.rbegin(), overwrite.bytes.rend(), [](UInt8 byte) { return byte != 0; });
    const std::span content(overwrite.bytes.begin(), filler.base());
    const std::size_t pad = content.size() & 1;
    const std::size_t size = fieldsSize + content.size() + pad + trailerSize;

    ByteWriter journal(ByteOrder::big);
    journal.append(head(size)).u64(static_cast<UInt64>(start)).u64(static_cast<UInt64>(overwrite.position));
    journal.u64(overwrite.bytes.size()).u64(static_cast<UInt64>(overwrite.fileEnd)).append(content).zeros(pad);
    journal.u64(checksum(journal.bytes())).u32(static_cast<UInt32>(size)).code(journalSignature);

    ByteWriter appended(ByteOrder::big);
    appended.zeros(static_cast<std::size_t>(tail - fileEnd));
    if (grows)
        appended.append(head(static_cast<std::size_t>(start - tail) + size))
            .zeros(static_cast<std::size_t>(start - tail) - headSize);
    return appended.append(journal.bytes()).bytes();
}

Bytes formSizeField(SInt64 fileEnd)
{
    return ByteWriter(ByteOrder::big).u32(static_cast<UInt32>(fileEnd - static_cast<SInt64>(chunkHeaderSize))).bytes();
}

bool endsInUnfinishedStore(FileHandle& file)
{
    return findTail(file).has_value();
}

SInt64 settledEnd(FileHandle& file)
{
    return endsInUnfinishedStore(file) ? formEnd(file) : file.seekToEndOfFile();
}

void completeStoreAtPath(const std::string& path, FileHandle& openForReading)
{
    if (!findJournal(openForReading) && !endsInWholeChunk(openForReading))
        return;
    // looked for once more in the file that is written: somebody else may have completed it meanwhile
    if (const auto file = FileHandle::fileHandleForUpdatingAtPath(path))
        complete(*file, findJournal(*file));
}

bool settleStore(FileHandle& file)
{
    const auto journal = findJournal(file);
    const bool isOpen = journal || findTail(file);
    if (isOpen)
        complete(file, journal);
    if (isOpen && findTail(file))
        file.truncateFileAtOffset(formEnd(file));
    return isOpen;
}

} // namespace qmx
