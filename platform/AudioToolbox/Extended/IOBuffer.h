// SPDX-License-Identifier: MIT
// The memory through which an extended file reads or writes its audio file: its own, or one that was lent to it.
#pragma once

#include "CoreAudioTypes/MacTypes.h"

#include <cstddef>
#include <memory>
#include <span>

namespace qmx
{

class IOBuffer
{
public:
    IOBuffer() = default;
    /// Own memory of `size` bytes, not touched before use.
    explicit IOBuffer(UInt32 size) : own_(std::make_unique_for_overwrite<std::byte[]>(size)), bytes_(own_.get(), size)
    {
    }
    /// Lent memory.
    explicit IOBuffer(std::span<std::byte> lent) : bytes_(lent) {}

    std::span<std::byte> bytes() const { return bytes_; }

private:
    std::unique_ptr<std::byte[]> own_;
    std::span<std::byte> bytes_;
};

} // namespace qmx
