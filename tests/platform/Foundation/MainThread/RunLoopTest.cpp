// SPDX-License-Identifier: MIT
#include "Foundation/MainThread/RunLoop.h"
#include "Foundation/MainThread/Timer.h"
#include "Foundation/Threads/Thread.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <cmath>

using qmx::RunLoop;
using qmx::Timer;

namespace
{

bool isReadable(int milliseconds)
{
    pollfd descriptor{.fd = RunLoop::main().fileDescriptor(), .events = POLLIN, .revents = 0};
    return poll(&descriptor, 1, milliseconds) == 1;
}

} // namespace

TEST(RunLoop, DescriptorIsReadableWhileSomethingIsDue)
{
    RunLoop& loop = RunLoop::main();
    while (loop.runOnce())
        ;
    EXPECT_FALSE(isReadable(0));
    int runs = 0;
    qmx::Thread("performer", [&loop, &runs] { loop.perform([&runs] { ++runs; }); }).join();
    EXPECT_TRUE(isReadable(0));
    EXPECT_TRUE(loop.runOnce());
    EXPECT_EQ(runs, 1);
    EXPECT_FALSE(isReadable(0));
    const auto timer = Timer::scheduledTimer(0.002, false, [&runs](Timer&) { ++runs; });
    EXPECT_TRUE(isReadable(10'000));
    EXPECT_TRUE(loop.runOnce());
    EXPECT_EQ(runs, 2);
    EXPECT_FALSE(timer->isValid());
    EXPECT_FALSE(isReadable(0));
}

TEST(RunLoop, AnActionThatHandsOverAnotherDoesNotHoldUpThePass)
{
    RunLoop& loop = RunLoop::main();
    while (loop.runOnce())
        ;
    int runs = 0;
    std::function<void()> again = [&] {
        if (++runs < 3)
            loop.perform(again);
    };
    loop.perform(again);
    EXPECT_TRUE(loop.runOnce());
    EXPECT_EQ(runs, 1);
    EXPECT_TRUE(isReadable(0));
    while (loop.runOnce())
        ;
    EXPECT_EQ(runs, 3);
}

TEST(RunLoop, StopEndsTheInnermostRun)
{
    RunLoop& loop = RunLoop::main();
    bool innerRanItsTime = true;
    loop.perform([&] {
        loop.perform([&loop] { loop.stop(); });
        innerRanItsTime = loop.runFor(3600);
    });
    EXPECT_TRUE(loop.runFor(0.001));
    EXPECT_FALSE(innerRanItsTime);
}

TEST(Timer, RepeatsUntilInvalidatedAndLeavesOutWhatWasMissed)
{
    RunLoop& loop = RunLoop::main();
    int calls = 0;
    const auto timer = Timer::scheduledTimer(0, true, [&](Timer& self) {
        if (++calls == 3) {
            self.invalidate();
            loop.stop();
        }
    });
    EXPECT_TRUE(timer->isValid());
    EXPECT_TRUE(loop.run());
    EXPECT_EQ(calls, 3);
    const auto cancelled = Timer::scheduledTimer(0, false, [&calls](Timer&) { ++calls; });
    cancelled->invalidate();
    loop.runFor(0.001);
    EXPECT_EQ(calls, 3);
    EXPECT_FALSE(Timer::scheduledTimer(std::nan(""), false, [](Timer&) {})->isValid());
}
