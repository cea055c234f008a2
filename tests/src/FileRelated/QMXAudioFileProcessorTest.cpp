// SPDX-License-Identifier: MIT
#include "FileRelated/QMXAudioFileProcessor.h"

#include "support/FileWork.h"
#include "support/Gain.h"
#include "support/OpenDescriptors.h"
#include "support/TemporaryFolder.h"

#include <cerrno>

namespace
{

using namespace qmx::test;
using testing::Each;
using testing::ElementsAre;
using testing::FloatEq;

class QMXAudioFileProcessorTest : public FileWork
{
protected:
    std::shared_ptr<QMXAudioFileProcessor> processor(const std::shared_ptr<Gain>& gain)
    {
        return QMXAudioFileProcessor::initWithSourcePath_processFramesWith_progressSubscriber(path, gain, progress);
    }
    OSStatus copy(const std::shared_ptr<Gain>& gain, SInt64 start, SInt64 end)
    {
        return processor(gain)->copyFramesToPath_startFrame_endFrame(other, start, end);
    }
    std::shared_ptr<Progress> progress = std::make_shared<Progress>();
};

TEST_F(QMXAudioFileProcessorTest, UnchangedSamplesLeaveEveryByteAsItWas)
{
    for (const auto& [type, format] : {std::pair(kAudioFileAIFFType, linear(14, 16, 2)),
                                       {kAudioFileAIFFType, linear(14, 24, 1)},
                                       {kAudioFileAIFCType, linear(11, 32, 2)},
                                       {kAudioFileWAVEType, linear(12, 16, 5)},
                                       {kAudioFileAIFFType, linear(14, 24, 8)},
                                       {kAudioFileWAVEType, linear(12, 24, 2)}}) {
        SCOPED_TRACE(testing::Message() << format.mBitsPerChannel << " bits, " << format.mChannelsPerFrame);
        disk.remove(path);
        disk.remove(other);
        writeMusic(path, type, format, music(1337, format.mChannelsPerFrame));
        ByteBlock before = disk.contents(path);
        appendChunk(before, "note", {1, 2, 3});
        disk.setContents(path, before);
        EXPECT_EQ(processor(std::make_shared<Gain>(1.0F))->processFrames_endFrame(3, 1'000'000), noErr);
        EXPECT_EQ(disk.contents(path), before);
        if (type != kAudioFileWAVEType) {
            EXPECT_EQ(copy(std::make_shared<Gain>(1.0F), 0, 1337), noErr);
            EXPECT_EQ(audioAt(other), audioAt(path));
        }
    }
    EXPECT_TRUE(failures.lines().empty());
}

TEST_F(QMXAudioFileProcessorTest, ChangesTheRangeAlone)
{
    const auto samples = music(2000, 3);
    writeMusic(path, kAudioFileAIFCType, linear(11, 32, 3), samples);
    const auto gain = std::make_shared<Gain>(0.5F);
    EXPECT_EQ(processor(gain)->processFrames_endFrame(100, 1300), noErr);
    EXPECT_EQ(gain->passes, 3);
    EXPECT_EQ(gain->lastPass, 512U);
    EXPECT_THAT(progress->values, Each(FloatEq(1 - 512.0F / 1200)));
    auto expected = samples;
    for (std::size_t i = 300; i < 3900; ++i)
        if (i % 3 != 2) // the processor does not see the third channel
            expected[i] *= 0.5F;
    EXPECT_EQ(floatsAt(path, 3, 3000), expected);
    // a copy has all channels, and only the range
    EXPECT_EQ(copy(gain, 1500, 9000), noErr);
    auto rest = std::vector<float>(samples.begin() + 4500, samples.end());
    for (float& sample : rest)
        sample *= 0.5F;
    EXPECT_EQ(floatsAt(other, 3, 3000), rest);
}

TEST_F(QMXAudioFileProcessorTest, EndsAndFailuresAsTheyAreDescribed)
{
    writeMusic(path, kAudioFileAIFFType, bigSixteen, music(1000, 2));
    const ByteBlock before = disk.contents(path);
    const auto gain = std::make_shared<Gain>(0.0F);
    EXPECT_EQ(copy(gain, 10, 9), -1);
    EXPECT_TRUE(disk.contents(other).empty());
    EXPECT_EQ(copy(gain, 10, 10), noErr);
    EXPECT_TRUE(audioAt(other).empty());
    EXPECT_EQ(gain->passes, 0);
    EXPECT_TRUE(failures.lines().empty());
    // an existing file is not replaced
    EXPECT_EQ(processor(gain)->copyFramesToPath_startFrame_endFrame(path, 0, 1000), kAudio_ParamError);
    EXPECT_EQ(disk.contents(path), before);
    EXPECT_THAT(
        failures.lines().front(),
        testing::MatchesRegex("QMXAudioFileProcessor Error: -48 ->  coreaudio_aac/src/QMXAudioFileProcessor:  [0-9]+"));
    // more frames than the buffer holds are cut to it, fewer are written where they were read
    disk.remove(other);
    EXPECT_EQ(copy(std::make_shared<Gain>(1.0F, 100'000), 0, 1000), noErr);
    EXPECT_EQ(audioAt(other), audioAt(path));
    EXPECT_EQ(processor(std::make_shared<Gain>(0.0F, 2))->processFrames_endFrame(0, 1000), noErr);
    ByteBlock expected = before;
    for (const std::size_t frame : {0U, 512U})
        std::fill_n(expected.begin() + static_cast<long>(54 + 4 * frame), 8, std::uint8_t{0});
    EXPECT_EQ(disk.contents(path), expected);
    // a disk that fails ends it after the pass's report
    progress->values.clear();
    disk.failChange(1, EIO);
    auto failing = processor(gain);
    EXPECT_EQ(failing->processFrames_endFrame(0, 1000), noErr);
    EXPECT_EQ(progress->values.size(), 1U);
    expectFailure(*failing, ioErr, path + " could not be written: input/output error");
    EXPECT_EQ(failing->processFrames_endFrame(0, 1000), noErr);
    expectFailure(*failing, noErr, "");
    disk.failReads(EIO, 3000);
    EXPECT_EQ(failing->processFrames_endFrame(0, 1000), noErr);
    expectFailure(*failing, ioErr, path + " could not be read: input/output error");
    disk.clearFaults();
    disk.remove(other);
    disk.setCapacity(disk.contents(path).size() + 1000);
    EXPECT_EQ(failing->copyFramesToPath_startFrame_endFrame(other, 0, 1000), noErr);
    expectFailure(*failing, dskFulErr, other + " could not be written: the disk is full");
    // nor does the result show a missing file
    disk.clearFaults();
    disk.remove(path);
    failing = processor(gain);
    expectFailure(*failing, fnfErr, path + " could not be opened: no such file or folder");
}

TEST_F(QMXAudioFileProcessorTest, AFailingProcessorEndsTheRunBeforeItsBlockIsWritten)
{
    writeMusic(path, kAudioFileAIFFType, bigSixteen, music(2000, 2));
    const ByteBlock before = disk.contents(path);
    const auto failing = std::make_shared<Gain>(0.0F, 0, -7);
    const auto inPlace = processor(failing);
    EXPECT_EQ(inPlace->processFrames_endFrame(0, 2000), noErr);
    expectFailure(*inPlace, -7, path + " could not be processed: status -7");
    EXPECT_TRUE(disk.contents(path) == before);
    EXPECT_EQ(copy(failing, 0, 2000), noErr);
    EXPECT_TRUE(audioAt(other).empty());
    EXPECT_EQ(failing->passes, 2);
    EXPECT_EQ(progress->values.size(), 2U);
    EXPECT_EQ(failures.lines().size(), 2U);
}

TEST(QMXAudioFileProcessor, WhatIsThrownEndsTheRunAndLeavesNoFileOpen)
{
    struct Cancelled {
    };
    struct Cancelling : Progress {
        void progressUpdate(float progress) override
        {
            Progress::progressUpdate(progress);
            if (cancels && values.size() == 2)
                throw Cancelled();
        }
        bool cancels = false;
    };
    const TemporaryFolder folder;
    const std::string path = folder.path("a.aif"), other = folder.path("b.aif");
    writeMusic(path, kAudioFileAIFFType, bigSixteen, music(2000, 2));
    const std::size_t before = openDescriptors();
    for (const bool inProcessor : {true, false}) {
        const auto run = [&](auto process) {
            const auto gain = std::make_shared<Gain>(1.0F);
            const auto progress = std::make_shared<Cancelling>();
            progress->cancels = !inProcessor;
            gain->onPass = [&] { return inProcessor && gain->passes == 3 ? throw Cancelled() : void(); };
            const auto processor =
                QMXAudioFileProcessor::initWithSourcePath_processFramesWith_progressSubscriber(path, gain, progress);
            EXPECT_THROW((void)process(*processor), Cancelled);
        };
        run([](auto& processor) { return processor.processFrames_endFrame(0, 2000); });
        run([&](auto& processor) { return processor.copyFramesToPath_startFrame_endFrame(other, 0, 2000); });
        EXPECT_EQ(openDescriptors(), before);
        const auto copy = openFile(other);
        EXPECT_EQ(bytesIn(copy.file), 2 * 512 * 4U); // what was written before
        EXPECT_EQ(AudioFileClose(copy.file), noErr);
        std::filesystem::remove(other);
    }
}

TEST_F(QMXAudioFileProcessorTest, SwapsWords)
{
    std::array<Byte, 7> bytes{1, 2, 3, 4, 5, 6, 7};
    QMXAudioFileProcessor::swapBytes_wordLength_length(bytes.data(), 3, 7);
    EXPECT_THAT(bytes, ElementsAre(3, 2, 1, 6, 5, 4, 7));
    QMXAudioFileProcessor::swapBytes_wordLength_length(bytes.data(), 0, 7);
}

} // namespace
