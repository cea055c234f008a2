// SPDX-License-Identifier: MIT
#pragma once

#include "Front/Devices.h"

namespace qmx
{

/// Why a device without channels in a direction cannot be used in it. Internal to the front.
inline Error missing(const Device& device, Direction direction)
{
    const char* const what = direction == Direction::input ? " has no input" : " has no output";
    return {kAudioHardwareBadDeviceError, device.name() + (device.isAlive() ? what : " is gone")};
}

} // namespace qmx
