// SPDX-License-Identifier: MIT
#pragma once

#include "CoreAudioTypes/MacTypes.h"

namespace qmx
{

/// A rate conversion works in blocks, and rounding depends on a frame's position in its block. Returns the number of
/// input frames after which all blocks align again: streams that start a multiple of it apart agree to the last bit. 0
/// if they never do, or too far away to be found. Rates in Hz, quality as of the converter.
UInt64 filterPeriod(Float64 inputRate, Float64 outputRate, UInt32 quality);

} // namespace qmx
