// SPDX-License-Identifier: MIT
#include "Tracks/ApplicationChunk.h"

#include "Foundation/KeyedArchiver.h"
#include "Foundation/KeyedUnarchiver.h"
#include "Foundation/Log.h"
#include "Foundation/Unarchiver.h"
#include "Tracks/FileEdit.h"
#include "Tracks/QMXAIFFUtility.h"
#include "Tracks/QMXTrackAndProcessingInfo.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <system_error>

namespace qmx
{
namespace
{

constexpr SInt64 chunkHeaderSize = 8;
/// Record archives are at most half a megabyte; what claims to be this much larger is damaged.
constexpr UInt32 largestArchiveRead = 1U << 26;

UInt32 fieldIn(ChunkByteOrder order, std::span<const UInt8> bytes)
{
    if (order == ChunkByteOrder::bigEndian)
        return bigEndian32(bytes);
    UInt32 value = 0;
    std::memcpy(&value, bytes.data(), sizeof value);
    return value;
}

void putField(ChunkByteOrder order, std::span<UInt8> bytes, UInt32 value)
{
    if (order == ChunkByteOrder::bigEndian)
        putBigEndian32(bytes, value);
    else
        std::memcpy(bytes.data(), &value, sizeof value);
}

/// Bytes that go into the file at `offset`.
struct Placement {
    SInt64 offset = 0;
    std::vector<UInt8> bytes;
};

/// A chunk whose size field says `size` and that takes up `extent` bytes behind that field, at the end of `placement`.
void addChunk(std::vector<UInt8>& bytes, UInt32 size, UInt32 extent, std::span<const UInt8> archive,
              const ChunkStyle& style)
{
    const std::size_t start = bytes.size();
    bytes.resize(start + chunkHeaderSize + extent);
    const std::span chunk = std::span(bytes).subspan(start);
    std::ranges::copy(std::string_view("APPL"), chunk.begin());
    putBigEndian32(chunk.subspan(4), size);
    putField(style.order, chunk.subspan(8), style.signature);
    putField(style.order, chunk.subspan(12), applicationChunkVersion);
    putBigEndian32(chunk.subspan(16), static_cast<UInt32>(archive.size()));
    std::ranges::copy(archive, chunk.begin() + applicationHeaderSize);
}

/// Where the chunk goes and what is written there; empty when there is no room for it.
std::optional<Placement> place(std::span<const UInt8> archive, const std::optional<ApplicationChunk>& target,
                               SInt64 fileEnd, const ChunkStyle& style)
{
    Placement placement{fileEnd, {}};
    if (!target) {
        placement.bytes.resize(static_cast<std::size_t>(fileEnd & 1)); // chunks begin at even positions
        addChunk(placement.bytes, style.blockSize, style.blockSize, archive, style);
        return placement;
    }
    placement.offset = target->mFileOffset;
    const SInt64 dataStart = target->mFileOffset + chunkHeaderSize;
    const SInt64 extent = std::min(SInt64{target->mChunkSize}, fileEnd - dataStart);
    const bool isWhole = extent == target->mChunkSize;
    if (isWhole && extent >= static_cast<SInt64>(archive.size() + applicationHeaderSize) - chunkHeaderSize) {
        // filler of a larger chunk stays as it is behind the standard size
        const auto written = static_cast<UInt32>(std::min(extent, SInt64{style.blockSize}));
        addChunk(placement.bytes, target->mChunkSize, written, archive, style);
        return placement;
    }
    const bool isLast = dataStart + target->mChunkSize + (target->mChunkSize & 1) >= fileEnd;
    if (!isLast || extent > style.blockSize)
        return std::nullopt;
    addChunk(placement.bytes, style.blockSize, style.blockSize, archive, style);
    return placement;
}

ApplicationChunk descriptorOf(SInt64 offset, std::span<const UInt8> header, ChunkByteOrder order, SInt64 fileEnd)
{
    ApplicationChunk chunk;
    std::ranges::copy(header.first(4), chunk.mChunkHeader.begin());
    chunk.mChunkSize = bigEndian32(header.subspan(4));
    std::ranges::copy(header.subspan(8, 4), chunk.mAppName.begin());
    chunk.mVersion = fieldIn(order, header.subspan(12));
    chunk.mDataSize = bigEndian32(header.subspan(16));
    chunk.mFileOffset = offset;
    QMXAIFCommon::validateZNTHApplicationChunk_fileLength(chunk, static_cast<UInt64>(fileEnd));
    return chunk;
}

bool isUsable(const ApplicationChunk& chunk)
{
    return chunk.mSeemsValid && chunk.mCompatible;
}

bool refuse(const char* reason)
{
    Log("QMXAudioTrackInfoWriter: track information not stored: %s", reason);
    return false;
}

} // namespace

UInt32 bigEndian32(std::span<const UInt8> bytes)
{
    return UInt32{bytes[0]} << 24 | UInt32{bytes[1]} << 16 | UInt32{bytes[2]} << 8 | UInt32{bytes[3]};
}

void putBigEndian32(std::span<UInt8> bytes, UInt32 value)
{
    for (std::size_t i = 0; i < 4; ++i)
        bytes[i] = static_cast<UInt8>(value >> (24 - 8 * i));
}

ApplicationChunks findApplicationChunks(FileHandle& file, UInt32 signature, ChunkByteOrder order)
{
    const SInt64 fileEnd = file.seekToEndOfFile();
    file.seekToFileOffset(4);
    const std::vector<UInt8> formSize = file.readDataOfLength(4);
    const SInt64 formEnd = formSize.size() == 4 ? bigEndian32(formSize) : 0;
    ApplicationChunks result;
    for (SInt64 position = 0; position < fileEnd && position < formEnd;) {
        position = QMXAIFFUtility::findOffsetForApplicationChunkWithCreator_inFile_startingAtOffset_endingOffset(
            signature, file, position, fileEnd);
        file.seekToFileOffset(position);
        const std::vector<UInt8> bytes = file.readDataOfLength(applicationHeaderSize);
        const std::span header = bytes;
        if (header.size() < applicationHeaderSize)
            break;
        ++result.found;
        const ApplicationChunk chunk = descriptorOf(position, header, order, fileEnd);
        if (result.chunks.size() < mostApplicationChunks)
            result.chunks.push_back(chunk);
        position += SInt64{chunk.mChunkSize} + (chunk.mChunkSize & 1) + chunkHeaderSize;
    }
    return result;
}

std::optional<ApplicationChunk> firstUsable(std::span<const ApplicationChunk> chunks)
{
    const auto found = std::ranges::find_if(chunks, isUsable);
    return found == chunks.end() ? std::nullopt : std::optional(*found);
}

std::optional<ApplicationChunk> lastUsable(std::span<const ApplicationChunk> chunks)
{
    const auto found = std::find_if(chunks.rbegin(), chunks.rend(), isUsable);
    return found == chunks.rend() ? std::nullopt : std::optional(*found);
}

std::shared_ptr<QMXTrackAndProcessingInfo> readRecord(FileHandle& file, const ApplicationChunk& chunk)
{
    QMXTrackAndProcessingInfo::registerArchiveClasses();
    file.seekToFileOffset(chunk.mFileOffset + static_cast<SInt64>(applicationHeaderSize));
    const std::vector<UInt8> data = file.readDataOfLength(std::min(chunk.mDataSize, largestArchiveRead));
    if (data.empty())
        return nullptr;
    ArchiveError error = ArchiveError::none;
    std::shared_ptr<Object> object = KeyedUnarchiver::unarchiveObjectWithData(data, &error);
    if (error != ArchiveError::none)
        object = Unarchiver::unarchiveObjectWithData(data);
    return std::dynamic_pointer_cast<QMXTrackAndProcessingInfo>(object);
}

std::vector<UInt8> archiveOf(const std::shared_ptr<QMXTrackAndProcessingInfo>& record)
{
    return record ? KeyedArchiver::archivedDataWithRootObject(record) : std::vector<UInt8>();
}

bool storeArchive(FileHandle& file, std::span<const UInt8> archive, const std::optional<ApplicationChunk>& target,
                  const ChunkStyle& style)
{
    if (archive.size() > longestArchive)
        return refuse("the record is longer than 524276 bytes");
    const SInt64 fileEnd = file.seekToEndOfFile();
    const auto placement = fileEnd < 0 ? std::nullopt : place(archive, target, fileEnd, style);
    if (!placement)
        return refuse("the chunk in the file is too small and others stand behind it");
    const SInt64 newEnd = std::max(fileEnd, placement->offset + static_cast<SInt64>(placement->bytes.size()));
    if (newEnd - chunkHeaderSize > std::numeric_limits<UInt32>::max())
        return refuse("the file would be larger than a form can be");
    FileEdit edit(file);
    SystemError error = edit.write(placement->offset, placement->bytes);
    if (error == 0 && newEnd != fileEnd) {
        std::vector<UInt8> formSize(4);
        putBigEndian32(formSize, static_cast<UInt32>(newEnd - chunkHeaderSize));
        error = edit.write(4, formSize);
    }
    if (error == 0)
        return true;
    edit.undo();
    return refuse(std::generic_category().message(error).c_str());
}

} // namespace qmx
