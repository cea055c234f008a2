// SPDX-License-Identifier: MIT
// The application chunk that holds an archived record inside an AIFF file: what is found of it, how it is read, and how
// it is written without a risk for the rest of the file. Internal to the track store.
//
//     0  "APPL"            4  size of what follows, 524288
//     8  signature "tRaK" 12  version 3
//    16  archive's length 20  archive, then zeros
#pragma once

#include "Foundation/ByteFields.h"
#include "Foundation/Files/FileHandle.h"
#include "Tracks/Store/QMXAIFCommon.h"
#include "Tracks/Store/StoredFile.h"

#include <functional>
#include <memory>
#include <optional>
#include <vector>

class QMXTrackAndProcessingInfo;

namespace qmx
{

/// Size of a chunk without its first 8 bytes.
constexpr UInt32 applicationBlockSize = 524'288;
constexpr UInt32 applicationChunkVersion = 3;
/// Bytes from the chunk's id to the archive.
constexpr std::size_t applicationHeaderSize = 20;
/// The maximum bytes of an archive in a chunk of the standard size.
constexpr std::size_t longestArchive = applicationBlockSize - 12;

/// What a writer's chunks have in common.
struct ChunkStyle {
    UInt32 blockSize;
    UInt32 signature;
    ByteOrder order; ///< of signature and version; the other fields are big-endian always
};

using ApplicationChunk = QMXApplicationChunkDescriptor;

/// Calls `take` with each chunk of ours in file order, marked valid and compatible or not, until it returns false.
void findApplicationChunks(FileHandle& file, UInt32 signature, ByteOrder order,
                           const std::function<bool(const ApplicationChunk&)>& take);

/// Whether the chunk's record can be read and written over.
bool isUsable(const ApplicationChunk& chunk);

/// The last chunk of ours that is usable, which a store replaces.
std::optional<ApplicationChunk> lastUsableChunk(FileHandle& file, UInt32 signature);

/// The chunk's archive.
std::vector<UInt8> readArchive(FileHandle& file, const ApplicationChunk& chunk);
/// The archive as a record, null for an archived nil; none if it holds no record.
std::optional<std::shared_ptr<QMXTrackAndProcessingInfo>> recordFrom(std::span<const UInt8> archive);
/// The record as an archive; empty when there is none to be had.
std::vector<UInt8> archiveOf(const std::shared_ptr<QMXTrackAndProcessingInfo>& record);

/// Writes the archive over `target`, or at the end of the file without a target. A replaced chunk keeps its extent if
/// that is large enough; a last chunk may grow; the audio and all other chunks stay as they are. The form's size
/// follows the file's length. Without disk space for a journal a record is still overwritten in place, and a kill may
/// then cut it off. After an error the file is as it was.
Refusal storeArchive(FileHandle& file, std::span<const UInt8> archive, const std::optional<ApplicationChunk>& target,
                     const ChunkStyle& style);
/// What that would take; the same refusals.
Refusal measureArchive(FileHandle& file, std::span<const UInt8> archive, const std::optional<ApplicationChunk>& target,
                       const ChunkStyle& style, StoreSize& size);

} // namespace qmx
