// SPDX-License-Identifier: MIT
#include "Foundation/Threads/Thread.h"

#include <gtest/gtest.h>
#include <sched.h>

namespace
{

int policy()
{
    return sched_getscheduler(0) & ~SCHED_RESET_ON_FORK;
}

TEST(Thread, IsRealTimeWhereAllowedWhileAskedForAndTheThreadsItStartsAreNot)
{
    qmx::Thread("parent", [] {
        const int granted = qmx::Thread::setRealTime(true) ? SCHED_FIFO : SCHED_OTHER;
        EXPECT_EQ(policy(), granted);
        qmx::Thread("child", [] { EXPECT_EQ(policy(), SCHED_OTHER); }).join();
        EXPECT_TRUE(qmx::Thread::setRealTime(false));
        EXPECT_EQ(policy(), SCHED_OTHER);
    }).join();
}

} // namespace
