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

/// What listeners of a device and its streams are told when its view has become another, in the order in which they are
/// told.
std::vector<PropertyChange> changesBetween(const DeviceView& before, const DeviceView& after);

/// The same for the boot chime.
std::vector<AudioHardwarePropertyID> bootChimeChanges(const std::optional<VolumeControl>& before,
                                                      const std::optional<VolumeControl>& after);

/// The sections for which what belongs to the device as a whole is announced.
std::vector<bool> announcedSections(const DeviceDescription& device);

} // namespace qmx
