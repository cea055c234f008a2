// SPDX-License-Identifier: MIT
#include "Recording/QMXAUAudioRecorder.h"

#include "Devices/QMXVUMeterDataProvider.h"
#include "FileRelated/QMXExtAudioFile.h"
#include "Formats/QMXAudioStreamBasicDescription.h"
#include "Recording/QMXAudioRecorder.h"
#include "platform/AudioToolbox/CodedFiles.h"
#include "support/PlayAndRecord.h"

#include <gmock/gmock.h>

#include <cmath>

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

const auto stopped = QMXAudioRecorderStoppedRecordingNotification;
const auto meterStops = QMXVUMeterDataProviderDidStopNotification;

/// What is captured: each sample names its frame and channel, in 24 bits.
Float32 pattern(SInt64 frame, UInt32 channel)
{
    return static_cast<Float32>(frame % 65536 + 1) / 131072 * (channel % 2 == 0 ? 1 : -1) /
           static_cast<Float32>(1 << channel / 2);
}

void capturePattern(Float32* samples, UInt32 frames, UInt32 channels, SInt64 first)
{
    for (UInt32 frame = 0; frame < frames; ++frame)
        for (UInt32 channel = 0; channel < channels; ++channel)
            *samples++ = pattern(first + frame, channel);
}

class QMXAUAudioRecorderTest : public qmx::test::PlayAndRecord
{
protected:
    QMXAUAudioRecorderTest() { EXPECT_EQ(noErr, hardware.setInput(device->deviceID(), capturePattern)); }
    std::shared_ptr<QMXAUAudioRecorder> make(const std::string& file, AudioFileTypeID type,
                                             const AudioStreamBasicDescription& format)
    {
        auto recorder = QMXAUAudioRecorder::initWithInputDevice_outputPath_fileType_fileStreamFormat(
            device, file, type, QMXAudioStreamBasicDescription(format));
        recorder->setEventMask(2);
        observe(recorder);
        return recorder;
    }
    void run(UInt32 cycles) { EXPECT_TRUE(hardware.advanceCycles(device->deviceID(), cycles)); }
    void record(QMXAUAudioRecorder& recorder, UInt32 cycles)
    {
        EXPECT_EQ(noErr, recorder.start());
        run(cycles);
        EXPECT_EQ(noErr, recorder.stop());
    }
    /// That samples are those of the captured channels without a gap; of channel -1, silence.
    static void expectUnbroken(std::span<const Float32> samples, std::size_t frames,
                               const std::vector<SInt32>& channels = {0, 1})
    {
        ASSERT_EQ(frames * channels.size(), samples.size());
        const SInt64 first = std::lround(samples[0] * static_cast<Float32>(131072 << channels[0] / 2)) - 1;
        for (std::size_t i = 0; i < samples.size(); ++i) {
            const SInt32 channel = channels[i % channels.size()];
            const auto frame = static_cast<SInt64>(i / channels.size());
            ASSERT_EQ(channel < 0 ? 0 : pattern(first + frame, static_cast<UInt32>(channel)), samples[i]) << frame;
        }
    }

    std::shared_ptr<QMXAudioDevice> device = addDevice("input", 8, 0);
    const AudioStreamBasicDescription big24 =
        qmx::test::linearFormat(24, 2, kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsBigEndian);
};

} // namespace

TEST_F(QMXAUAudioRecorderTest, RecordsEveryFrameIntoEachType)
{
    auto flac = qmx::test::coded(kAudioFormatFLAC, 2);
    flac.mFormatFlags = kAppleLosslessFormatFlag_24BitSourceData;
    const auto little24 = qmx::test::linearFormat(24, 2, kAudioFormatFlagIsSignedInteger);
    for (const auto& [file, type, format] :
         {std::tuple("/d/a.aiff", kAudioFileAIFFType, big24),
          {"/d/a.caf", kAudioFileCAFType, little24},
          {"/d/a.wav", kAudioFileWAVEType, little24},
          {"/d/a.flac", kAudioFileFLACType, flac},
          {"/d/a.m4a", kAudioFileM4AType, qmx::test::coded(kAudioFormatMPEG4AAC, 2)}}) {
        SCOPED_TRACE(file);
        const auto recorder = make(file, type, format);
        ASSERT_EQ(noErr, recorder->lastStatus()) << recorder->lastError();
        EXPECT_EQ(noErr, recorder->start());
        EXPECT_EQ(noErr, recorder->start());
        run(50);
        EXPECT_TRUE(recorder->isRecording());
        EXPECT_EQ(noErr, recorder->pause());
        EXPECT_EQ(noErr, recorder->pause()); // nothing
        hardware.advance(500'000'000);
        record(*recorder, 30);
        EXPECT_EQ(noErr, recorder->lastStatus()) << recorder->lastError();
        EXPECT_THAT(posted(), ElementsAre(stopped, meterStops, stopped, meterStops));
        EXPECT_EQ(0U, recorder->droppedFrames());
        const auto samples = qmx::test::recordedSamples(file);
        ASSERT_EQ(80U * 512 * 2, samples.size());
        if (format.mFormatID == kAudioFormatMPEG4AAC)
            continue;
        expectUnbroken({&samples[0], 50 * 512 * 2}, 50 * 512);
        expectUnbroken({&samples[50 * 512 * 2], 30 * 512 * 2}, 30 * 512);
    }
    EXPECT_THAT(failures.lines(), IsEmpty());
}

TEST_F(QMXAUAudioRecorderTest, PausesWhileItsDeviceChanges)
{
    const auto recorder = make("/d/changes.aiff", kAudioFileAIFFType, big24);
    stopWhileRateChanges(
        *device, [&] { return recorder->start(); }, [&] { return recorder->pause(); }, {stopped, meterStops});
    EXPECT_EQ(noErr, recorder->stop());
}

TEST_F(QMXAUAudioRecorderTest, PicksChannelsByItsMapAndTheFirstWithoutOne)
{
    using Map = std::vector<SInt32>;
    for (const auto& [map, channels] : {std::pair(Map{6, 3, -1}, Map{6, 3, -1}), {{}, {0, 1}}}) {
        const auto count = static_cast<UInt32>(channels.size());
        const std::string file = "/d/" + std::to_string(map.size()) + ".aiff";
        const auto recorder = QMXAUAudioRecorder::initWithInputDevice_outputPath(device, file);
        EXPECT_EQ(kAudioUnitErr_InvalidPropertyValue, recorder->setInputChannelMap({7, 8, 9}));
        EXPECT_EQ(kAudioUnitErr_InvalidPropertyValue, recorder->lastStatus());
        EXPECT_EQ(noErr, recorder->setInputChannelMap({2, 3}));
        EXPECT_EQ(noErr, recorder->setInputChannelMap(map));
        recorder->setFileStreamFormat(
            QMXAudioStreamBasicDescription(qmx::test::linearFormat(24, count, big24.mFormatFlags)));
        ASSERT_TRUE(recorder->audioFile());
        EXPECT_EQ(count, recorder->audioFile()->clientStreamFormat()->mChannelsPerFrame);
        EXPECT_NE(noErr, recorder->setInputChannelMap({0}));
        record(*recorder, 4);
        expectUnbroken(qmx::test::recordedSamples(file), std::size_t{4} * 512, channels);
    }
}

TEST_F(QMXAUAudioRecorderTest, SharesItsDeviceWithADeviceRecorder)
{
    for (const bool endsFirst : {true, false}) {
        const std::string file = endsFirst ? "/d/one.aiff" : "/d/two.aiff", others = "/d/other" + file.substr(3);
        const auto recorder = make(file, kAudioFileAIFFType, big24);
        const auto other = QMXAudioRecorder::initWithAudioDevice_filePath(device, others);
        EXPECT_TRUE(other->setFileStreamFormat(QMXAudioStreamBasicDescription(big24)));
        other->setWritesPartialBufferAtStop(true);
        EXPECT_EQ(noErr, recorder->start());
        EXPECT_TRUE(other->record());
        run(2);
        EXPECT_TRUE(endsFirst ? recorder->stop() == noErr : other->stop());
        run(3);
        EXPECT_TRUE(endsFirst ? other->stop() : recorder->stop() == noErr);
        expectUnbroken(qmx::test::recordedSamples(file), (endsFirst ? 2 : 5) * 512);
        expectUnbroken(qmx::test::recordedSamples(others), (endsFirst ? 5 : 2) * 512);
    }
}

TEST_F(QMXAUAudioRecorderTest, KeepsItsSettingsAsDescribed)
{
    const auto recorder = QMXAUAudioRecorder::init();
    EXPECT_EQ(0U, recorder->eventMask());
    recorder->setBitRate(-5);
    EXPECT_EQ(0U, recorder->bitRate());
    recorder->setBitRate(1e12);
    EXPECT_EQ(4294967295U, recorder->bitRate());
    EXPECT_EQ(noErr, recorder->pause());
    EXPECT_EQ(noErr, recorder->stop());
    EXPECT_EQ(noErr, recorder->configureOutputFile()); // without a path
    EXPECT_FALSE(recorder->audioFile());
    EXPECT_EQ(nullptr, QMXAUAudioRecorder::supportedQualitySettingsForFormat(QMXAudioStreamBasicDescription(big24)));

    const auto onDevice = QMXAUAudioRecorder::initWithInputDevice_outputPath(device, "/d/typed.aif");
    EXPECT_FALSE(onDevice->audioFile());
    onDevice->setFileType_withFileStreamFormat(kAudioFileWAVEType, QMXAudioStreamBasicDescription(big24));
    ASSERT_TRUE(onDevice->audioFile());
    EXPECT_EQ(kAudioFileAIFFType, onDevice->audioFile()->fileType());
    const auto file = onDevice->audioFile();
    onDevice->setOutputPath("/d/other.aif");
    EXPECT_EQ(file, onDevice->audioFile()); // once
    const auto aac = make("/d/rates.m4a", kAudioFileM4AType, qmx::test::coded(kAudioFormatMPEG4AAC, 2));
    ASSERT_TRUE(aac->supportedBitRates());
    EXPECT_THAT(*aac->supportedBitRates(), Contains(256)); // of two channels of 128 kbit/s
    EXPECT_FALSE(aac->supportedAudioStreamFormats().empty());
    EXPECT_FALSE(aac->supportedSampleRates().empty());
    EXPECT_THAT(failures.lines(), testing::Each(testing::StartsWith("QMXAUAudioPlayer Error: ")));
}

TEST_F(QMXAUAudioRecorderTest, TellsOfLossesAndGoesOn)
{
    const auto recorder = make("/d/lossy.aiff", kAudioFileAIFFType, big24);
    EXPECT_EQ(noErr, recorder->start());
    run(2);
    EXPECT_EQ(noErr, hardware.skipCycles(device->deviceID(), 3));
    run(2);
    EXPECT_EQ(3U * 512, recorder->droppedFrames());
    EXPECT_EQ(noErr, recorder->lastStatus());

    // the device goes: it stops, and goes on with another one
    const auto next = addDevice("next", 2, 0, 48000);
    EXPECT_EQ(noErr, hardware.removeDevice(device->deviceID()));
    EXPECT_THAT(posted(), ElementsAre(stopped, meterStops));
    EXPECT_FALSE(recorder->isRecording());
    recorder->setInputDevice(next);
    EXPECT_TRUE(recorder->isRecording());
    EXPECT_TRUE(hardware.advanceCycles(next->deviceID(), 2));
    EXPECT_EQ(noErr, recorder->stop());
    EXPECT_NEAR(2 * 4 * 512 + 2 * 2 * 512 * 44100 / 48000,
                static_cast<Float64>(qmx::test::recordedSamples("/d/lossy.aiff").size()), 2 * 300);

    // a closed file is not opened again
    EXPECT_EQ(noErr, recorder->start());
    EXPECT_TRUE(hardware.advanceCycles(next->deviceID(), 2));
    EXPECT_TRUE(recorder->isRecording());
    EXPECT_EQ(kAudio_ParamError, recorder->lastStatus());
    EXPECT_THAT(posted(), ElementsAre(stopped, meterStops, QMXAudioRecorderFailedNotification));
    EXPECT_THAT(failures.lines(), Contains("ExtAudioFileWrite failed with error! -50 '\xff\xff\xff\xce'"));
    EXPECT_EQ(noErr, recorder->stop());

    disk.setContents("/d/there.aiff", {1, 2, 3});
    const auto refused = make("/d/there.aiff", kAudioFileAIFFType, big24);
    EXPECT_NE(noErr, refused->lastStatus());
    EXPECT_THAT(refused->lastError(), testing::HasSubstr("there.aiff"));
}
