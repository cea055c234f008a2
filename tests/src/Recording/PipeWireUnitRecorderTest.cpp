// SPDX-License-Identifier: MIT
#include "Recording/QMXAUAudioRecorder.h"

#include "Devices/QMXVUMeterDataProvider.h"
#include "Formats/QMXAudioStreamBasicDescription.h"
#include "Recording/QMXAudioRecorder.h"
#include "platform/CoreAudio/PipeWireTest.h"
#include "support/PostedNames.h"
#include "support/RecordedSamples.h"
#include "support/TemporaryFolder.h"
#include "support/TimedSound.h"

#include <gmock/gmock.h>

#include <filesystem>

using qmx::test::TimedSound;
using qmx::test::TimedTake;
using testing::ElementsAre;

namespace
{

const auto stopped = QMXAudioRecorderStoppedRecordingNotification;
const auto meterStops = QMXVUMeterDataProviderDidStopNotification;

} // namespace

class PipeWireUnitRecorderTest : public ManagedOrNot
{
protected:
    /// Plays the timed sound on the test sink from a frame on, as the device's time passes.
    void play(SInt64 from = 0)
    {
        player_.reset();
        played_ = 0;
        player_.emplace(find("test-sink"), [this, from, first = -1.0](const auto&, const auto&, auto& output,
                                                                      const AudioTimeStamp& time) mutable {
            if (first < 0)
                first = time.mSampleTime;
            const auto frame = static_cast<SInt64>(time.mSampleTime - first);
            TimedSound::fill(samplesOf(output), from + frame);
            played_ = frame + static_cast<SInt64>(samplesOf(output).size() / 2);
            const qmx::test::OutsideRealTime outside;
            tell();
        });
        ASSERT_EQ(noErr, player_->start());
        EXPECT_TRUE(waitUntil([this] { return played_ > 0; }));
    }
    /// Until so much more of the sound is in the file.
    bool isTaken(std::uintmax_t frames)
    {
        constexpr std::uintmax_t bytesPerFrame = 8;
        const auto size = [this] { return std::filesystem::file_size(path_); };
        return waitUntil([&, end = size() + frames * bytesPerFrame] { return size() >= end; });
    }
    /// A recorder of what the sink plays.
    void makeRecorder()
    {
        path_ = folder_.path("take");
        recorder = QMXAUAudioRecorder::initWithInputDevice_outputPath_fileType_fileStreamFormat(
            QMXAudioDevice::deviceWithDeviceID(find("test-sink.monitor")), path_, kAudioFileAIFFType,
            QMXAudioStreamBasicDescription(qmx::test::linear(14, 32, 2, 48000)));
        ASSERT_EQ(noErr, recorder->lastStatus()) << recorder->lastError();
        recorder->setEventMask(2);
        posted.observe(recorder);
    }
    void stop()
    {
        EXPECT_EQ(noErr, recorder->stop());
        EXPECT_THAT(posted.next(2), ElementsAre(stopped, meterStops));
    }
    /// What is in the file, every sample of it as it was played.
    TimedTake taken() const
    {
        TimedTake take;
        take.add(qmx::test::recordedSamples(path_));
        EXPECT_EQ(0, take.changed);
        return take;
    }
    void restart(const std::function<void()>& isDown)
    {
        server().kill();
        EXPECT_THAT(posted.next(2), ElementsAre(stopped, meterStops));
        EXPECT_FALSE(recorder->isRecording());
        EXPECT_TRUE(waitUntil([] { return devices().empty(); }));
        isDown();
        server().start(GetParam());
        EXPECT_TRUE(waitUntil([] { return find("test-sink") && find("test-sink.monitor"); }));
        EXPECT_FALSE(recorder->isRecording());
        recorder->setInputDevice(QMXAudioDevice::deviceWithDeviceID(find("test-sink.monitor")));
        EXPECT_EQ(noErr, recorder->lastStatus()) << recorder->lastError();
    }

    std::shared_ptr<QMXAUAudioRecorder> recorder;
    qmx::test::PostedNames posted;

private:
    qmx::test::TemporaryFolder folder_;
    std::string path_;
    std::atomic<SInt64> played_{0}; ///< frames
    std::optional<Procedure> player_;
};

TEST_P(PipeWireUnitRecorderTest, GoesOnWhenTheServerIsBackAndItsDeviceIsNamedUnlessItWasPaused)
{
    constexpr SInt64 second = TimedSound::period / 2; // half of the sound
    play();
    makeRecorder();
    EXPECT_EQ(noErr, recorder->start());
    EXPECT_TRUE(isTaken(24000));
    restart([] {});
    EXPECT_TRUE(recorder->isRecording());
    play(second);
    EXPECT_TRUE(isTaken(24000));
    restart([this] { EXPECT_EQ(noErr, recorder->pause()); });
    EXPECT_FALSE(recorder->isRecording());
    EXPECT_EQ(noErr, recorder->start());
    EXPECT_TRUE(recorder->isRecording());
    stop();
    const TimedTake take = taken();
    EXPECT_GT(take.right, 24000);
    EXPECT_LT(take.first, second);
    EXPECT_GE(take.last, second);
}

INSTANTIATE_TEST_SUITE_P(Server, PipeWireUnitRecorderTest, testing::Bool(), ManagedOrNot::name);
