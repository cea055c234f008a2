// SPDX-License-Identifier: MIT
// Readers and writers of frames, and the formats that they name.
#include "Front/FrameReader.h"
#include "Front/FrameWriter.h"
#include "FrontFiles.h"

#include <cerrno>
#include <sys/stat.h>

namespace
{

using namespace qmx;
using namespace qmx::test;

class FrameFilesTest : public FrontFiles
{
protected:
    const std::string path = "/d/a.aif";
    const std::vector<float> samples = music(10'000, 2);
    const Format stereo = Format::aiff(44100, 24).withChannels(2);

    void makeRecording()
    {
        auto writer = FrameWriter::create(path, stereo);
        ASSERT_TRUE(writer && writer->write(samples) && writer->finish());
    }
};

TEST_F(FrameFilesTest, WhatIsWrittenIsReadInBlocksAfterASeekAndInAnotherNumberOfChannels)
{
    makeRecording();
    EXPECT_FALSE(disk.isAnyLeft());
    FrameReader reader(path, 4096);
    EXPECT_EQ(reader.format().text(), "AIFF, 24-bit linear PCM, 2 channels, 44100 Hz");
    EXPECT_EQ(reader.length(), 10'000);
    std::vector<float> read;
    std::vector<std::size_t> sizes;
    for (const std::span<const float> block : reader) {
        read.insert(read.end(), block.begin(), block.end());
        sizes.push_back(block.size());
    }
    EXPECT_FALSE(reader.error());
    EXPECT_THAT(sizes, testing::ElementsAre(8192, 8192, 3616));
    EXPECT_LT(largestDifference(read, samples), 1e-6);

    std::vector<float> some(10);
    ASSERT_TRUE(reader.seek(9998));
    EXPECT_EQ(*reader.read(some), 2U);
    EXPECT_TRUE(std::equal(read.end() - 4, read.end(), some.begin()));
    EXPECT_EQ(*reader.read(some), 0U);
    expectError(reader.seek(10'001), kExtAudioFileError_InvalidSeek, path + ": A position outside the file");

    FrameReader mono(path, 100'000, {.sampleRate = 22050, .channels = 1});
    EXPECT_EQ((*mono.begin()).size(), 5000U);
    EXPECT_EQ(mono.length(), 10'000);
}

TEST_F(FrameFilesTest, EveryBadFileIsAnErrorThatNamesIt)
{
    const auto errorOf = [](const std::string& bad) { return FrameReader::open(bad); };
    expectError(errorOf("/d/none.aif"), fnfErr, "/d/none.aif: No such file or directory");
    expectError(errorOf("/d"), bdNamErr, "/d: Is a directory");
    disk.setContents("/d/empty.wav", {});
    expectError(errorOf("/d/empty.wav"), kAudioFileUnsupportedFileTypeError, "/d/empty.wav: The file is empty");
    disk.setContents("/d/text.wav", ByteBlock(1000, 'x'));
    expectError(errorOf("/d/text.wav"), kAudioFileUnsupportedFileTypeError,
                "/d/text.wav: Not an audio file of a known type");
    EXPECT_EQ(FrameReader("/d/text.wav").begin(), std::default_sentinel);

    // one that cannot be read to its end gives what it has first
    makeRecording();
    disk.failReads(EIO, 30'000);
    FrameReader reader(path);
    std::size_t frames = 0;
    for (const std::span<const float> block : reader)
        frames += block.size() / 2;
    EXPECT_GT(frames, 4000U);
    ASSERT_TRUE(reader.error());
    EXPECT_EQ(reader.error()->text(), path + ": Input/output error");
    EXPECT_TRUE(reader.seek(0));
    const FrameReader other = std::move(reader);
    std::vector<float> some(10);
    EXPECT_EQ(reader.read(some).error().status(), fnOpnErr);
    EXPECT_EQ(FrameReader(path, 0xFFFFFFFF).error()->status(), paramErr);
}

TEST_F(FrameFilesTest, AWriterThatIsNotFinishedLeavesNothing)
{
    {
        auto writer = FrameWriter::create(path, stereo);
        ASSERT_TRUE(writer && writer->write(samples));
        EXPECT_TRUE(disk.isAnyLeft());
        EXPECT_EQ(writer->write(std::span(samples).first(3)).error().status(), paramErr);
        ASSERT_TRUE(writer->write(samples));
        EXPECT_EQ(writer->finish().error().status(), ioErr) << "what was refused is missing";
        const FrameWriter other = *std::move(writer);
        EXPECT_EQ(writer->write(samples).error().status(), fnOpnErr);
    }
    EXPECT_FALSE(disk.isAnyLeft());
    EXPECT_TRUE(disk.contents(path).empty());

    // a full disk is told by a write or the end
    disk.setCapacity(20'000);
    auto writer = FrameWriter::create(path, stereo);
    ASSERT_TRUE(writer);
    (void)writer->write(samples); // may not have reached the disk
    const auto finished = writer->finish();
    ASSERT_FALSE(finished);
    EXPECT_EQ(finished.error().text(), path + ": No space left on device");
}

TEST_F(FrameFilesTest, AnExistingFileIsReplacedOnlyIfAskedForAndWhenTheNewOneIsWhole)
{
    makeRecording();
    const ByteBlock before = disk.contents(path);
    expectError(FrameWriter::create(path, stereo), dupFNErr, path + ": File exists");
    expectError(FrameWriter::create("/none/a.aif", stereo), fnfErr, "/none/a.aif: No such file or directory");
    expectError(FrameWriter::create(path, Format::aiff()), paramErr,
                path + ": A format needs a sample rate and a number of channels");
    {
        auto writer = FrameWriter::create(path, stereo, {.replace = true});
        ASSERT_TRUE(writer && writer->write(std::span(samples).first(2000)));
        EXPECT_EQ(disk.contents(path), before);
        ASSERT_TRUE(writer->finish());
    }
    EXPECT_EQ(FrameReader(path).length(), 1000);

    // one that appears meanwhile stays
    const std::string other = "/d/b.aif";
    {
        auto writer = FrameWriter::create(other, stereo);
        ASSERT_TRUE(writer);
        disk.setContents(other, {1, 2, 3});
        EXPECT_EQ(writer->finish().error().text(), other + ": File exists");
    }
    EXPECT_FALSE(disk.isAnyLeft());
    EXPECT_EQ(disk.contents(other).size(), 3U);
}

TEST(OutputPermissionsTest, AReplacedFileKeepsItsModeAndItsLinks)
{
    const TemporaryFolder folder;
    const std::string file = folder.path("real.wav"), link = folder.path("link.wav");
    const Format mono = Format::wave(8000, 16).withChannels(1);
    const auto write = [&](const std::string& path, bool replace) {
        auto writer = FrameWriter::create(path, mono, {.replace = replace});
        return writer && writer->write(std::vector<float>(replace ? 100 : 10)) && writer->finish();
    };
    ASSERT_TRUE(write(file, false));
    ASSERT_EQ(chmod(file.c_str(), 0640), 0);
    std::filesystem::create_symlink("real.wav", link);
    ASSERT_TRUE(write(link, true));
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    EXPECT_EQ(FrameReader(file).length(), 100);
    EXPECT_EQ(static_cast<unsigned>(std::filesystem::status(file).permissions()), 0640U);
    std::filesystem::create_symlink("/dev/null", folder.path("null.wav"));
    EXPECT_FALSE(write(folder.path("null.wav"), true));
    std::filesystem::create_symlink("nowhere.wav", folder.path("dangling.wav"));
    EXPECT_FALSE(write(folder.path("dangling.wav"), true));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path("")), {}), 4);
}

TEST(FormatTest, AWishTakesWhatItLeavesOpenFromTheSource)
{
    const auto text = [](const Format& wish, const Format& source) {
        const auto format = wish.completedFrom(source);
        return format ? format->text() : format.error().text();
    };
    const Format cd = *Format::aiff(44100, 16).withChannels(2).completedFrom({});
    const Format deep = *Format::caf(96000, 32).withChannels(6).completedFrom({});
    const Format floats = *Format::wave(48000).withChannels(1).withFloats().completedFrom({});
    EXPECT_EQ(text(Format::wave(), cd), "WAVE, 16-bit linear PCM, 2 channels, 44100 Hz");
    EXPECT_EQ(text(Format::wave(22050.5, 24), deep), "WAVE, 24-bit linear PCM, 6 channels, 22050.5 Hz");
    EXPECT_EQ(text(Format::aiff(), floats), "AIFF-C, 32-bit float linear PCM, 1 channel, 48000 Hz");
    EXPECT_EQ(text(Format::aiff(0, 16), floats), "AIFF, 16-bit linear PCM, 1 channel, 48000 Hz");
    EXPECT_EQ(text(Format::flac(), cd), "FLAC, 16-bit, 2 channels, 44100 Hz");
    EXPECT_EQ(text(Format::alac(), floats), "MPEG-4 audio, 24-bit ALAC, 1 channel, 48000 Hz");
    EXPECT_EQ(text(Format::flac(), deep), "FLAC keeps at most 24 bits of a sample");
    EXPECT_EQ(text(*Format::forPath("x.SD2"), floats), "Sound Designer files hold no floats");
    EXPECT_EQ(text(Format::aac(), cd), "MPEG-4 audio, AAC, 2 channels, 44100 Hz");
    EXPECT_EQ(text(Format::wave(), *Format::aac().completedFrom(deep)),
              "WAVE, 16-bit linear PCM, 6 channels, 96000 Hz");
    EXPECT_EQ(Format::forPath("a.b/c.Wav")->extension(), ".wav");
    EXPECT_EQ(Format::forTypeCode("CAFF")->text(), "CAF, linear PCM");
    EXPECT_THAT(Format::forTypeCode("x").error().text(), testing::StartsWith("Unknown type x; there are AIFF AIFC "));
    EXPECT_EQ(Format::forPath("a.wav/c").error().text(), "a.wav/c: Its extension names no type of audio file");
}

} // namespace
