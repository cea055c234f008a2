// SPDX-License-Identifier: MIT
#include "AudioToolbox/Containers/Chunks/ChunkReader.h"

#include <algorithm>

namespace qmx
{
namespace
{

bool isPrintable(const UInt8* code)
{
    return std::all_of(code, code + 4, [](UInt8 byte) { return byte >= 0x20 && byte < 0x7F; });
}

} // namespace

std::optional<Chunk> ChunkReader::at(UInt64 position)
{
    const UInt64 headerBytes = shape_.headerBytes();
    if (position + headerBytes > file_.length())
        return std::nullopt;
    if (position < blockStart_ || position + headerBytes > blockStart_ + blockSize_) {
        blockSize_ = file_.read(position, block_.data(), block_.size()).count;
        blockStart_ = position;
    }
    if (position + headerBytes > blockStart_ + blockSize_)
        return std::nullopt;
    const UInt8* header = block_.data() + (position - blockStart_);
    if (!isPrintable(header))
        return std::nullopt;
    const UInt64 size = loadInteger(header + 4, shape_.sizeBytes, order_);
    return Chunk{load32(header, ByteOrder::big), position, std::min(size, shape_.largestSize()), shape_};
}

std::optional<Chunk> ChunkReader::after(const Chunk& chunk)
{
    if (const auto next = at(chunk.paddedEnd()))
        return next;
    const auto unpadded = chunk.end() != chunk.paddedEnd() ? at(chunk.end()) : std::nullopt;
    return unpadded && fits(*unpadded) ? unpadded : std::nullopt;
}

UInt64 ChunkReader::endOfChain(UInt64 position)
{
    auto chunk = at(position);
    for (int count = 0; chunk && fits(*chunk) && count < mostChunks; ++count) {
        if (chunk->end() == file_.length() || chunk->paddedEnd() == file_.length())
            return file_.length();
        chunk = after(*chunk);
    }
    return position;
}

} // namespace qmx
