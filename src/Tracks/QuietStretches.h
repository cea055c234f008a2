// SPDX-License-Identifier: MIT
// Where a recording sinks to its noise floor: in all bands of frequency at once, as music hardly does.
#pragma once

#include "Tracks/BandLevels.h"

#include <array>
#include <cstddef>
#include <vector>

namespace qmx
{

using BandDecibels = std::array<float, bandCount>;

/// Some steps at a noise floor.
struct QuietStretch {
    std::size_t begin = 0; ///< steps
    std::size_t end = 0;
    BandDecibels levels{};  ///< of its noise
    float depth = 0;        ///< decibels that the sound around it stands above it, mostly of the side that does so less
    float edge = 0;         ///< the same of the sound right beside it, of the side that does so more
    float unsteadiness = 0; ///< decibels that it wanders, which noise does little

    std::size_t length() const { return end - begin; }
};

/// The level and the floor beneath it, each with all bands together, in decibels.
struct LevelAndFloor {
    float level = lowestDecibels;
    float floor = lowestDecibels;
};

/// What the levels of a recording tell.
struct LevelAnalysis {
    std::vector<QuietStretch> stretches; ///< in order, without those at the recording's start and end
    BandDecibels quietest{};             ///< of the quietest second of sound
    std::size_t soundBegin = 0;          ///< past a quiet start
    std::size_t soundEnd = 0;            ///< before a quiet end
    std::vector<LevelAndFloor> curve;    ///< 4096 points at most, each of as many steps
    std::size_t stepsPerPoint = 1;
};

/// `steps` of `seconds` each.
LevelAnalysis analyseLevels(std::vector<LevelStep> steps, double seconds);

} // namespace qmx
