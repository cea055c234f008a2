// SPDX-License-Identifier: MIT
#pragma once

#include "CoreAudioTypes/MacTypes.h"

namespace qmx
{

/// A rate conversion works in blocks, and rounding depends on where in its blocks a frame lies. Gives the input frames
/// after which all its blocks meet again: streams that begin a multiple of them apart agree to the last bit. 0 where
/// they never do, or too far to be found. Rates in Hz, quality as of the converter.
UInt64 filterPeriod(Float64 inputRate, Float64 outputRate, UInt32 quality);

} // namespace qmx
