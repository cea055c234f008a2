// SPDX-License-Identifier: MIT
#include "FileRelated/QMXAudioFileConverter.h"

#include "Formats/QMXAudioStreamBasicDescription.h"
#include "platform/AudioToolbox/CodedFiles.h"
#include "support/FileWork.h"

#include <algorithm>
#include <cerrno>
#include <stdexcept>

namespace
{

using namespace qmx::test;
using testing::ElementsAre;
using testing::FloatNear;

class QMXAudioFileConverterTest : public FileWork
{
protected:
    /// Converts the file at `source` to the one at `other`, which is replaced.
    OSStatus convert(AudioFileTypeID type, const AudioStreamBasicDescription& format, const std::string& source)
    {
        disk.remove(other);
        return QMXAudioFileConverter::initWithInputFilePath(source)->convertFileToPath_toFileType_toFormat_subscriber(
            other, type, QMXAudioStreamBasicDescription::initWithAudioStreamBasicDescription(&format), nullptr);
    }
    AudioStreamBasicDescription formatOfOther()
    {
        return propertyAt<AudioStreamBasicDescription>(other, kAudioFilePropertyDataFormat);
    }
};

TEST_F(QMXAudioFileConverterTest, ConvertsWholeFilesInPassesOf1024Frames)
{
    const auto samples = music(2500, 1);
    writeMusic(path, kAudioFileAIFFType, linear(14, 24, 1, 48000), samples);
    const auto converter = QMXAudioFileConverter::initWithInputFilePath(path);
    Progress progress;
    EXPECT_EQ(converter->convertFileToPath_toFileType_subscriber(other, kAudioFileAIFFType, &progress), noErr);
    EXPECT_THAT(progress.values, ElementsAre(0, FloatNear(0.4096F, 1e-6F), FloatNear(0.8192F, 1e-6F)));
    EXPECT_EQ(audioAt(other).size(), 5000U);
    EXPECT_EQ(formatOfOther().mSampleRate, 48000);
    EXPECT_EQ(formatOfOther().mChannelsPerFrame, 1U);

    // the same format keeps the samples, another rate changes the length
    const std::string between = "/d/c.wav";
    EXPECT_EQ(convert(kAudioFileWAVEType, linear(12, 24, 1, 48000), path), noErr);
    disk.rename(other, between);
    EXPECT_EQ(convert(kAudioFileAIFFType, linear(14, 24, 1, 48000), between), noErr);
    EXPECT_EQ(disk.contents(other), disk.contents(path));
    const auto wave = linear(12, 24, 1, 44100);
    EXPECT_EQ(convert(kAudioFileWAVEType, wave, path), noErr);
    const ExtAudioFileRef resampled = openExtended(other);
    EXPECT_EQ(lengthOf(resampled), 2297);
    EXPECT_EQ(ExtAudioFileDispose(resampled), noErr);

    // a full disk is the status; so is a missing source, and nothing is created
    disk.remove(other);
    disk.setCapacity(18'500);
    EXPECT_EQ(converter->convertFileToPath_toFileType_toFormat_subscriber(
                  other, kAudioFileWAVEType, std::make_shared<QMXAudioStreamBasicDescription>(wave), nullptr),
              dskFulErr);
    expectFailure(*converter, dskFulErr, other + " could not be written: the disk is full");
    const auto none = QMXAudioFileConverter::initWithInputFilePath("/d/none");
    EXPECT_EQ(none->convertFileToPath_toFileType_subscriber("/d/e.aif", kAudioFileAIFFType, nullptr), fnfErr);
    expectFailure(*none, fnfErr, "/d/none could not be opened: no such file or folder");
    EXPECT_TRUE(disk.contents("/d/e.aif").empty());
}

TEST_F(QMXAudioFileConverterTest, WhatEndsAChangeOfTheRateMidwayLeavesAFileOfWhatWasWritten)
{
    writeMusic(path, kAudioFileAIFFType, bigSixteen, music(200'000, 2));
    ASSERT_EQ(convert(kAudioFileAIFFType, linear(14, 24, 2, 48000), path), noErr);
    const ByteBlock together = audioAt(other);
    const auto converter = QMXAudioFileConverter::initWithInputFilePath(path);
    const auto convertWith = [&](QMXProgressSubscriber* subscriber) {
        disk.remove(other);
        return converter->convertFileToPath_toFileType_toFormat_subscriber(
            other, kAudioFileAIFFType, std::make_shared<QMXAudioStreamBasicDescription>(linear(14, 24, 2, 48000)),
            subscriber);
    };
    struct Stopped : QMXProgressSubscriber {
        void progressUpdate(float progress) override
        {
            if (progress > 0.8F)
                throw std::runtime_error("stopped");
        }
    } stopped;
    EXPECT_THROW((void)convertWith(&stopped), std::runtime_error);
    const ByteBlock begun = audioAt(other);
    ASSERT_TRUE(!begun.empty() && begun.size() < together.size());
    const auto inFront = static_cast<std::ptrdiff_t>(begun.size() - 100'000); // the filter's end is another one
    EXPECT_TRUE(std::equal(begun.begin(), begun.begin() + inFront, together.begin()));
    disk.setCapacity(disk.contents(path).size() + 600'000);
    EXPECT_EQ(convertWith(nullptr), dskFulErr);
    expectFailure(*converter, dskFulErr, other + " could not be written: the disk is full");
}

TEST_F(QMXAudioFileConverterTest, AnEmptyOrUnreadableSourceEndsTheConversion)
{
    writeMusic(path, kAudioFileAIFFType, bigSixteen, {});
    Progress progress;
    EXPECT_EQ(QMXAudioFileConverter::initWithInputFilePath(path)->convertFileToPath_toFileType_subscriber(
                  other, kAudioFileAIFFType, &progress),
              noErr);
    EXPECT_TRUE(progress.values.empty());
    EXPECT_FALSE(disk.contents(other).empty());
    // what could not be read is missing in the copy: the result hides it
    disk.remove(path);
    disk.remove(other);
    writeMusic(path, kAudioFileAIFFType, bigSixteen, music(200'000, 2));
    disk.failReads(EIO, 400'000);
    const auto converter = QMXAudioFileConverter::initWithInputFilePath(path);
    const auto convertToOther = [&] {
        return converter->convertFileToPath_toFileType_subscriber(other, kAudioFileAIFFType, nullptr);
    };
    EXPECT_EQ(convertToOther(), noErr);
    expectFailure(*converter, ioErr, path + " could not be read: input/output error");
    disk.failReads(0);
    EXPECT_LT(audioAt(other).size(), 400'000U);
    disk.remove(other);
    EXPECT_EQ(convertToOther(), noErr);
    expectFailure(*converter, noErr, "");
}

TEST_F(QMXAudioFileConverterTest, WAVEIsLittleEndianWhateverTheFormatSays)
{
    writeMusic(path, kAudioFileAIFFType, bigSixteen, music(2500, 2));
    ByteBlock swapped = audioAt(path);
    for (std::size_t i = 0; i < swapped.size(); i += 2)
        std::swap(swapped[i], swapped[i + 1]);
    EXPECT_EQ(convert(kAudioFileWAVEType, bigSixteen, path), noErr);
    const auto expectLittle = [&] {
        EXPECT_EQ(disk.contents(other).front(), 'R');
        EXPECT_EQ(formatOfOther().mFormatFlags, 12U);
        EXPECT_TRUE(audioAt(other) == swapped);
    };
    expectLittle();
    disk.remove(other);
    EXPECT_EQ(QMXAudioFileConverter::initWithInputFilePath(path)->convertFileToPath_toFileType_subscriber(
                  other, kAudioFileWAVEType, nullptr),
              noErr);
    expectLittle();
    EXPECT_EQ(convert(kAudioFileCAFType, bigSixteen, path), noErr);
    EXPECT_TRUE(audioAt(other) == audioAt(path));
}

TEST_F(QMXAudioFileConverterTest, ALosslessTargetWithoutAStatedDepthKeepsTheBitsOfItsSource)
{
    const std::string between = "/d/c.flac";
    constexpr AudioFormatFlags sixteen = kAppleLosslessFormatFlag_16BitSourceData,
                               twentyFour = kAppleLosslessFormatFlag_24BitSourceData;
    for (const auto& [bits, flags] : {std::pair{16U, sixteen}, {24U, twentyFour}}) {
        disk.remove(path);
        writeMusic(path, kAudioFileAIFFType, linear(14, bits, 2), music(5000, 2));
        const auto keepsAll = [&, bits = bits, flags = flags](AudioFileTypeID target, AudioFormatID coding,
                                                              const std::string& source) {
            EXPECT_EQ(convert(target, coded(coding, 2), source), noErr);
            EXPECT_EQ(formatOfOther().mFormatFlags, flags);
            EXPECT_TRUE(floatsAt(other, 2, 10'000) == floatsAt(path, 2, 10'000)) << bits;
        };
        keepsAll(kAudioFileM4AType, kAudioFormatAppleLossless, path);
        keepsAll(kAudioFileFLACType, kAudioFormatFLAC, path);
        disk.remove(between);
        disk.rename(other, between);
        keepsAll(kAudioFileM4AType, kAudioFormatAppleLossless, between);
    }
    // a stated depth is kept
    EXPECT_EQ(convert(kAudioFileFLACType, coded(kAudioFormatFLAC, 2, 44100, sixteen), path), noErr);
    EXPECT_EQ(formatOfOther().mFormatFlags, sixteen);
}

TEST_F(QMXAudioFileConverterTest, TheFirstFailureOfTheSetUpIsTheResult)
{
    writeMusic(path, kAudioFileAIFFType, bigSixteen, music(2500, 2));
    const auto converter = QMXAudioFileConverter::initWithInputFilePath(path);
    const auto convertTo = [&](const std::string& target) {
        return converter->convertFileToPath_toFileType_subscriber(target, kAudioFileAIFFType, nullptr);
    };
    EXPECT_EQ(convertTo(path), dupFNErr);
    EXPECT_EQ(convertTo("/none/b.aif"), fnfErr);
    disk.failChange(1, EACCES);
    EXPECT_EQ(convertTo(other), permErr);
    EXPECT_EQ(convert(kAudioFileAIFFType, coded(kAudioFormatFLAC, 2), path), kAudioFileUnsupportedDataFormatError);
    EXPECT_TRUE(disk.contents(other).empty());
    // no conversion between these rates: nothing is written instead
    EXPECT_EQ(convert(kAudioFileAIFFType, linear(14, 16, 2, 5), path), kAudioConverterErr_FormatNotSupported);
    EXPECT_TRUE(audioAt(other).empty());
    // the next conversion starts without the failure
    disk.remove(other);
    EXPECT_EQ(convertTo(other), noErr);
}

} // namespace
