// SPDX-License-Identifier: MIT
#include "Foundation/MainThread/RealTimeNotification.h"
#include "Foundation/MainThread/NotificationCenter.h"
#include "Foundation/MainThread/RunLoop.h"
#include "Foundation/RealTime.h"
#include "Foundation/Threads/Thread.h"
#include "support/CapturedLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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
        each.send(); // dropped ones can be sent again
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
