// SPDX-License-Identifier: MIT
// Sample-rate conversion of doubles, one plane a channel, as a stream. Allocates while it runs: not for render threads.
#pragma once

#include "CoreAudioTypes/MacTypes.h"

#include <array>
#include <cstddef>
#include <memory>

struct soxr;

namespace qmx
{

/// One stream at a time. The output is aligned with the input (no silence in front for the filter's delay), and a
/// finished stream of n frames becomes n times the ratio, to the nearest frame. Feeding and taking frames in other
/// pieces does not change the result. Of several channels the helping thread of the process may convert a half; that
/// does not change the result either.
class RateConverter
{
public:
    static constexpr UInt32 bestQuality = 127;
    static constexpr UInt32 defaultQuality = 96;
    /// Below this quality, positions between input frames are rounded.
    static constexpr UInt32 leastExactQuality = 16;
    /// Rates farther apart than this are not converted: the filter's memory grows with the ratio.
    static constexpr Float64 highestRatio = 4096;

    /// Rates in Hz.
    RateConverter(Float64 inputRate, Float64 outputRate, UInt32 channels);

    /// Whether it converts: false from the start for rates too far apart, later when memory was short.
    bool isUsable() const;
    /// Whether frames were fed since the stream started.
    bool hasInput() const { return hasInput_; }
    bool isFinished() const { return isFinished_; }

    /// 0 to 127. Takes effect at once before anything was fed, else when the next stream starts.
    void setQuality(UInt32 quality);
    UInt32 quality() const { return quality_; }

    /// Takes in all `count` frames, which belong to the open stream. `planes` has one pointer a channel; nothing is
    /// written there.
    void feed(Float64* const* planes, std::size_t count);
    /// No more frames follow: what the filter holds can be taken now.
    void finish();
    /// Writes up to `count` ready frames and returns how many; none means that more input is needed or, in a finished
    /// stream, the end.
    std::size_t take(Float64* const* planes, std::size_t count);
    /// Forgets the stream: the next frames start a new one.
    void restart();

private:
    struct Release {
        void operator()(soxr* filter) const;
    };

    Float64 inputRate_, outputRate_;
    std::array<UInt32, 2> channels_; // of each filter
    UInt32 quality_ = defaultQuality;
    bool hasInput_ = false, isFinished_ = false;
    bool mayBeReady_ = false; // frames to take
    // of the first half of the channels and of the others; a single channel has no second one
    std::array<std::unique_ptr<soxr, Release>, 2> filters_;
};

} // namespace qmx
