// SPDX-License-Identifier: MIT
#include "Foundation/Threads/Worker.h"

#include "Foundation/RealTime.h"
#include "Foundation/Threads/Thread.h"

#include <condition_variable>
#include <deque>
#include <gtest/gtest.h>
#include <mutex>
#include <vector>

TEST(Worker, RestMeansThatWorkPassedFromThreadToThreadIsDone)
{
    struct Stage {
        explicit Stage(Stage* after) : next(after) {}
        void give(int item)
        {
            const std::scoped_lock lock(mutex);
            items.push_back(item);
            given.notify_one();
        }
        void run()
        {
            for (;;) {
                {
                    const qmx::Worker::Wait wait(worker);
                    std::unique_lock lock(mutex);
                    given.wait(lock, [this] { return !items.empty(); });
                }
                std::unique_lock lock(mutex);
                const int item = items.front();
                items.pop_front();
                lock.unlock();
                if (item < 0)
                    return;
                if (next)
                    next->give(item);
                ++done;
            }
        }
        Stage* next;
        std::mutex mutex;
        std::condition_variable given;
        std::deque<int> items;
        std::atomic<int> done{0};
        qmx::Worker worker{[this] {
            const std::scoped_lock lock(mutex);
            return !items.empty();
        }};
    };
    Stage last(nullptr), middle(&last), first(&middle);
    std::vector<qmx::Thread> threads;
    for (Stage* stage : {&first, &middle, &last})
        threads.emplace_back("stage", [stage] { stage->run(); });
    for (int round = 1; round <= 500; ++round) {
        first.give(round);
        ASSERT_TRUE(qmx::waitUntilWorkersRest());
        ASSERT_EQ(last.done, round);
    }
    for (Stage* stage : {&first, &middle, &last})
        stage->give(-1);
    threads.clear();
}

TEST(Worker, TakesNoLockWhileNobodyWaitsForRest)
{
    qmx::Worker worker([] { return false; });
    const qmx::RealTimeScope realTime; // aborts at a lock
    const qmx::Worker::Wait wait(worker);
}
