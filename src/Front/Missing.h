// SPDX-License-Identifier: MIT
#pragma once

#include "Devices/QMXAudioDevice.h"
#include "Front/Result.h"

namespace qmx
{

/// Why a device without channels in a direction cannot be used in it. Internal to the front.
inline Error missing(const QMXAudioDevice& device, bool isInput)
{
    const char* const what = isInput ? " has no input" : " has no output";
    return {kAudioHardwareBadDeviceError,
            device.name().value_or("The device") + (device.isAlive() ? what : " is gone")};
}

} // namespace qmx
