// SPDX-License-Identifier: MIT
// Runs the ring buffer's own source under a checker of the language's memory model: loads that are not ordered may give
// old values here, as on machines that reorder memory, and threads change places at any access. Without the fences the
// checker has to find something wrong: then it would also find a wrong order.
#include "CheckedAtomic.h"
#include "CoreAudioTypes/CoreAudioTypes.h"
#include "Foundation/Export.h"
#include "Foundation/HeapBlock.h"
#include "PlayThru/RacingCopy.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdlib>
#include <limits>
#include <memory>
#include <ostream>

namespace
{

const std::byte* ringMemory = nullptr; ///< where the ring's source has its samples

} // namespace

namespace std
{

inline void* checked_malloc(size_t bytes)
{
    void* const block = std::malloc(bytes);
    void* area = static_cast<std::byte*>(block) + sizeof(std::byte*); // after the pointer to its only channel
    size_t room = bytes - sizeof(std::byte*);
    constexpr size_t alignment = 64; // of the ring's
    ringMemory = static_cast<const std::byte*>(std::align(alignment, 1, area, room));
    return block;
}

} // namespace std

#define malloc checked_malloc
#define atomic checked_atomic
#define atomic_thread_fence checked_atomic_thread_fence
#include "PlayThru/AudioRingBuffer.cpp"
#undef malloc
#undef atomic
#undef atomic_thread_fence

namespace
{

constexpr UInt32 capacity = 4, slice = 2;
using Samples = std::array<rl::atomic<UInt32>, capacity>;
using Sample = UInt32;

Samples* samples = nullptr; ///< what the ring's memory holds

/// The ring's sample behind an address; null for memory of the caller's.
rl::atomic<UInt32>* shared(const std::byte* at)
{
    if (at < ringMemory || at >= ringMemory + capacity * sizeof(Sample))
        return nullptr;
    return &(*samples)[static_cast<std::size_t>(at - ringMemory) / sizeof(Sample)];
}

} // namespace

namespace qmx
{

void copyRacing(std::byte* to, const std::byte* from, std::size_t bytes) noexcept
{
    for (std::size_t i = 0; i < bytes; i += sizeof(Sample)) {
        auto* const source = shared(from + i);
        auto* const target = shared(to + i);
        if (source)
            *reinterpret_cast<Sample*>(to + i) = source->load(rl::mo_relaxed, $);
        else
            target->store(*reinterpret_cast<const Sample*>(from + i), rl::mo_relaxed, $);
    }
}

void clearRacing(std::byte* to, std::size_t bytes) noexcept
{
    for (std::size_t i = 0; i < bytes; i += sizeof(Sample))
        shared(to + i)->store(0, rl::mo_relaxed, $);
}

} // namespace qmx

namespace
{

/// A full ring; the writer goes on, goes back and stores the same times anew, while the reader fetches once.
struct Sound : rl::test_suite<Sound, 2> {
    AudioRingBuffer ring;
    Samples memory;

    static UInt32 sample(long long frame, UInt32 age) { return age * 1000 + static_cast<UInt32>(frame) + 1; }

    void before()
    {
        samples = &memory;
        ring.Allocate(1, sizeof(Sample), capacity);
        for (auto& each : memory)
            each.store(0, rl::mo_relaxed, $);
        store(0, 0);
        store(slice, 0);
    }
    void store(long long at, UInt32 age)
    {
        Sample source[slice] = {sample(at, age), sample(at + 1, age)};
        const AudioBufferList list{1, {{1, sizeof source, source}}};
        (void)ring.Store(&list, slice, at); // its own test looks at what it gives
    }
    void thread(unsigned index)
    {
        if (index == 0) {
            for (const UInt32 age : {0U, 1U})
                for (long long at = capacity; at < 2 * capacity; at += slice)
                    store(at, age);
            return;
        }
        long long start = 0, end = 0;
        Sample read[slice];
        AudioBufferList list{1, {{1, sizeof read, read}}};
        if (ring.GetTimeBounds(start, end) != kRingOK || ring.Fetch(&list, slice, start) != kRingOK)
            return;
        const UInt32 age = read[0] / 1000;
        RL_ASSERT(read[0] == sample(start, age) && read[1] == sample(start + 1, age));
    }
};

/// The writer comes round to the record that the reader copies.
struct BoundsQueue : rl::test_suite<BoundsQueue, 2> {
    AudioRingBuffer ring;

    void before() { ring.Allocate(1, sizeof(Sample), 64); } // for the lengths below
    void thread(unsigned index)
    {
        long long start = 0, end = 0;
        if (index == 0)
            for (long long at = 1; at < 36; ++at)
                ring.SetTimeBounds(at, 2 * at);
        else if (ring.GetTimeBounds(start, end) == kRingOK)
            RL_ASSERT(end == 2 * start);
    }
};

} // namespace

int main()
{
    if (!checked::holds<Sound>(std::cout) || !checked::holds<BoundsQueue>(std::cout))
        return 1;
    checked::isOrdered = false; // then the checker has to find something in both, or it finds nothing
    std::ostream nowhere(nullptr);
    return checked::holds<Sound>(nowhere) || checked::holds<BoundsQueue>(nowhere);
}
