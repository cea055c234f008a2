// SPDX-License-Identifier: MIT
// The application chunk that holds an archived record inside an AIFF file: what is found of it, how it is read, and how it is
// written without a risk for the rest of the file. Internal to the track store.
//
//     0  "APPL"            4  size of what follows, 524288
//     8  signature "tRaK" 12  version 3
//    16  archive's length 20  archive, then zeros
#pragma once

#include "Foundation/ByteFields.h"
#include "Foundation/FileHandle.h"
#include "Tracks/QMXAIFCommon.h"

#include <memory>
#include <optional>
#include <vector>

class QMXTrackAndProcessingInfo;

namespace qmx
{

/// Size of a chunk without its first 8 bytes.
constexpr UInt32 applicationBlockSize = 524'288;
/// "tRaK" as a big-endian number.
constexpr UInt32 applicationSignature = 0x7452614B;
constexpr UInt32 applicationChunkVersion = 3;
/// Bytes from the chunk's id to the archive.
constexpr std::size_t applicationHeaderSize = 20;
/// The longest archive that a chunk of the standard size holds, in bytes.
constexpr std::size_t longestArchive = applicationBlockSize - 12;

/// What a writer's chunks have in common.
struct ChunkStyle {
    UInt32 blockSize;
    UInt32 signature;
    ByteOrder order; ///< of signature and version; the other fields are big-endian always
};

using ApplicationChunk = QMXApplicationChunkDescriptor;

/// The first 10 chunks of ours in file order, and how many there are in all. Each is marked valid and compatible or not.
struct ApplicationChunks {
    std::vector<ApplicationChunk> chunks;
    UInt32 found = 0;
};
constexpr std::size_t mostApplicationChunks = 10;
ApplicationChunks findApplicationChunks(FileHandle& file, UInt32 signature, ByteOrder order);

/// The first chunk, in the table's order, that can be read; and the last, which is the one that is written over.
std::optional<ApplicationChunk> firstUsable(std::span<const ApplicationChunk> chunks);
std::optional<ApplicationChunk> lastUsable(std::span<const ApplicationChunk> chunks);

/// The chunk's archive as a record; null when it holds none.
std::shared_ptr<QMXTrackAndProcessingInfo> readRecord(FileHandle& file, const ApplicationChunk& chunk);
/// The record as an archive; empty when there is none to be had.
std::vector<UInt8> archiveOf(const std::shared_ptr<QMXTrackAndProcessingInfo>& record);

/// Writes the archive over `target`, or behind the end of the file without a target. The chunk it takes the place of keeps its
/// extent where that is large enough; a last chunk may grow; the audio and all other chunks stay as they are. The form's size
/// follows the file's length. False, with the reason logged, when nothing was written; after an error the file is as it was.
bool storeArchive(FileHandle& file, std::span<const UInt8> archive, const std::optional<ApplicationChunk>& target,
                  const ChunkStyle& style);

} // namespace qmx
