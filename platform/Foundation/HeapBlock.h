// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <type_traits>

namespace qmx
{

struct HeapBlockDeleter {
    void operator()(void* block) const { std::free(block); }
};

/// A block of the system allocator that frees itself; after release() the caller frees it with free().
using HeapBlock = std::unique_ptr<void, HeapBlockDeleter>;

/// A zero-filled block of `size` bytes; null if the size is 0 or memory runs out.
inline HeapBlock zeroedHeapBlock(std::size_t size)
{
    return HeapBlock(size > 0 ? std::calloc(1, size) : nullptr);
}

/// A table of the system allocator.
template <class Entry> using HeapArray = std::unique_ptr<Entry[], HeapBlockDeleter>;

/// A zero-filled table of at least one entry; null if memory runs out. Pages are only used when they are written.
template <class Entry> HeapArray<Entry> zeroedHeapArray(std::size_t entries)
{
    static_assert(std::is_trivial_v<Entry>);
    return HeapArray<Entry>(static_cast<Entry*>(std::calloc(entries > 0 ? entries : 1, sizeof(Entry))));
}

} // namespace qmx
