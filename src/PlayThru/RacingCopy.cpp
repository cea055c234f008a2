// SPDX-License-Identifier: MIT
#include "PlayThru/RacingCopy.h"

#include <atomic>
#include <cstring>

#if defined(__SANITIZE_THREAD__)
#define QMX_COPIES_SINGLE_BYTES
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define QMX_COPIES_SINGLE_BYTES
#endif
#endif

namespace qmx
{

#ifdef QMX_COPIES_SINGLE_BYTES

void copyRacing(std::byte* to, const std::byte* from, std::size_t bytes) noexcept
{
    for (std::size_t i = 0; i < bytes; ++i) {
        const std::byte value = std::atomic_ref(const_cast<std::byte&>(from[i])).load(std::memory_order_relaxed);
        std::atomic_ref(to[i]).store(value, std::memory_order_relaxed);
    }
}

void clearRacing(std::byte* to, std::size_t bytes) noexcept
{
    for (std::size_t i = 0; i < bytes; ++i)
        std::atomic_ref(to[i]).store(std::byte{0}, std::memory_order_relaxed);
}

#else

void copyRacing(std::byte* to, const std::byte* from, std::size_t bytes) noexcept
{
    if (bytes > 0)
        std::memcpy(to, from, bytes);
}

void clearRacing(std::byte* to, std::size_t bytes) noexcept
{
    if (bytes > 0)
        std::memset(to, 0, bytes);
}

#endif

} // namespace qmx
