// SPDX-License-Identifier: MIT
#include "Front/Convert.h"

#include "Front/FrameReader.h"
#include "Front/StoredTracks.h"
#include "FrontFiles.h"
#include "Tracks/QMXAudioTrackInfo.h"

#include <cerrno>

namespace
{

using namespace qmx;
using namespace qmx::test;

class ConvertTest : public FrontFiles
{
protected:
    const std::string source = "/d/a.aif", target = "/d/b.wav";

    void makeSource(const AudioStreamBasicDescription& format = bigSixteen, std::size_t frames = 100'000)
    {
        writeMusic(source, kAudioFileAIFFType, format, music(frames, format.mChannelsPerFrame));
    }
};

TEST_F(ConvertTest, NoFrameAndNoBitIsLostOnTheWayThroughEveryLosslessFormat)
{
    for (const UInt32 bits : {16U, 24U}) {
        makeSource(linear(14, bits, 2));
        std::string last = source;
        for (const std::string name : {"/d/1.wav", "/d/2.caf", "/d/3.flac", "/d/4.m4a", "/d/5.au", "/d/6.aif"}) {
            const Format format = name == "/d/4.m4a" ? Format::alac() : *Format::forPath(name);
            const auto done = convert(last, name, format);
            ASSERT_TRUE(done) << done.error().text();
            last = name;
        }
        EXPECT_EQ(disk.contents("/d/1.wav").front(), 'R');
        EXPECT_TRUE(audioAt(last) == audioAt(source));
        for (const std::string name :
             {"/d/1.wav", "/d/2.caf", "/d/3.flac", "/d/4.m4a", "/d/5.au", "/d/6.aif", "/d/a.aif"})
            ASSERT_EQ(disk.remove(name), 0);
    }
    // integers of 32 bits have more than floats hold
    const auto wide = linear(14, 32, 1);
    ByteBlock noise(40'000);
    std::ranges::generate(noise, std::mt19937(1));
    {
        const Opened file(createFile(source, kAudioFileAIFFType, wide));
        ASSERT_EQ(writeAudio(file.file, 0, noise), noErr);
    }
    ASSERT_TRUE(convert(source, target) && convert(target, "/d/c.aif"));
    EXPECT_TRUE(audioAt("/d/c.aif") == noise);
}

TEST_F(ConvertTest, LossyFilesHaveAsManyFramesAndProgressEndsAtOne)
{
    makeSource();
    std::vector<float> progress;
    const ConvertOptions options{.progress = [&](float done) {
        progress.push_back(done);
        return done < 1; // too late
    }};
    for (const std::string name : {"/d/1.m4a", "/d/2.mp3", "/d/3.wav"}) {
        progress.clear();
        ASSERT_TRUE(convert(name == "/d/3.wav" ? "/d/1.m4a" : source, name, options)) << name;
        EXPECT_EQ(FrameReader(name).length(), 100'000) << name;
        expectWhole(progress);
    }
    ASSERT_TRUE(convert(source, "/d/4.m4a", Format::aac(64'000).withSampleRate(22050).withChannels(1)));
    EXPECT_EQ(Format::of("/d/4.m4a")->text(), "MPEG-4 audio, AAC, 1 channel, 22050 Hz");
    EXPECT_EQ(FrameReader("/d/4.m4a").length(), 50'000);
    EXPECT_LT(disk.contents("/d/4.m4a").size(), 25'000U);
}

TEST_F(ConvertTest, NothingIsLeftOfAConversionThatIsCancelledOrFails)
{
    makeSource();
    const auto half = [](float done) { return done < 0.5F; };
    expectError(convert(source, target, {.progress = half}), cancelledStatus, target + ": Cancelled");
    std::stop_source stop;
    stop.request_stop();
    expectError(convert(source, target, {.stop = stop.get_token()}), cancelledStatus, target + ": Cancelled");
    disk.setContents(target, {1});
    expectError(convert(source, target), dupFNErr, target + ": File exists");
    expectError(convert(source, target, {.progress = half, .replace = true}), cancelledStatus, target + ": Cancelled");
    EXPECT_EQ(disk.contents(target).size(), 1U);
    expectError(convert(source, source, {.replace = true}), paramErr, source + ": It is the input itself");
    expectError(convert("/d/none", target), fnfErr, "/d/none: No such file or directory");
    expectError(convert(source, "/d/c.xyz"), kAudioFileUnsupportedFileTypeError,
                "/d/c.xyz: Its extension names no type of audio file");
    expectError(convert(source, "/d/c.wav", Format::wave(5)), kAudioConverterErr_FormatNotSupported,
                "/d/c.wav: The coding of the samples is not supported");

    for (const std::string name : {"/d/c.caf", "/d/c.m4a", "/d/c.flac"}) {
        disk.setCapacity(disk.contents(source).size() + 10'000);
        expectError(convert(source, name), dskFulErr, name + ": No space left on device");
        disk.clearFaults();
    }
    disk.failReads(EIO, 300'000);
    expectError(convert(source, "/d/c.wav"), ioErr, source + ": Input/output error");
    disk.failReads(0);
    ASSERT_TRUE(convert(source, target, {.replace = true}));
    EXPECT_EQ(FrameReader(target).length(), 100'000);
}

TEST_F(ConvertTest, TracksGoAlongWithTheirBoundsAtTheNewRate)
{
    makeSource();
    std::vector<Track> tracks{{.first = 0, .end = 40'000, .title = "One"}, {.first = 40'000, .end = 100'000}};
    ASSERT_TRUE(storeTracks(source, tracks));
    ASSERT_TRUE(convert(source, "/d/b.aif", Format::aiff(22050)) &&
                convert(source, "/d/c.aif", {.keepTracks = false}) && convert(source, target));
    const auto kept = readTracks("/d/b.aif");
    ASSERT_TRUE(kept && *kept);
    EXPECT_EQ((*kept)->tracks[0].title, "One");
    EXPECT_EQ((*kept)->tracks[1].first, 20'000);
    EXPECT_EQ((*kept)->tracks[1].end, 50'000);
    // a part has none, nor has a file without tracks whose sizes disagree with its length
    ASSERT_TRUE(convert(source, "/d/d.aif", {.range = {.first = 10'000, .end = 20'001}}));
    const ByteBlock all = audioAt(source), part = audioAt("/d/d.aif");
    ASSERT_EQ(part.size(), 4 * 10'001U);
    EXPECT_TRUE(std::equal(part.begin(), part.end(), all.begin() + 40'000));
    ByteBlock longer = disk.contents("/d/d.aif");
    longer.resize(longer.size() + 100);
    disk.setContents("/d/e.aif", longer);
    ASSERT_TRUE(convert("/d/e.aif", "/d/f.aif"));
    for (const std::string without : {"/d/c.aif", "/d/b.wav", "/d/d.aif", "/d/e.aif"}) {
        const auto none = readTracks(without);
        EXPECT_TRUE(none && !*none) << without;
    }
}

} // namespace
