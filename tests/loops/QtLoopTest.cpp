// SPDX-License-Identifier: MIT
#include "Front/MainLoopQt.h"

#include "loops/UnpluggedTake.h"

#include <QCoreApplication>

#include <memory>

TEST(QtLoop, DeliversTheEndOfARecordingUntilTheNotifierIsDeleted)
{
    int count = 1;
    char name[] = "qt-loop";
    char* arguments[] = {name, nullptr};
    const QCoreApplication application(count, arguments);
    std::unique_ptr<QSocketNotifier> notifier(qmx::attachToQt());
    EXPECT_EQ("Microphone was unplugged",
              qmx::test::reasonOfUnpluggedTake([] { QCoreApplication::exec(); }, [] { QCoreApplication::quit(); }));

    notifier.reset();
    bool wasCalled = false;
    qmx::RunLoop::main().perform([&] { wasCalled = true; });
    QCoreApplication::processEvents();
    EXPECT_FALSE(wasCalled);
}
