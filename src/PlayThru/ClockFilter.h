// SPDX-License-Identifier: MIT
// The smooth line through a device's jittering time stamps.
#pragma once

#include "CoreAudioTypes/MacTypes.h"

namespace qmx
{

/// A delay-locked loop of second order: each stamp moves the line a little towards itself and turns it a little. One
/// thread.
class ClockFilter
{
public:
    /// Forgets the stamps. `rate`: frames per second that a first guess expects.
    void restart(Float64 rate);
    /// The frame `frame` came at `hostTime` nanoseconds. A jump of either starts afresh.
    void add(Float64 frame, UInt64 hostTime);
    bool isKnown() const { return isKnown_; }

    /// The last stamp as the line has it.
    struct Stamp {
        Float64 frame = 0;
        Float64 host = 0;   ///< nanoseconds
        Float64 period = 0; ///< nanoseconds of a frame

        Float64 frameAt(Float64 hostTime) const { return frame + (hostTime - host) / period; }
    };
    const Stamp& stamp() const { return stamp_; }

private:
    Stamp stamp_;
    Float64 nominalPeriod_ = 1e9 / 44100;
    bool isKnown_ = false;
};

} // namespace qmx
