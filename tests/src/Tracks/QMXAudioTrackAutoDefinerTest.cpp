// SPDX-License-Identifier: MIT
#include "Tracks/QMXAudioTrackAutoDefiner.h"

#include "FileRelated/QMXAudioFile.h"
#include "Formats/QMXAudioStreamBasicDescription.h"
#include "Tracks/QMXAudioTrackInfo.h"
#include "platform/AudioToolbox/ExtAudioFileHelpers.h"
#include "support/CapturedLog.h"
#include "support/MemoryDisk.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <functional>

namespace
{

using Definer = QMXAudioTrackAutoDefiner;
using qmx::test::linear;
using testing::ElementsAre;
using Bounds = std::pair<SInt64, SInt64>;

constexpr std::size_t framesPerBlock = 8820;
const std::string path = "/d/recording";

/// Writes a recording of blocks: '#' a loud tone, '.' a soft one.
void record(const std::string& blocks, const AudioStreamBasicDescription& format = linear(14, 16, 2))
{
    std::vector<float> tone;
    for (std::size_t frame = 0; frame < blocks.size() * framesPerBlock; ++frame) {
        const float amplitude = blocks[frame / framesPerBlock] == '#' ? 8000 : 300;
        tone.insert(tone.end(), format.mChannelsPerFrame, (frame / 20 % 2 == 0 ? amplitude : -amplitude) / 32768);
    }
    qmx::test::writeMusic(path, kAudioFileAIFCType, format, tone);
}

const std::string twoSongs = std::string(20, '#') + std::string(15, '.') + std::string(20, '#');
constexpr SInt64 twoSongsLength = 55 * SInt64{framesPerBlock};
constexpr SInt64 twoSongsBound = 27 * SInt64{framesPerBlock}; // blocks (20 + 35) / 2

class Listener : public QMXAudioTrackAutoDefinerDelegate
{
public:
    explicit Listener(std::function<void(std::size_t)> onReport = {}) : onReport_(std::move(onReport)) {}
    void autoDefineProgress(float progress) override
    {
        reports.push_back(progress);
        if (onReport_)
            onReport_(reports.size());
    }
    std::vector<float> reports;

private:
    std::function<void(std::size_t)> onReport_;
};

class AutoDefiner : public testing::Test
{
protected:
    static void expectTwoSongs(const Definer::Tracks& tracks)
    {
        EXPECT_THAT(boundsOf(tracks), ElementsAre(Bounds{0, twoSongsBound}, Bounds{twoSongsBound, twoSongsLength}));
    }
    ~AutoDefiner() override
    {
        Definer::setDelegate(nullptr);
        Definer::setConvertsFilesOfOtherChannelCounts(false);
    }

    static std::vector<Bounds> boundsOf(const Definer::Tracks& tracks)
    {
        std::vector<Bounds> bounds;
        for (const auto& track : *tracks)
            bounds.emplace_back(track->trackBegin(), track->trackEnd());
        return bounds;
    }
    static Definer::Tracks counted(SInt16 tracks)
    {
        return Definer::autoDefineTracksInFile_sensitivity_lengthOfSilence_zeroOffset_numberOfTracks(path, 71, 1400,
                                                                                                     500, tracks);
    }
    std::shared_ptr<Listener> listen(std::function<void(std::size_t)> onReport = {})
    {
        auto listener = std::make_shared<Listener>(std::move(onReport));
        Definer::setDelegate(listener);
        return listener;
    }

    qmx::test::MemoryDisk disk;
    qmx::test::CapturedLog log;
};

} // namespace

TEST_F(AutoDefiner, SplitsTwoSongsMidwayInTheSilence)
{
    record(twoSongs);
    const auto listener = listen();
    const auto tracks = Definer::autoDefineTracksInFile(path);
    ASSERT_TRUE(tracks);
    expectTwoSongs(tracks);
    EXPECT_EQ(tracks->at(0)->trackTitle(), "Untitled Track 0");
    EXPECT_EQ(tracks->at(1)->trackTitle(), "Untitled Track 2");
    EXPECT_FALSE(tracks->at(1)->isActive());

    ASSERT_EQ(listener->reports.size(), 55U + 55U + 1U); // blocks read, blocks searched, the end
    EXPECT_TRUE(std::ranges::is_sorted(listener->reports));
    EXPECT_NEAR(listener->reports[54], 55.0 / 112, 1e-5); // the block count has one more than is read
    EXPECT_EQ(listener->reports.back(), 1.0F);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(AutoDefiner, FindsTheSameBoundsInEverySampling)
{
    Definer::setConvertsFilesOfOtherChannelCounts(true);
    for (const auto& format :
         {linear(12, 16, 2), linear(14, 16, 1), linear(14, 16, 3), linear(14, 24, 1), linear(11, 32, 2)}) {
        SCOPED_TRACE(QMXAudioStreamBasicDescription(format).description());
        record(twoSongs, format);
        expectTwoSongs(Definer::autoDefineTracksInFile(path));
        disk.remove(path);
    }
}

TEST_F(AutoDefiner, SixteenBitMonoIsTakenAsStereoUnlessConverted)
{
    record(twoSongs, linear(14, 16, 1));
    ASSERT_FALSE(Definer::convertsFilesOfOtherChannelCounts());
    // each block holds the frames of two: quiet from block 10 up to 18; what follows the data counts as quiet too
    EXPECT_THAT(boundsOf(Definer::autoDefineTracksInFile(path)),
                ElementsAre(Bounds{0, 14 * 8820}, Bounds{14 * 8820, twoSongsLength}));
}

TEST_F(AutoDefiner, DefaultsCanBeReplacedOneByOne)
{
    record("####..#######" + std::string(7, '.') + std::string(8, '#'));
    EXPECT_EQ(Definer::autoDefineTracksInFile(path)->size(), 2U);
    EXPECT_EQ(Definer::autoDefineTracksInFile_lengthOfSilence(path, 400)->size(), 3U);
    EXPECT_EQ(Definer::autoDefineTracksInFile_lengthOfSilence(path, 199)->size(), 3U); // runs of 0 blocks
    EXPECT_EQ(Definer::autoDefineTracksInFile_lengthOfSilence(path, 1e30F)->size(), 1U);
    EXPECT_EQ(Definer::autoDefineTracksInFile_sensitivity(path, 0)->size(), 1U); // nothing is below 0
    EXPECT_EQ(Definer::autoDefineTracksInFile_sensitivity_lengthOfSilence(path, 71, 400)->size(), 3U);
    EXPECT_EQ(Definer::autoDefineTracksInFile_sensitivity_zeroOffset(path, 71, 299)->size(),
              1U); // the soft tone crosses
    EXPECT_EQ(Definer::autoDefineTracksInFile_sensitivity_lengthOfSilence_zeroOffset(path, 71, 400, 300)->size(), 3U);
}

TEST_F(AutoDefiner, CountedModeGivesThatManyTracks)
{
    record(twoSongs);
    EXPECT_THAT(boundsOf(counted(1)), ElementsAre(Bounds{0, twoSongsLength}));
    // the chosen place that is last in the file is dropped
    const auto three = boundsOf(counted(3));
    ASSERT_EQ(three.size(), 3U);
    EXPECT_GE(three[1].first, 20 * SInt64{framesPerBlock});
    EXPECT_LT(three[2].first, 35 * SInt64{framesPerBlock});
    EXPECT_EQ(three[0].second, three[1].first);
    EXPECT_EQ(three[2].second, twoSongsLength);

    const auto many = boundsOf(counted(300)); // more than the usual table holds
    ASSERT_EQ(many.size(), 300U);
    EXPECT_EQ(many.back().second, twoSongsLength);
    const auto none = counted(-1);
    ASSERT_TRUE(none);
    EXPECT_TRUE(none->empty());
}

TEST_F(AutoDefiner, CancellingEndsTheReadingAndGivesNothing)
{
    record(twoSongs);
    const auto listener = listen([](std::size_t reports) {
        if (reports == 10)
            Definer::cancel();
    });
    EXPECT_FALSE(counted(2));
    EXPECT_EQ(listener->reports.size(), 11U);
    EXPECT_EQ(listener->reports.back(), 1.0F);

    Definer::setDelegate(nullptr);
    EXPECT_EQ(Definer::autoDefineTracksInFile(path)->size(), 2U); // the next run starts afresh
}

TEST_F(AutoDefiner, ACountBeyond16BitsStaysACount)
{
    record(twoSongs);
    const auto file = QMXAudioFile::initWithPath_accessMode(path, QMXAudioFileAccessMode::read);
    ASSERT_TRUE(file->open());
    for (const UInt32 beyond : {0U, 2U}) {
        UInt32 count = (1U << 16) + beyond;
        std::vector<UInt32> splits(99);
        EXPECT_EQ(zeroCrossingSplitFile(*file, 71, 7, 500, splits.data(), &count), 0);
        EXPECT_EQ(count, beyond);
        EXPECT_EQ(splits[beyond], twoSongsLength);
    }
}

TEST_F(AutoDefiner, AFailedReadEndsTheReadingAndCountsTheBlockAgain)
{
    record(twoSongs);
    const auto listener = listen([&](std::size_t reports) {
        if (reports == 36) // one loud block of the second song was read
            disk.failReads(EIO);
    });
    expectTwoSongs(Definer::autoDefineTracksInFile_lengthOfSilence(path, 400));
    EXPECT_EQ(listener->reports.size(), 37U + 55U + 1U);
    EXPECT_EQ(Definer::lastStatus(), ioErr);
    EXPECT_EQ(Definer::lastError(), path + " cannot be read to its end: input/output error");
}

TEST_F(AutoDefiner, AFileThatDoesNotOpenIsOneEmptyTrackAndTheReasonIsTold)
{
    disk.setContents("/d/text", std::vector<std::uint8_t>(200, 'x'));
    for (const auto& [name, reason] :
         {std::pair{"/missing", "no such file"}, {"/d/text", "not an audio file"}, {"/d", "folder"}}) {
        EXPECT_THAT(boundsOf(Definer::autoDefineTracksInFile(name)), ElementsAre(Bounds{0, 0}));
        EXPECT_NE(Definer::lastStatus(), noErr);
        EXPECT_THAT(Definer::lastError(),
                    testing::AllOf(testing::StartsWith(name + std::string(" could not be opened: ")),
                                   testing::HasSubstr(reason)));
    }
    record(twoSongs);
    EXPECT_EQ(counted(2)->size(), 2U);
    EXPECT_EQ(Definer::lastStatus(), noErr);
    EXPECT_EQ(Definer::lastError(), "");
}
