// SPDX-License-Identifier: MIT
#pragma once

#include "CoreAudio/HAL/Backend.h"

#include <vector>

namespace qmx
{

/// Corrects values that are missing or contradict each other: the rate becomes an available one, formats get the rate,
/// the buffer size is clamped to its range.
void standardise(DeviceDescription& description);

/// Carries out a request in the record. Accepts every request that the core let through.
void apply(DeviceDescription& description, const DeviceRequest& request);

/// The linear gain of each channel of a section from its volumes and mutes.
std::vector<Float32> channelGains(const SectionDescription& section);

} // namespace qmx
