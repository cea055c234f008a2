// SPDX-License-Identifier: MIT
// A small synthesiser: three short pieces for plucked strings and a soft pad.
#pragma once

#include <cstddef>
#include <vector>

namespace example
{

constexpr double synthesizerRate = 44100; ///< frames per second

/// Stereo samples, left and right in turn; 1 is full scale.
using StereoSamples = std::vector<float>;

/// The pieces in playing order.
std::vector<StereoSamples> synthesizedPieces();

/// `seconds` of the low noise of a quiet line.
StereoSamples lineNoise(double seconds);

} // namespace example
