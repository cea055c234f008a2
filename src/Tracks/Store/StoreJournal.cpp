// SPDX-License-Identifier: MIT
#include "Tracks/Store/StoreJournal.h"

#include "CoreAudioTypes/FourCharCode.h"
#include "Tracks/Store/ApplicationChunk.h"

#include <algorithm>
#include <cerrno>

namespace qmx
{
namespace
{

constexpr FourCharCode applicationChunk = fourCharCode("APPL");
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
        .code(trackJournalSignature)
        .bytes();
}

/// The journal at the end of the file, without its trailer, if it is complete and at its own position; else empty.
Bytes endingJournal(FileHandle& file)
{
    const SInt64 end = file.seekToEndOfFile();
    const Bytes ending = readAt(file, end - static_cast<SInt64>(chunkHeaderSize), chunkHeaderSize);
    if (ending.size() != chunkHeaderSize || code(ending, 4) != trackJournalSignature)
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

/// The overwrite that the journal at the end of the file describes; none without such a journal.
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
        !isOfTrackStore(code(target, chunkHeaderSize)))
        return std::nullopt;
    found.bytes.resize(static_cast<std::size_t>(length)); // add the filler again, or drop the pad byte
    return found;
}

SInt64 formEnd(FileHandle& file)
{
    const Bytes size = readAt(file, 4, 4);
    return size.size() == 4 ? SInt64{code(size, 0)} + static_cast<SInt64>(chunkHeaderSize) : 0;
}

/// What a store appended.
struct Tail {
    bool isJournal;
    bool isWhole;
};

/// None if nothing, or something foreign, follows the form.
std::optional<Tail> findTail(FileHandle& file)
{
    const SInt64 start = even(formEnd(file));
    const SInt64 fileEnd = file.seekToEndOfFile();
    const Bytes head = readAt(file, start, headSize);
    if (head.size() < headSize || code(head, 0) != applicationChunk || !isOfTrackStore(code(head, chunkHeaderSize)))
        return std::nullopt;
    const SInt64 end = start + static_cast<SInt64>(chunkHeaderSize) + code(head, 4);
    return end >= fileEnd ? std::optional<Tail>({code(head, chunkHeaderSize) == trackJournalSignature, end == fileEnd})
                          : std::nullopt;
}

/// A file that differs from the disk in some bytes, and in all past a certain length.
class SettledFile : public File
{
public:
    SettledFile(FileHandle& file, Settlement settlement) : file_(file), settlement_(std::move(settlement)) {}

    Transfer read(void* data, std::size_t size, std::int64_t position) override
    {
        const SInt64 end = std::clamp(settlement_.fileEnd, position, position + static_cast<SInt64>(size));
        const auto count = static_cast<std::size_t>(end - position);
        Bytes read = readAt(file_, position, count);
        read.resize(count); // what is not on disk yet is in a patch
        for (const FilePatch& patch : settlement_.patches) {
            const SInt64 from = std::max(position, patch.position);
            const SInt64 to = std::min(end, patch.position + static_cast<SInt64>(patch.bytes.size()));
            if (from < to)
                std::copy_n(patch.bytes.begin() + (from - patch.position), to - from, read.begin() + (from - position));
        }
        std::ranges::copy(read, static_cast<UInt8*>(data));
        return {count, 0};
    }

    SystemError size(std::int64_t& bytes) override
    {
        bytes = settlement_.fileEnd;
        return 0;
    }

    Transfer write(const void*, std::size_t, std::int64_t) override { return {0, EBADF}; }
    SystemError truncate(std::int64_t) override { return EBADF; }
    SystemError synchronize() override { return 0; }
    SystemError close() override { return 0; }
    SystemError lock() override { return 0; } // the owner of the file holds its lock
    void unlock() override {}

private:
    FileHandle& file_;
    Settlement settlement_;
};

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
    journal.u64(checksum(journal.bytes())).u32(static_cast<UInt32>(size)).code(trackJournalSignature);

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

bool isAIFF(FileHandle& file)
{
    const Bytes head = readAt(file, 0, headSize);
    if (head.size() < headSize || code(head, 0) != fourCharCode("FORM"))
        return false;
    const FourCharCode type = code(head, chunkHeaderSize);
    return type == fourCharCode("AIFF") || type == fourCharCode("AIFC");
}

std::optional<Settlement> settlementOf(FileHandle& file)
{
    if (!isAIFF(file))
        return std::nullopt;
    if (const auto journal = findJournal(file))
        return Settlement{{{journal->position, journal->bytes}, {4, formSizeField(journal->fileEnd)}},
                          journal->fileEnd};
    const auto tail = findTail(file);
    if (!tail)
        return std::nullopt;
    const SInt64 fileEnd = file.seekToEndOfFile();
    if (tail->isWhole && !tail->isJournal)
        return Settlement{{{4, formSizeField(fileEnd)}}, fileEnd}; // a complete chunk that the form's size does not
                                                                   // count yet
    return Settlement{{}, formEnd(file)};
}

void settle(FileHandle& file, const Settlement& settlement)
{
    for (const FilePatch& patch : settlement.patches) {
        file.seekToFileOffset(patch.position);
        if (file.writeData(patch.bytes) != 0)
            return; // the journal stays
    }
    if (file.seekToEndOfFile() > settlement.fileEnd)
        (void)file.truncateFileAtOffset(settlement.fileEnd); // what remains is cut off next time
}

FileHandle settledView(FileHandle& file, Settlement settlement)
{
    return FileHandle(std::make_unique<SettledFile>(file, std::move(settlement)));
}

} // namespace qmx
