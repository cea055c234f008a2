// SPDX-License-Identifier: MIT
#include "Front/StoredTracks.h"

#include "FrontFiles.h"
#include "Tracks/QMXTrackAndProcessingInfo.h"

#include <cerrno>

namespace
{

using namespace qmx;
using namespace qmx::test;

class StoredTracksTest : public FrontFiles
{
protected:
    StoredTracksTest() { writeMusic(path, kAudioFileAIFFType, bigSixteen, music(1001, 2)); }

    std::vector<Track> stored()
    {
        const auto tracks = readTracks(path);
        return tracks && *tracks ? (*tracks)->tracks : std::vector<Track>();
    }
    SInt64 size() { return static_cast<SInt64>(disk.contents(path).size()); }

    const std::string path = "/d/a.aif";
    const std::vector<Track> two{{.first = 0, .end = 500, .title = "One"}, {.first = 500, .end = 1001, .title = "Two"}};
};

TEST_F(StoredTracksTest, ChangedTitlesBoundsAndOrderKeepTheOtherFieldsOfTheTracks)
{
    const auto none = readTracks(path);
    ASSERT_TRUE(none);
    EXPECT_FALSE(*none);
    ASSERT_TRUE(storeTracks(path, two));
    auto tracks = readTracks(path);
    ASSERT_TRUE(tracks && *tracks);
    (*tracks)->tracks[1].record->setTrackArtistName("Somebody");
    (*tracks)->record->addAudioProcessingInfo(QMXAudioProcessingRangeInfo::initWithProcessName("Gain"));
    ASSERT_TRUE(storeRecord(path, (*tracks)->record));

    auto changed = stored();
    std::swap(changed[0], changed[1]);
    changed[0].title = "Zwei";
    changed.pop_back();
    ASSERT_TRUE(storeTracks(path, changed));
    const auto last = readTracks(path);
    ASSERT_EQ((*last)->tracks.size(), 1U);
    const Track& track = (*last)->tracks[0];
    EXPECT_EQ(track.title, "Zwei");
    EXPECT_EQ(track.first, 500);
    EXPECT_EQ(track.record->trackArtistName(), "Somebody");
    EXPECT_EQ((*last)->record->processingInfos()->size(), 1U);
}

TEST_F(StoredTracksTest, ThePartsOfADividedTrackAreStoredEachWithItsOwnBoundsAndTitle)
{
    ASSERT_TRUE(storeTracks(path, {{.first = 0, .end = 1001, .title = "Whole"}}));
    auto parts = stored();
    parts[0].record->setTrackArtistName("Somebody");
    parts.push_back(parts[0]);
    parts[0].end = parts[1].first = 400;
    parts[1].title = "Rest";
    ASSERT_TRUE(storeCost(path, parts));
    ASSERT_TRUE(storeTracks(path, parts));
    EXPECT_EQ(parts[0].record->trackEnd(), 1001);
    EXPECT_EQ(parts[0].record->trackTitle(), "Whole");
    const auto last = stored();
    ASSERT_EQ(last.size(), 2U);
    EXPECT_EQ(last[0].end, 400);
    EXPECT_EQ(last[0].title, "Whole");
    EXPECT_EQ(last[1].first, 400);
    EXPECT_EQ(last[1].title, "Rest");
    EXPECT_EQ(last[0].record->trackArtistName(), "Somebody");
    EXPECT_EQ(last[1].record->trackArtistName(), "Somebody");
}

TEST_F(StoredTracksTest, AStoreCostsWhatWasSaid)
{
    for (int i = 0; i < 2; ++i) { // the first one appends, the other replaces
        const auto cost = storeCost(path, two);
        ASSERT_TRUE(cost) << cost.error().text();
        const SInt64 before = size();
        const ByteBlock kept = disk.contents(path);
        const SInt64 needed = cost->growth + cost->temporary;
        EXPECT_EQ(cost->growth > 0, i == 0);
        if (i == 0) { // later it does without
            disk.setCapacity(static_cast<std::size_t>(before + needed - 1));
            expectError(storeTracks(path, two), dskFulErr,
                        path + ": It could not be stored into: No space left on device");
            EXPECT_TRUE(disk.contents(path) == kept);
        }
        disk.setCapacity(static_cast<std::size_t>(before + needed));
        ASSERT_TRUE(storeTracks(path, two));
        EXPECT_EQ(size() - before, cost->growth);
        disk.clearFaults();
    }
}

TEST_F(StoredTracksTest, AStoreThatFailsLeavesTheFileAsItWas)
{
    ASSERT_TRUE(storeTracks(path, two));
    const ByteBlock before = disk.contents(path);
    auto tracks = stored();
    tracks[1].end = 1002;
    expectError(storeTracks(path, tracks), paramErr, path + ": The track \"Two\" lies outside of it");
    tracks[1].end = 1001;
    tracks[1].title = std::string(600'000, 'x');
    EXPECT_EQ(storeTracks(path, tracks).error().status(), paramErr);
    EXPECT_EQ(storeCost(path, tracks).error().status(), paramErr);
    disk.failChange(2, EIO);
    EXPECT_EQ(storeTracks(path, two).error().status(), ioErr);
    EXPECT_TRUE(disk.contents(path) == before);
    expectError(storeTracks("/d/none.aif", two), fnfErr, "/d/none.aif: No such file or directory");
    writeMusic("/d/b.wav", kAudioFileWAVEType, linear(12, 16, 1), music(1001, 1));
    expectError(storeTracks("/d/b.wav", two), kAudioFileUnsupportedFileTypeError,
                "/d/b.wav: Tracks are stored in AIFF and AIFF-C files only");
}

TEST_F(StoredTracksTest, UnreadableTracksAreNoneOnlyForThoseWhoAskForIt)
{
    ASSERT_TRUE(storeTracks(path, two));
    ByteBlock damaged = disk.contents(path);
    const std::string signature = "tRaK";
    const auto chunk = std::search(damaged.begin(), damaged.end(), signature.begin(), signature.end());
    std::fill_n(chunk + 12, 200, std::uint8_t{0});
    disk.setContents(path, damaged);
    const std::string sentence = path + ": It could not be read: its tracks are damaged or of another version";
    expectError(readTracks(path), kAudioFileInvalidChunkError, sentence);
    expectError(storeTracks(path, two), kAudioFileInvalidChunkError, sentence);
    EXPECT_TRUE(disk.contents(path) == damaged);
    ASSERT_TRUE(storeTracks(path, two, {.replaceUnreadable = true}));
    EXPECT_EQ(stored().size(), 2U);
    expectError(readTracks("/d/none"), fnfErr, "/d/none: No such file or directory");
}

} // namespace
