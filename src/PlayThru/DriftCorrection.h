// SPDX-License-Identifier: MIT
// Keeps two devices' distance in time where it was although their clocks drift apart.
#pragma once

#include "PlayThru/ClockFilter.h"

#include <array>
#include <atomic>

namespace qmx
{

/// The input's thread tells its stamps, the output's thread asks by what factor to play faster. Neither allocates,
/// locks or waits.
class DriftCorrection
{
public:
    static constexpr Float64 largest = 1e-3;       ///< part by which the factor differs from 1 at most
    static constexpr Float64 fastestChange = 5e-4; ///< of the factor in a second

    /// Any thread: the input's nominal rate in Hz, from the next restart on.
    void setRate(Float64 rate) { rate_.store(rate); }
    /// Any thread: forgets stamps and distance; both sides take it up with their next call.
    void restart() { epoch_.fetch_add(1); }

    /// The input's thread: the slice that begins at `frame` came at `hostTime` nanoseconds.
    void addInput(Float64 frame, UInt64 hostTime);
    /// The output's thread: the input frame `frame` was asked for at `hostTime` nanoseconds. Gives the factor for the
    /// frames that follow; 1 until both sides are known and for a second more, whose mean distance is kept from then
    /// on. More calls with one time are taken for further frames of one cycle.
    Float64 factorAt(Float64 frame, UInt64 hostTime);

private:
    struct Side {
        ClockFilter clock;
        UInt32 epoch = 0;
    };
    void renew(Side& side) const;
    bool readInput(ClockFilter::Stamp& stamp) const;

    std::atomic<UInt32> epoch_ = 1;
    std::atomic<Float64> rate_ = 44100;

    Side input_;
    std::atomic<UInt32> published_ = 0; ///< odd while the input's stamp is being changed
    std::atomic<UInt32> stampEpoch_ = 0;
    std::array<std::atomic<Float64>, 3> stamp_{};

    // of the output's thread
    Side output_;
    UInt64 lastAsked_ = 0;
    Float64 lastHost_ = 0, target_ = 0, sum_ = 0, correction_ = 0;
    Float64 age_ = 0; ///< of the target, seconds
    bool hasTarget_ = false;
};

} // namespace qmx
