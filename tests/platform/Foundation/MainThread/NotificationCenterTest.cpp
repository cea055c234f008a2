// SPDX-License-Identifier: MIT
#include "Foundation/MainThread/NotificationCenter.h"
#include "Foundation/MainThread/RunLoop.h"
#include "Foundation/Threads/Thread.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using qmx::Notification;
using qmx::NotificationCenter;
using qmx::Object;
using testing::ElementsAre;

TEST(NotificationCenter, ObserversHearTheNamesAndSendersTheyAskedFor)
{
    NotificationCenter center;
    const auto one = std::make_shared<Object>(), two = std::make_shared<Object>();
    std::vector<std::string> heard;
    const auto notes = [&heard](const std::string& who) {
        return [&heard, who](const Notification& notification) { heard.push_back(who + " " + notification.name); };
    };
    const auto all = center.observe({}, nullptr, notes("all"));
    const auto named = center.observe("a", nullptr, notes("named"));
    const auto sent = center.observe("a", one, notes("sent"));
    center.postNotification("a", one);
    center.postNotification("a", two);
    center.postNotification("b", nullptr);
    EXPECT_THAT(heard, ElementsAre("all a", "named a", "sent a", "all a", "named a", "all b"));
}

TEST(NotificationCenter, RemovalHoldsForThePostThatIsUnderWayAndEndsWithTheObserver)
{
    NotificationCenter center;
    auto first = std::make_shared<Object>(), second = std::make_shared<Object>();
    int calls = 0;
    center.addObserver(first, "a", nullptr, [&](const Notification&) {
        center.removeObserver(*second, "a");
        ++calls;
    });
    center.addObserver(second, "a", nullptr, [&calls](const Notification&) { calls += 10; });
    center.addObserver(second, "b", nullptr, [&calls](const Notification&) { calls += 100; });
    center.postNotification("a", nullptr);
    EXPECT_EQ(calls, 1);
    center.postNotification("b", nullptr);
    EXPECT_EQ(calls, 101);
    second.reset();
    center.postNotification("b", nullptr);
    EXPECT_EQ(calls, 101);
}

TEST(NotificationCenter, PostsFromOtherThreadsArriveOnTheMainThreadInOrder)
{
    auto& center = NotificationCenter::defaultCenter();
    auto sender = std::make_shared<Object>();
    const std::weak_ptr<Object> weakSender = sender;
    std::vector<std::string> heard;
    const auto observation = center.observe({}, sender, [&heard](const Notification& notification) {
        EXPECT_TRUE(qmx::RunLoop::main().isCurrent());
        heard.push_back(notification.name);
    });
    qmx::RunLoop::main().runOnce();
    qmx::Thread("poster", [&] {
        EXPECT_FALSE(qmx::RunLoop::main().runOnce()); // not its loop
        center.postNotificationOnMainThread("one", sender);
        center.postNotificationOnMainThread("two", std::exchange(sender, nullptr));
        qmx::RunLoop::main().perform([] { qmx::RunLoop::main().stop(); });
    }).join();
    EXPECT_TRUE(heard.empty());
    EXPECT_FALSE(weakSender.expired());
    EXPECT_TRUE(qmx::RunLoop::main().run());
    EXPECT_THAT(heard, ElementsAre("one", "two"));
    EXPECT_TRUE(weakSender.expired());
}
