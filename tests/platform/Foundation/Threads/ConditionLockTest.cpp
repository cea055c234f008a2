// SPDX-License-Identifier: MIT
#include "Foundation/Threads/ConditionLock.h"

#include <gtest/gtest.h>

#include <thread>

using namespace std::chrono_literals;
using qmx::ConditionLock;

TEST(ConditionLock, IsTakenOnlyAtItsConditionAndReleasedWithANewOne)
{
    ConditionLock lock(-3);
    EXPECT_EQ(lock.condition(), -3);
    EXPECT_FALSE(lock.tryLockWhenCondition(0));
    EXPECT_FALSE(lock.lockWhenCondition(0, 1ms));
    ASSERT_TRUE(lock.tryLockWhenCondition(-3));
    EXPECT_FALSE(lock.tryLock());
    lock.unlockWithCondition(5);
    ASSERT_TRUE(lock.lockWhenCondition(5, 0ms));
    lock.unlock();
    EXPECT_EQ(lock.condition(), 5);
}

TEST(ConditionLock, ASignalToAHeldLockTakesEffectWhenItIsReleased)
{
    ConditionLock lock(0);
    lock.lock();
    std::thread([&] {
        lock.unlockWithCondition(7);
        lock.unlockWithCondition(8);
    }).join();
    EXPECT_FALSE(lock.tryLock()) << "the signal must not free a lock that another thread holds";
    EXPECT_EQ(lock.condition(), 0);
    lock.unlockWithCondition(1);
    EXPECT_EQ(lock.condition(), 8) << "the last signal wins over the holder's value";
    lock.unlockWithCondition(2);
    EXPECT_EQ(lock.condition(), 2) << "a signal is used up once";
}

TEST(ConditionLock, HandsWorkBackAndForthWithoutLosingAWake)
{
    constexpr int rounds = 20000;
    ConditionLock lock(0);
    long counter = 0; // guarded by the lock
    std::thread other([&] {
        for (int i = 0; i < rounds; ++i) {
            lock.lockWhenCondition(1);
            ++counter;
            lock.unlockWithCondition(0);
        }
    });
    for (int i = 0; i < rounds; ++i) {
        lock.lockWhenCondition(0);
        ++counter;
        lock.unlockWithCondition(1);
    }
    other.join();
    EXPECT_EQ(counter, 2 * rounds);
}
