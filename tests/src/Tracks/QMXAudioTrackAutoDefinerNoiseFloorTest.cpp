// SPDX-License-Identifier: MIT
#include "Tracks/QMXAudioTrackAutoDefiner.h"

#include "FileRelated/QMXAudioFile.h"
#include "Formats/QMXAudioStreamBasicDescription.h"
#include "Processing/QMXAudioConverter.h"
#include "Tracks/QMXAudioTrackInfo.h"
#include "support/CapturedLog.h"
#include "support/MemoryDisk.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

namespace
{

using Definer = QMXAudioTrackAutoDefiner;
using testing::Pointwise;

const std::string path = "/d/side";

/// A recording in the making, one channel of floats.
class Side
{
public:
    explicit Side(double sampleRate = 8000, double noise = 0.001) : rate_(sampleRate), noise_(noise) {}

    /// Chords that change, struck anew four times a second, over the noise; they end loud.
    Side& music(double seconds, double loudness = 0.2)
    {
        return add(seconds, [loudness](double time) { return loudness * chord(time); });
    }
    /// The same, sinking by 40 dB a second.
    Side& fade(double seconds)
    {
        return add(seconds, [](double time) { return 0.2 * std::pow(100, -time) * chord(time); });
    }
    /// One steady low chord.
    Side& drone(double seconds, double loudness)
    {
        return add(seconds, [loudness](double time) {
            return loudness * (std::sin(2 * M_PI * 180 * time) + std::sin(2 * M_PI * 270 * time));
        });
    }
    Side& tone(double seconds)
    {
        return add(seconds, [](double time) { return 0.5 * std::sin(2 * M_PI * 440 * time); });
    }
    Side& quiet(double seconds)
    {
        return add(seconds, [](double) { return 0.0; });
    }
    /// From here on the noise is another.
    Side& noise(double level)
    {
        noise_ = level;
        return *this;
    }
    Side& click() { return append({0.9F, -0.9F, 0.5F}); }
    Side& append(std::initializer_list<float> samples)
    {
        samples_.insert(samples_.end(), samples);
        return *this;
    }
    /// A sample of a moment becomes what no recording holds.
    Side& spoil(double second, float sample)
    {
        samples_.at(static_cast<std::size_t>(second * rate_)) = sample;
        return *this;
    }

    const std::vector<float>& samples() const { return samples_; }
    double rate() const { return rate_; }

private:
    static double chord(double time)
    {
        const double root = 220 * std::exp2(std::floor(time) * 5 / 12 - std::floor(time * 5 / 12));
        const double struck = 1 - std::fmod(time, 0.25);
        double sum = 0;
        for (const double tone : {1.0, 1.5, 2.5, 4.0, 7.0})
            sum += std::sin(2 * M_PI * root * tone * time);
        return struck * sum / 5;
    }
    template <class Sound> Side& add(double seconds, Sound sound)
    {
        std::normal_distribution<double> normal(0, noise_);
        const auto frames = static_cast<std::size_t>(seconds * rate_);
        for (std::size_t i = 0; i < frames; ++i)
            samples_.push_back(
                static_cast<float>(sound(static_cast<double>(i) / rate_) + (noise_ > 0 ? normal(random_) : 0)));
        return *this;
    }

    double rate_;
    double noise_;
    std::mt19937 random_{7};
    std::vector<float> samples_;
};

AudioStreamBasicDescription pcm(double rate, AudioFormatFlags flags, UInt32 bits, UInt32 channels)
{
    const UInt32 frame = bits / 8 * channels;
    return {rate, kAudioFormatLinearPCM, flags, frame, 1, frame, channels, bits, 0};
}

void write(const Side& side, AudioFormatFlags flags = 14, UInt32 bits = 16, UInt32 channels = 1, UInt32 sources = 1)
{
    const auto mono = std::make_shared<QMXAudioStreamBasicDescription>(pcm(side.rate(), 9, 32, sources));
    const auto target = std::make_shared<QMXAudioStreamBasicDescription>(pcm(side.rate(), flags, bits, channels));
    const auto converter = QMXAudioConverter::initWithSourceFormat_destinationFormat(mono, target);
    const auto bytes = static_cast<UInt32>(side.samples().size() * sizeof(float));
    std::vector<Byte> audio(converter->calculateOutputBufferSize(bytes));
    auto length = static_cast<UInt32>(audio.size());
    ASSERT_EQ(converter->convertBuffer_inputBufferSize_outputBuffer_outputBufferSize(
                  reinterpret_cast<const Byte*>(side.samples().data()), bytes, audio.data(), &length),
              noErr);
    const auto file = QMXAudioFile::initWithPath_accessMode(path, QMXAudioFileAccessMode::write);
    EXPECT_TRUE(file->setFileStreamFormat(*target));
    file->setFileType(kAudioFileAIFCType);
    ASSERT_TRUE(file->create() && file->write_length(audio.data(), &length) && file->close());
}

/// Two recordings as two of six channels; the others are silent.
Side among(const Side& second, const Side& fifth)
{
    Side six(second.rate());
    for (std::size_t i = 0; i < std::min(second.samples().size(), fifth.samples().size()); ++i)
        six.append({0, second.samples()[i], 0, 0, fifth.samples()[i], 0});
    return six;
}

MATCHER(IsNear, "")
{
    return std::abs(std::get<0>(arg) - std::get<1>(arg)) < 0.15;
}

class ByNoiseFloor : public testing::Test
{
protected:
    ~ByNoiseFloor() override
    {
        Definer::setDelegate(nullptr);
        Definer::setSecondsBeforeNextTrack(-1);
    }

    /// Seconds at which tracks start, but the first; what was written is divided.
    static std::vector<double> cuts(double rate = 8000, SInt16 tracks = 0)
    {
        const auto found = Definer::autoDefineTracksByNoiseFloorInFile_numberOfTracks(path, tracks);
        EXPECT_EQ(Definer::lastStatus(), noErr) << Definer::lastError();
        std::vector<double> starts;
        for (std::size_t i = 1; found && i < found->size(); ++i) {
            EXPECT_EQ(found->at(i)->trackBegin(), found->at(i - 1)->trackEnd());
            starts.push_back(static_cast<double>(found->at(i)->trackBegin()) / rate);
        }
        return starts;
    }

    qmx::test::MemoryDisk disk;
    qmx::test::CapturedLog log;
};

Side threePieces(double rate = 8000)
{
    return Side(rate).quiet(1).music(20).quiet(2).music(15).quiet(3).music(15).quiet(2);
}
const std::vector<double> betweenThreePieces{22, 39.5};

} // namespace

TEST_F(ByNoiseFloor, FindsTheSamePausesInEverySampling)
{
    for (const double rate : {8000.0, 22050.0, 48000.0}) {
        write(threePieces(rate));
        EXPECT_THAT(cuts(rate), Pointwise(IsNear(), betweenThreePieces)) << rate;
    }
    for (const auto& [flags, bits, channels] :
         {std::tuple{14U, 24U, 2U}, {14U, 8U, 1U}, {11U, 32U, 6U}, {14U, 16U, 19U}}) {
        write(threePieces(), flags, bits, channels);
        EXPECT_THAT(cuts(), Pointwise(IsNear(), betweenThreePieces)) << bits << " bits, " << channels << " channels";
    }
}

TEST_F(ByNoiseFloor, TellsWhatItSaw)
{
    write(threePieces());
    Definer::setSecondsBeforeNextTrack(0.5);
    EXPECT_THAT(cuts(), Pointwise(IsNear(), std::vector<double>{22.5, 40.5}));
    const auto found = Definer::lastPauses();
    ASSERT_EQ(found->pauses.size(), 2U);
    const QMXAudioPause& pause = found->pauses[1];
    EXPECT_NEAR(static_cast<double>(pause.begin) / 8000, 38, 0.15);
    EXPECT_NEAR(static_cast<double>(pause.end) / 8000, 41, 0.15);
    EXPECT_TRUE(pause.divides);
    EXPECT_GT(pause.strength, 0.8F);
    const auto levelAt = [&](std::size_t second) { return found->levels.at(second * 8000 / found->framesPerLevel); };
    EXPECT_NEAR(levelAt(39).level, -60, 4);
    EXPECT_GT(levelAt(30).level, -30);
    EXPECT_NEAR(levelAt(30).floor, -60, 4);
}

TEST_F(ByNoiseFloor, FollowsTheNoiseOfEachPause)
{
    write(Side(8000, 0.001)
              .quiet(1)
              .music(20)
              .quiet(2)
              .noise(0.0016)
              .music(20)
              .quiet(2)
              .noise(0.0025)
              .music(20)
              .quiet(1.5)
              .music(20)
              .quiet(2));
    EXPECT_THAT(cuts(), Pointwise(IsNear(), std::vector<double>{22, 44, 65.75}));
    write(Side(8000, 0).music(20).noise(0.0002).quiet(2).noise(0).music(20).noise(0.0002).quiet(2).noise(0).music(20));
    EXPECT_THAT(cuts(), Pointwise(IsNear(), std::vector<double>{21, 43})); // noise only between the pieces
    Side faded(8000, 0);                                                   // to less than the noise that then starts
    faded.music(20).fade(2).noise(0.0002).quiet(2).noise(0).music(20).fade(2).noise(0.0002).quiet(2).noise(0).music(20);
    write(faded);
    EXPECT_THAT(cuts(), Pointwise(IsNear(), std::vector<double>{23, 47}));
    write(Side(8000, 0).music(20).quiet(2).music(20).quiet(2).music(20)); // digital silence
    EXPECT_THAT(cuts(), Pointwise(IsNear(), std::vector<double>{21, 43}));
}

TEST_F(ByNoiseFloor, ClicksDoNotEndAPause)
{
    write(Side().music(20).quiet(0.7).click().quiet(0.8).click().quiet(0.6).music(20).quiet(2).music(20));
    EXPECT_THAT(cuts(), Pointwise(IsNear(), std::vector<double>{21.05, 43.1}));
}

TEST_F(ByNoiseFloor, MusicWithoutPausesIsOneTrack)
{
    write(Side().music(20).music(5, 0.02).music(20).music(3, 0.01).music(20)); // quiet passages
    EXPECT_THAT(cuts(), testing::IsEmpty());
    Side sinking; // below the noise, and slowly back
    sinking.music(20);
    for (const double loudness : {0.02, 0.006, 0.002, 0.0, 0.0, 0.002, 0.006, 0.02})
        sinking.music(1, loudness);
    write(sinking.music(20));
    EXPECT_THAT(cuts(), testing::IsEmpty());
    write(Side().quiet(6).music(20).quiet(10)); // a lead-in and a run-out
    EXPECT_THAT(cuts(), testing::IsEmpty());
    write(Side().music(20).noise(0.1).quiet(6).noise(0.001).music(20)); // applause
    EXPECT_THAT(cuts(), testing::IsEmpty());
    Side speech;
    for (int sentence = 0; sentence < 30; ++sentence)
        speech.music(2 + sentence % 3).quiet(0.5);
    write(speech);
    EXPECT_THAT(cuts(), testing::IsEmpty());
}

TEST_F(ByNoiseFloor, ARestInWhichFaintMusicGoesOnIsNoPause)
{
    write(Side().music(20).quiet(2).music(20).music(2, 0.0012).music(20).quiet(2).music(20).quiet(2).music(20));
    EXPECT_THAT(cuts(), Pointwise(IsNear(), std::vector<double>{21, 65, 87}));
}

TEST_F(ByNoiseFloor, PausesDivideBothSidesOfARecordThatWasTurnedOver)
{
    Side record;
    for (int side = 0; side < 2; ++side)
        record.noise(0.002).music(20).quiet(2).music(20).quiet(2).music(20).noise(0).drone(3, 0.0002);
    write(record);
    EXPECT_THAT(cuts(), Pointwise(IsNear(), std::vector<double>{21, 43, 65.5, 88, 110}));
}

TEST_F(ByNoiseFloor, LoudSoundThatIsAsSteadyAsNoiseIsNoPause)
{
    write(Side(8000, 0).tone(40).quiet(2).tone(40).quiet(2).tone(40));
    EXPECT_THAT(cuts(), Pointwise(IsNear(), std::vector<double>{41, 83}));
    write(Side(8000, 0.2).quiet(40).noise(0.0005).quiet(2).noise(0.2).quiet(40));
    EXPECT_THAT(cuts(), Pointwise(IsNear(), std::vector<double>{41}));
}

TEST_F(ByNoiseFloor, ToldTheNumberTakesTheClearestPauses)
{
    write(Side().music(20).quiet(2).music(20).quiet(0.4).music(20).quiet(3).music(20));
    EXPECT_THAT(cuts(8000, 4), Pointwise(IsNear(), std::vector<double>{21, 42.2, 63.9}));
    EXPECT_THAT(cuts(8000, 3), Pointwise(IsNear(), std::vector<double>{21, 63.9}));
    EXPECT_THAT(cuts(8000, 1), testing::IsEmpty());
    EXPECT_THAT(Definer::autoDefineTracksByNoiseFloorInFile_numberOfTracks(path, -1),
                testing::Pointee(testing::IsEmpty()));
}

TEST_F(ByNoiseFloor, OddFilesGiveAStatusOrOneTrack)
{
    const auto none = Definer::autoDefineTracksByNoiseFloorInFile("/d/none");
    EXPECT_EQ(none->at(0)->trackEnd(), 0);
    EXPECT_NE(Definer::lastStatus(), noErr);
    EXPECT_THAT(Definer::lastError(), testing::HasSubstr("/d/none"));

    write(Side().music(0.02)); // less than a step
    EXPECT_THAT(cuts(), testing::IsEmpty());

    write(Side().music(2));
    EXPECT_THAT(cuts(), testing::IsEmpty());

    write(threePieces().spoil(23, std::numeric_limits<float>::quiet_NaN()).spoil(24, INFINITY), 11, 32);
    EXPECT_THAT(cuts(), Pointwise(IsNear(), betweenThreePieces));
}

TEST_F(ByNoiseFloor, ADamagedFileIsDividedAsFarAsItCanBeRead)
{
    write(threePieces());
    auto bytes = disk.contents(path);
    bytes.resize(bytes.size() - 20 * 8000 * 2); // within the last pause
    disk.setContents(path, bytes);
    const auto found = Definer::autoDefineTracksByNoiseFloorInFile(path);
    ASSERT_EQ(found->size(), 2U);
    EXPECT_NEAR(static_cast<double>(found->at(1)->trackBegin()) / 8000, betweenThreePieces[0], 0.15);

    write(threePieces());
    disk.failReads(EIO);
    (void)Definer::autoDefineTracksByNoiseFloorInFile(path);
    disk.failReads(0);
    EXPECT_NE(Definer::lastStatus(), noErr);
    EXPECT_THAT(Definer::lastError(), testing::HasSubstr(path));
}

TEST_F(ByNoiseFloor, AQuietChannelDoesNotHideAnothersMusic)
{
    const Side whole = Side().quiet(1).music(54).quiet(2);
    write(among(threePieces(), whole), 11, 32, 6, 6);
    EXPECT_THAT(cuts(), testing::IsEmpty()); // where one pauses, the other plays
    write(among(threePieces(), Side().quiet(58)), 11, 32, 6, 6);
    EXPECT_THAT(cuts(), Pointwise(IsNear(), betweenThreePieces));
}

TEST_F(ByNoiseFloor, SuggestsSettingsThatGiveTheSameCutsByCrossings)
{
    Definer::setConvertsFilesOfOtherChannelCounts(true);
    write(
        Side(44100, 0.012).quiet(1).music(20).quiet(2).music(15).quiet(3).music(15).quiet(2)); // noise above the level
    const auto wanted = cuts(44100);
    EXPECT_THAT(wanted, Pointwise(IsNear(), betweenThreePieces));
    const auto settings = Definer::suggestedSettings();
    ASSERT_TRUE(settings) << Definer::lastError();
    const auto found = Definer::autoDefineTracksInFile_sensitivity_lengthOfSilence_zeroOffset(
        path, settings->sensitivity, settings->lengthOfSilence, settings->zeroOffset);
    ASSERT_EQ(found->size(), 3U);
    EXPECT_NEAR(static_cast<double>(found->at(1)->trackBegin()) / 44100, wanted[0], 1);
    EXPECT_NEAR(static_cast<double>(found->at(2)->trackBegin()) / 44100, wanted[1], 1);
    Definer::setConvertsFilesOfOtherChannelCounts(false);

    (void)disk.remove(path);
    EXPECT_FALSE(Definer::suggestedSettings());
    EXPECT_THAT(Definer::lastError(), testing::HasSubstr(path));
    EXPECT_EQ(Definer::autoDefineTracksByNoiseFloorInFile_numberOfTracks(path, -1)->size(), 0U);
    EXPECT_FALSE(Definer::suggestedSettings());
    EXPECT_EQ(Definer::lastStatus(), paramErr);
}

TEST_F(ByNoiseFloor, ReportsItsProgressAndSoundAndCanBeCancelled)
{
    struct Listener : QMXAudioTrackAutoDefinerDelegate {
        void autoDefineProgress(float progress) override
        {
            reports.push_back(progress);
            if (reports.size() == cancelAt)
                Definer::cancel();
        }
        void autoDefineReadSamples(std::span<const Float32> block, UInt32 channelCount) override
        {
            samples.insert(samples.end(), block.begin(), block.end());
            channels = channelCount;
        }
        std::vector<float> reports, samples;
        UInt32 channels = 0;
        std::size_t cancelAt = 0;
    };
    const Side side = threePieces();
    write(side);
    const auto listener = std::make_shared<Listener>();
    Definer::setDelegate(listener);
    EXPECT_EQ(cuts().size(), 2U);
    EXPECT_TRUE(std::ranges::is_sorted(listener->reports));
    EXPECT_GT(listener->reports.size(), 10U);
    EXPECT_GT(listener->reports.end()[-2], 0.8F);
    EXPECT_EQ(listener->reports.back(), 1.0F);
    EXPECT_EQ(listener->channels, 1U);
    EXPECT_THAT(listener->samples, Pointwise(testing::FloatNear(0x1p-15F), side.samples()));

    listener->reports.clear();
    listener->cancelAt = 3;
    EXPECT_FALSE(Definer::autoDefineTracksByNoiseFloorInFile(path));
    EXPECT_EQ(listener->reports.size(), 4U);
    EXPECT_EQ(listener->reports.back(), 1.0F);
    EXPECT_FALSE(Definer::lastPauses());
}
