// SPDX-License-Identifier: MIT
#include "FileRelated/QMXExtAudioFile.h"

#include "FileRelated/QMXAudioFileFrameIntervalCopier.h"
#include "Formats/QMXAudioStreamBasicDescription.h"
#include "Foundation/RealTime.h"
#include "support/FileWork.h"

#include <cerrno>

namespace
{

using namespace qmx::test;
using testing::MatchesRegex;

using QMXExtAudioFileTest = FileWork;

TEST_F(QMXExtAudioFileTest, AMonoClientFeedsBothChannelsOfAStereoFile)
{
    const auto client = floats(1), format = bigSixteen;
    const auto aiff =
        QMXExtAudioFile::initForWriting_fileType_clientFormat_fileFormat(path, kAudioFileAIFFType, &client, &format);
    EXPECT_FALSE(aiff->isOpen());
    ASSERT_EQ(aiff->open(), noErr);
    EXPECT_TRUE(aiff->isOpen());
    const auto samples = music(3000, 1);
    auto list = listOf(samples, 1);
    EXPECT_EQ(aiff->write_numberFrames(&list, 2000), noErr);
    list.mBuffers[0].mData = const_cast<float*>(samples.data()) + 2000;
    list.mBuffers[0].mDataByteSize = 4000;
    EXPECT_EQ(aiff->writeSynch_numberFrames(&list, 1000), noErr);
    EXPECT_EQ(aiff->offset(), 3000);
    EXPECT_EQ(aiff->close(), noErr);
    EXPECT_EQ(aiff->close(), noErr);
    const auto back = QMXExtAudioFile::initForReading(path);
    ASSERT_EQ(back->open(), noErr);
    EXPECT_EQ(back->fileType(), kAudioFileAIFFType);
    EXPECT_EQ(back->lengthInFrames(), 3000);
    const auto stereo = floats(2);
    EXPECT_EQ(back->setClientStreamFormat(stereo), noErr);
    const auto whole = readFloats(back->extAudioFileRef(), 2, 3000);
    for (std::size_t i = 0; i < 3000; ++i) {
        ASSERT_EQ(whole[2 * i], whole[2 * i + 1]);
        ASSERT_NEAR(whole[2 * i], samples[i], 1e-4);
    }
    EXPECT_TRUE(failures.lines().empty());
}

TEST_F(QMXExtAudioFileTest, StampsAndClientLengths)
{
    const auto format = linear(14, 16, 1, 22050);
    auto file = QMXExtAudioFile::initForWriting_fileType_fileFormat(path, kAudioFileAIFFType, &format);
    EXPECT_NE(file->open(), -1); // without a client format the step is printed and the file is open all the same
    EXPECT_EQ(failures.lines().size(), 1U);
    const std::vector<Byte> silence(2000);
    const auto list = listOf(silence.data(), silence.size(), 1);
    EXPECT_EQ(file->writeSynch_numberFrames(&list, 1000), noErr);
    EXPECT_EQ(file->lengthInFrames(), 0); // while writing
    EXPECT_EQ(file->close(), noErr);
    std::vector<UInt8> found;
    disk.attribute(path, "user.com.apple.FinderInfo", found);
    ASSERT_GE(found.size(), 8U);
    EXPECT_EQ(std::string(found.begin(), found.begin() + 8), "FFIAKaRt"); // the type is reversed
    file = QMXExtAudioFile::initForReading(path);
    ASSERT_EQ(file->open(), noErr);
    EXPECT_EQ(file->clientLengthInFrames(), 2000);
    EXPECT_EQ(file->seek(1001), kExtAudioFileError_InvalidSeek);
    EXPECT_EQ(file->seek(400), noErr);
    EXPECT_EQ(file->offset(), 400);
    EXPECT_EQ(file->bitRate(), 0U);
}

TEST_F(QMXExtAudioFileTest, FailingCallsPrintOneLineEachAndCreatingNeverReplaces)
{
    const auto missing = QMXExtAudioFile::initForReading("/d/none.aif");
    EXPECT_EQ(missing->open(), fnfErr);
    expectFailure(*missing, fnfErr, "/d/none.aif could not be opened: no such file or folder");
    EXPECT_EQ(missing->offset(), -1);
    ASSERT_EQ(failures.lines().size(), 2U);
    EXPECT_THAT(failures.lines()[0],
                MatchesRegex("QMXExtAudioFile Error: -43 ->  coreaudio_aac/src/FileRelated/QMXExtAudioFile:  [0-9]+"));
    disk.setContents(path, {1, 2, 3});
    const auto client = floats(2);
    const auto file = QMXExtAudioFile::initForWriting_fileType_clientFormat_fileFormat(path, kAudioFileAIFFType,
                                                                                       &client, &bigSixteen);
    EXPECT_EQ(file->open(), kAudio_ParamError); // the result of priming without a file
    expectFailure(*file, dupFNErr, path + " could not be made: it exists already");
    EXPECT_EQ(failures.lines().size(), 5U);
    EXPECT_EQ(disk.contents(path), (std::vector<std::uint8_t>{1, 2, 3}));
    // on a real-time thread the line waits until the next call elsewhere
    {
        const qmx::RealTimeScope realTime;
        EXPECT_EQ(file->write_numberFrames(nullptr, 0), kAudio_ParamError);
    }
    EXPECT_EQ(failures.lines().size(), 5U);
    EXPECT_EQ(file->lastStatus(), dupFNErr); // there only the result reports it
    EXPECT_EQ(file->close(), noErr);
    EXPECT_EQ(failures.lines().size(), 6U);
    expectFailure(*file, noErr, "");
}

TEST_F(QMXExtAudioFileTest, TellsTheClientFormatThatHolds)
{
    writeMusic(path, kAudioFileAIFFType, bigSixteen, music(100, 2));
    auto file = QMXExtAudioFile::initForReading_clientFormat(path, nullptr);
    ASSERT_EQ(file->open(), noErr);
    EXPECT_EQ(file->clientBitsPerChannel(), 16U); // that of the file
    EXPECT_EQ(file->clientLengthInFrames(), 100);
    const auto wave = companded(kAudioFormatULaw, 2);
    writeMusic(other, kAudioFileWAVEType, wave, music(100, 2));
    file = QMXExtAudioFile::initForReading_clientFormat(other, nullptr);
    ASSERT_EQ(file->open(), noErr);
    EXPECT_EQ(file->clientStreamFormat()->mFormatID, 0U); // there is none
    std::vector<float> room(20);
    auto list = listOf(room, 2);
    UInt32 count = 10;
    EXPECT_EQ(file->read_numberFrames(&list, &count), kExtAudioFileError_InvalidOperationOrder);
    EXPECT_EQ(count, 0U);
    EXPECT_EQ(file->close(), noErr);
}

TEST_F(QMXExtAudioFileTest, AFailedOpenKeepsNoFile)
{
    const auto coding = companded(kAudioFormatULaw, 2);
    const auto file = QMXExtAudioFile::initForWriting_fileType_fileFormat(path, kAudioFileWAVEType, &coding);
    EXPECT_EQ(file->open(), kExtAudioFileError_InvalidOperationOrder); // nothing to convert from
    EXPECT_EQ(file->extAudioFileRef(), nullptr);
    EXPECT_FALSE(file->isOpen());
    EXPECT_EQ(disk.remove(path), 0);
    EXPECT_EQ(file->open(), kExtAudioFileError_InvalidOperationOrder);
}

TEST_F(QMXExtAudioFileTest, CopiesEveryNthFrameAsBigEndianFloats)
{
    using Copier = QMXAudioFileFrameIntervalCopier;
    const auto samples = music(3000, 2);
    writeMusic(path, kAudioFileAIFFType, bigSixteen, samples);
    const auto file = QMXAudioFile::initWithPath_accessMode(path, QMXAudioFileAccessMode::read);
    ASSERT_TRUE(file->open());
    const auto copy = [&](QMXProgressSubscriber* subscriber, UInt32 interval, void* buffer, SInt64 from, SInt64 to) {
        return Copier::copyFramesWithInterval_fromFile_interval_toBuffer_fromFrame_toFrame(subscriber, *file, interval,
                                                                                           buffer, from, to);
    };
    EXPECT_EQ(copy(nullptr, 10, nullptr, 0, 1000), 100U);
    EXPECT_EQ(copy(nullptr, 1000, nullptr, 0, 5000), 3U);
    EXPECT_EQ(copy(nullptr, 0, nullptr, 0, 1000), 0U);
    EXPECT_EQ(copy(nullptr, 10, nullptr, 1000, 1000), 0U);
    Progress progress;
    std::vector<Byte> floatsOut(101 * 8, 0x55);
    EXPECT_EQ(copy(&progress, 10, floatsOut.data(), 5, 1000), 1000U); // 5 to 995 in 100 steps; 99 of them are converted
    ASSERT_EQ(progress.values.size(), 100U);
    EXPECT_FLOAT_EQ(progress.values.back(), 400.0F / 99);
    for (std::size_t i = 0; i < 99; ++i)
        for (std::size_t channel = 0; channel < 2; ++channel) {
            std::array<Byte, 4> bytes{};
            std::reverse_copy(&floatsOut[8 * i + 4 * channel], &floatsOut[8 * i + 4 * channel + 4], bytes.begin());
            ASSERT_NEAR(std::bit_cast<float>(bytes), samples[2 * (5 + 10 * i) + channel], 1e-4) << i;
        }
    EXPECT_EQ(floatsOut[99 * 8], 0x55); // nothing is written past the count
    EXPECT_EQ(Copier::lastStatus(), noErr);
    // a copy that a read error cuts short has silence from there on
    disk.failReads(EIO, 54 + 4 * 100);
    std::ranges::fill(floatsOut, Byte{0x55});
    EXPECT_EQ(copy(nullptr, 10, floatsOut.data(), 5, 1000), 100U);
    EXPECT_EQ(Copier::lastStatus(), ioErr);
    EXPECT_EQ(Copier::lastError(), path + " could not be copied: input/output error");
    EXPECT_TRUE(std::all_of(floatsOut.begin() + 80, floatsOut.begin() + 99 * 8, [](Byte b) { return b == 0; }));
}

} // namespace
