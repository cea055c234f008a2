// SPDX-License-Identifier: MIT
#include "Playback/QMXAUAudioPlayer.h"

#include "Devices/QMXAudioDevice.h"
#include "Devices/QMXVUMeterDataProvider.h"
#include "platform/AudioToolbox/ExtAudioFileHelpers.h"
#include "platform/CoreAudio/PipeWireTest.h"
#include "support/PostedNames.h"
#include "support/TemporaryFolder.h"
#include "support/TimedSound.h"

#include <gmock/gmock.h>

using qmx::test::TimedSound;
using qmx::test::TimedTake;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

const auto started = QMXAudioPlayerStartedPlayingNotification, stopped = QMXAudioPlayerStoppedPlayingNotification;
const auto finished = QMXAudioPlayerFinishedPlayingNotification;
const auto meterStarts = QMXVUMeterDataProviderDidStartNotification,
           meterStops = QMXVUMeterDataProviderDidStopNotification;

} // namespace

class PipeWirePlayerTest : public ManagedOrNot
{
protected:
    static void SetUpTestSuite()
    {
        std::vector<Float32> samples(std::size_t{2} * fileFrames);
        TimedSound::fill(samples, 0);
        qmx::test::writeMusic(path(), kAudioFileWAVEType, qmx::test::floats(2, 48000), samples);
    }
    PipeWirePlayerTest()
    {
        player = QMXAUAudioPlayer::initWithAudioDevice_pathToFile(device("test-sink"), path());
        EXPECT_EQ(noErr, player->lastStatus()) << player->lastError();
        posted.observe(player);
    }
    static std::shared_ptr<QMXAudioDevice> device(const std::string& uid)
    {
        return QMXAudioDevice::deviceWithDeviceID(find(uid));
    }

    /// What a sink plays, as its monitor gives it.
    class Monitor
    {
    public:
        Monitor(PipeWirePlayerTest& test, const std::string& sink)
            : test_(test), devices_{find(sink), find(sink + ".monitor")},
              procedure_(devices_[1], [this](const auto& input, const AudioTimeStamp& time, auto&, const auto&) {
                  capture(samplesOf(input), time);
              })
        {
            for (const AudioDeviceID each : devices_)
                test_.listenTo(each);
            EXPECT_EQ(noErr, procedure_.start());
            EXPECT_TRUE(hears(0));
        }
        ~Monitor()
        {
            for (const AudioDeviceID each : devices_)
                test_.stopListeningTo(each);
        }
        /// Waits for frames of sound, and for the two cycles that are on their way.
        bool hears(SInt64 frames)
        {
            return test_.waitUntil([&] { return heard_ >= frames; }) &&
                   test_.waitUntil([&, end = cycles_ + 3] { return cycles_ >= end; });
        }
        TimedTake take()
        {
            EXPECT_EQ(noErr, procedure_.stop());
            qmx::waitForIOCycle(devices_[1]);
            TimedTake take;
            take.add({captured_.samples.data(), captured_.used});
            EXPECT_EQ(0, take.changed);
            return take;
        }
        bool isToldOfLoss()
        {
            return times_.breaks > 0 || std::ranges::any_of(devices_, [this](AudioDeviceID each) {
                       return test_.wasTold(each, kAudioDeviceProcessorOverload);
                   });
        }

    private:
        void capture(std::span<const Float32> samples, const AudioTimeStamp& time)
        {
            times_.add(time, samples.size() / 2);
            captured_.add(samples);
            heard_ += std::ranges::count_if(samples, [](Float32 sample) { return sample != 0; }) / 2;
            ++cycles_;
            const qmx::test::OutsideRealTime outside;
            test_.tell();
        }
        PipeWirePlayerTest& test_;
        std::array<AudioDeviceID, 2> devices_;
        Capture captured_{20 * 48000};
        Times times_;
        std::atomic<SInt64> heard_{0};
        std::atomic<int> cycles_{0};
        Procedure procedure_;
    };

    void expectSound()
    {
        Monitor monitor(*this, "test-sink");
        EXPECT_TRUE(monitor.hears(12000));
        (void)monitor.take();
    }
    /// Plays the range; returns whether all of it was heard without a break. A busy machine loses cycles, and tells.
    bool isPlayedExactly(SInt64 start, SInt64 end)
    {
        Monitor monitor(*this, "test-sink");
        const UInt64 dropped = player->droppedFrames();
        EXPECT_EQ(noErr, player->playFromFrame_endFrame(start, end));
        EXPECT_THAT(posted.next(5), ElementsAre(started, meterStarts, stopped, meterStops, finished));
        EXPECT_TRUE(monitor.hears(0));
        const TimedTake take = monitor.take();
        const bool isExact = take.breaks == 0 && take.right >= end - start && take.right < end - start + 4096;
        EXPECT_TRUE(isExact || player->droppedFrames() > dropped || waitUntil([&] { return monitor.isToldOfLoss(); }))
            << take.breaks << " breaks, " << take.right << " frames";
        return isExact;
    }

    static constexpr UInt32 fileFrames = 60 * 48000; ///< longer than a busy machine takes
    std::shared_ptr<QMXAUAudioPlayer> player;
    qmx::test::PostedNames posted;

private:
    static std::string path()
    {
        static const qmx::test::TemporaryFolder folder;
        return folder.path("sound.wav");
    }
};

TEST_P(PipeWirePlayerTest, TheMonitorGivesTheRangeBitForBit)
{
    bool isExact = false;
    for (int attempt = 0; attempt < 60 && !isExact; ++attempt) // a quarter of a second that no other program disturbs
        isExact = isPlayedExactly(30000, 42000);
    EXPECT_TRUE(isExact);
}

TEST_P(PipeWirePlayerTest, GoesOverToTheNewDefaultDeviceWhereItWasAndBackWhenThatIsUnplugged)
{
    server().plugIn("second");
    ASSERT_TRUE(waitUntil([] { return find("second") && find("second.monitor"); }));
    player->setFollowsDefaultDevice(true);
    TimedTake before, after;
    {
        Monitor first(*this, "test-sink"), second(*this, "second");
        EXPECT_EQ(noErr, player->play());
        EXPECT_TRUE(first.hears(12000));
        const AudioDeviceID wanted = find("second");
        ASSERT_EQ(noErr, AudioHardwareSetProperty(kAudioHardwarePropertyDefaultOutputDevice, sizeof wanted, &wanted));
        EXPECT_TRUE(second.hears(12000));
        before = first.take();
        after = second.take();
        const bool isSeamless = before.breaks + after.breaks == 0 && after.first == before.last + 1;
        EXPECT_TRUE(isSeamless || waitUntil([&] { return first.isToldOfLoss() || second.isToldOfLoss(); }))
            << before.last << " to " << after.first;
        EXPECT_GT(after.first, before.last);
    }
    Monitor first(*this, "test-sink");
    server().unplug("second");
    EXPECT_TRUE(first.hears(12000));
    EXPECT_TRUE(player->isPlaying());
    EXPECT_EQ(noErr, player->stop());
    EXPECT_THAT(posted.next(4), ElementsAre(started, meterStarts, stopped, meterStops));
    EXPECT_GT(first.take().first, after.last);
}

TEST_P(PipeWirePlayerTest, GoesOnWithTheDefaultDeviceOfTheNextServerUnlessItWasStopped)
{
    player->setFollowsDefaultDevice(true);
    EXPECT_EQ(noErr, player->play());
    EXPECT_THAT(posted.next(2), ElementsAre(started, meterStarts));
    const auto restart = [&](const std::function<void()>& isDown) {
        server().kill();
        EXPECT_THAT(posted.next(2), ElementsAre(stopped, meterStops));
        EXPECT_FALSE(player->isPlaying());
        EXPECT_TRUE(waitUntil([] { return devices().empty(); }));
        isDown();
        server().start(GetParam());
    };
    restart([] {});
    EXPECT_THAT(posted.next(2), ElementsAre(started, meterStarts));
    EXPECT_TRUE(player->isPlaying());
    expectSound();
    restart([&] { EXPECT_EQ(noErr, player->stop()); });
    EXPECT_TRUE(waitUntil([] { return find("test-sink") && find("test-sink.monitor"); }));
    EXPECT_FALSE(player->isPlaying());
    player->setOutputDevice(device("test-sink"));
    EXPECT_EQ(noErr, player->lastStatus()) << player->lastError();
    EXPECT_EQ(noErr, player->play());
    expectSound();
    EXPECT_EQ(noErr, player->stop());
    EXPECT_THAT(posted.next(4), ElementsAre(started, meterStarts, stopped, meterStops));
}

INSTANTIATE_TEST_SUITE_P(Server, PipeWirePlayerTest, testing::Bool(), ManagedOrNot::name);
