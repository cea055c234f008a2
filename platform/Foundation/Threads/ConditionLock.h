// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/Foundation/Export.h>

#include <atomic>
#include <chrono>
#include <cstdint>

namespace qmx
{

/// A lock with an integer condition: a thread can take it whatever the condition is, or wait for a certain value. It is
/// released with a new value, which wakes the threads that wait for that.
///
/// A thread that does not hold the lock may release it with a value, as a signal: on a free lock it sets the condition;
/// on a held one the value takes effect when the holder releases, instead of the holder's own value. So a signal is
/// never lost (the last of several wins), and sending one costs a store, and a wake if somebody waits: it may be sent
/// from an I/O thread. Conditions lie between -8192 and 8191.
///
/// All operations: any thread. Not recursive.
class QMX_EXPORT ConditionLock
{
public:
    explicit ConditionLock(int condition = 0);
    ConditionLock(const ConditionLock&) = delete;
    ConditionLock& operator=(const ConditionLock&) = delete;

    int condition() const;

    /// Waits until the lock is free, whatever its condition, and takes it.
    void lock();
    /// Waits until the lock is free and has `condition`, and takes it.
    void lockWhenCondition(int condition);
    /// The same for at most `timeout`; returns whether the lock was taken.
    [[nodiscard]] bool lockWhenCondition(int condition, std::chrono::nanoseconds timeout);
    [[nodiscard]] bool tryLock();
    [[nodiscard]] bool tryLockWhenCondition(int condition);

    /// Releases the lock and keeps its condition.
    void unlock();
    /// Releases the lock with a new condition; from a thread that does not hold it, a signal (see above).
    void unlockWithCondition(int condition);

private:
    enum class Wait { none, forever, timed };
    bool acquire(bool any, int condition, Wait wait, std::chrono::nanoseconds timeout);
    void release(bool keepsCondition, int condition);

    std::atomic<std::uint32_t> word_; // held, signal pending, somebody waits, condition, pending condition
    std::atomic<std::uintptr_t> holder_{0};
};

/// Holds a condition lock until it is destroyed, if it could take it.
class ConditionLockTurn
{
public:
    /// A turn that does not wait may not get the lock.
    ConditionLockTurn(ConditionLock& lock, bool waits) : lock_(lock), isMine_(waits || lock.tryLock())
    {
        if (waits)
            lock_.lock();
    }
    ~ConditionLockTurn()
    {
        if (isMine_)
            lock_.unlock();
    }
    ConditionLockTurn(const ConditionLockTurn&) = delete;
    ConditionLockTurn& operator=(const ConditionLockTurn&) = delete;
    explicit operator bool() const { return isMine_; }

private:
    ConditionLock& lock_;
    const bool isMine_;
};

} // namespace qmx
