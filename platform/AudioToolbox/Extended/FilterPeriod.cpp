// SPDX-License-Identifier: MIT
#include "AudioToolbox/Extended/FilterPeriod.h"

#include "AudioToolbox/Conversion/RateConverter.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <utility>
#include <vector>

namespace qmx
{
namespace
{

/// Frames fed until some came out, and how many came out.
struct Burst {
    UInt64 fed = 0, taken = 0;
    bool operator==(const Burst&) const = default;
};

/// The period of the bursts; 0 while they do not show it yet.
UInt64 periodOf(const std::vector<Burst>& bursts, Float64 ratio)
{
    constexpr std::size_t leadIn = 4; // the first ones fill the filter
    const auto half = bursts.begin() + static_cast<std::ptrdiff_t>(bursts.size() / 2);
    UInt64 fed = 0, taken = 0;
    for (std::size_t count = 1; count + leadIn <= bursts.size() / 2; ++count) {
        fed += bursts[bursts.size() - count].fed;
        taken += bursts[bursts.size() - count].taken;
        const bool areWhole = static_cast<Float64>(fed) * ratio == static_cast<Float64>(taken);
        if (areWhole && std::equal(half, bursts.end(), half - static_cast<std::ptrdiff_t>(count)))
            return fed;
    }
    return 0;
}

/// Whether the filter knows the ratio as whole numbers; otherwise it rounds each frame's position, and no two agree.
bool isExact(Float64 inputRate, Float64 outputRate)
{
    constexpr int largestTerm = 1000;
    for (int frames = 1; frames <= largestTerm; ++frames)
        if (std::fmod(frames * inputRate, outputRate) == 0)
            return true;
    return false;
}

} // namespace

UInt64 filterPeriod(Float64 inputRate, Float64 outputRate, UInt32 quality)
{
    if (quality < RateConverter::leastExactQuality || !isExact(inputRate, outputRate))
        return 0;
    constexpr UInt64 mostFrames = UInt64{1} << 21; // fed and taken, to bound the time of a seek
    RateConverter filter(inputRate, outputRate, 1);
    filter.setQuality(quality);
    std::vector<Burst> bursts;
    Float64 silence = 0;
    std::array<Float64, 4096> room;
    Float64* const input = &silence;
    Float64* const output = room.data();
    Burst burst;
    for (UInt64 frames = 0; frames < mostFrames && filter.isUsable();) {
        filter.feed(&input, 1);
        ++burst.fed;
        while (const std::size_t taken = filter.take(&output, room.size()))
            burst.taken += taken;
        if (burst.taken == 0)
            continue;
        frames += burst.fed + burst.taken;
        bursts.push_back(std::exchange(burst, {}));
        if (std::has_single_bit(bursts.size()))
            if (const UInt64 period = periodOf(bursts, outputRate / inputRate); period > 0)
                return period;
    }
    return 0;
}

} // namespace qmx
