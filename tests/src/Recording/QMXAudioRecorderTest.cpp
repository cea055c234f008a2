// SPDX-License-Identifier: MIT
#include "Recording/QMXAudioRecorder.h"

#include "FileRelated/QMXAudioFile.h"
#include "Formats/QMXAudioStreamBasicDescription.h"
#include "Foundation/RealTime.h"
#include "support/CapturedLog.h"
#include "support/MemoryDisk.h"
#include "support/VirtualDevices.h"

#include <gmock/gmock.h>

#include <bit>
#include <cerrno>

namespace
{

using Reason = QMXAudioRecordingLoss::Reason;

constexpr UInt32 cycle = 441; // frames: buffers are switched within cycles
constexpr const char* path = "/d/take.aif";

/// The n-th sample of a count that repeats after 65536, exact in every format.
Float32 counted(UInt64 n)
{
    return static_cast<Float32>(static_cast<SInt16>(n)) / 32768;
}

/// A recorder on a device whose input counts its samples, and a disk in memory.
class Recorder : public testing::Test
{
protected:
    Recorder() { hardware.reset(); }
    ~Recorder() override { hardware.reset(); }

    void make(UInt32 channelCount, UInt32 bits = 16, bool isFloat = false)
    {
        channels = channelCount;
        auto description = qmx::VirtualHardware::standardDevice("input", "Input", channels, 0);
        description.bufferFrameSize = cycle;
        id = hardware.addDevice(description);
        hardware.setInput(id, [n = UInt64{0}](Float32* samples, UInt32 frames, UInt32 count, SInt64) mutable {
            for (UInt32 i = 0; i < frames * count; ++i)
                samples[i] = counted(n++);
        });
        recorder = QMXAudioRecorder::initWithAudioDevice_filePath(QMXAudioDevice::deviceWithDeviceID(id), path);
        setFileFormat(qmx::packedPhysicalFormat(44100, channels, bits, isFloat));
    }
    void setFileFormat(const AudioStreamBasicDescription& record)
    {
        recorder->setFileStreamFormat(QMXAudioStreamBasicDescription(record));
    }
    /// Frames in one raw buffer.
    UInt32 bufferFrames() const { return 393216 / (4 * channels); }

    /// Hands the recorder so many counted frames as one cycle of the device.
    void feed(UInt32 frames)
    {
        std::vector<Float32> samples(std::size_t{frames} * channels);
        for (Float32& sample : samples)
            sample = counted(fed_++);
        const AudioBufferList list{1,
                                   {{channels, static_cast<UInt32>(samples.size() * sizeof(Float32)), samples.data()}}};
        const qmx::RealTimeScope realTime;
        auto& device = *recorder->inputDevice();
        recorder->audioIOHandler_inNow_inInputData_inInputTime_outOutputData_inOutputTime_inClientData(
            device, nullptr, &list, nullptr, nullptr, nullptr, device);
    }
    /// The file's samples, as it stands on the disk.
    std::vector<Float32> samplesInFile()
    {
        const auto file = QMXAudioFile::initWithPath_accessMode(path, QMXAudioFileAccessMode::read);
        EXPECT_TRUE(file->open());
        auto length = static_cast<UInt32>(file->lengthInBytes());
        std::vector<Byte> bytes(length);
        EXPECT_TRUE(length == 0 || file->read_length(bytes.data(), &length));
        const UInt32 width = file->bitsPerChannel() / 8;
        std::vector<Float32> samples(length / width);
        for (std::size_t i = 0; i < samples.size(); ++i) {
            UInt32 word = 0;
            for (UInt32 b = 0; b < width; ++b)
                word |= UInt32{bytes[i * width + b]} << (24 - 8 * b);
            samples[i] = file->fileStreamFormat()->isFloat()
                             ? std::bit_cast<Float32>(word)
                             : static_cast<Float32>(static_cast<SInt32>(word)) / 2147483648.0F;
        }
        return samples;
    }
    /// Expects frames `first` to `end` of the count in `samples` from frame `at` on.
    void expectCount(const std::vector<Float32>& samples, std::size_t at, UInt64 first, UInt64 end) const
    {
        ASSERT_GE(samples.size(), (at + end - first) * channels);
        for (UInt64 n = first * channels; n < end * channels; ++n)
            ASSERT_EQ(samples[at * channels + n - first * channels], counted(n)) << "sample " << n;
    }
    std::vector<std::string> news()
    {
        hardware.settle();
        while (qmx::RunLoop::main().runOnce())
            continue;
        return std::exchange(news_, {});
    }

    qmx::VirtualHardware& hardware = qmx::VirtualHardware::shared();
    qmx::test::CapturedLog log;
    qmx::test::MemoryDisk disk;
    AudioDeviceID id = 0;
    UInt32 channels = 2;
    std::shared_ptr<QMXAudioRecorder> recorder;

private:
    std::vector<std::string> news_;
    UInt64 fed_ = 0;
    std::shared_ptr<qmx::Object> observer_ =
        qmx::NotificationCenter::defaultCenter().observe("", nullptr, [this](const qmx::Notification& n) {
            if (n.sender == recorder && n.name.starts_with("QMXAudioRecorder"))
                news_.push_back(n.name.substr(16, n.name.find("Record", 16) - 16));
        });
};

struct Case {
    UInt32 channels, bits;
    bool isFloat, writesRest;
};

class RecorderFormats : public Recorder, public testing::WithParamInterface<Case>
{
};

TEST_P(RecorderFormats, KeepEverySampleAcrossBuffersAndPauses)
{
    const auto [channelCount, bits, isFloat, writesRest] = GetParam();
    make(channelCount, bits, isFloat);
    recorder->setWritesPartialBufferAtStop(writesRest);
    const UInt32 cycles = bufferFrames() / cycle + 3;
    ASSERT_TRUE(recorder->record());
    EXPECT_TRUE(hardware.advanceCycles(id, cycles));
    ASSERT_TRUE(recorder->pause());
    EXPECT_FALSE(recorder->inputDevice()->isRunning());
    hardware.advance(1'000'000'000);
    ASSERT_TRUE(recorder->record());
    EXPECT_TRUE(hardware.advanceCycles(id, cycles));
    ASSERT_TRUE(recorder->stop());

    const UInt64 frames = UInt64{2} * cycles * cycle, whole = frames / bufferFrames() * bufferFrames();
    EXPECT_EQ(recorder->lengthInFrames(), frames);
    const auto samples = samplesInFile();
    ASSERT_EQ(samples.size(), (writesRest ? frames : whole) * channels);
    expectCount(samples, 0, 0, samples.size() / channels);
    EXPECT_EQ(recorder->droppedFrames(), writesRest ? 0 : frames - whole);
    EXPECT_EQ(recorder->lostFramePositions().size(), writesRest ? 0U : 1U);
}

INSTANTIATE_TEST_SUITE_P(All, RecorderFormats,
                         testing::Values(Case{1, 16, false, false}, Case{2, 16, false, true}, Case{2, 24, false, false},
                                         Case{2, 32, true, false}, Case{5, 24, false, true}, Case{8, 32, true, true}));

TEST_F(Recorder, GoesThroughItsStatesAndTellsOfThem)
{
    make(2);
    EXPECT_FALSE(recorder->pause() || recorder->stop() || recorder->flush());
    recorder->setNotificationInterval(10);
    recorder->record();
    EXPECT_FALSE(recorder->record());
    EXPECT_TRUE(recorder->isRecording());
    for (int i = 0; i < 21; ++i) {
        hardware.advanceCycles(id);
        const auto came = news();
        EXPECT_EQ(std::ranges::count(came, ""), i % 10 == 0 ? 1 : 0) << "cycle " << i;
    }
    EXPECT_TRUE(recorder->recordForDuration(0));
    recorder->setEventMask(2);
    EXPECT_THAT(news(), testing::ElementsAre("Stopped"));
    EXPECT_FALSE(recorder->record() || recorder->stop() || recorder->isRecording());
    EXPECT_TRUE(recorder->flush());
    EXPECT_FALSE(recorder->flush());
    EXPECT_THAT(recorder->dumpDebugInfo(), testing::HasSubstr("\n        lengthInFrames: 9261\n"));
}

TEST_F(Recorder, NormalisesACopyOfTheFormatAndRecordsWithoutAPath)
{
    make(2);
    QMXAudioRecorder::setTemporaryDirectory("/d/");
    disk.setContents("/d/audiotemp.aif", {1, 2, 3});
    recorder = QMXAudioRecorder::initWithAudioDevice(QMXAudioDevice::deviceWithDeviceID(id));
    const QMXAudioStreamBasicDescription native(qmx::packedPhysicalFormat(44100, 2, 32, true));
    recorder->setFileStreamFormat(native);
    EXPECT_FALSE(native.isBigEndian());
    recorder->record();
    EXPECT_TRUE(recorder->audioFile()->isOpen());
    EXPECT_EQ(recorder->audioFilePath(), "/d/audiotemp.aif");
    EXPECT_EQ(recorder->formatFlags(), 11U);
    recorder->stop();
    QMXAudioRecorder::setTemporaryDirectory("/tmp/");
    EXPECT_FALSE(QMXAudioRecorder::initWithAudioDevice(nullptr));
    EXPECT_FALSE(QMXAudioRecorder::initWithAudioDevice_filePath(recorder->inputDevice(), std::nullopt));
}

TEST_F(Recorder, ADiskThatStallsCostsTheBuffersThatAreOvertakenAndNoOthers)
{
    make(2);
    const UInt32 full = bufferFrames();
    recorder->record();
    disk.setStalled(true);
    feed(full);
    disk.waitForStalledWrite();
    feed(full + 100);
    feed(full - 100);
    feed(70);
    disk.setStalled(false);
    recorder->stop();
    const auto samples = samplesInFile();
    ASSERT_EQ(samples.size(), 2 * 2 * full);
    expectCount(samples, 0, 0, full);
    expectCount(samples, full, 2 * full, 3 * full);
    EXPECT_EQ(recorder->overruns(), 1U);
    EXPECT_EQ(recorder->droppedFrames(), full + 70U);
    const auto losses = recorder->lostFramePositions();
    ASSERT_EQ(losses.size(), 2U);
    EXPECT_EQ(losses[0].reason, Reason::overrun);
    EXPECT_EQ(losses[0].frame, full);
    EXPECT_EQ(losses[0].frames, full);
    EXPECT_EQ(losses[1].reason, Reason::partialBuffer);
    EXPECT_EQ(losses[1].frame, 3 * full);
    EXPECT_EQ(losses[1].fileFrame, 2 * full);
}

TEST_F(Recorder, SpareBuffersWaitForADiskThatStalls)
{
    make(2);
    EXPECT_FALSE(recorder->setSpareRawBuffers(1025));
    EXPECT_TRUE(recorder->setSpareRawBuffers(3));
    recorder->setWritesPartialBufferAtStop(true);
    recorder->record();
    EXPECT_FALSE(recorder->setSpareRawBuffers(4));
    disk.setStalled(true);
    feed(bufferFrames());
    disk.waitForStalledWrite();
    feed(4 * bufferFrames() + 70);
    disk.setStalled(false);
    recorder->stop();
    EXPECT_EQ(recorder->overruns(), 0U);
    EXPECT_EQ(recorder->droppedFrames(), 0U);
    const auto samples = samplesInFile();
    ASSERT_EQ(samples.size(), 2 * (5 * bufferFrames() + 70));
    expectCount(samples, 0, 0, samples.size() / 2);
}

TEST_F(Recorder, FullDiskOrFailingWritesCostTheirBuffersOnly)
{
    make(2);
    recorder->record();
    feed(bufferFrames());
    hardware.settle();
    disk.setCapacity(disk.contents(path).size() + 1000);
    feed(bufferFrames());
    hardware.settle();
    EXPECT_EQ(recorder->droppedFrames(), bufferFrames());
    disk.setCapacity(SIZE_MAX);
    feed(bufferFrames());
    hardware.settle();
    disk.failChange(1, EIO);
    feed(bufferFrames());
    recorder->stop();
    const auto samples = samplesInFile();
    ASSERT_GE(samples.size(), 2 * 2 * bufferFrames());
    expectCount(samples, 0, 0, bufferFrames());
    expectCount(samples, bufferFrames(), 2 * bufferFrames(), 3 * bufferFrames());
    const auto losses = recorder->lostFramePositions();
    ASSERT_EQ(losses.size(), 2U);
    EXPECT_EQ(losses[0].reason, Reason::write);
    EXPECT_EQ(losses[1].frame, 3 * bufferFrames());
}

TEST_F(Recorder, AKillLeavesAFileWithAllThatWasWrittenBeforeTheLastBuffer)
{
    make(2);
    recorder->record();
    const auto atStart = disk.changesMade();
    feed(bufferFrames());
    hardware.settle();
    const auto changesOfABuffer = disk.changesMade() - atStart;
    ASSERT_GT(changesOfABuffer, 0U);
    for (std::size_t n = 1; n <= changesOfABuffer; ++n) {
        SCOPED_TRACE(n);
        hardware.reset();
        disk.clearFaults();
        disk.remove(path);
        make(2);
        recorder->record();
        hardware.advanceCycles(id, 2 * bufferFrames() / cycle + 1);
        disk.killAtChange(n, 777);
        hardware.advanceCycles(id, 2 * bufferFrames() / cycle + 1);
        const auto samples = samplesInFile();
        ASSERT_GE(samples.size(), 2 * 2 * bufferFrames());
        expectCount(samples, 0, 0, 2 * bufferFrames());
        recorder->stop();
    }
}

TEST_F(Recorder, LossOfTheDeviceGapsAndChangesOfItsRateAreNotedAndLeaveAWholeFile)
{
    make(2);
    recorder->setWritesPartialBufferAtStop(true);
    recorder->record();
    hardware.advanceCycles(id, 10);
    hardware.jumpSampleTime(id, 1000);
    hardware.advanceCycles(id, 10);
    hardware.change(id, [](qmx::DeviceDescription& device) { device.nominalSampleRate = 48000; });
    news();
    hardware.advanceCycles(id, 10);
    hardware.removeDevice(id);
    news();
    EXPECT_TRUE(recorder->stop());
    const auto samples = samplesInFile();
    EXPECT_EQ(samples.size(), 2 * 30 * cycle);
    expectCount(samples, 0, 0, 30 * cycle);
    const auto losses = recorder->lostFramePositions();
    ASSERT_EQ(losses.size(), 2U);
    EXPECT_EQ(losses[0].reason, Reason::timeGap);
    EXPECT_EQ(losses[0].frame, 10 * cycle);
    EXPECT_EQ(losses[0].frames, 1000U);
    EXPECT_EQ(losses[1].reason, Reason::rateChange);
    EXPECT_EQ(losses[1].frame, 20 * cycle);
}

TEST_F(Recorder, AnotherRateInTheFileLosesNothingBetweenBuffers)
{
    make(2);
    hardware.setInput(
        id, [](Float32* samples, UInt32 frames, UInt32 count, SInt64) { std::fill_n(samples, frames * count, 0.5F); });
    setFileFormat(qmx::packedPhysicalFormat(48000, 2, 32, true));
    recorder->setWritesPartialBufferAtStop(true);
    recorder->record();
    hardware.advanceCycles(id, 400); // four seconds, three and a half buffers
    recorder->stop();
    const auto samples = samplesInFile();
    EXPECT_NEAR(static_cast<double>(samples.size()), 2 * 4 * 48000, 4);
    for (std::size_t i = 4000; i + 4000 < samples.size(); ++i) // without a step where buffers meet
        ASSERT_NEAR(samples[i], 0.5F, 1e-4F) << "sample " << i;
}

} // namespace
