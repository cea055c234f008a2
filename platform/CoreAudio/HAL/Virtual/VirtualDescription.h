// SPDX-License-Identifier: MIT
#pragma once

#include "CoreAudio/HAL/Backend.h"

#include <vector>

namespace qmx
{

/// Brings what is missing or contradicts itself in line: the rate is one of those that there are, formats are at the
/// rate, the buffer size is in its range.
void standardise(DeviceDescription& description);

/// Does in a record what a caller requests. The hardware takes whatever the core let through.
void apply(DeviceDescription& description, const DeviceRequest& request);

/// The linear gain of each channel of a section from its volumes and mutes.
std::vector<Float32> channelGains(const SectionDescription& section);

} // namespace qmx
