// SPDX-License-Identifier: MIT
// How loud a recording is from moment to moment, in bands of frequency.
#pragma once

#include "CoreAudioTypes/AudioBuffers.h"
#include "CoreAudioTypes/MacTypes.h"
#include "Tracks/BandTransform.h"

#include <array>
#include <cstddef>
#include <utility>
#include <vector>

namespace qmx
{

/// Half decibels above -120 dB of full scale, the mean of the channels. A channel that holds nothing but zeros is left
/// out, so that the noise keeps its level where a channel drops out.
using BandLevel = UInt8;
using LevelStep = std::array<BandLevel, bandCount>;

constexpr float decibelsPerLevel = 0.5F;
constexpr float lowestDecibels = -120;

inline float decibelsOf(BandLevel level)
{
    return lowestDecibels + decibelsPerLevel * static_cast<float>(level);
}

/// Gathers the levels of a recording in steps of 46 ms, longer ones in recordings of more than 13 hours: the table has
/// a million steps at most. Of a step the first part is measured, as much as the transform takes in.
class BandLevels
{
public:
    BandLevels(double sampleRate, UInt32 channels, UInt64 frames);

    /// Takes whole frames, interleaved, in pieces of any size. Channels past the sixteenth are mixed with the others.
    void add(std::span<const float> samples);
    /// No more frames come. A last step that is not whole is left out.
    void finish();

    UInt64 framesPerStep() const { return framesPerStep_; }
    const std::vector<LevelStep>& steps() const& { return steps_; }
    std::vector<LevelStep> steps() && { return std::move(steps_); }

private:
    void measure(const float* samples, UInt64 frames);
    void finishWindows();

    UInt32 channels_;
    std::vector<BandTransform> pairs_; ///< of channels
    UInt64 framesPerStep_;
    UInt64 position_ = 0; ///< in the step
    std::size_t lane_ = 0;
    std::vector<LevelStep> steps_;
};

} // namespace qmx
