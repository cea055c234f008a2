// SPDX-License-Identifier: MIT
#pragma once

#include "AudioToolbox/Containers/ContainerFile.h"

#include <array>
#include <optional>

namespace qmx
{

/// For chunks with 32-bit sizes.
inline constexpr UInt64 chunkHeaderBytes = 8;
/// Maximum number of chunks that are examined; later ones are ignored.
inline constexpr int mostChunks = 65536;

/// How a family of files lays out its chunks: a code, the size of the data, the data.
struct ChunkShape {
    UInt64 formHeaderBytes = 12; ///< before the first chunk
    UInt64 sizeBytes = 4;
    bool isPadded = true; ///< a pad byte follows data of odd size

    UInt64 headerBytes() const { return 4 + sizeBytes; }
    UInt64 largestSize() const { return sizeBytes == 4 ? 0xFFFFFFFF : UInt64{1} << 62; }
    UInt64 padded(UInt64 size) const { return size + (isPadded ? size & 1 : 0); }
};

struct Chunk {
    FourCharCode id = 0;
    UInt64 position = 0; ///< of the code in the file
    UInt64 size = 0;     ///< bytes of data
    ChunkShape shape = {};

    UInt64 dataStart() const { return position + shape.headerBytes(); }
    UInt64 end() const { return dataStart() + size; }
    UInt64 paddedEnd() const { return dataStart() + shape.padded(size); }
};

/// Finds chunks by their headers. Reads small blocks, so that a walk over many small chunks stays cheap.
class ChunkReader
{
public:
    ChunkReader(ContainerFile& file, ByteOrder order, ChunkShape shape = {}) : file_(file), order_(order), shape_(shape)
    {
    }

    /// The chunk whose header is at `position`, with the size that is written there (absurd 64-bit ones are cut); empty
    /// at the end of the file and if the code is not of printable characters.
    std::optional<Chunk> at(UInt64 position);
    /// The chunk that follows `chunk`. Some writers leave out a pad byte in mid-file: then it is found all the same.
    std::optional<Chunk> after(const Chunk& chunk);
    bool fits(const Chunk& chunk) const { return chunk.end() <= file_.length(); }
    /// Where a run of chunks ends that starts at `position` and reaches exactly the end of the file; `position` if
    /// there is none.
    UInt64 endOfChain(UInt64 position);

private:
    ContainerFile& file_;
    ByteOrder order_;
    ChunkShape shape_;
    UInt64 blockStart_ = 0;
    std::size_t blockSize_ = 0;
    std::array<UInt8, 4096> block_;
};

} // namespace qmx
