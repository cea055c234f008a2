// SPDX-License-Identifier: MIT
#include "Foundation/Threads/ConditionLock.h"

#include <linux/futex.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <climits>
#include <ctime>
#include <optional>

namespace qmx
{
namespace
{

// The word, from the lowest bit: held, signal pending, somebody waits, 14 bits condition, 14 bits pending condition.
//
// No wake is lost, whatever the memory orders, because everything is in this one word, and all threads agree on the
// order of its changes. A thread sleeps only while the word is one that it cannot take and that says that somebody
// waits: the kernel compares the word and puts the thread to sleep in one step. A change that may let it in, a release
// or a signal to a free lock, finds that bit in the word that it replaces, clears it and wakes all; those who still
// cannot take the lock set it again. Taking the lock and signals to a held one keep the bit, for the release that
// follows. A thread that gives up waiting leaves it, which costs one wake too many.
//
// What a release or a signal published is seen by every later holder, not only the next one: each change is a
// read-modify-write, also those of relaxed order, so what a holder acquires continues the sequence of all earlier
// releases. A thread that finds itself in `holder_` is the holder: it reads no value older than its own last one.
constexpr std::uint32_t heldBit = 1, pendingBit = 2, waitingBit = 4, conditionMask = 0x3fff;
constexpr int conditionShift = 3, pendingShift = 17;

constexpr std::uint32_t field(int condition, int shift)
{
    return (static_cast<std::uint32_t>(condition) & conditionMask) << shift;
}

constexpr int valueAt(std::uint32_t word, int shift)
{
    const auto bits = static_cast<int>((word >> shift) & conditionMask);
    return bits & 0x2000 ? bits - 0x4000 : bits;
}

std::uintptr_t thisThread()
{
    return static_cast<std::uintptr_t>(pthread_self()); // never 0
}

using Clock = std::chrono::steady_clock;

timespec timeLeft(Clock::time_point deadline)
{
    const auto left = std::max(Clock::duration::zero(), deadline - Clock::now());
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
    return {.tv_sec = static_cast<time_t>(seconds.count()),
            .tv_nsec = static_cast<long>(std::chrono::nanoseconds(left - seconds).count())};
}

// Sleeps while the word has the value `seen`; may return early after any wake-up, and returns at the deadline.
void waitOnWord(std::atomic<std::uint32_t>& word, std::uint32_t seen, const std::optional<Clock::time_point>& deadline)
{
    static_assert(std::atomic<std::uint32_t>::is_always_lock_free); // nothing but the number is there
    timespec timeout{};
    if (deadline)
        timeout = timeLeft(*deadline);
    syscall(SYS_futex, reinterpret_cast<std::uint32_t*>(&word), FUTEX_WAIT_PRIVATE, seen, deadline ? &timeout : nullptr,
            nullptr, 0);
}

void wakeAll(std::atomic<std::uint32_t>& word)
{
    syscall(SYS_futex, reinterpret_cast<std::uint32_t*>(&word), FUTEX_WAKE_PRIVATE, INT_MAX, nullptr, nullptr, 0);
}

} // namespace

ConditionLock::ConditionLock(int condition) : word_(field(condition, conditionShift)) {}

int ConditionLock::condition() const
{
    return valueAt(word_.load(std::memory_order_acquire), conditionShift);
}

bool ConditionLock::acquire(bool any, int condition, Wait wait, std::chrono::nanoseconds timeout)
{
    std::optional<Clock::time_point> deadline;
    if (wait == Wait::timed)
        deadline = Clock::now() + timeout;
    std::uint32_t seen = word_.load(std::memory_order_relaxed);
    for (;;) {
        if (!(seen & heldBit) && (any || valueAt(seen, conditionShift) == condition)) {
            if (!word_.compare_exchange_weak(seen, seen | heldBit, std::memory_order_acquire,
                                             std::memory_order_relaxed))
                continue;
            holder_.store(thisThread(), std::memory_order_relaxed);
            return true;
        }
        if (wait == Wait::none || (deadline && Clock::now() >= *deadline))
            return false;
        if (!(seen & waitingBit) && !word_.compare_exchange_weak(seen, seen | waitingBit, std::memory_order_relaxed))
            continue;
        waitOnWord(word_, seen | waitingBit, deadline);
        seen = word_.load(std::memory_order_relaxed);
    }
}

void ConditionLock::release(bool keepsCondition, int condition)
{
    const bool isHolder = holder_.load(std::memory_order_relaxed) == thisThread();
    if (isHolder)
        holder_.store(0, std::memory_order_relaxed);
    std::uint32_t seen = word_.load(std::memory_order_relaxed), next = 0;
    do {
        const int given = keepsCondition ? valueAt(seen, conditionShift) : condition;
        if ((seen & heldBit) && !isHolder)
            next =
                (seen & (heldBit | waitingBit | field(-1, conditionShift))) | pendingBit | field(given, pendingShift);
        else // who waits on says so again
            next = field(seen & pendingBit ? valueAt(seen, pendingShift) : given, conditionShift);
    } while (!word_.compare_exchange_weak(seen, next, std::memory_order_acq_rel, std::memory_order_relaxed));
    if (seen & ~next & waitingBit)
        wakeAll(word_);
}

void ConditionLock::lock()
{
    acquire(true, 0, Wait::forever, {});
}

void ConditionLock::lockWhenCondition(int condition)
{
    acquire(false, condition, Wait::forever, {});
}

bool ConditionLock::lockWhenCondition(int condition, std::chrono::nanoseconds timeout)
{
    return acquire(false, condition, Wait::timed, timeout);
}

bool ConditionLock::tryLock()
{
    return acquire(true, 0, Wait::none, {});
}

bool ConditionLock::tryLockWhenCondition(int condition)
{
    return acquire(false, condition, Wait::none, {});
}

void ConditionLock::unlock()
{
    release(true, 0);
}

void ConditionLock::unlockWithCondition(int condition)
{
    release(false, condition);
}

} // namespace qmx
