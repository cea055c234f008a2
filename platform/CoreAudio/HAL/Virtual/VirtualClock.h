// SPDX-License-Identifier: MIT
#pragma once

#include "CoreAudioTypes/MacTypes.h"

#include <algorithm>
#include <cmath>

namespace qmx
{

/// A device's sample time as a linear function of the timeline, from an anchor on.
struct VirtualClock {
    UInt64 anchorTime = 0;    ///< nanoseconds
    Float64 anchorSample = 0; ///< frames
    Float64 rate = 44100;     ///< actual frames per second

    Float64 sampleAt(Float64 time) const
    {
        return anchorSample + (time - static_cast<Float64>(anchorTime)) * rate * 1e-9;
    }
    Float64 exactTimeOf(Float64 sample) const
    {
        return static_cast<Float64>(anchorTime) + (sample - anchorSample) * 1e9 / rate;
    }
    /// The first nanosecond at or after a sample.
    UInt64 timeOf(Float64 sample) const
    {
        constexpr Float64 rounding = 1e-3;
        return static_cast<UInt64>(std::max(0.0, std::ceil(exactTimeOf(sample) - rounding)));
    }
    /// Continues from `time` at another rate.
    void setRate(Float64 newRate, UInt64 time)
    {
        anchorSample = sampleAt(static_cast<Float64>(time));
        anchorTime = time;
        rate = newRate;
    }
};

} // namespace qmx
