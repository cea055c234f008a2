// SPDX-License-Identifier: MIT
#pragma once

#include "AudioToolbox/Containers/ContainerFile.h"

#include <optional>

namespace qmx
{

inline constexpr UInt64 chunkHeaderBytes = 8;
/// A file may hold more chunks; those behind are not looked at.
inline constexpr int mostChunks = 65536;

/// A chunk of a file: code, 32-bit size, data, and a pad byte after data of odd size.
struct Chunk {
    FourCharCode id = 0;
    UInt64 position = 0; ///< of the code
    UInt64 size = 0;     ///< bytes of data

    UInt64 dataStart() const { return position + chunkHeaderBytes; }
    UInt64 end() const { return dataStart() + size; }
    UInt64 paddedEnd() const { return end() + (size & 1); }
};

/// Finds chunks by their headers. Reads small blocks, so that a walk over many small chunks stays cheap.
class ChunkReader
{
public:
    ChunkReader(ContainerFile& file, ByteOrder order) : file_(file), order_(order) {}

    /// The chunk whose header is at `position`, with the size that is written there; empty at the end of the file and where
    /// the code is not of printable characters.
    std::optional<Chunk> at(UInt64 position);
    /// The chunk that follows `chunk`. Some writers leave out a pad byte in mid-file: then it is found all the same.
    std::optional<Chunk> after(const Chunk& chunk);
    bool fits(const Chunk& chunk) const { return chunk.end() <= file_.length(); }
    /// Where chunks that begin at `position` and run exactly to the end of the file end; `position` where there are none such.
    UInt64 endOfChain(UInt64 position);

private:
    ContainerFile& file_;
    ByteOrder order_;
    UInt64 blockStart_ = 0;
    Bytes block_;
};

} // namespace qmx
