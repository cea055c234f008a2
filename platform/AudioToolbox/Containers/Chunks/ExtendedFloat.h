// SPDX-License-Identifier: MIT
#pragma once

#include "CoreAudioTypes/MacTypes.h"

#include <array>

namespace qmx
{

/// The 80-bit big-endian floating point number in which AIFF keeps its rate.
using ExtendedFloat = std::array<UInt8, 10>;

/// Exact for every finite value that is not negative.
ExtendedFloat extendedFromDouble(Float64 value);
/// Rounds to the nearest; infinite or not a number if the exponent says so.
Float64 doubleFromExtended(const ExtendedFloat& bytes);

} // namespace qmx
