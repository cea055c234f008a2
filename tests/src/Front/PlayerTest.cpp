// SPDX-License-Identifier: MIT
#include "Front/Player.h"

#include "Tracks/QMXAudioTrackInfo.h"
#include "support/PlayAndRecord.h"

#include <gmock/gmock.h>

using qmx::Player;
using testing::ElementsAre;

namespace
{

constexpr UInt32 fileFrames = 20'000;
constexpr UInt32 tail = 4096; // silence before the end

Float32 pattern(SInt64 frame, UInt32 channel)
{
    return static_cast<Float32>(frame + 1) / 65536 * (channel == 0 ? 1 : -1);
}

class FrontPlayerTest : public qmx::test::PlayAndRecord
{
protected:
    FrontPlayerTest()
    {
        writeFile(path, fileFrames, pattern);
        addDevice("out", 0, 2);
    }
    static qmx::Device device(const std::string& uid) { return *qmx::device(uid); }
    void listen(Player& player)
    {
        player.onEnd([this](const qmx::Result<void>& how) {
            ends.push_back(how ? "played" : how.error().isCancelled() ? "stopped" : how.error().text());
        });
    }
    /// The frames of the file that a device is given in its next cycles: 0 for silence.
    std::vector<SInt64> framesPlayed(const std::string& uid, UInt32 cycles)
    {
        const auto samples = played(*device(uid).object(), cycles);
        std::vector<SInt64> frames;
        for (std::size_t i = 0; i + 1 < samples.size(); i += 2) {
            EXPECT_EQ(samples[i], -samples[i + 1]);
            frames.push_back(static_cast<SInt64>(samples[i] * 65536));
        }
        return frames;
    }
    /// That these are `count` consecutive frames from `first` on.
    static void expectFrames(const std::vector<SInt64>& frames, SInt64 first, std::size_t count)
    {
        ASSERT_GE(frames.size(), count);
        for (std::size_t i = 0; i < count; ++i)
            ASSERT_EQ(first + 1 + static_cast<SInt64>(i), frames[i]) << i;
    }

    std::vector<std::string> ends;
};

} // namespace

TEST_F(FrontPlayerTest, PlaysItsRangeToTheFrameAndTellsItsEnd)
{
    const auto track =
        QMXAudioTrackInfo::initWithTrackTitle_trackBegin_trackEnd_isActive(std::nullopt, 1000, 3000, true);
    auto player = Player::play(path, *track, {.volume = 1, .meters = true});
    ASSERT_TRUE(player) << player.error().text();
    listen(*player);
    const auto frames = framesPlayed("out", (2000 + tail) / 512 + 2);
    expectFrames(frames, 1000, 2000);
    EXPECT_EQ(0, frames[2000]);
    posted();
    EXPECT_THAT(ends, ElementsAre("played"));
    EXPECT_TRUE(player->hasEnded());
    EXPECT_NEAR(qmx::decibels(3000 / 65536.0), player->levels()[1].peak, 1e-4);
}

TEST_F(FrontPlayerTest, PausesSeeksLoopsAndStops)
{
    auto player = Player::play(path, {.from = 100, .to = 5000, .loop = true});
    ASSERT_TRUE(player);
    listen(*player);
    expectFrames(framesPlayed("out", 2), 100, 1024);
    EXPECT_TRUE(player->pause());
    EXPECT_TRUE(player->isPaused());
    EXPECT_TRUE(framesPlayed("out", 1).empty());
    EXPECT_TRUE(player->resume());
    expectFrames(framesPlayed("out", 1), 1124, 512);
    player->seek(100'000); // to the last frame
    EXPECT_EQ(4999, player->position());
    player->seek(4000);
    expectFrames(framesPlayed("out", 1), 4000, 512);
    (void)framesPlayed("out", (488 + tail) / 512 + 2);
    posted();
    expectFrames(framesPlayed("out", 1), 100, 512); // again
    player->stop();
    posted();
    EXPECT_THAT(ends, ElementsAre("stopped"));
}

TEST_F(FrontPlayerTest, EndsWithItsDeviceUnlessItFollowsTheDefaultOne)
{
    auto bound = Player::play(path, {.device = device("out")});
    auto following = Player::play(path);
    ASSERT_TRUE(bound && following);
    listen(*bound);
    addDevice("other", 0, 2);
    EXPECT_EQ(noErr, hardware.removeDevice(device("out").id()));
    posted();
    EXPECT_THAT(ends, ElementsAre("Name of out was unplugged"));
    EXPECT_FALSE(following->hasEnded());
    expectFrames(framesPlayed("other", 2), 0, 1024);

    // a handle that goes stops without telling
    listen(*following);
    following = qmx::Error(noErr, "");
    posted();
    EXPECT_EQ(1U, ends.size());
    EXPECT_FALSE(hardware.advanceCycles(device("other").id()));
}

TEST_F(FrontPlayerTest, SaysWhyItCannotPlay)
{
    EXPECT_EQ("/d/none.wav: No such file or directory", Player::play("/d/none.wav").error().text());
    EXPECT_EQ("/d/sound.wav: There is nothing to play in that range",
              Player::play(path, {.from = fileFrames}).error().text());
    const qmx::Device out = device("out");
    EXPECT_EQ(noErr, hardware.removeDevice(out.id()));
    posted();
    EXPECT_EQ("There is no output device", Player::play(path).error().text());
    EXPECT_EQ("Name of out is gone", Player::play(path, {.device = out}).error().text());
}
