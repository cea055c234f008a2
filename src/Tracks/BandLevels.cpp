// SPDX-License-Identifier: MIT
#include "Tracks/BandLevels.h"

#include <algorithm>
#include <cmath>

namespace qmx
{
namespace
{

constexpr double secondsPerStep = 0.0464;
constexpr UInt64 mostSteps = UInt64{1} << 20;
constexpr UInt32 mostPairs = 8;

BandLevel levelOf(float power)
{
    constexpr float least = 1e-13F;
    const float decibels = 10 * std::log10(std::max(power, least));
    return static_cast<BandLevel>(std::clamp(std::round((decibels - lowestDecibels) / decibelsPerLevel), 0.0F, 255.0F));
}

} // namespace

BandLevels::BandLevels(double sampleRate, UInt32 channels, UInt64 frames)
    : channels_(channels), pairs_(std::clamp((channels + 1) / 2, UInt32{1}, mostPairs), BandTransform(sampleRate))
{
    framesPerStep_ = std::max({static_cast<UInt64>(pairs_[0].length()),
                               static_cast<UInt64>(std::llround(sampleRate * secondsPerStep)), frames / mostSteps + 1});
    steps_.reserve(frames / framesPerStep_ + 1);
}

void BandLevels::measure(const float* samples, UInt64 frames)
{
    if (channels_ == 2) {
        std::copy_n(samples, 2 * frames, pairs_[0].window(lane_).data() + 2 * position_);
        return;
    }
    const auto stride = static_cast<UInt32>(2 * pairs_.size());
    for (std::size_t pair = 0; pair < pairs_.size(); ++pair) {
        float* target = pairs_[pair].window(lane_).data() + 2 * position_;
        const float* frame = samples;
        for (UInt64 i = 0; i < frames; ++i, frame += channels_, target += 2) {
            target[0] = target[1] = 0;
            for (auto channel = static_cast<UInt32>(2 * pair); channel < channels_; channel += stride) {
                target[0] += frame[channel];
                if (channel + 1 < channels_)
                    target[1] += frame[channel + 1];
            }
        }
    }
}

void BandLevels::add(std::span<const float> samples)
{
    const UInt64 window = pairs_[0].length();
    while (!samples.empty()) {
        const bool isMeasured = position_ < window;
        const UInt64 room = (isMeasured ? window : framesPerStep_) - position_;
        const UInt64 frames = std::min<UInt64>(room, samples.size() / channels_);
        if (isMeasured)
            measure(samples.data(), frames);
        samples = samples.subspan(frames * channels_);
        position_ += frames;
        if (position_ < framesPerStep_)
            continue;
        position_ = 0;
        if (++lane_ == BandTransform::laneCount)
            finishWindows();
    }
}

void BandLevels::finishWindows()
{
    std::array<BandPowers, BandTransform::laneCount> powers{};
    std::array<std::size_t, BandTransform::laneCount> live{};
    for (BandTransform& pair : pairs_) {
        const auto ofPair = pair.powers();
        for (std::size_t lane = 0; lane < lane_; ++lane) {
            live[lane] += pair.liveChannels(lane);
            for (std::size_t band = 0; band < bandCount; ++band)
                powers[lane][band] += ofPair[lane][band];
        }
    }
    for (std::size_t lane = 0; lane < lane_ && steps_.size() < mostSteps; ++lane) {
        const auto channels = static_cast<float>(std::max<std::size_t>(live[lane], 1));
        std::ranges::transform(powers[lane], steps_.emplace_back().begin(),
                               [channels](float power) { return levelOf(power / channels); });
    }
    lane_ = 0;
}

void BandLevels::finish()
{
    if (lane_ > 0)
        finishWindows();
}

} // namespace qmx
