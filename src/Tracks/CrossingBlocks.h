// SPDX-License-Identifier: MIT
#pragma once

#include "CoreAudioTypes/CoreAudioTypes.h"
#include "Foundation/HeapBlock.h"

#include <limits>
#include <memory>

class QMXAudioConverter;
class QMXAudioFile;
class QMXAudioStreamBasicDescription;

namespace qmx
{

template <class Integer> Integer truncated(double value)
{
    using Limits = std::numeric_limits<Integer>;
    if (value != value)
        return 0;
    if (value >= Limits::max())
        return Limits::max();
    if (value <= Limits::min())
        return Limits::min();
    return static_cast<Integer>(value);
}

/// A file in blocks of a fifth of a second, as the search by crossings examines it: as host-order samples of 16 bits,
/// read straight into the block if they are such, else through a converter. Failures are those of the definer's run.
class CrossingBlocks
{
public:
    /// The file is read from where it stands.
    explicit CrossingBlocks(QMXAudioFile& file);

    bool hasMemory() const { return block_ != nullptr; }
    /// How many blocks the file's length makes; there may be more.
    UInt32 count() const { return count_; }
    /// In one block.
    UInt32 frames() const { return frames_; }
    const AudioStreamBasicDescription& format() const;

    bool hasMore() const { return remaining_ > 0; }
    /// Fills the block; returns its bytes. A failed read is the last one; its block counts with whatever it holds.
    UInt32 read() { return converter_ ? readConverted() : readDirectly(); }
    const SInt16* samples() const { return block_.get(); }

private:
    OSStatus prepare();
    bool readInto(void* buffer, UInt32& size);
    UInt32 readDirectly();
    UInt32 readConverted();

    QMXAudioFile& file_;
    std::shared_ptr<QMXAudioStreamBasicDescription> format_;
    UInt32 frames_ = 0;
    UInt32 count_ = 0;
    UInt32 bytesPerBlock_ = 0;
    HeapArray<SInt16> block_;
    bool reversesBytes_ = false;
    std::shared_ptr<QMXAudioConverter> converter_;
    UInt32 inputSize_ = 0;
    HeapArray<Byte> input_;
    UInt64 remaining_ = 0;
};

} // namespace qmx
