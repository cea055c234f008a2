// SPDX-License-Identifier: MIT
#include "Foundation/MainThread/RealTimeNotification.h"
#include "Foundation/MainThread/NotificationCenter.h"
#include "Foundation/MainThread/RunLoop.h"
#include "Foundation/RealTime.h"
#include "Foundation/Threads/Retirement.h"
#include "Foundation/Threads/Thread.h"
#include "Foundation/Threads/Worker.h"
#include "support/CapturedLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <condition_variable>
#include <deque>
#include <thread>

using qmx::Object;
using qmx::RealTimeNotification;
using qmx::RunLoop;
using testing::ElementsAre;

namespace
{

void runWhatIsDue()
{
    while (RunLoop::main().runOnce())
        ;
}

} // namespace

TEST(RealTimeNotification, FramesWaitOnceAndStatesAreAllDeliveredInOrder)
{
    runWhatIsDue();
    const auto sender = std::make_shared<Object>();
    std::vector<std::string> heard;
    const auto observation = qmx::NotificationCenter::defaultCenter().observe(
        {}, sender, [&heard](const qmx::Notification& notification) { heard.push_back(notification.name); });
    RealTimeNotification frame("frame", sender, RealTimeNotification::Kind::frame);
    RealTimeNotification started("started", sender, RealTimeNotification::Kind::state);
    RealTimeNotification stopped("stopped", sender, RealTimeNotification::Kind::state);
    qmx::Thread("io", [&] {
        const qmx::RealTimeScope realTime;
        started.send();
        for (int i = 0; i < 5; ++i)
            frame.send();
        stopped.send();
        started.send();
    }).join();
    qmx::NotificationCenter::defaultCenter().postNotificationOnMainThread("ordinary", sender);
    runWhatIsDue();
    EXPECT_THAT(heard, ElementsAre("started", "frame", "stopped", "started", "ordinary"));
    frame.send();
    runWhatIsDue();
    EXPECT_EQ(heard.size(), 6U);
}

TEST(RealTimeNotification, StatesKeepTheirSenderAndFramesDoNot)
{
    runWhatIsDue();
    int deliveries = 0;
    const auto counts = [&deliveries](const std::shared_ptr<Object>&, const std::string&) { ++deliveries; };
    for (const auto kind : {RealTimeNotification::Kind::frame, RealTimeNotification::Kind::state}) {
        auto sender = std::make_shared<Object>();
        RealTimeNotification notification("n", sender, kind, counts);
        notification.send();
        sender.reset();
        runWhatIsDue();
        notification.send(); // its sender is gone
    }
    runWhatIsDue();
    EXPECT_EQ(deliveries, 1);
}

TEST(RealTimeNotification, FramesGiveWayToStatesWhenTheMainThreadIsBusyAndTheLossIsLogged)
{
    runWhatIsDue();
    qmx::test::CapturedLog log;
    const auto sender = std::make_shared<Object>();
    int frames = 0, states = 0;
    std::deque<RealTimeNotification> many;
    for (int i = 0; i < 1000; ++i)
        many.emplace_back("frame", sender, RealTimeNotification::Kind::frame,
                          [&frames](const auto&, const auto&) { ++frames; });
    RealTimeNotification state("state", sender, RealTimeNotification::Kind::state,
                               [&states](const auto&, const auto&) { ++states; });
    for (auto& each : many)
        each.send();
    for (int i = 0; i < 256; ++i)
        state.send();
    runWhatIsDue();
    EXPECT_EQ(frames, 768);
    EXPECT_EQ(states, 256);
    EXPECT_TRUE(
        log.has("RunLoop: 232 notifications of real-time threads were dropped, the main thread was busy for too long"));
    for (auto& each : many)
        each.send(); // those that were dropped can be sent again
    runWhatIsDue();
    EXPECT_EQ(frames, 2 * 768);
}

TEST(RealTimeNotification, ManySendersLoseNoState)
{
    runWhatIsDue();
    const auto sender = std::make_shared<Object>();
    std::atomic<int> delivered{0};
    constexpr int rounds = 20000, threads = 3;
    RealTimeNotification state("state", sender, RealTimeNotification::Kind::state,
                               [&delivered](const auto&, const auto&) { ++delivered; });
    std::atomic<int> sent{0};
    {
        std::vector<qmx::Thread> senders;
        for (int thread = 0; thread < threads; ++thread)
            senders.emplace_back("io", [&] {
                for (int i = 0; i < rounds; ++i) {
                    while (sent - delivered > 500)
                        std::this_thread::yield();
                    ++sent;
                    state.send();
                }
            });
        while (delivered < rounds * threads)
            RunLoop::main().runFor(0.001);
    }
    EXPECT_EQ(delivered, rounds * threads);
}

TEST(Retirement, WhatIsGivenUpInRealTimeEndsOnAnotherThread)
{
    struct Note final : qmx::Retirable {
        explicit Note(std::vector<int>& list, int id) : ended(list), number(id) {}
        ~Note() override
        {
            EXPECT_FALSE(qmx::isRealTime());
            ended.push_back(number);
        }
        std::vector<int>& ended;
        int number;
    };
    std::vector<int> ended;
    auto object = std::make_shared<Object>();
    const std::weak_ptr<Object> weakObject = object;
    auto* const reference = new qmx::RetirableReference;
    std::vector<Note*> notes{new Note(ended, 1), new Note(ended, 2), new Note(ended, 3)};
    {
        const qmx::RealTimeScope realTime;
        for (Note* note : notes)
            qmx::retire(note);
        reference->reference = std::move(object);
        qmx::retire(reference);
    }
    qmx::waitUntilRetired();
    EXPECT_THAT(ended, ElementsAre(1, 2, 3));
    EXPECT_TRUE(weakObject.expired());
}

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
