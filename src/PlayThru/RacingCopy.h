// SPDX-License-Identifier: MIT
// Copies of memory that one thread writes while others read it.
#pragma once

#include <cstddef>

namespace qmx
{

/// Copies `bytes` bytes; either side may be changed by another thread meanwhile, and then the copy is worth nothing.
/// It orders nothing: fences around it have to, so that whoever saw a changed byte also sees what tells him so. With
/// those the speed is that of memcpy, which compilers neither split across fences nor repeat. Under the thread
/// sanitizer, which knows no copy that may be torn, it moves single relaxed atomic bytes.
void copyRacing(std::byte* to, const std::byte* from, std::size_t bytes) noexcept;

/// Zeroes `bytes` bytes that other threads may be reading.
void clearRacing(std::byte* to, std::size_t bytes) noexcept;

} // namespace qmx
