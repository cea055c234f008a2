// SPDX-License-Identifier: MIT
// The way of recorded bytes from the thread that fills buffers to the one that saves them.
#pragma once

#include "CoreAudioTypes/MacTypes.h"

#include <atomic>
#include <memory>
#include <optional>
#include <vector>

/// Blocks of bytes: one that is being filled, one that is being saved, and between them the full ones, which wait in a
/// row of one place or more. When the row is full the next full block takes the place of the oldest, which is lost.
/// Neither side ever waits for the other, and no block is ever in two hands.
class RawBuffers
{
public:
    struct Block {
        std::unique_ptr<Byte[]> bytes;
        UInt32 byteCount = 0;
        UInt64 firstByte = 0; ///< position in all that was ever filled in
    };
    /// Bytes that were lost.
    struct Loss {
        UInt64 firstByte;
        UInt32 byteCount;
    };

    /// Makes blocks of `size` bytes anew, `waiting` (at least 1) of them between the two sides; false, and none,
    /// without memory. Not while anybody fills or saves.
    bool allocate(UInt32 size, UInt32 waiting);
    bool isAllocated() const { return !blocks_.empty(); }

    // The filling side: real-time threads, one at a time.

    UInt32 filled() const { return isAllocated() ? blocks_[filling_].byteCount : 0; }
    /// Copies `count` bytes, for which the block must have room.
    void append(const Byte* bytes, UInt32 count);
    /// Puts the block into the row and goes on with an empty one; tells what that had held unsaved.
    std::optional<Loss> handOver();

    // The saving side, one thread.

    /// The oldest block of the row, the saving side's until the next call; null when none waits.
    const Block* take();

private:
    // what a place in the row holds: a block's index, and above it the block's number in order, 0 for an empty block
    using Place = std::atomic<UInt64>;

    std::vector<Block> blocks_;
    std::vector<Place> row_;
    std::size_t filling_ = 0;
    std::size_t nextPlace_ = 0;
    UInt64 handOvers_ = 0;
    UInt64 bytesFilled_ = 0;
    std::size_t saving_ = 0;
};
