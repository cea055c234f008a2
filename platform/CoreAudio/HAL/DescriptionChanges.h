// SPDX-License-Identifier: MIT
#pragma once

#include "CoreAudio/HAL/DeviceView.h"

#include <vector>

namespace qmx
{

/// A property whose value differs, of the device (`stream` 0) or of one of its streams.
struct PropertyChange {
    AudioStreamID stream = kAudioStreamUnknown;
    PropertyAddress address;
};

/// The changes to announce for a device and its streams when its view changes, in order.
std::vector<PropertyChange> changesBetween(const DeviceView& before, const DeviceView& after);

/// The boot chime's properties to announce, in order.
std::vector<AudioHardwarePropertyID> bootChimeChanges(const std::optional<VolumeControl>& before,
                                                      const std::optional<VolumeControl>& after);

/// The sections (input: true) for which properties of the device as a whole are announced.
std::vector<bool> announcedSections(const DeviceDescription& device);

} // namespace qmx
