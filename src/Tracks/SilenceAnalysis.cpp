// SPDX-License-Identifier: MIT
#include "Tracks/SilenceAnalysis.h"

#include "Tracks/DefinerProgress.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <vector>

const double dWeights[9] = {0.04, 0.08, 0.12, 0.16, 0.2, 0.16, 0.12, 0.08, 0.04};
SInt32 counter = 0;

namespace
{

/// One channel's side of the level, and how often it changed.
struct LevelCrossings {
    bool isBelow = false;
    UInt32 count = 0;

    void scan(const SInt16* samples, std::size_t frames, std::size_t stride, SInt16 level)
    {
        for (std::size_t frame = 0; frame < frames; ++frame) {
            const SInt16 sample = samples[frame * stride];
            if (isBelow ? sample > level : sample < level) {
                isBelow = !isBelow;
                ++count;
            }
        }
    }
};

using Lanes = SInt16 __attribute__((vector_size(16)));
constexpr std::size_t lanesPerVector = sizeof(Lanes) / sizeof(SInt16);
constexpr std::size_t samplesPerGroup = 4 * lanesPerVector;
constexpr std::size_t groupsPerSum = 4096; // a lane counts up to 4 in a group, 65535 in all

Lanes load(const SInt16* samples)
{
    Lanes lanes;
    std::memcpy(&lanes, samples, sizeof lanes);
    return lanes;
}

bool isAnySet(const Lanes& lanes)
{
    std::array<std::uint64_t, 2> words;
    std::memcpy(words.data(), &lanes, sizeof lanes);
    return (words[0] | words[1]) != 0;
}

/// Adds a group's crossings by comparing each frame with the one before, the first with the frame before `samples`.
/// False, and nothing added, when a sample equals the level: it does not show its side then.
template <std::size_t channelCount> bool addGroup(const SInt16* samples, const Lanes& levels, Lanes& crossings)
{
    Lanes equal = load(samples - channelCount) == levels;
    Lanes changes{};
    for (std::size_t i = 0; i < samplesPerGroup; i += lanesPerVector) {
        const Lanes current = load(samples + i);
        const Lanes previous = load(samples + i - channelCount);
        equal |= current == levels;
        changes += (current < levels) ^ (previous < levels); // a set lane is -1
    }
    if (isAnySet(equal))
        return false;
    crossings -= changes;
    return true;
}

/// The same count as by countByChannel, for numbers of channels that divide a vector.
template <std::size_t channelCount> UInt32 countInGroups(const SInt16* samples, std::size_t frames, SInt16 level)
{
    constexpr std::size_t framesPerGroup = samplesPerGroup / channelCount;
    const Lanes levels = Lanes{} + level;
    std::array<LevelCrossings, channelCount> channels;
    const auto scanChannels = [&](std::size_t count) {
        for (std::size_t channel = 0; channel < channelCount; ++channel)
            channels[channel].scan(samples + channel, count, channelCount, level);
        samples += count * channelCount;
        frames -= count;
    };
    // vector groups do not track sides: recover them from the last frame; where its sample equals the level, a scan did
    const auto takeSides = [&] {
        const SInt16* const previous = samples - channelCount;
        for (std::size_t channel = 0; channel < channelCount; ++channel) {
            if (previous[channel] != level)
                channels[channel].isBelow = previous[channel] < level;
        }
    };
    scanChannels(1);
    while (frames >= framesPerGroup) {
        Lanes crossings{};
        for (auto groups = std::min(frames / framesPerGroup, groupsPerSum); groups > 0; --groups) {
            if (addGroup<channelCount>(samples, levels, crossings)) {
                samples += samplesPerGroup;
                frames -= framesPerGroup;
            } else {
                takeSides();
                scanChannels(framesPerGroup);
            }
        }
        for (std::size_t lane = 0; lane < lanesPerVector; ++lane)
            channels[lane % channelCount].count += static_cast<UInt16>(crossings[lane]);
    }
    takeSides();
    scanChannels(frames);
    return std::ranges::max(channels, {}, &LevelCrossings::count).count;
}

UInt32 countByChannel(const SInt16* samples, std::size_t frames, std::size_t channelCount, SInt16 level)
{
    UInt32 largest = 0;
    for (std::size_t channel = 0; channel < channelCount; ++channel) {
        LevelCrossings crossings;
        crossings.scan(samples + channel, frames, channelCount, level);
        largest = std::max(largest, crossings.count);
    }
    return largest;
}

UInt32 truncatedToCount(double value)
{
    if (!(value > 0))
        return 0;
    constexpr auto most = std::numeric_limits<UInt32>::max();
    return value >= most ? most : static_cast<UInt32>(value);
}

/// Beyond this distance fudge is 0.
constexpr std::ptrdiff_t fudgeReach = 700;

void penaliseAround(std::vector<UInt32>& smoothed, std::ptrdiff_t split)
{
    const auto end = std::min(std::ssize(smoothed), split + fudgeReach + 1);
    for (auto i = std::max<std::ptrdiff_t>(0, split - fudgeReach); i < end; ++i)
        smoothed[static_cast<std::size_t>(i)] += fudge(static_cast<SInt16>(i - split));
}

/// The first of the lowest counts from index 1 on; 0 when none is below 32767.
UInt32 quietestBlock(const std::vector<UInt32>& smoothed)
{
    UInt32 lowest = 32767;
    std::size_t quietest = 0;
    for (std::size_t i = 1; i < smoothed.size(); ++i) {
        if (smoothed[i] < lowest) {
            lowest = smoothed[i];
            quietest = i;
        }
    }
    return static_cast<UInt32>(quietest);
}

/// Calls `advance` for each block that is examined.
template <class Advance>
UInt32 splitsAtThreshold(const UInt32* counts, UInt32 length, UInt16 threshold, UInt32 minimumRun, UInt32* splits,
                         Advance advance)
{
    constexpr UInt32 mostSplits = 98;
    splits[0] = 0;
    UInt32 found = 1;
    bool inSilence = false;
    UInt32 run = 0;
    UInt32 silenceStart = 0;
    UInt32 soundStart = 0;
    // Intended: block 0 is never examined, and one run length confirms both the quiet and the loud stretch.
    for (UInt32 i = 1; i < length && found < mostSplits; ++i) {
        const bool isQuiet = counts[i] < threshold;
        if (isQuiet == inSilence) {
            run = 0;
        } else {
            if (run == 0)
                (inSilence ? soundStart : silenceStart) = i;
            if (++run >= minimumRun) {
                if (inSilence)
                    splits[found++] = silenceStart + (soundStart - silenceStart) / 2;
                inSilence = !inSilence;
                run = 0;
            }
        }
        advance();
    }
    return found;
}

} // namespace

UInt32 countZeroCrossings(const AudioStreamBasicDescription& format, const SInt16* samples, UInt32 byteCount,
                          SInt16 level)
{
    const std::size_t channels = format.mChannelsPerFrame;
    if (channels == 0 || format.mBytesPerFrame == 0)
        return 0;
    // Intended: the scan ends when the index of the sample, not of the frame, reaches the number of frames. All
    // thresholds are tuned to that. The second bound only keeps a format that contradicts itself within the block.
    const std::size_t frames = byteCount / format.mBytesPerFrame;
    const std::size_t examined = std::min((frames + channels - 1) / channels, byteCount / (sizeof(SInt16) * channels));
    if (examined == 0)
        return 0;
    switch (channels) {
    case 1:
        return countInGroups<1>(samples, examined, level);
    case 2:
        return countInGroups<2>(samples, examined, level);
    case 4:
        return countInGroups<4>(samples, examined, level);
    case 8:
        return countInGroups<8>(samples, examined, level);
    default:
        return countByChannel(samples, examined, channels, level);
    }
}

bool isSilence(const AudioStreamBasicDescription& format, const SInt16* samples, UInt16 byteCount,
               SInt16 thresholdPerTenthSecond, UInt32 /*ignored*/, SInt16 level)
{
    if (format.mBytesPerFrame == 0 || format.mSampleRate == 0)
        return false;
    const double tenths = static_cast<double>(byteCount) / format.mBytesPerFrame / format.mSampleRate / 0.1;
    return countZeroCrossings(format, samples, byteCount, level) < truncatedToCount(thresholdPerTenthSecond * tenths);
}

UInt32 weightedAverage(const UInt32* counts, SInt16 length, SInt16 index)
{
    UInt32 sum = 0;
    for (int k = -4; k <= 4; ++k) {
        if (const int i = index + k; i >= 0 && i < length)
            sum += truncatedToCount(counts[i] * dWeights[k + 4]);
    }
    return sum;
}

UInt32 fudge(SInt16 distance)
{
    return distance == 0 ? 1000 : static_cast<UInt32>(700 / std::abs(int{distance}));
}

UInt32 findThresholdSplits(const UInt32* counts, UInt32 length, UInt16 threshold, UInt32 minimumRun, UInt32* splits)
{
    return splitsAtThreshold(counts, length, threshold, minimumRun, splits, qmx::definerProgress::advance);
}

UInt32 qmx::thresholdSplits(const UInt32* counts, UInt32 length, UInt16 threshold, UInt32 minimumRun, UInt32* splits)
{
    return splitsAtThreshold(counts, length, threshold, minimumRun, splits, [] {});
}

UInt32 findCountedSplits(const UInt32* counts, SInt16 length, SInt16 wanted, UInt32* splits)
{
    // a length that the narrow type made negative has no blocks
    std::vector<UInt32> smoothed(static_cast<std::size_t>(std::max<SInt16>(length, 0)));
    for (std::size_t i = 0; i < smoothed.size(); ++i)
        smoothed[i] = weightedAverage(counts, length, static_cast<SInt16>(i));
    splits[0] = 0;
    penaliseAround(smoothed, 0);
    splits[1] = static_cast<UInt32>(length);
    penaliseAround(smoothed, length);
    UInt32* end = splits + 2;
    for (SInt16 j = 0; j < wanted; ++j) {
        const UInt32 chosen = quietestBlock(smoothed);
        UInt32* const place = std::upper_bound(splits, end, chosen);
        std::copy_backward(place, end, end + 1);
        ++end;
        *place = chosen;
        penaliseAround(smoothed, static_cast<std::ptrdiff_t>(chosen));
        qmx::definerProgress::advance();
    }
    return static_cast<UInt32>(wanted);
}

UInt64 myMod(UInt64 dividend, UInt64 divisor)
{
    return divisor == 0 ? 0 : dividend % divisor;
}
