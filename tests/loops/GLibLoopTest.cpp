// SPDX-License-Identifier: MIT
#include "Front/MainLoopGLib.h"

#include "loops/UnpluggedTake.h"

TEST(GLibLoop, DeliversTheEndOfARecordingUntilItIsDetached)
{
    auto attachment = qmx::attachToGLib();
    GMainLoop* const loop = g_main_loop_new(nullptr, FALSE);
    EXPECT_EQ("Microphone was unplugged",
              qmx::test::reasonOfUnpluggedTake([&] { g_main_loop_run(loop); }, [&] { g_main_loop_quit(loop); }));
    g_main_loop_unref(loop);

    attachment.detach();
    bool wasCalled = false;
    qmx::RunLoop::main().perform([&] { wasCalled = true; });
    EXPECT_FALSE(g_main_context_iteration(nullptr, FALSE));
    EXPECT_FALSE(wasCalled);
}
