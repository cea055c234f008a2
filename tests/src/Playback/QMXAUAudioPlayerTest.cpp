// SPDX-License-Identifier: MIT
#include "Playback/QMXAUAudioPlayer.h"

#include "Devices/QMXVUMeterDataProvider.h"
#include "Formats/QMXAudioStreamBasicDescription.h"
#include "Recording/QMXAUAudioRecorder.h"
#include "Tracks/QMXAudioTrackInfo.h"
#include "platform/AudioToolbox/CodedFiles.h"
#include "support/Gain.h"
#include "support/PlayAndRecord.h"
#include "support/VirtualDevices.h"

#include <gmock/gmock.h>

#include <cmath>
#include <numbers>

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

const auto started = QMXAudioPlayerStartedPlayingNotification, stopped = QMXAudioPlayerStoppedPlayingNotification;
const auto finished = QMXAudioPlayerFinishedPlayingNotification;
const auto meterStarts = QMXVUMeterDataProviderDidStartNotification,
           meterStops = QMXVUMeterDataProviderDidStopNotification;

/// A sample that names its frame and channel; none is 0.
Float32 pattern(UInt32 frame, UInt32 channel)
{
    return static_cast<Float32>(frame + 1) / 65536 * (channel == 0 ? 1 : -1);
}

class QMXAUAudioPlayerTest : public qmx::test::PlayAndRecord
{
protected:
    QMXAUAudioPlayerTest()
    {
        writeFile(path, 20000, pattern);
        makePlayer(device, path);
    }
    void makePlayer(const std::shared_ptr<QMXAudioDevice>& on, const std::string& file)
    {
        player.reset();
        posted(); // what waits to be posted keeps its sender
        player = QMXAUAudioPlayer::initWithAudioDevice_pathToFile(on, file);
        EXPECT_EQ(noErr, player->lastStatus()) << player->lastError();
        observe(player);
    }
    /// That `samples` are frames of the file from `first` on.
    static void expectFrames(const std::vector<Float32>& samples, UInt32 first, UInt32 count, UInt32 offset = 0,
                             Float32 gain = 1)
    {
        ASSERT_GE(samples.size(), (offset + count) * 2U);
        for (UInt32 i = 0; i < count * 2; ++i)
            ASSERT_EQ(gain * pattern(first + i / 2, i % 2), samples[offset * 2 + i]) << "frame " << i / 2;
    }
    static void expectSilence(const std::vector<Float32>& samples, UInt32 first)
    {
        EXPECT_THAT(std::vector(samples.begin() + first * 2, samples.end()), Each(0));
    }

    std::shared_ptr<QMXAudioDevice> device = addDevice("first", 0, 2);
    std::shared_ptr<QMXAUAudioPlayer> player;
};

} // namespace

TEST_F(QMXAUAudioPlayerTest, PlaysARangeWithItsOverrunAndTellsInOrder)
{
    EXPECT_EQ(noErr, player->playFromFrame_endFrame(5, 5));
    EXPECT_EQ(noErr, player->stop());
    EXPECT_FALSE(player->isPlaying());
    EXPECT_THAT(posted(), IsEmpty());

    EXPECT_EQ(noErr, player->playFromFrame_endFrame(1000, 2200));
    EXPECT_TRUE(player->isPlaying());
    EXPECT_THAT(posted(), ElementsAre(started, meterStarts));
    const auto samples = played(*device, 5);
    ASSERT_EQ(4U * 512 * 2, samples.size()); // the cycle in which it stops is the last
    expectFrames(samples, 1000, 3 * 512);
    expectSilence(samples, 3 * 512);
    EXPECT_THAT(posted(), ElementsAre(stopped, meterStops, finished));
    EXPECT_FALSE(player->isPlaying());
    EXPECT_EQ(1000 + 3 * 512, player->currentFrameOffset());
    EXPECT_EQ(0U, player->droppedFrames());

    // the file stands behind the position: it goes back to it
    EXPECT_EQ(noErr, player->play());
    expectFrames(played(*device, 1), 1000 + 3 * 512, 512);
    EXPECT_EQ(noErr, player->stop());
    EXPECT_THAT(posted(), ElementsAre(started, meterStarts, stopped, meterStops));
    for (const auto& [mask, names] : {std::pair(0U, std::vector<std::string>{}),
                                      {2U, {started, meterStarts}},
                                      {1U, {finished}},
                                      {4U, {stopped, meterStops}}}) {
        player->setEventMask(mask);
        EXPECT_EQ(noErr, player->playFromFrame_endFrame(0, 512));
        played(*device, 3);
        EXPECT_EQ(names, posted());
    }
}

TEST_F(QMXAUAudioPlayerTest, GoesOnInSilenceAtTheEndOfTheFileUnlessItIsToStop)
{
    EXPECT_EQ(noErr, player->playFromFrame(19000));
    auto samples = played(*device, 4);
    expectFrames(samples, 19000, 1000);
    expectSilence(samples, 1000);
    EXPECT_TRUE(player->isPlaying());
    EXPECT_EQ(20000, player->currentFrameOffset());
    EXPECT_THAT(posted(), ElementsAre(started, meterStarts));
    EXPECT_EQ(noErr, player->stop());
    posted();

    player->setStopsAtEndOfFile(true);
    EXPECT_EQ(noErr, player->playFromFrame_endFrame(19000, 1 << 30)); // to the length
    samples = played(*device, 20);
    expectFrames(samples, 19000, 1000);
    expectSilence(samples, 1000);
    EXPECT_EQ(10U * 512 * 2, samples.size());
    EXPECT_THAT(posted(), ElementsAre(started, meterStarts, stopped, meterStops, finished));
    EXPECT_EQ(0U, player->droppedFrames());

    const auto track = QMXAudioTrackInfo::initWithTrackTitle_trackBegin_trackEnd_isActive({}, 100, 700, true);
    EXPECT_EQ(noErr, player->playTrack(*track)); // to the frame
    samples = played(*device, 20);
    expectFrames(samples, 100, 600);
    expectSilence(samples, 600);
    EXPECT_THAT(posted(), ElementsAre(started, meterStarts, stopped, meterStops, finished));
}

TEST_F(QMXAUAudioPlayerTest, SeeksProcessesAndRewindsWhileItPlays)
{
    const auto halver = std::make_shared<qmx::test::Gain>(0.5F);
    player->setAudioProcessor(halver);
    player->setVolumeScalar(0.5F);
    EXPECT_EQ(0.5F, player->volumeScalar());
    EXPECT_EQ(noErr, player->play());
    EXPECT_EQ(0, halver->resets); // it stands there already
    expectFrames(played(*device, 1), 0, 512, 0, 0.25F);
    player->setCurrentFrameOffset(9000);
    EXPECT_EQ(1, halver->resets);
    expectFrames(played(*device, 1), 9000, 512, 0, 0.25F);
    player->setCurrentFrameOffset(9512);
    EXPECT_EQ(1, halver->resets);
    player->rewind();
    EXPECT_EQ(2, halver->resets);
    player->setAudioProcessor(nullptr);
    expectFrames(played(*device, 1), 0, 512, 0, 0.5F);
    player->setCurrentFrameOffset(-1); // cannot be
    EXPECT_EQ(kExtAudioFileError_InvalidSeek, player->lastStatus());
    EXPECT_THAT(player->lastError(), testing::HasSubstr(path));

    player->setCurrentFrameOffset(0);
    player->setAudioProcessor(halver);
    posted();
    halver->result = -1; // ends the playing
    played(*device, 1);
    EXPECT_THAT(posted(), ElementsAre(stopped, meterStops, finished));
}

TEST_F(QMXAUAudioPlayerTest, GoesFromRangeToRangeWithoutFinishingBetween)
{
    const auto halver = std::make_shared<qmx::test::Gain>(0.5F);
    player->setAudioProcessor(halver);
    EXPECT_EQ(noErr, player->playFromFrame_endFrame(0, 1000));
    played(*device, 1);
    halver->onReset = [&] { played(*device, 1); }; // a cycle while it is sent elsewhere
    EXPECT_EQ(noErr, player->playFromFrame_endFrame(5000, 6000));
    expectFrames(played(*device, 1), 5512, 512, 0, 0.5F);
    EXPECT_THAT(posted(), ElementsAre(started, meterStarts, started, meterStarts));
    halver->onReset = nullptr;
    EXPECT_EQ(noErr, player->playFromFrame_endFrame(0, 3000));
    expectFrames(played(*device, 1), 0, 512, 0, 0.5F);
}

TEST_F(QMXAUAudioPlayerTest, TurnsToOtherDevicesAndFiles)
{
    const auto second = addDevice("second", 0, 1, 48000);
    writeFile("/d/other.wav", 1000, [](UInt32, UInt32) { return 0.75F; });
    EXPECT_EQ(noErr, player->playFromFrame(4000));
    played(*device, 1);
    posted();
    player->setOutputDevice(device);
    player->setOutputDevice(nullptr);
    EXPECT_TRUE(player->isPlaying());
    player->setOutputDevice(second);
    EXPECT_THAT(posted(), ElementsAre(stopped, meterStops));
    EXPECT_EQ(0, player->currentFrameOffset());
    player->setOutputDevice(device);
    EXPECT_EQ(noErr, player->play());
    expectFrames(played(*device, 1), 0, 512); // from the start, though the file stood elsewhere

    posted();
    player->setAudioFilePath(std::nullopt);
    EXPECT_TRUE(player->isPlaying());
    player->setStopsAtEndOfFile(true);
    disk.onOpen = [&] { (void)hardware.advanceCycles(device->deviceID(), 10); };
    player->setAudioFilePath("/d/other.wav");
    disk.onOpen = nullptr;
    EXPECT_FALSE(player->isPlaying());
    EXPECT_THAT(posted(), IsEmpty());
    EXPECT_EQ(1000, player->lengthInFrames());
    EXPECT_EQ(noErr, player->play());
    EXPECT_THAT(played(*device, 1), Each(0.75F));
    player->setAudioFilePath("/d/missing.wav");
    EXPECT_NE(noErr, player->lastStatus());
    EXPECT_THAT(player->lastError(), testing::HasSubstr("/d/missing.wav"));
    EXPECT_EQ(noErr, player->play());
    EXPECT_NE(noErr, player->lastStatus());
    EXPECT_FALSE(player->isPlaying());

    const auto unset = QMXAUAudioPlayer::initWithAudioDevice(nullptr);
    EXPECT_EQ(noErr, unset->play());
    EXPECT_EQ(noErr, unset->stop());
    unset->rewind();
    unset->setVolumeScalar(1);
    EXPECT_EQ(0, unset->volumeScalar());
    unset->setAudioFilePath(path);
    EXPECT_EQ(kAudioHardwareBadDeviceError, unset->lastStatus());
}

TEST_F(QMXAUAudioPlayerTest, GoesOnAfterReadsThatFailAndForgetsThemWithTheFile)
{
    writeFile("/d/long.wav", 600'000, [](UInt32, UInt32) { return 0.5F; });
    makePlayer(device, "/d/long.wav");
    player->setStopsAtEndOfFile(true);
    EXPECT_EQ(noErr, player->play());
    for (int failure = 0; failure < 3; ++failure) {
        disk.failReads(EIO, 1);
        const UInt32 silentCycles = 4;
        for (UInt32 silent = 0; silent < silentCycles && player->isPlaying();)
            silent += played(*device, 1).back() == 0 ? 1 : 0;
        disk.clearFaults();
        EXPECT_THAT(played(*device, 4), testing::Contains(0.5F));
    }
    EXPECT_TRUE(player->isPlaying());
    EXPECT_NE(noErr, player->lastStatus());
    player->setAudioFilePath(path);
    EXPECT_EQ(noErr, player->lastStatus()) << player->lastError();

    player->setCurrentFrameOffset(500);
    EXPECT_EQ(kExtAudioFileError_InvalidSeek, player->playFromFrame(-100));
    EXPECT_FALSE(player->isPlaying());
}

TEST_F(QMXAUAudioPlayerTest, StopsWhileItsDeviceChanges)
{
    stopWhileRateChanges(
        *device, [this] { return player->playFromFrame(0); }, [this] { return player->stop(); }, {stopped, meterStops});
}

TEST_F(QMXAUAudioPlayerTest, TellsWhenItsDeviceGoesAndFollowsTheDefaultOne)
{
    const auto second = addDevice("second", 0, 2);
    EXPECT_EQ(noErr, player->play());
    player->setFollowsDefaultDevice(true);
    expectFrames(played(*device, 2), 0, 1024);
    posted();
    EXPECT_EQ(noErr, hardware.setDefaultDevice(kAudioHardwarePropertyDefaultOutputDevice, second->deviceID()));
    hardware.settle();
    expectFrames(played(*second, 1), 1024, 512);
    EXPECT_THAT(posted(), IsEmpty());
    player->setOutputDevice(device); // ends the following
    EXPECT_FALSE(player->followsDefaultDevice());
    EXPECT_THAT(posted(), ElementsAre(stopped, meterStops));
    EXPECT_EQ(noErr, player->playFromFrame(1536));
    posted();
    expectFrames(played(*device, 1), 1536, 512);
    EXPECT_EQ(noErr, hardware.removeDevice(device->deviceID()));
    EXPECT_THAT(posted(), ElementsAre(stopped, meterStops));
    EXPECT_FALSE(player->isPlaying());
    player->setFollowsDefaultDevice(true);
    EXPECT_THAT(posted(), ElementsAre(started, meterStarts));
    expectFrames(played(*second, 1), 2048, 512);
    EXPECT_EQ(noErr, hardware.removeDevice(second->deviceID()));
    EXPECT_THAT(posted(), ElementsAre(stopped, meterStops));
    EXPECT_EQ(noErr, player->stop());
    const auto third = addDevice("third", 0, 2);
    EXPECT_FALSE(player->isPlaying()); // it was stopped meanwhile
    EXPECT_THAT(posted(), IsEmpty());

    auto refusal = qmx::test::failing(qmx::HardwareOperation::start);
    refusal.status = -7;
    hardware.addFault(refusal);
    EXPECT_EQ(-7, player->playFromFrame(0));
    EXPECT_THAT(posted(), ElementsAre(started, meterStarts, stopped));
    EXPECT_THAT(failures.lines(), testing::Contains(testing::StartsWith(
                                      "QMXAUAudioPlayer Error: -7 ->  coreaudio_aac/src/QMXAUAudioPlayer:  ")));
    EXPECT_EQ(-7, player->lastStatus());
}

TEST_F(QMXAUAudioPlayerTest, ResamplesWithoutResidueOrDiscontinuity)
{
    const auto fast = addDevice("fast", 0, 2, 48000);
    writeFile("/d/tone.wav", 44100, [](UInt32 frame, UInt32) {
        return static_cast<Float32>(0.5 * std::sin(2 * std::numbers::pi * 20000 / 44100 * frame));
    });
    makePlayer(fast, "/d/tone.wav");
    EXPECT_EQ(noErr, player->play());
    played(*fast, 10); // the filter's beginning
    const auto samples = played(*fast, 64);
    ASSERT_EQ(64U * 512 * 2, samples.size());
    // the best fit of a 20 kHz tone, and what is left beside it
    Float64 ss = 0, cc = 0, sc = 0, sy = 0, cy = 0, energy = 0, rest = 0;
    const auto turn = [](std::size_t i) { return 2 * std::numbers::pi * 20000 / 48000 * static_cast<Float64>(i); };
    for (std::size_t i = 0; i < samples.size() / 2; ++i) {
        const Float64 s = std::sin(turn(i)), c = std::cos(turn(i)), y = samples[2 * i];
        ss += s * s, cc += c * c, sc += s * c, sy += s * y, cy += c * y;
    }
    const Float64 a = (sy * cc - cy * sc) / (ss * cc - sc * sc), b = (cy * ss - sy * sc) / (ss * cc - sc * sc);
    for (std::size_t i = 0; i < samples.size() / 2; ++i) {
        const Float64 y = samples[2 * i], error = y - a * std::sin(turn(i)) - b * std::cos(turn(i));
        energy += y * y, rest += error * error;
    }
    EXPECT_NEAR(0.5, std::hypot(a, b), 0.001);
    EXPECT_LT(10 * std::log10(rest / energy), -130);

    // at another place nothing is left of this one
    makePlayer(fast, path);
    writeFile("/d/step.wav", 40000, [](UInt32 frame, UInt32) { return frame < 20000 ? 0.5F : 0; });
    player->setAudioFilePath("/d/step.wav");
    EXPECT_EQ(noErr, player->play());
    EXPECT_THAT(played(*fast, 5), testing::Contains(testing::FloatNear(0.5F, 0.001F)));
    EXPECT_EQ(noErr, player->stop());
    EXPECT_EQ(noErr, player->playFromFrame(30000));
    EXPECT_THAT(played(*fast, 3), Each(0));
    // all of a file comes out, with its length, when it stops at its end
    writeFile("/d/sweep.wav", 22050, [](UInt32 frame, UInt32) {
        return static_cast<Float32>(0.5 * std::sin(2e-6 * static_cast<Float64>(frame) * frame));
    });
    makePlayer(fast, "/d/sweep.wav");
    player->setStopsAtEndOfFile(true);
    EXPECT_EQ(noErr, player->play());
    const auto sweep = played(*fast, 80);
    const Float64 highest = 0.0884 * 44100 / 48000; // pitch, in radians
    for (std::size_t i = 2; i + 2 < 2 * 23600; i += 2)
        ASSERT_LT(std::abs(sweep[i - 2] + sweep[i + 2] - 2.0 * sweep[i]), 0.5 * highest * highest) << i / 2;
    std::size_t last = sweep.size();
    while (last > 0 && std::abs(sweep[last - 1]) < 0.01)
        --last;
    EXPECT_NEAR(2 * 24000, static_cast<Float64>(last), 40);
}

TEST_F(QMXAUAudioPlayerTest, PlaysCompressedFilesFromAnyFrameToTheirLast)
{
    writeFile("/d/a.m4a", 20000, pattern, kAudioFileM4AType, qmx::test::coded(kAudioFormatMPEG4AAC, 2));
    const auto decoded = qmx::test::recordedSamples("/d/a.m4a");
    ASSERT_EQ(20000U * 2, decoded.size());
    makePlayer(device, "/d/a.m4a");
    player->setStopsAtEndOfFile(true);
    for (const UInt32 first : {0U, 7000U}) {
        EXPECT_EQ(noErr, player->playFromFrame(first));
        const auto samples = played(*device, 60);
        const std::vector expected(decoded.begin() + first * 2, decoded.end());
        ASSERT_LT(expected.size(), samples.size());
        EXPECT_EQ(expected, std::vector(samples.begin(), samples.begin() + static_cast<long>(expected.size())));
        expectSilence(samples, 20000 - first);
        EXPECT_THAT(posted(), ElementsAre(started, meterStarts, stopped, meterStops, finished));
    }
}

TEST_F(QMXAUAudioPlayerTest, SharesItsDeviceWithAMeter)
{
    const auto both = addDevice("both", 2, 2);
    const auto meter = QMXVUMeterDataProvider::initWithAudioDevice(both);
    makePlayer(both, path);
    meter->start();
    EXPECT_EQ(noErr, player->play());
    expectFrames(played(*both, 1), 0, 512);
    EXPECT_EQ(noErr, player->stop());
    EXPECT_TRUE(hardware.advanceCycles(both->deviceID())); // for the meter
    EXPECT_EQ(noErr, player->play());
    meter->stop();
    expectFrames(played(*both, 1), 512, 512);
    EXPECT_EQ(noErr, player->stop());
    EXPECT_FALSE(hardware.advanceCycles(both->deviceID()));
}

TEST_F(QMXAUAudioPlayerTest, PlaysAFileThatIsBeingRecorded)
{
    const auto input = addDevice("input", 2, 0);
    EXPECT_EQ(noErr, hardware.setInput(input->deviceID(), [](Float32* samples, UInt32 frames, UInt32, SInt64 first) {
        for (UInt32 i = 0; i < 2 * frames; ++i)
            samples[i] = pattern(static_cast<UInt32>(first) + i / 2, i % 2);
    }));
    const auto recorder = QMXAUAudioRecorder::initWithInputDevice_outputPath_fileType_fileStreamFormat(
        input, "/d/take.wav", kAudioFileWAVEType,
        QMXAudioStreamBasicDescription(qmx::test::linearFormat(32, 2, kAudioFormatFlagIsFloat)));
    EXPECT_EQ(noErr, recorder->start());
    EXPECT_TRUE(hardware.advanceCycles(input->deviceID(), 200));
    hardware.settle();
    makePlayer(device, "/d/take.wav");
    ASSERT_LT(2 * 512, player->lengthInFrames()); // what is written when it is opened
    EXPECT_EQ(noErr, player->play());
    const auto samples = played(*device, 2);
    EXPECT_EQ(noErr, player->stop());
    EXPECT_EQ(noErr, recorder->stop());
    EXPECT_EQ(0U, recorder->droppedFrames());
    const auto recorded = qmx::test::recordedSamples("/d/take.wav");
    ASSERT_LE(202U * 512 * 2, recorded.size());
    const auto first = static_cast<UInt32>(std::lround(recorded[0] * 65536)) - 1;
    for (UInt32 i = 0; i < recorded.size(); ++i)
        ASSERT_EQ(pattern(first + i / 2, i % 2), recorded[i]) << "frame " << i / 2;
    EXPECT_EQ(std::vector(recorded.begin(), recorded.begin() + 2 * 512 * 2), samples);
}
