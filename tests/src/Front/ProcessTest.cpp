// SPDX-License-Identifier: MIT
#include "Front/Process.h"

#include "Front/Convert.h"
#include "Front/FrameReader.h"
#include "Front/StoredTracks.h"
#include "FrontFiles.h"
#include "Tracks/QMXTrackAndProcessingInfo.h"

#include <cerrno>

namespace
{

using namespace qmx;
using namespace qmx::test;

bool invert(std::span<float> samples, UInt32)
{
    for (float& sample : samples)
        sample = -sample;
    return true;
}

class ProcessTest : public FrontFiles
{
protected:
    void makeSource(const std::string& file, AudioFileTypeID type, const AudioStreamBasicDescription& format)
    {
        writeMusic(file, type, format, music(20'000, format.mChannelsPerFrame));
    }

    const std::string path = "/d/a.aif", other = "/d/b.aif";
    const FrameRange range{.first = 5000, .end = 15'001};
};

TEST_F(ProcessTest, ChangesTheRangeInEveryChannelAndNothingElseInTheFile)
{
    struct {
        AudioFileTypeID type;
        AudioStreamBasicDescription format;
    } const kinds[] = {{kAudioFileAIFFType, linear(14, 24, 3)},
                       {kAudioFileWAVEType, linear(12, 16, 2)},
                       {kAudioFileCAFType, linear(9, 32, 1)}};
    for (const auto& [type, format] : kinds) {
        makeSource(path, type, format);
        if (type == kAudioFileAIFFType) { // behind the samples
            ASSERT_TRUE(storeTracks(path, {{.first = 0, .end = 100, .title = "One"}}));
        }
        const ByteBlock before = disk.contents(path);
        const auto old = floatsAt(path, format.mChannelsPerFrame, 20'000);
        std::vector<float> progress;
        const auto done =
            process(path, range, invert, {.progress = [&](float part) { return progress.push_back(part), true; }});
        ASSERT_TRUE(done) << done.error().text();
        expectWhole(progress);
        EXPECT_FALSE(disk.isAnyLeft());
        auto expected = old;
        const std::size_t channels = format.mChannelsPerFrame;
        (void)invert(std::span(expected).subspan(5000 * channels, 10'001 * channels), 0);
        EXPECT_LT(largestDifference(floatsAt(path, format.mChannelsPerFrame, 20'000), expected), 1e-6);
        // again is back
        ASSERT_TRUE(process(path, range, invert));
        EXPECT_TRUE(disk.contents(path) == before);
        ASSERT_EQ(disk.remove(path), 0);
    }
}

TEST_F(ProcessTest, MakesAnotherFileOfTheRangeFromAndToAnyFormat)
{
    makeSource(path, kAudioFileAIFFType, bigSixteen);
    const auto record = QMXAudioProcessingRangeInfo::initWithProcessName("Invert");
    ASSERT_TRUE(process(path, range, invert, {.output = other, .record = record}));
    auto expected = floatsAt(path, 2, 20'000);
    expected = {expected.begin() + 10'000, expected.begin() + 30'002};
    (void)invert(expected, 2);
    EXPECT_TRUE(floatsAt(other, 2, 20'000) == expected);
    const auto kept = readTracks(other);
    ASSERT_TRUE(kept && *kept);
    EXPECT_TRUE((*kept)->record->fileHasBeenProcessed());
    EXPECT_EQ((*kept)->record->processingInfos()->front()->processingEndFrame(), 10'001U);

    ASSERT_TRUE(process(path, range, invert, {.output = "/d/r.aif", .format = Format::aiff(96'000), .record = record}));
    const auto converted = readTracks("/d/r.aif");
    ASSERT_TRUE(converted && *converted);
    EXPECT_EQ(static_cast<SInt64>((*converted)->record->processingInfos()->front()->processingEndFrame()),
              (*FrameReader::open("/d/r.aif")).length());

    ASSERT_TRUE(convert(path, "/d/a.flac"));
    ASSERT_TRUE(process("/d/a.flac", range, invert, {.output = "/d/b.flac"}));
    ASSERT_TRUE(process("/d/b.flac", {}, invert, {.output = "/d/c.wav"}));
    EXPECT_EQ(Format::of("/d/c.wav")->text(), "WAVE, 16-bit linear PCM, 2 channels, 44100 Hz");
    (void)invert(expected, 2);
    EXPECT_TRUE(floatsAt("/d/c.wav", 2, 20'000) == expected);
}

TEST_F(ProcessTest, ARunThatEndsEarlyChangesNothing)
{
    makeSource(path, kAudioFileAIFFType, bigSixteen);
    const ByteBlock before = disk.contents(path);
    const auto abort = [calls = 0](std::span<float> samples, UInt32 channels) mutable {
        return invert(samples, channels) && ++calls < 2;
    };
    expectError(process(path, range, abort), cancelledStatus, path + ": Cancelled");
    expectError(process(path, range, abort, {.output = other}), cancelledStatus, path + ": Cancelled");
    expectError(process(path, range, invert, {.progress = [](float part) { return part < 0.5F; }}), cancelledStatus,
                path + ": Cancelled");
    disk.setCapacity(before.size() + 50'000);
    expectError(process(path, range, invert), dskFulErr, path + ": No space left on device");
    disk.clearFaults();
    disk.failReads(EIO, 50'000);
    expectError(process(path, range, invert), ioErr, path + ": Input/output error");
    expectError(process(path, range, invert, {.output = other}), ioErr, path + ": Input/output error");
    disk.failReads(0);
    EXPECT_TRUE(disk.contents(path) == before);
    EXPECT_TRUE(disk.contents(other).empty());
}

TEST_F(ProcessTest, WhatOthersDoToTheFileMeanwhileIsKept)
{
    makeSource(path, kAudioFileAIFFType, bigSixteen);
    const auto before = floatsAt(path, 2, 20'000);
    const std::string sentence = path + ": It was changed while it was processed";
    for (const char* title : {"One", "Two"}) { // the second store leaves the file's size
        const auto storing = [&](std::span<float> samples, UInt32 channels) {
            return storeTracks(path, {{.first = 0, .end = 100, .title = title}}) && invert(samples, channels);
        };
        expectError(process(path, range, storing), fBsyErr, sentence);
        const auto kept = readTracks(path);
        ASSERT_TRUE(kept && *kept);
        EXPECT_EQ((*kept)->tracks.front().title, title);
        EXPECT_TRUE(floatsAt(path, 2, 20'000) == before);
    }
    const auto replacing = [&](std::span<float>, UInt32) {
        disk.setContents(other, disk.contents(path));
        return disk.rename(other, path) == 0;
    };
    expectError(process(path, range, replacing), fBsyErr, sentence);
    EXPECT_TRUE(floatsAt(path, 2, 20'000) == before);
}

TEST_F(ProcessTest, WhatCannotBeDoneIsRefusedBeforeAnyWork)
{
    makeSource(path, kAudioFileAIFFType, bigSixteen);
    const auto never = [](std::span<float>, UInt32) { return ADD_FAILURE(), true; };
    expectError(process(path, {.first = 20'000}, never), paramErr, path + ": It has no frames in the range");
    expectError(process("/d/none", {}, never), fnfErr, "/d/none: No such file or directory");
    expectError(process(path, {}, never, {.output = path, .replace = true}), paramErr,
                path + ": It is the input itself");
    disk.setContents(other, {1});
    expectError(process(path, {}, never, {.output = other}), dupFNErr, other + ": File exists");
    const auto record = QMXAudioProcessingRangeInfo::initWithProcessName("None");
    expectError(process(path, {}, never, {.output = "/d/c.wav", .record = record}), kAudioFileUnsupportedFileTypeError,
                "/d/c.wav: Records of processing are stored in AIFF and AIFF-C files only");
    ASSERT_TRUE(convert(path, "/d/a.flac"));
    expectError(process("/d/a.flac", {}, never), kAudioFileOperationNotSupportedError,
                "/d/a.flac: A compressed file cannot be changed itself, only processed into another");
}

} // namespace
