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
    std::span<std::byte> bytes() const { return bytes_; }

    /// Own memory of `size` bytes, which are not touched before they are used.
    void own(UInt32 size)
    {
        own_ = std::make_unique_for_overwrite<std::byte[]>(size);
        bytes_ = {own_.get(), size};
    }

    /// Lent memory, as large as what there is now.
    void borrow(std::byte* memory)
    {
        bytes_ = {memory, bytes_.size()};
        own_ = nullptr;
    }

private:
    std::unique_ptr<std::byte[]> own_;
    std::span<std::byte> bytes_;
};

} // namespace qmx
