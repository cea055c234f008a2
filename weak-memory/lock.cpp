// SPDX-License-Identifier: MIT
// Runs the condition lock's own source as ring.cpp does the ring's. A thread that sleeps for ever is found as well.
#include "CheckedAtomic.h"

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstdint>
#include <ctime>
#include <iostream>
#include <linux/futex.h>
#include <optional>
#include <sys/syscall.h>
#include <unistd.h>

namespace
{

bool wakes = true;

/// The checker's own threads share one of the system's.
unsigned long checkedSelf()
{
    return rl::thread_index() + 1UL;
}

long checkedSyscall(long, void* word, int operation, std::uint32_t value, const timespec*, std::nullptr_t, int)
{
    auto& atomic = static_cast<std::checked_atomic<std::uint32_t>*>(word)->checked();
    const bool isWake = operation == FUTEX_WAKE_PRIVATE;
    if (isWake && !wakes)
        return 0;
    return rl::rl_futex(&atomic, isWake ? rl::RL_FUTEX_WAKE : rl::RL_FUTEX_WAIT, static_cast<int>(value), nullptr,
                        nullptr, 0, $);
}

} // namespace

#define atomic checked_atomic
#define syscall checkedSyscall
#undef pthread_self
#define pthread_self checkedSelf
#include "Foundation/Threads/ConditionLock.cpp"
#undef atomic
#undef syscall

namespace
{

/// Work goes from one thread to the other.
struct Hands : rl::test_suite<Hands, 2> {
    qmx::ConditionLock lock{0};
    rl::var<int> work{0};

    void thread(unsigned index)
    {
        const auto step = static_cast<int>(index);
        lock.lockWhenCondition(step);
        const int given = work($);
        RL_ASSERT(given == step);
        work($) = step + 1;
        lock.unlockWithCondition(step + 1);
    }
};

/// A signal comes before, while or after another thread holds the lock, which then waits for it.
struct Signal : rl::test_suite<Signal, 2> {
    qmx::ConditionLock lock{0};
    rl::var<int> work{0};

    void thread(unsigned index)
    {
        if (index == 0) {
            work($) = 1;
            lock.unlockWithCondition(1);
            return;
        }
        lock.lock();
        lock.unlock();
        lock.lockWhenCondition(1);
        RL_ASSERT(int{work($)} == 1);
        lock.unlock();
    }
};

} // namespace

int main()
{
    using checked::holds;
    if (!holds<Hands>(std::cout) || !holds<Signal>(std::cout))
        return 1;
    std::ostream nowhere(nullptr);
    wakes = false; // then the checker has to find something in both, or it finds nothing
    if (holds<Hands>(nowhere) || holds<Signal>(nowhere))
        return 1;
    wakes = true;
    checked::isOrdered = false;
    return holds<Hands>(nowhere) || holds<Signal>(nowhere);
}
