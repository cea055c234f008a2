// SPDX-License-Identifier: MIT
#include "Tracks/SilenceAnalysis.h"

#include <gtest/gtest.h>

#include <array>
#include <numeric>
#include <random>
#include <vector>

namespace
{

AudioStreamBasicDescription formatOf(UInt32 channels)
{
    return {.mSampleRate = 44100, .mBytesPerFrame = 2 * channels, .mChannelsPerFrame = channels};
}

UInt32 crossings(const std::vector<SInt16>& samples, UInt32 channels, SInt16 level)
{
    return countZeroCrossings(formatOf(channels), samples.data(), static_cast<UInt32>(samples.size() * 2), level);
}

/// The count as it is defined, sample by sample.
UInt32 definedCrossings(const std::vector<SInt16>& samples, std::size_t channels, SInt16 level)
{
    const std::size_t frames = samples.size() / channels;
    std::vector<UInt32> counts(channels);
    std::vector<bool> isBelow(channels);
    for (std::size_t s = 0; s < frames; s += channels) {
        for (std::size_t c = 0; c < channels; ++c) {
            if (isBelow[c] ? samples[s + c] > level : samples[s + c] < level) {
                isBelow[c] = !isBelow[c];
                ++counts[c];
            }
        }
    }
    return *std::max_element(counts.begin(), counts.end());
}

std::vector<UInt32> thresholdSplits(const std::vector<UInt32>& counts, UInt32 minimumRun)
{
    std::vector<UInt32> splits(99);
    splits.resize(
        findThresholdSplits(counts.data(), static_cast<UInt32>(counts.size()), 71, minimumRun, splits.data()));
    return splits;
}

std::vector<UInt32> countedSplits(const std::vector<UInt32>& counts, SInt16 wanted)
{
    std::vector<UInt32> splits(static_cast<std::size_t>(wanted) + 2);
    EXPECT_EQ(findCountedSplits(counts.data(), static_cast<SInt16>(counts.size()), wanted, splits.data()), wanted);
    return splits;
}

/// One count for each character: '.' quiet, '#' loud.
std::vector<UInt32> countsOf(std::string_view pattern)
{
    std::vector<UInt32> counts;
    for (const char c : pattern)
        counts.push_back(c == '.' ? 70 : 71);
    return counts;
}

using Splits = std::vector<UInt32>;

} // namespace

TEST(SilenceAnalysis, CrossingsAreThoseOfTheDefinitionForAllLayoutsAndEqualSamples)
{
    std::minstd_rand random(1);
    for (const UInt32 channels : {1U, 2U, 3U, 4U, 6U, 8U, 9U}) {
        for (const int spread : {1, 3, 2000, 32767}) {
            for (const std::size_t frames : {0U, 1U, 5U, 513U, 2000U, 8821U}) {
                std::uniform_int_distribution<int> values(-spread, spread);
                std::vector<SInt16> samples(frames * channels);
                for (SInt16& sample : samples)
                    sample = static_cast<SInt16>(values(random));
                for (const SInt16 level : {SInt16{0}, SInt16{-1}, SInt16{500}, SInt16{-32768}})
                    ASSERT_EQ(crossings(samples, channels, level), definedCrossings(samples, channels, level))
                        << channels << " channels, " << frames << " frames, spread " << spread << ", level " << level;
            }
        }
    }
}

TEST(SilenceAnalysis, ContradictoryFormatsStayWithinTheBlock)
{
    const std::vector<SInt16> samples(64, -1);
    EXPECT_EQ(countZeroCrossings({.mBytesPerFrame = 1, .mChannelsPerFrame = 1}, samples.data(), 128, 0), 1U);
    EXPECT_EQ(countZeroCrossings({.mBytesPerFrame = 1, .mChannelsPerFrame = 0xFFFFFFFF}, samples.data(), 128, 0), 0U);
    EXPECT_EQ(countZeroCrossings({.mBytesPerFrame = 0, .mChannelsPerFrame = 2}, samples.data(), 128, 0), 0U);
}

TEST(SilenceAnalysis, SilenceIsCountedPerTenthOfASecond)
{
    std::vector<SInt16> samples(8820); // mono, a fifth of a second
    for (std::size_t i = 0; i < 20; ++i)
        samples[i] = i % 2 == 0 ? -1 : 1; // 20 crossings: 10 per tenth
    const auto silent = [&](SInt16 threshold) {
        return isSilence(formatOf(1), samples.data(), 17640, threshold, 0, 0);
    };
    EXPECT_FALSE(silent(10));
    EXPECT_TRUE(silent(11));
    EXPECT_FALSE(silent(-1));
}

TEST(SilenceAnalysis, SmoothingTruncatesEachTermAndLeavesOutWhatIsMissing)
{
    EXPECT_DOUBLE_EQ(std::accumulate(std::begin(dWeights), std::end(dWeights), 0.0), 1.0);
    const std::array<UInt32, 9> counts{10, 10, 10, 10, 10, 10, 10, 10, 4294967295U};
    EXPECT_EQ(weightedAverage(counts.data(), 8, 4), 6U); // 0+0+1+1+2+1+1+0
    EXPECT_EQ(weightedAverage(counts.data(), 8, 0), 4U); // 2+1+1+0+0
    EXPECT_EQ(weightedAverage(counts.data(), 9, 4), 6U + 171798691U);
    EXPECT_EQ(weightedAverage(counts.data(), -1, 0), 0U);
}

TEST(SilenceAnalysis, PenaltyFallsWithTheDistanceToBothSides)
{
    for (const auto& [distance, penalty] : {std::pair{0, 1000U}, {1, 700U}, {-3, 233U}, {701, 0U}, {-32768, 0U}})
        EXPECT_EQ(fudge(static_cast<SInt16>(distance)), penalty);
}

TEST(SilenceAnalysis, SplitsLieMidwayBetweenFirstQuietAndFirstLoudBlock)
{
    EXPECT_EQ(thresholdSplits(countsOf("####...####"), 3), (Splits{0, 5}));       // (4 + 7) / 2
    EXPECT_EQ(thresholdSplits(countsOf("####..####...###"), 3), (Splits{0, 11})); // the short gap does not count
    EXPECT_EQ(thresholdSplits(countsOf("###...##..####"), 3), (Splits{0, 6}));    // nor does the burst inside a gap
    EXPECT_EQ(thresholdSplits(countsOf("####......"), 3), Splits{0});
    EXPECT_EQ(thresholdSplits(countsOf(".####"), 0), Splits{0}); // block 0 is not examined
    EXPECT_EQ(thresholdSplits(countsOf("#.#.#"), 0), (Splits{0, 1, 3}));
    EXPECT_EQ(thresholdSplits(countsOf("#.##"), 65535), Splits{0});
    EXPECT_EQ(thresholdSplits({}, 3), Splits{0});
}

TEST(SilenceAnalysis, ThresholdSearchStopsAt98Splits)
{
    std::string pattern = "#";
    for (int i = 0; i < 200; ++i)
        pattern += ".#";
    const Splits splits = thresholdSplits(countsOf(pattern), 1);
    ASSERT_EQ(splits.size(), 98U);
    EXPECT_EQ(splits.back(), 193U);
}

TEST(SilenceAnalysis, CountedSearchTakesTheQuietestPlacesInAscendingOrder)
{
    std::vector<UInt32> counts(3000, 5000);
    for (const std::size_t quiet : {2000U, 1000U})
        std::fill_n(counts.begin() + static_cast<std::ptrdiff_t>(quiet) - 4, 9, 0U);
    counts[2000] = 10;
    EXPECT_EQ(countedSplits(counts, 2), (Splits{0, 1000, 2000, 3000}));
    EXPECT_EQ(countedSplits(counts, 3), (Splits{0, 999, 1000, 2000, 3000})); // then the quietest penalised neighbour
    EXPECT_EQ(countedSplits(std::vector<UInt32>(2000, 0), 1), (Splits{0, 701, 2000}));   // the first of the unpenalised
    EXPECT_EQ(countedSplits(std::vector<UInt32>(50, 200000), 2), (Splits{0, 0, 0, 50})); // nothing below 32767
}

TEST(SilenceAnalysis, CountedSearchOfNoBlocksOrNoTracksStaysWithinTheTable)
{
    Splits splits(4, 9);
    EXPECT_EQ(findCountedSplits(nullptr, -7, 1, splits.data()), 1U);
    EXPECT_EQ(splits, (Splits{0, 0, static_cast<UInt32>(-7), 9}));
    EXPECT_EQ(findCountedSplits(nullptr, 0, -3, splits.data()), static_cast<UInt32>(-3));
    EXPECT_EQ(splits[3], 9U);
}
