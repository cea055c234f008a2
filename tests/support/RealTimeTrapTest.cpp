// SPDX-License-Identifier: MIT
#include "Devices/QMXVUMeterDataProvider.h"
#include "Foundation/RealTime.h"
#include "Foundation/Threads/ConditionLock.h"
#include "PlayThru/ComplexPlayThru.h"
#include "Playback/QMXAUAudioPlayer.h"
#include "Recording/QMXAudioRecorder.h"
#include "support/PlayAndRecord.h"
#include "support/RealTimeCalls.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <fcntl.h>
#include <memory>
#include <mutex>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>
#include <vector>

using qmx::test::RealTimeCalls;

namespace
{

template <class Work> void inRealTime(Work work)
{
    const qmx::RealTimeScope scope;
    work();
}

/// Threads that wait for something else, whatever addresses the standard library takes for one.
class OtherWaiters
{
public:
    OtherWaiters()
    {
        for (auto& never : never_)
            threads_.emplace_back([&never] { never.wait(0); });
    }
    ~OtherWaiters()
    {
        for (auto& never : never_) {
            never = 1;
            never.notify_all();
        }
    }

private:
    std::array<std::atomic<int>, 16> never_{};
    std::vector<std::jthread> threads_;
};

/// Counts the calls of 1,000 cycles, in which the main thread delivers notifications after each hundred.
class RealTimeCallsTest : public qmx::test::PlayAndRecord
{
protected:
    void run(const QMXAudioDevice& of)
    {
        EXPECT_TRUE(hardware.advanceCycles(of.deviceID(), 2)); // the sound has begun
        posted();
        RealTimeCalls::wakes = RealTimeCalls::events = 0;
        for (int i = 0; i < 10; ++i) {
            EXPECT_TRUE(hardware.advanceCycles(of.deviceID(), 100));
            posted();
        }
    }

    OtherWaiters others;
    std::shared_ptr<QMXAudioDevice> device = addDevice("both", 2, 2);
};

} // namespace

TEST(RealTimeTrapDeathTest, AbortsWhereARealTimeThreadMustNotGo)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    void* volatile block = malloc(16);
    std::mutex mutex;
    EXPECT_DEATH(inRealTime([&] { block = malloc(16); }), "malloc was called on a real-time thread");
    EXPECT_DEATH(inRealTime([&] { block = operator new(16); }), "malloc was called");
    EXPECT_DEATH(inRealTime([&] { block = operator new (64, std::align_val_t{64}); }), "aligned_alloc was called");
    EXPECT_DEATH(inRealTime([&] { free(block); }), "free was called");
    EXPECT_DEATH(inRealTime([&] { const std::scoped_lock lock(mutex); }), "pthread_mutex_lock was called");
    EXPECT_DEATH(inRealTime([&] { block = fopen("/dev/null", "r"); }), "was called on a real-time thread");
    EXPECT_DEATH(inRealTime([&] { close(open("/dev/null", O_RDONLY)); }), "open was called");
    EXPECT_DEATH(inRealTime([] { syscall(SYS_getpid); }), "syscall was called");
    qmx::ConditionLock lock(1);
    lock.lock();
    EXPECT_DEATH(inRealTime([&] { lock.lockWhenCondition(1); }), "syscall was called") << "another thread holds it";
    free(block);
}

TEST_F(RealTimeCallsTest, AreOneForEachBufferThatIsHandedOverAndOneForEachWakeOfTheMainThread)
{
    constexpr UInt32 buffers = 1 + 1000 * 512 * 8 / 393216, wakes = 10; // of 393216 bytes
    const auto meter = QMXVUMeterDataProvider::initWithAudioDevice(device);
    meter->start();
    run(*device);
    EXPECT_EQ(RealTimeCalls::wakes, 0U);
    EXPECT_EQ(RealTimeCalls::events, wakes);
    meter->stop();

    const auto recorder = QMXAudioRecorder::initWithAudioDevice_filePath(device, "/d/recorded.aif");
    ASSERT_TRUE(recorder->record());
    run(*device);
    EXPECT_LE(RealTimeCalls::wakes, buffers);
    EXPECT_EQ(RealTimeCalls::events, wakes);
    EXPECT_TRUE(recorder->stop());

    writeFile(path, 600000, [](UInt32 frame, UInt32) { return static_cast<Float32>(frame % 100) / 100; });
    const auto player = QMXAUAudioPlayer::initWithAudioDevice_pathToFile(device, path);
    ASSERT_EQ(player->play(), noErr);
    run(*device);
    EXPECT_LE(RealTimeCalls::wakes, 1U + 1000 * 512 / 44100) << "one for each second that is read ahead";
    EXPECT_EQ(RealTimeCalls::events, 0U);
    EXPECT_EQ(player->stop(), noErr);

    OSStatus status = noErr;
    const auto engine = ComplexPlayThru::make(device->deviceID(), device->deviceID(), status);
    ASSERT_EQ(engine->Start(), noErr);
    run(*device);
    EXPECT_EQ(RealTimeCalls::wakes, 0U);
    EXPECT_EQ(RealTimeCalls::events, 0U);
    EXPECT_EQ(engine->Stop(), noErr);
}
