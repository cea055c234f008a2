// SPDX-License-Identifier: MIT
#include "Front/Divide.h"

#include "Front/Convert.h"
#include "FrontFiles.h"
#include "Tracks/QMXAudioTrackAutoDefiner.h"

#include <atomic>
#include <cerrno>
#include <thread>

namespace
{

using namespace qmx;
using namespace qmx::test;

constexpr Float64 rate = 8000;

/// Three pieces of 10 s with pauses of 3 s, over faint noise.
std::vector<float> recording()
{
    std::vector<float> samples;
    std::mt19937 random(1);
    std::normal_distribution<float> noise(0, 0.001F);
    for (std::size_t i = 0; i < std::size_t{36} * 8000; ++i) {
        const double time = static_cast<double>(i) / rate, inPiece = std::fmod(time, 13);
        const double pitch = 220 * std::exp2(std::fmod(std::floor(time * 4) * 7, 12) / 12);
        double sound = 0;
        for (int harmonic = 1; harmonic <= 8 && inPiece < 10; ++harmonic)
            sound += 0.1 * std::sin(2 * std::numbers::pi * pitch * harmonic * time);
        samples.push_back(static_cast<float>(sound) + noise(random));
    }
    return samples;
}

class DivideTest : public testing::Test
{
protected:
    DivideTest() { writeMusic(source, kAudioFileAIFFType, linear(14, 16, 1, rate), recording()); }

    static void expectThree(const Result<std::vector<Track>>& tracks, bool byFloor)
    {
        ASSERT_TRUE(tracks) << tracks.error().text();
        ASSERT_EQ(tracks->size(), 3U);
        EXPECT_EQ(tracks->front().first, 0);
        EXPECT_EQ(tracks->back().end, 288'000);
        for (std::size_t i = 1; i < 3; ++i) {
            const Track& track = (*tracks)[i];
            EXPECT_NEAR(static_cast<double>(track.first) / rate, 13.0 * static_cast<double>(i) - 1.5, 1.6);
            EXPECT_EQ(track.first, (*tracks)[i - 1].end);
            EXPECT_EQ(track.title, "Track " + std::to_string(i + 1));
            EXPECT_EQ(track.strength > 0.5F, byFloor);
        }
    }

    TemporaryFolder folder;
    CapturedFailures failures;
    const std::string source = folder.path("a.aif"), compressed = folder.path("a.flac");
};

TEST_F(DivideTest, FindsTheTracksOfAnyCodingByEitherSearch)
{
    ASSERT_TRUE(convert(source, compressed));
    for (const std::string& path : {source, compressed})
        for (const TrackSearch search : {TrackSearch::noiseFloor, TrackSearch::crossings}) {
            std::vector<float> progress;
            expectThree(divide(path, {.progress = [&](float done) { return progress.push_back(done), true; },
                                      .search = search}),
                        search == TrackSearch::noiseFloor);
            expectWhole(progress);
        }
    EXPECT_EQ(divide(source, {.numberOfTracks = 2})->size(), 2U);
    EXPECT_EQ(divide(source, {.search = TrackSearch::crossings, .lengthOfSilence = 5000})->size(), 1U);
    const auto late = divide(source, {.secondsBeforeNextTrack = 0.5});
    EXPECT_NEAR(static_cast<double>((*late)[1].first) / rate, 12.5, 0.3);
    // the described class is left as it was
    EXPECT_LT(QMXAudioTrackAutoDefiner::secondsBeforeNextTrack(), 0);
    EXPECT_FALSE(QMXAudioTrackAutoDefiner::convertsFilesOfOtherChannelCounts());
}

TEST_F(DivideTest, PassesOnWhatTheSearchByNoiseFloorReads)
{
    ASSERT_TRUE(convert(source, compressed));
    for (const std::string& path : {source, compressed}) {
        std::vector<float> read;
        expectThree(divide(path, {.samples = [&](std::span<const float> samples,
                                                 UInt32) { read.insert(read.end(), samples.begin(), samples.end()); }}),
                    true);
        EXPECT_THAT(read, testing::Pointwise(testing::FloatNear(1.0F / 32768), recording()));
    }
}

TEST_F(DivideTest, BadFilesAndSettingsAreErrorsAndARunCanBeCancelled)
{
    const auto textOf = [](const Result<std::vector<Track>>& result) {
        return result ? std::to_string(result->size()) : result.error().text();
    };
    EXPECT_EQ(textOf(divide("/none/side-a.flac")), "/none/side-a.flac: No such file or directory");
    const std::string text = folder.path("text.wav"), empty = folder.path("empty.wav");
    std::ofstream(text) << std::string(5000, 'x');
    EXPECT_EQ(textOf(divide(text)), text + ": Not an audio file of a known type");
    writeMusic(empty, kAudioFileWAVEType, linear(12, 16, 1), {});
    EXPECT_EQ(textOf(divide(empty)), "0");
    EXPECT_EQ(divide(source, {.numberOfTracks = -1}).error().status(), paramErr);
    EXPECT_EQ(divide(source, {.level = -32'769}).error().status(), paramErr);
    EXPECT_EQ(textOf(divide(source, {.search = TrackSearch::crossings, .numberOfTracks = 181})),
              source + ": It is too short for 181 tracks");
    {
        MemoryDisk disk;
        writeMusic("/d/a.aif", kAudioFileAIFFType, linear(14, 16, 1, rate), recording());
        disk.failReads(EIO, 300'000);
        for (const TrackSearch search : {TrackSearch::noiseFloor, TrackSearch::crossings})
            EXPECT_EQ(textOf(divide("/d/a.aif", {.search = search})), "/d/a.aif: Input/output error");
    }

    ASSERT_TRUE(convert(source, compressed));
    for (const float end : {0.0F, 0.2F, 0.7F})
        for (const TrackSearch search : {TrackSearch::noiseFloor, TrackSearch::crossings})
            EXPECT_TRUE(divide(compressed, {.progress = [end](float done) { return done < end; }, .search = search})
                            .error()
                            .isCancelled());
}

TEST_F(DivideTest, DivisionsOfSeveralThreadsWaitForEachOtherAndCanBeCancelledMeanwhile)
{
    std::stop_source stop;
    std::atomic<bool> isFirstIn = false, isSecondOut = false;
    std::jthread second([&] {
        isFirstIn.wait(false);
        EXPECT_TRUE(divide(source, {.stop = stop.get_token()}).error().isCancelled());
        isSecondOut = true;
        isSecondOut.notify_all();
    });
    const auto hold = [&](float) {
        EXPECT_EQ(divide(source).error().status(), fBsyErr) << "within itself";
        if (!isFirstIn.exchange(true)) {
            isFirstIn.notify_all();
            stop.request_stop();
            isSecondOut.wait(false);
        }
        return true;
    };
    expectThree(divide(source, {.progress = hold}), true);
}

} // namespace
