// SPDX-License-Identifier: MIT
#include "PlayThru/ClockFilter.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace qmx
{
namespace
{

constexpr Float64 bandwidth = 1;     // Hz
constexpr Float64 longestJump = 2e8; // nanoseconds; more is no jitter
constexpr Float64 nanoseconds = 1e9;

} // namespace

void ClockFilter::restart(Float64 rate)
{
    nominalPeriod_ = nanoseconds / rate;
    isKnown_ = false;
}

void ClockFilter::add(Float64 frame, UInt64 hostTime)
{
    const auto host = static_cast<Float64>(hostTime);
    const Float64 frames = frame - stamp_.frame;
    const Float64 expected = stamp_.host + frames * stamp_.period;
    const Float64 error = host - expected;
    if (!isKnown_ || frames <= 0 || !(std::abs(error) < longestJump)) {
        stamp_ = {frame, host, nominalPeriod_};
        isKnown_ = true;
        return;
    }
    // critically damped at slices far shorter than a turn of the loop, and stable at long ones
    const Float64 turn = std::min(0.5, 2 * std::numbers::pi * bandwidth * frames * stamp_.period / nanoseconds);
    stamp_.frame = frame;
    stamp_.host = expected + std::numbers::sqrt2 * turn * error;
    stamp_.period += turn * turn * error / frames;
}

} // namespace qmx
