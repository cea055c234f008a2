// SPDX-License-Identifier: MIT
// The test program's operators new and delete, which can run out of memory on purpose.
#include "support/ShortMemory.h"

#include <cstdlib>
#include <new>

namespace qmx::test
{
namespace
{
thread_local ShortMemory* ofThisThread = nullptr;
std::atomic<ShortMemory*> ofAllThreads = nullptr;
} // namespace

ShortMemory::Stretch::Stretch(ShortMemory& memory)
{
    if (memory.threads_ == Threads::own)
        ofThisThread = &memory;
    else
        ofAllThreads = &memory;
}

ShortMemory::Stretch::~Stretch()
{
    ofThisThread = nullptr;
    ofAllThreads = nullptr;
}

bool ShortMemory::isNow()
{
    ShortMemory* const memory = ofThisThread ? ofThisThread : ofAllThreads.load();
    if (!memory)
        return false;
    const long left = --memory->left_;
    return left == 0 || (left < 0 && memory->lasts_ == Lasts::on);
}

} // namespace qmx::test

#ifndef QMX_KEEPS_OPERATOR_NEW
namespace
{

void* allocate(std::size_t size, std::size_t alignment = 0) noexcept
{
    if (qmx::test::ShortMemory::isNow())
        return nullptr;
    if (alignment == 0)
        return std::malloc(size > 0 ? size : 1);
    return std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment);
}

void* orThrow(void* block)
{
    if (!block)
        throw std::bad_alloc();
    return block;
}

} // namespace

// All forms are replaced, because the sanitizers have a function of their own for each.
void* operator new(std::size_t size)
{
    return orThrow(allocate(size));
}
void* operator new[](std::size_t size)
{
    return orThrow(allocate(size));
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    return allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept
{
    return allocate(size);
}
void* operator new(std::size_t size, std::align_val_t alignment)
{
    return orThrow(allocate(size, static_cast<std::size_t>(alignment)));
}
void* operator new[](std::size_t size, std::align_val_t alignment)
{
    return orThrow(allocate(size, static_cast<std::size_t>(alignment)));
}
void operator delete(void* block) noexcept
{
    std::free(block);
}
void operator delete[](void* block) noexcept
{
    std::free(block);
}
void operator delete(void* block, std::size_t) noexcept
{
    std::free(block);
}
void operator delete[](void* block, std::size_t) noexcept
{
    std::free(block);
}
void operator delete(void* block, std::align_val_t) noexcept
{
    std::free(block);
}
void operator delete[](void* block, std::align_val_t) noexcept
{
    std::free(block);
}
void operator delete(void* block, std::size_t, std::align_val_t) noexcept
{
    std::free(block);
}
void operator delete[](void* block, std::size_t, std::align_val_t) noexcept
{
    std::free(block);
}
#endif
