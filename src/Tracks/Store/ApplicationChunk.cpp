// SPDX-License-Identifier: MIT
#include "Tracks/Store/ApplicationChunk.h"

#include "AudioToolbox/AudioFile.h"
#include "CoreAudioTypes/FourCharCode.h"
#include "Foundation/Archives/KeyedArchiver.h"
#include "Foundation/Archives/KeyedUnarchiver.h"
#include "Foundation/Archives/Unarchiver.h"
#include "Foundation/Memory.h"
#include "Tracks/QMXTrackAndProcessingInfo.h"
#include "Tracks/Store/FileEdit.h"
#include "Tracks/Store/QMXAIFFUtility.h"
#include "Tracks/Store/StoreJournal.h"

#include <algorithm>
#include <cerrno>
#include <limits>

namespace qmx
{
namespace
{

constexpr SInt64 chunkHeaderSize = 8;
/// Record archives are at most half a megabyte; what claims to be this much larger is damaged.
constexpr UInt32 largestArchiveRead = 1U << 26;

/// A chunk whose size field says `size` and that takes up `extent` bytes after that field.
void addChunk(Bytes& bytes, UInt32 size, UInt32 extent, std::span<const UInt8> archive, const ChunkStyle& style)
{
    ByteWriter chunk(ByteOrder::big);
    chunk.code(fourCharCode("APPL")).u32(size).integer(style.signature, 4, style.order);
    chunk.integer(applicationChunkVersion, 4, style.order).u32(static_cast<UInt32>(archive.size())).append(archive);
    chunk.zeros(extent + chunkHeaderSize - chunk.bytes().size());
    bytes.insert(bytes.end(), chunk.bytes().begin(), chunk.bytes().end());
}

/// The chunk appended to the file; chunks start at even positions.
ChunkOverwrite appended(std::span<const UInt8> archive, SInt64 fileEnd, const ChunkStyle& style)
{
    ChunkOverwrite chunk{fileEnd, Bytes(static_cast<std::size_t>(fileEnd & 1)), 0};
    addChunk(chunk.bytes, style.blockSize, style.blockSize, archive, style);
    return chunk;
}

/// The chunk in the place of `target`; none when there is no room for it.
std::optional<ChunkOverwrite> inPlaceOf(const ApplicationChunk& target, std::span<const UInt8> archive, SInt64 fileEnd,
                                        const ChunkStyle& style)
{
    ChunkOverwrite chunk{target.mFileOffset, {}, 0};
    const SInt64 dataStart = target.mFileOffset + chunkHeaderSize;
    const SInt64 extent = std::min(SInt64{target.mChunkSize}, fileEnd - dataStart);
    const bool isWhole = extent == target.mChunkSize;
    if (isWhole && extent >= static_cast<SInt64>(archive.size() + applicationHeaderSize) - chunkHeaderSize) {
        // past the standard size, the filler of a larger chunk stays as it is
        const auto written = static_cast<UInt32>(std::min(extent, SInt64{style.blockSize}));
        addChunk(chunk.bytes, target.mChunkSize, written, archive, style);
        return chunk;
    }
    const bool isLast = dataStart + target.mChunkSize + (target.mChunkSize & 1) >= fileEnd;
    if (!isLast || extent > style.blockSize)
        return std::nullopt;
    addChunk(chunk.bytes, style.blockSize, style.blockSize, archive, style);
    return chunk;
}

ApplicationChunk descriptorOf(SInt64 offset, std::span<const UInt8> header, ByteOrder order, SInt64 fileEnd)
{
    ApplicationChunk chunk;
    std::ranges::copy(header.first(4), chunk.mChunkHeader.begin());
    chunk.mChunkSize = load32(&header[4], ByteOrder::big);
    std::ranges::copy(header.subspan(8, 4), chunk.mAppName.begin());
    chunk.mVersion = load32(&header[12], order);
    chunk.mDataSize = load32(&header[16], ByteOrder::big);
    chunk.mFileOffset = offset;
    QMXAIFCommon::validateZNTHApplicationChunk_fileLength(chunk, static_cast<UInt64>(fileEnd));
    return chunk;
}

bool lacksRoom(SystemError error)
{
    return error == ENOSPC || error == EDQUOT || error == EFBIG;
}

/// Writes a chunk into a file of `fileEnd` bytes, after its journal if wanted. Returns 0, or the error, after which the
/// file is as it was.
SystemError writeChunk(FileHandle& file, const ChunkOverwrite& chunk, SInt64 fileEnd, bool isJournaled)
{
    FileEdit edit(file);
    const SystemError error = withinMemory(ENOMEM, [&] {
        SystemError done = isJournaled ? edit.write(fileEnd, journalOf(chunk, fileEnd)) : 0;
        if (done == 0)
            done = edit.write(chunk.position, chunk.bytes);
        if (done == 0 && chunk.fileEnd != fileEnd)
            done = edit.write(4, formSizeField(chunk.fileEnd));
        return done == 0 && isJournaled ? file.truncateFileAtOffset(chunk.fileEnd) : done;
    });
    if (error != 0)
        edit.undo();
    return error;
}

/// Where the archive goes in a file of `fileEnd` bytes, and what the file will be then.
Refusal planStore(std::span<const UInt8> archive, const std::optional<ApplicationChunk>& target, SInt64 fileEnd,
                  const ChunkStyle& style, ChunkOverwrite& plan)
{
    if (archive.size() > longestArchive)
        return StoreFailure{paramErr, "the record is longer than 524276 bytes"};
    auto chunk = target ? inPlaceOf(*target, archive, fileEnd, style) : appended(archive, fileEnd, style);
    if (!chunk)
        return StoreFailure{kAudioFileOperationNotSupportedError,
                            "the chunk in the file is too small and others stand behind it"};
    plan = *std::move(chunk);
    plan.fileEnd = std::max(fileEnd, plan.position + static_cast<SInt64>(plan.bytes.size()));
    if (plan.fileEnd - chunkHeaderSize > std::numeric_limits<UInt32>::max())
        return StoreFailure{kAudioFileDoesNotAllow64BitDataSizeError, "the file would be larger than a form can be"};
    return std::nullopt;
}

} // namespace

bool isUsable(const ApplicationChunk& chunk)
{
    return chunk.mSeemsValid && chunk.mCompatible;
}

void findApplicationChunks(FileHandle& file, UInt32 signature, ByteOrder order,
                           const std::function<bool(const ApplicationChunk&)>& take)
{
    const SInt64 fileEnd = file.seekToEndOfFile();
    file.seekToFileOffset(4);
    const std::vector<UInt8> formSize = file.readDataOfLength(4);
    const SInt64 formEnd = formSize.size() == 4 ? load32(formSize.data(), ByteOrder::big) : 0;
    for (SInt64 position = 0; position < fileEnd && position < formEnd;) {
        position = QMXAIFFUtility::findOffsetForApplicationChunkWithCreator_inFile_startingAtOffset_endingOffset(
            signature, file, position, fileEnd);
        file.seekToFileOffset(position);
        const std::vector<UInt8> header = file.readDataOfLength(applicationHeaderSize);
        if (header.size() < applicationHeaderSize)
            return;
        const ApplicationChunk chunk = descriptorOf(position, header, order, fileEnd);
        if (!take(chunk))
            return;
        position += SInt64{chunk.mChunkSize} + (chunk.mChunkSize & 1) + chunkHeaderSize;
    }
}

std::optional<ApplicationChunk> lastUsableChunk(FileHandle& file, UInt32 signature)
{
    std::optional<ApplicationChunk> last;
    findApplicationChunks(file, signature, ByteOrder::big, [&](const ApplicationChunk& chunk) {
        if (isUsable(chunk))
            last = chunk;
        return true;
    });
    return last;
}

std::vector<UInt8> readArchive(FileHandle& file, const ApplicationChunk& chunk)
{
    file.seekToFileOffset(chunk.mFileOffset + static_cast<SInt64>(applicationHeaderSize));
    return file.readDataOfLength(std::min(chunk.mDataSize, largestArchiveRead));
}

std::optional<std::shared_ptr<QMXTrackAndProcessingInfo>> recordFrom(std::span<const UInt8> archive)
{
    QMXTrackAndProcessingInfo::registerArchiveClasses();
    ArchiveError error = ArchiveError::none;
    std::shared_ptr<Object> object = KeyedUnarchiver::unarchiveObjectWithData(archive, &error);
    const bool isNil = error == ArchiveError::none && !object;
    if (error != ArchiveError::none)
        object = Unarchiver::unarchiveObjectWithData(archive);
    auto record = std::dynamic_pointer_cast<QMXTrackAndProcessingInfo>(object);
    return record || isNil ? std::optional(std::move(record)) : std::nullopt;
}

std::vector<UInt8> archiveOf(const std::shared_ptr<QMXTrackAndProcessingInfo>& record)
{
    return record ? KeyedArchiver::archivedDataWithRootObject(record) : std::vector<UInt8>();
}

Refusal storeArchive(FileHandle& file, std::span<const UInt8> archive, const std::optional<ApplicationChunk>& target,
                     const ChunkStyle& style)
{
    const SInt64 fileEnd = file.seekToEndOfFile();
    ChunkOverwrite chunk;
    if (Refusal refusal = planStore(archive, target, fileEnd, style, chunk))
        return refusal;
    SystemError error = writeChunk(file, chunk, fileEnd, target.has_value());
    if (target && lacksRoom(error))
        error = writeChunk(file, chunk, fileEnd, false);
    return refusalFor(error);
}

Refusal measureArchive(FileHandle& file, std::span<const UInt8> archive, const std::optional<ApplicationChunk>& target,
                       const ChunkStyle& style, StoreSize& size)
{
    const SInt64 fileEnd = file.seekToEndOfFile();
    ChunkOverwrite chunk;
    if (Refusal refusal = planStore(archive, target, fileEnd, style, chunk))
        return refusal;
    size.growth = chunk.fileEnd - fileEnd;
    size.temporary = target ? static_cast<SInt64>(journalOf(chunk, fileEnd).size()) - size.growth : 0;
    return std::nullopt;
}

} // namespace qmx
