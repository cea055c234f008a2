// SPDX-License-Identifier: MIT
// How much of a sound lies in each of some bands of frequency.
#pragma once

#include "CoreAudioTypes/AudioBuffers.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace qmx
{

/// Octaves from 130 Hz to 10 kHz: above rumble and the mains, below what sampling at 22 kHz leaves out.
constexpr std::size_t bandCount = 6;
using BandPowers = std::array<float, bandCount>;

/// Measures windows of sound, four at once: one in each lane of the processor's vectors. A window has one or two
/// channels, whose powers are added.
class BandTransform
{
public:
    static constexpr std::size_t laneCount = 4;

    explicit BandTransform(double sampleRate);

    /// Frames of a window: a power of four, at most 47 ms long.
    std::size_t length() const { return shape_.size(); }

    /// The window of a lane, to be filled: two channels, interleaved; a single one leaves the other 0.
    std::span<float> window(std::size_t lane) { return windows_[lane]; }

    /// How many channels of a lane's window hold anything but zeros.
    std::size_t liveChannels(std::size_t lane) const;

    /// The mean square of each lane's window in each band. Samples that no recording holds, such as what is no number,
    /// count as 0.
    std::array<BandPowers, laneCount> powers();

private:
    using Lanes = float __attribute__((vector_size(laneCount * sizeof(float))));
    struct Value {
        Lanes real, imaginary;
    };
    struct Turn {
        float real, imaginary;
    };

    void load();
    void transform();
    static void turnTogether(Value* value, std::size_t quarter, Turn once, Turn twice, Turn thrice);

    std::array<std::vector<float>, laneCount> windows_;
    std::vector<float> shape_;
    std::vector<Turn> turns_;
    std::vector<Value> values_;
    std::array<std::vector<std::uint16_t>, bandCount> places_; ///< where the frequencies of a band are afterwards
};

} // namespace qmx
