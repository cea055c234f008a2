// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdlib>
#include <memory>

namespace qmx
{

struct HeapBlockDeleter {
    void operator()(void* block) const { std::free(block); }
};

/// A block of the system allocator that frees itself; release() hands it to a caller who frees it with free().
using HeapBlock = std::unique_ptr<void, HeapBlockDeleter>;

/// A zero-filled block; null for a size of 0 or when memory is short.
inline HeapBlock zeroedHeapBlock(std::size_t size)
{
    return HeapBlock(size > 0 ? std::calloc(1, size) : nullptr);
}

} // namespace qmx
