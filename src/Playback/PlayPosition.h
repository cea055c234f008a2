// SPDX-License-Identifier: MIT
// The frame that a player reads next, shared by its render thread and who seeks.
#pragma once

#include "CoreAudioTypes/MacTypes.h"
#include "Foundation/Threads/ConditionLock.h"

#include <atomic>

/// Reading and seeking exclude each other. A seek waits for a read; a render thread never waits: it does without the
/// read. What a read counts after a seek came between is dropped.
class PlayPosition
{
public:
    SInt64 frame() const { return frame_.load(std::memory_order_relaxed); }

    /// The right to move the file. Seeks wait for it, reads do not.
    qmx::ConditionLockTurn turnOfSeek() { return {turn_, true}; }
    qmx::ConditionLockTurn turnOfRead() { return {turn_, false}; }

    /// In a seek's turn.
    void moveTo(SInt64 frame)
    {
        ++generation_;
        frame_ = frame;
    }
    /// In a read's turn: what `add` asks for.
    UInt32 generation() const { return generation_; }
    /// Counts frames read, unless it was moved since they were.
    void add(UInt32 frames, UInt32 generationRead)
    {
        const auto turn = turnOfRead();
        if (turn && generation_ == generationRead)
            frame_ = frame_ + frames;
    }

private:
    qmx::ConditionLock turn_;
    std::atomic<UInt32> generation_{0};
    std::atomic<SInt64> frame_{0};
};
