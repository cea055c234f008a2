// SPDX-License-Identifier: MIT
#include "Recording/QMXAudioRecorder.h"

#include "AudioToolbox/AudioConverter.h"
#include "Devices/QMXVUMeterDataProvider.h"
#include "FileRelated/QMXAudioFile.h"
#include "Formats/QMXAudioStreamBasicDescription.h"
#include "Foundation/RealTime.h"
#include "support/CapturedLog.h"
#include "support/PlayAndRecord.h"
#include "support/RecordedSamples.h"
#include "support/VirtualDevices.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <cmath>

namespace
{

using testing::ElementsAre;
using Reason = QMXAudioRecordingLoss::Reason;

constexpr UInt32 cycle = 441; // frames: buffers are switched within cycles

/// The n-th sample of a count that repeats after 65536, exact in every format.
Float32 counted(UInt64 n)
{
    return static_cast<Float32>(static_cast<SInt16>(n)) / 32768;
}

/// A recorder on a device whose input counts its samples, and a disk in memory.
class Recorder : public qmx::test::PlayAndRecord
{
protected:
    void make(UInt32 channelCount, UInt32 bits = 16, bool isFloat = false)
    {
        channels = channelCount;
        auto description = qmx::VirtualHardware::standardDevice("input", "Input", channels, 0);
        description.bufferFrameSize = cycle;
        id = hardware.addDevice(description);
        EXPECT_EQ(noErr,
                  hardware.setInput(id, [n = UInt64{0}](Float32* samples, UInt32 frames, UInt32 count, SInt64) mutable {
                      for (UInt32 i = 0; i < frames * count; ++i)
                          samples[i] = counted(n++);
                  }));
        recorder = QMXAudioRecorder::initWithAudioDevice_filePath(QMXAudioDevice::deviceWithDeviceID(id), path);
        setFileFormat(qmx::packedPhysicalFormat(44100, channels, bits, isFloat));
    }
    void setFileFormat(const AudioStreamBasicDescription& record)
    {
        recorder->setFileStreamFormat(QMXAudioStreamBasicDescription(record));
    }
    /// Frames in one raw buffer.
    UInt32 bufferFrames() const { return 393216 / (4 * channels); }

    /// A file object, to give to the recorder or to create a file before it.
    static std::shared_ptr<QMXAudioFile> fileOf(const AudioStreamBasicDescription& format, AudioFileTypeID type)
    {
        auto file = QMXAudioFile::initWithPath_accessMode(path, QMXAudioFileAccessMode::readWrite);
        EXPECT_TRUE(file->setFileStreamFormat(QMXAudioStreamBasicDescription(format)));
        file->setFileType(type);
        return file;
    }
    static AudioStreamBasicDescription bigEndian(UInt32 channelCount, UInt32 bits)
    {
        auto format = qmx::packedPhysicalFormat(44100, channelCount, bits);
        format.mFormatFlags |= kAudioFormatFlagIsBigEndian;
        return format;
    }
    /// Records a buffer and a cycle, in two pieces.
    void take()
    {
        recorder->setWritesPartialBufferAtStop(true);
        ASSERT_TRUE(recorder->record());
        EXPECT_TRUE(hardware.advanceCycles(id, 10));
        EXPECT_TRUE(recorder->pause());
        setFileFormat(qmx::packedPhysicalFormat(44100, channels, 8));
        EXPECT_TRUE(recorder->record());
        EXPECT_TRUE(hardware.advanceCycles(id, bufferFrames() / cycle - 9));
        EXPECT_TRUE(recorder->stop());
    }

    /// Passes the recorder `frames` counted frames as one cycle of the device, at a sample time if one is given.
    void feed(UInt32 frames, std::optional<Float64> sampleTime = {})
    {
        AudioTimeStamp time;
        time.mSampleTime = sampleTime.value_or(0);
        time.mFlags = sampleTime ? kAudioTimeStampSampleTimeValid : 0;
        std::vector<Float32> samples(std::size_t{frames} * channels);
        for (Float32& sample : samples)
            sample = counted(fed_++);
        const AudioBufferList list{1,
                                   {{channels, static_cast<UInt32>(samples.size() * sizeof(Float32)), samples.data()}}};
        const qmx::RealTimeScope realTime;
        auto& device = *recorder->inputDevice();
        recorder->audioIOHandler_inNow_inInputData_inInputTime_outOutputData_inOutputTime_inClientData(
            device, nullptr, &list, &time, nullptr, nullptr, device);
    }
    /// The same, and waits until what is full is saved.
    void save(UInt32 frames)
    {
        feed(frames);
        hardware.settle();
    }
    /// Fills a buffer whose write waits in the disk.
    void stall()
    {
        disk.setStalled(true);
        feed(bufferFrames(), 0);
        disk.waitForStalledWrite();
    }
    void changeRate()
    {
        EXPECT_EQ(noErr, hardware.change(id, [](auto& d) { d.nominalSampleRate = 48000; }));
    }
    /// Expects these ranges of the count's frames in the file, one after the other, and nothing else.
    void expectInFile(const std::vector<std::pair<UInt64, UInt64>>& ranges) const
    {
        const auto samples = qmx::test::recordedSamples(path);
        std::size_t at = 0;
        for (const auto& [first, end] : ranges)
            for (UInt64 n = first * channels; n < end * channels; ++n, ++at) {
                ASSERT_LT(at, samples.size());
                ASSERT_EQ(samples[at], counted(n)) << "sample " << at;
            }
        EXPECT_EQ(samples.size(), at);
    }
    /// Reason, frame, frames, frame in the file.
    using Loss = std::tuple<Reason, UInt64, UInt64, UInt64>;
    std::vector<Loss> losses() const
    {
        std::vector<Loss> all;
        for (const auto& loss : recorder->lostFramePositions())
            all.emplace_back(loss.reason, loss.frame, loss.frames, loss.fileFrame);
        return all;
    }
    std::vector<std::string> news()
    {
        posted();
        return std::exchange(news_, {});
    }

    static constexpr const char* path = "/d/take.aif";
    qmx::test::CapturedLog log;
    AudioDeviceID id = 0;
    UInt32 channels = 2;
    std::shared_ptr<QMXAudioRecorder> recorder;

private:
    std::vector<std::string> news_;
    UInt64 fed_ = 0;
    std::shared_ptr<qmx::Object> observer_ =
        qmx::NotificationCenter::defaultCenter().observe("", nullptr, [this](const qmx::Notification& n) {
            if (n.sender == recorder && n.name.starts_with("QMXAudioRecorder"))
                news_.push_back(n.name.substr(16, n.name.find_first_of("RN", 16) - 16));
        });
};

/// Channels, bits (32: floats), and whether the rest is written at the stop.
using Case = std::tuple<UInt32, UInt32, bool>;

class RecorderFormats : public Recorder, public testing::WithParamInterface<Case>
{
};

TEST_P(RecorderFormats, KeepEverySampleAcrossBuffersAndPauses)
{
    const auto [channelCount, bits, writesRest] = GetParam();
    make(channelCount, bits, bits == 32);
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
    expectInFile({{0, writesRest ? frames : whole}});
    EXPECT_EQ(recorder->droppedFrames(), writesRest ? 0 : frames - whole);
    EXPECT_EQ(losses().size(), writesRest ? 0U : 1U);
}

INSTANTIATE_TEST_SUITE_P(All, RecorderFormats,
                         testing::Combine(testing::Range(1U, 9U), testing::Values(16U, 24U, 32U), testing::Bool()));

TEST_F(Recorder, GoesThroughItsStatesAndTellsOfThem)
{
    make(2);
    EXPECT_FALSE(recorder->pause() || recorder->stop() || recorder->flush());
    recorder->setNotificationInterval(10);
    EXPECT_TRUE(recorder->record());
    EXPECT_FALSE(recorder->record());
    EXPECT_TRUE(recorder->isRecording());
    for (int i = 0; i < 21; ++i) {
        EXPECT_TRUE(hardware.advanceCycles(id));
        const auto came = news();
        EXPECT_EQ(std::ranges::count(came, ""), i % 10 == 0 ? 1 : 0) << "cycle " << i;
    }
    EXPECT_FALSE(recorder->recordForDuration(NAN));
    EXPECT_EQ(recorder->lastStatus(), kAudio_ParamError);
    EXPECT_TRUE(recorder->recordForDuration(0));
    recorder->setEventMask(2);
    EXPECT_THAT(news(), ElementsAre("Stopped"));
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
    EXPECT_TRUE(recorder->record());
    EXPECT_TRUE(recorder->audioFile()->isOpen());
    EXPECT_EQ(recorder->audioFilePath(), "/d/audiotemp.aif");
    EXPECT_EQ(recorder->formatFlags(), 11U);
    EXPECT_TRUE(recorder->stop());
    QMXAudioRecorder::setTemporaryDirectory("/tmp/");
    EXPECT_FALSE(QMXAudioRecorder::initWithAudioDevice(nullptr));
    EXPECT_FALSE(QMXAudioRecorder::initWithAudioDevice_filePath(recorder->inputDevice(), std::nullopt));
}

TEST_F(Recorder, ADiskThatStallsCostsTheBuffersThatAreOvertakenAndALossInsideThemIsWhereTheyAreInTheFile)
{
    make(2);
    const UInt32 full = bufferFrames();
    EXPECT_TRUE(recorder->record());
    stall();
    feed(100, full);
    feed(full, full + 150);
    feed(full - 100, 2 * full + 150);
    feed(70, 3 * full + 50);
    disk.setStalled(false);
    EXPECT_TRUE(recorder->stop());
    expectInFile({{0, full}, {2 * full, 3 * full}});
    EXPECT_EQ(recorder->overruns(), 1U);
    EXPECT_EQ(recorder->droppedFrames(), full + 50 + 70);
    EXPECT_THAT(losses(),
                ElementsAre(Loss(Reason::overrun, full, full, full), Loss(Reason::timeGap, full + 100, 50, full),
                            Loss(Reason::partialBuffer, 3 * full, 70, 2 * full)));
}

TEST_F(Recorder, SpareBuffersWaitForADiskThatStalls)
{
    make(2);
    EXPECT_FALSE(recorder->setSpareRawBuffers(1025));
    EXPECT_EQ(recorder->lastError(), "the recorder cannot have so many buffers");
    EXPECT_TRUE(recorder->setSpareRawBuffers(3));
    recorder->setWritesPartialBufferAtStop(true);
    EXPECT_TRUE(recorder->record());
    stall();
    feed(4 * bufferFrames() + 70);
    disk.setStalled(false);
    EXPECT_TRUE(recorder->stop());
    EXPECT_THAT(losses(), ElementsAre());
    expectInFile({{0, 5 * bufferFrames() + 70}});
}

TEST_F(Recorder, AFullDiskCostsWhatDoesNotFitAndAFailingWriteItsBuffer)
{
    make(2, 24);
    const UInt32 full = bufferFrames(), fitting = 100;
    recorder->setWritesPartialBufferAtStop(true);
    EXPECT_TRUE(recorder->record());
    save(full);
    disk.setCapacity(disk.contents(path).size() + std::size_t{6} * fitting + 5);
    save(full);
    save(full);
    EXPECT_EQ(recorder->lastError(), "/d/take.aif could not be written: the disk is full");
    EXPECT_EQ(recorder->droppedFrames(), 2 * full - fitting);
    disk.setCapacity(SIZE_MAX);
    save(full);
    disk.failChange(1, EIO);
    save(full);
    EXPECT_EQ(recorder->lastStatus(), ioErr);
    feed(7);
    EXPECT_TRUE(recorder->stop());
    EXPECT_EQ(std::ranges::count(news(), "Failed"), 1);
    expectInFile({{0, full + fitting}, {3 * full, 4 * full}, {5 * full, 5 * full + 7}});
    EXPECT_THAT(losses(), ElementsAre(Loss(Reason::write, full + fitting, full - fitting, full + fitting),
                                      Loss(Reason::write, 2 * full, full, full + fitting),
                                      Loss(Reason::write, 4 * full, full, 2 * full + fitting)));
}

TEST_F(Recorder, AKillLeavesAFileWithAllThatWasWrittenBeforeTheLastBuffer)
{
    make(2);
    EXPECT_TRUE(recorder->record());
    const auto atStart = disk.changesMade();
    save(bufferFrames());
    const auto changesOfABuffer = disk.changesMade() - atStart;
    ASSERT_GT(changesOfABuffer, 0U);
    for (std::size_t n = 1; n <= changesOfABuffer; ++n) {
        SCOPED_TRACE(n);
        hardware.reset();
        disk.clearFaults();
        disk.remove(path);
        make(2);
        EXPECT_TRUE(recorder->record());
        EXPECT_TRUE(hardware.advanceCycles(id, 2 * bufferFrames() / cycle + 1));
        disk.killAtChange(n, 777);
        EXPECT_TRUE(hardware.advanceCycles(id, 2 * bufferFrames() / cycle + 1));
        const UInt64 frames = qmx::test::recordedSamples(path).size() / 2;
        EXPECT_GE(frames, 2 * bufferFrames());
        expectInFile({{0, frames}});
        EXPECT_TRUE(recorder->stop());
    }
}

TEST_F(Recorder, LossOfTheDeviceGapsAndChangesOfItsRateAreNotedAndLeaveAWholeFile)
{
    make(2);
    recorder->setWritesPartialBufferAtStop(true);
    EXPECT_TRUE(recorder->record());
    EXPECT_TRUE(hardware.advanceCycles(id, 10));
    EXPECT_EQ(noErr, hardware.jumpSampleTime(id, 1000));
    EXPECT_TRUE(hardware.advanceCycles(id, 10));
    changeRate();
    news();
    EXPECT_TRUE(hardware.advanceCycles(id, 10));
    EXPECT_EQ(noErr, hardware.removeDevice(id));
    news();
    EXPECT_TRUE(recorder->stop());
    expectInFile({{0, 30 * cycle}});
    EXPECT_THAT(losses(), ElementsAre(Loss(Reason::timeGap, 10 * cycle, 1000, 10 * cycle),
                                      Loss(Reason::rateChange, 20 * cycle, 0, 20 * cycle)));
}

TEST_F(Recorder, AFormatThatTheDeviceChangedBeforeIsNotedOrRefusedUnlessTheRecorderWasTold)
{
    make(2);
    changeRate();
    EXPECT_TRUE(recorder->record());
    EXPECT_THAT(losses(), ElementsAre(Loss(Reason::rateChange, 0, 0, 0)));
    EXPECT_TRUE(recorder->stop());
    make(2);
    EXPECT_EQ(noErr, hardware.change(id, [](qmx::DeviceDescription& device) {
        device.input = qmx::VirtualHardware::standardDevice("", "", 1, 0).input;
    }));
    EXPECT_FALSE(recorder->record());
    EXPECT_EQ(recorder->lastStatus(), kAudioDeviceUnsupportedFormatError);
    recorder->setInputDevice(recorder->inputDevice());
    EXPECT_TRUE(recorder->record());
}

TEST_F(Recorder, AnotherRateInTheFileLosesNothingBetweenBuffers)
{
    make(2);
    EXPECT_EQ(noErr, hardware.setInput(id, [](Float32* samples, UInt32 frames, UInt32 count, SInt64) {
        std::fill_n(samples, frames * count, 0.5F);
    }));
    setFileFormat(qmx::packedPhysicalFormat(48000, 2, 32, true));
    recorder->setWritesPartialBufferAtStop(true);
    EXPECT_TRUE(recorder->record());
    EXPECT_TRUE(hardware.advanceCycles(id, 400)); // four seconds, three and a half buffers
    EXPECT_TRUE(recorder->stop());
    const auto samples = qmx::test::recordedSamples(path);
    EXPECT_NEAR(static_cast<double>(samples.size()), 2 * 4 * 48000, 4);
    for (std::size_t i = 4000; i + 4000 < samples.size(); ++i) // without a step where buffers meet
        ASSERT_NEAR(samples[i], 0.5F, 1e-4F) << "sample " << i;
}

TEST_F(Recorder, ConvertsToTheFormatOfTheFileThatIsOpen)
{
    for (const auto& [format, type] : {std::pair(bigEndian(2, 24), kAudioFileAIFFType),
                                       {qmx::packedPhysicalFormat(44100, 2, 16), kAudioFileWAVEType},
                                       {qmx::packedPhysicalFormat(44100, 2, 32, true), kAudioFileCAFType}}) {
        EXPECT_TRUE(fileOf(format, type)->open());
        make(2);
        take();
        EXPECT_EQ(recorder->bitsPerChannel(), format.mBitsPerChannel);
        EXPECT_EQ(recorder->audioFile()->fileType(), type);
        const UInt64 frames = recorder->lengthInFrames();
        expectInFile({{0, frames}});
        make(2);
        recorder->setWritesPartialBufferAtStop(true);
        EXPECT_TRUE(recorder->record());
        EXPECT_TRUE(hardware.advanceCycles(id));
        EXPECT_TRUE(recorder->stop());
        expectInFile({{0, frames}}); // the rest stays
        disk.remove(path);
    }
}

TEST_F(Recorder, AFormatThatIsSetLaterDoesNotReachAFileThatWasGivenAndWAVEIsLittleEndianUnlessItWasOpened)
{
    for (const auto& [type, wasOpen, fourth] : {std::tuple(kAudioFileAIFFType, false, 'M'),
                                                {kAudioFileWAVEType, false, 'F'},
                                                {kAudioFileWAVEType, true, 'X'}}) {
        make(2);
        const auto file = fileOf(bigEndian(2, 16), type);
        recorder = QMXAudioRecorder::initWithAudioDevice_audioFile(recorder->inputDevice(), file);
        file->setFileType(type);
        if (wasOpen) {
            EXPECT_TRUE(file->open());
        }
        setFileFormat(qmx::packedPhysicalFormat(44100, 2, 24));
        take();
        EXPECT_EQ(disk.contents(path)[3], fourth);
        expectInFile({{0, recorder->lengthInFrames()}});
        disk.remove(path);
    }

    const auto stereo = recorder->inputDevice();
    make(1);
    const auto mono = recorder->inputDevice();
    recorder = QMXAudioRecorder::initWithAudioDevice_audioFile(stereo, fileOf(bigEndian(2, 16), kAudioFileAIFFType));
    recorder->setInputDevice(mono);
    take();
    const auto samples = qmx::test::recordedSamples(path);
    ASSERT_EQ(samples.size(), std::size_t{2} * recorder->lengthInFrames());
    for (std::size_t i = 0; i < samples.size(); ++i)
        ASSERT_EQ(samples[i], counted(i / 2)) << "sample " << i;
}

TEST_F(Recorder, RefusesAFileThatCannotTakeItsBytes)
{
    make(2);
    AudioStreamBasicDescription slow = bigEndian(2, 16);
    slow.mSampleRate = 5; // Hz: too far from the device's rate to be converted
    const auto file = fileOf(slow, kAudioFileAIFFType);
    recorder = QMXAudioRecorder::initWithAudioDevice_audioFile(recorder->inputDevice(), file);
    EXPECT_TRUE(file->setFileStreamFormat(QMXAudioStreamBasicDescription(slow)));
    EXPECT_FALSE(recorder->record());
    EXPECT_FALSE(recorder->isRecording() || file->isOpen() || recorder->inputDevice()->isRunning());
    EXPECT_EQ(file->lengthInBytes(), 0U);
    EXPECT_EQ(recorder->lastStatus(), kAudioFileUnsupportedDataFormatError);
    EXPECT_THAT(recorder->lastError(), testing::HasSubstr(path));
    EXPECT_TRUE(file->setFileStreamFormat(QMXAudioStreamBasicDescription(bigEndian(2, 16))));
    disk.remove(path);
    EXPECT_TRUE(recorder->record());
    EXPECT_EQ(recorder->lastStatus(), noErr);
}

TEST_F(Recorder, WhatCannotBeConvertedIsLostInsteadOfWrittenAsItIs)
{
    make(2);
    recorder->setEventMask(2);
    EXPECT_TRUE(recorder->record());
    save(bufferFrames());
    auto unknown = *recorder->inputDeviceStreamFormat()->audioStreamBasicDescription();
    unknown.mFormatID = 0;
    recorder->setDeviceStreamFormat(QMXAudioStreamBasicDescription::initWithAudioStreamBasicDescription(&unknown));
    feed(bufferFrames());
    EXPECT_TRUE(recorder->stop());
    expectInFile({{0, bufferFrames()}});
    EXPECT_THAT(losses(), ElementsAre(Loss(Reason::conversion, bufferFrames(), bufferFrames(), bufferFrames())));
    EXPECT_EQ(recorder->lastStatus(), kAudioConverterErr_FormatNotSupported);
    EXPECT_THAT(news(), ElementsAre("Failed", "Stopped"));
}

TEST_F(Recorder, ATargetThatCannotBeMadeIsToldOnce)
{
    make(2);
    recorder->setAudioFilePath("/no/take.aif");
    recorder->setEventMask(0);
    EXPECT_TRUE(recorder->record());
    EXPECT_TRUE(recorder->isRecording());
    EXPECT_EQ(recorder->lastStatus(), dirNFErr);
    EXPECT_EQ(recorder->lastError(), "/no/take.aif could not be opened or made: no such file or folder");
    feed(2 * bufferFrames());
    EXPECT_THAT(news(), ElementsAre("Failed"));
    EXPECT_TRUE(recorder->stop());
    EXPECT_EQ(recorder->droppedFrames(), 2 * bufferFrames());
}

TEST_F(Recorder, ADeviceThatDoesNotStartOrIsGoneIsToldOnceAndLetsTheRecorderGo)
{
    for (const bool starts : {false, true})
        for (const bool hasOwner : {false, true}) {
            SCOPED_TRACE(testing::Message() << "starts " << starts << ", has an owner " << hasOwner);
            make(2);
            recorder->setEventMask(0);
            recorder->setWritesPartialBufferAtStop(true);
            if (!starts)
                hardware.addFault(qmx::test::failing(qmx::HardwareOperation::start));
            EXPECT_TRUE(recorder->record());
            EXPECT_EQ(recorder->lastStatus(), starts ? noErr : kAudioHardwareUnspecifiedError);
            EXPECT_EQ(recorder->lastError(), starts ? "" : "Input could not be started: Hardware unspecified error");
            hardware.removeFaults();
            EXPECT_EQ(hardware.advanceCycles(id, 3), starts);
            const std::weak_ptr kept = recorder;
            if (!hasOwner)
                recorder.reset();
            EXPECT_EQ(noErr, hardware.removeDevice(id));
            EXPECT_EQ(news(), std::vector<std::string>(hasOwner ? 1 : 0, "Failed"));
            if (hasOwner) {
                EXPECT_TRUE(recorder->isRecording());
                EXPECT_EQ(recorder->lastStatus(), kAudioHardwareBadDeviceError);
                EXPECT_EQ(recorder->lastError(), "Input is gone: Hardware bad device error");
                recorder.reset();
            }
            EXPECT_TRUE(kept.expired());
            expectInFile({{0, starts ? 3 * cycle : 0}});
            disk.remove(path);
        }
}

TEST_F(Recorder, CountsWhatTheRateConversionHoldsAtTheStop)
{
    for (const bool changesRate : {false, true})
        for (const bool isDiskFull : {false, true}) {
            make(2);
            setFileFormat(qmx::packedPhysicalFormat(48000, 2, 32, true));
            recorder->setWritesPartialBufferAtStop(isDiskFull);
            EXPECT_TRUE(recorder->record());
            save(bufferFrames());
            if (changesRate)
                changeRate();
            news();
            if (isDiskFull)
                disk.setCapacity(disk.contents(path).size());
            EXPECT_TRUE(recorder->stop());
            disk.clearFaults();
            const auto inFile = static_cast<double>(qmx::test::recordedSamples(path).size()) / 2;
            const auto lost = static_cast<double>(recorder->droppedFrames());
            EXPECT_GT(lost, 0);
            EXPECT_NEAR(lost + inFile * 44100 / 48000, bufferFrames(), 1);
            ASSERT_EQ(losses().size(), changesRate ? 2U : 1U);
            const auto loss = recorder->lostFramePositions().front();
            EXPECT_EQ(loss.reason, isDiskFull ? Reason::write : Reason::partialBuffer);
            EXPECT_NEAR(static_cast<double>(loss.fileFrame), inFile, 1);
            EXPECT_EQ(recorder->lastStatus(), isDiskFull ? dskFulErr : noErr);
            disk.remove(path);
        }
}

TEST_F(Recorder, ARateThatTheRecorderIsToldOfKeepsWhatTheConversionHeld)
{
    make(2);
    setFileFormat(qmx::packedPhysicalFormat(48000, 2, 32, true));
    EXPECT_TRUE(recorder->record());
    save(bufferFrames());
    changeRate();
    recorder->setDeviceStreamFormat(recorder->inputDevice()->actualStreamFormat_isInput(0, true));
    feed(bufferFrames());
    EXPECT_TRUE(recorder->stop());
    EXPECT_NEAR(static_cast<double>(qmx::test::recordedSamples(path).size()) / 2,
                bufferFrames() * (1 + 48000.0 / 44100), 1);
    EXPECT_EQ(recorder->droppedFrames(), 0U);
}

TEST_F(Recorder, SharesADeviceWithAMeterWhoseStartTheStopAfterAPauseTakes)
{
    make(1);
    const auto device = recorder->inputDevice();
    EXPECT_EQ(recorder->leftChannel(), 1U);
    EXPECT_EQ(recorder->rightChannel(), 0xFFFFFFFFU);
    device->inputVUMeterDataProvider()->start();
    EXPECT_TRUE(recorder->record());
    EXPECT_TRUE(hardware.advanceCycles(id, 3));
    const auto levels = device->inputVUMeterDataProvider();
    EXPECT_TRUE(recorder->pause());
    EXPECT_TRUE(device->isRunning());
    EXPECT_TRUE(recorder->stop());
    EXPECT_FALSE(device->isRunning());
    levels->stop();
}

} // namespace
