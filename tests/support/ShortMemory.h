// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstddef>

namespace qmx::test
{

/// Makes operator new fail once, or from then on, in a part of a test. One at a time.
class ShortMemory
{
public:
    enum class Threads { own, all };
    enum class Lasts { once, on };

    ShortMemory(std::size_t ordinal, Lasts lasts, Threads threads = Threads::own)
        : left_(static_cast<long>(ordinal)), lasts_(lasts), threads_(threads)
    {
    }
    ShortMemory(const ShortMemory&) = delete;
    ShortMemory& operator=(const ShortMemory&) = delete;

    /// Runs `work`, whose allocations count.
    template <class Work> auto during(const Work& work)
    {
        const Stretch stretch(*this);
        return work();
    }
    /// Runs `call`, and again with memory if it ran short; returns the first status if that was another one, and of the
    /// second attempt otherwise.
    template <class Call> auto atLast(const Call& call)
    {
        const auto status = during(call);
        return status == outOfMemory ? call() : status;
    }
    bool hasFailed() const { return left_ <= 0; }

    /// For the allocation functions: whether the current allocation fails.
    static bool isNow();

private:
    static constexpr int outOfMemory = -108; // of files and of converters
    struct Stretch {
        explicit Stretch(ShortMemory& memory);
        ~Stretch();
        Stretch(const Stretch&) = delete;
        Stretch& operator=(const Stretch&) = delete;
    };

    std::atomic<long> left_;
    Lasts lasts_;
    Threads threads_;
};

/// Runs `attempt` with its first, second, third ... allocation failing, until all of them succeed.
template <class Attempt>
void withEveryAllocationFailing(const Attempt& attempt, ShortMemory::Threads threads = ShortMemory::Threads::own)
{
    for (const ShortMemory::Lasts lasts : {ShortMemory::Lasts::once, ShortMemory::Lasts::on})
        for (std::size_t ordinal = 1, failed = 1; failed > 0; ++ordinal) {
            ShortMemory memory(ordinal, lasts, threads);
            attempt(memory);
            failed = memory.hasFailed() ? 1 : 0;
        }
}

} // namespace qmx::test
