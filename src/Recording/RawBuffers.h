// SPDX-License-Identifier: MIT
// The queue of recorded bytes between the thread that fills buffers and the one that saves them.
#pragma once

#include "CoreAudioTypes/MacTypes.h"

#include <atomic>
#include <memory>
#include <optional>
#include <vector>

/// Blocks of bytes: one being filled, one being saved, and between them a queue with room for at least one full block.
/// When the queue is full, the next full block replaces the oldest, which is lost. Neither side ever waits for the
/// other, and no block is ever used by both.
class RawBuffers
{
public:
    struct Block {
        std::unique_ptr<Byte[]> bytes;
        UInt32 byteCount = 0;
        UInt64 firstByte = 0; ///< position in all bytes ever filled in
    };
    /// Bytes that were lost.
    struct Loss {
        UInt64 firstByte;
        UInt32 byteCount;
    };

    /// Allocates new blocks of `size` bytes, `waiting` (at least 1) of them for the queue; without memory false, and no
    /// blocks. Not while any thread fills or saves.
    bool allocate(UInt32 size, UInt32 waiting);
    bool isAllocated() const { return !blocks_.empty(); }

    // The filling side: real-time threads, one at a time.

    UInt32 filled() const { return isAllocated() ? blocks_[filling_].byteCount : 0; }
    /// Copies `count` bytes, for which the block must have room.
    void append(const Byte* bytes, UInt32 count);
    /// Queues the block and continues with an empty one; returns the loss if that one held unsaved bytes.
    std::optional<Loss> handOver();

    // The saving side, one thread.

    /// The oldest block of the queue, owned by the saving side until the next call; null when none waits.
    const Block* take();

private:
    // a place in the queue holds a block's index and, above it, the block's sequence number, 0 for an empty block
    using Place = std::atomic<UInt64>;

    std::vector<Block> blocks_;
    std::vector<Place> row_;
    std::size_t filling_ = 0;
    std::size_t nextPlace_ = 0;
    UInt64 handOvers_ = 0;
    UInt64 bytesFilled_ = 0;
    std::size_t saving_ = 0;
};
