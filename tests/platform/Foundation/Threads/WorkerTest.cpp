// SPDX-License-Identifier: MIT
#include "Foundation/Threads/Worker.h"

#include "Foundation/RealTime.h"
#include "Foundation/Threads/Thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <vector>

TEST(Worker, RestMeansThatWorkPassedFromThreadToThreadIsDone)
{
    constexpr int rounds = 2000;
    struct Stage {
        explicit Stage(Stage* after) : next(after) {}
        void give()
        {
            ++given;
            given.notify_one();
        }
        void run()
        {
            for (int taken = 0; taken < rounds; ++done) {
                {
                    const qmx::Worker::Wait wait(worker);
                    given.wait(taken);
                }
                seen = ++taken;
                if (next)
                    next->give();
            }
        }
        Stage* next;
        std::atomic<int> given{0}, seen{0}, done{0};
        qmx::Worker worker{[this] { return given != seen; }};
    };
    Stage last(nullptr), middle(&last), first(&middle);
    std::vector<qmx::Thread> threads;
    for (Stage* stage : {&first, &middle, &last})
        threads.emplace_back("stage", [stage] { stage->run(); });
    for (int round = 1; round < rounds; ++round) {
        first.give();
        ASSERT_TRUE(qmx::waitUntilWorkersRest());
        ASSERT_EQ(last.done, round);
    }
    first.give();
}

TEST(Worker, TakesNoLockWhileNobodyWaitsForRest)
{
    qmx::Worker worker([] { return false; });
    const qmx::RealTimeScope realTime; // aborts at a lock
    const qmx::Worker::Wait wait(worker);
}
