// SPDX-License-Identifier: MIT
// Which quiet stretches of a recording are pauses between tracks: by how deep and how long each is beside the others.
#pragma once

#include "Tracks/QuietStretches.h"

#include <cstddef>
#include <optional>
#include <vector>

namespace qmx
{

/// How much each stretch looks like a pause between tracks, 0 to 1. `seconds` is the length of a step.
std::vector<float> pauseStrengths(const LevelAnalysis& analysis, double seconds);

/// Which stretches divide tracks: those of a strength of at least a half or, when a number is given, that many of
/// the strongest, as far as there are. Never two with less than 10 seconds between them, of which the weaker waits.
std::vector<bool> dividingStretches(const std::vector<QuietStretch>& stretches, const std::vector<float>& strengths,
                                    double seconds, std::optional<std::size_t> wanted);

} // namespace qmx
