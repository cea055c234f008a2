// SPDX-License-Identifier: MIT
// Questions about devices that the hardware layer answers. Threads that may wait.
#pragma once

#include "CoreAudio/AudioHardware.h"

#include <string>

namespace qmx
{

/// kAudioHardwareBadDeviceError and kAudioDeviceUnknown if there is none.
[[nodiscard]] OSStatus defaultDevice(bool isInput, AudioDeviceID& device);
/// Empty if the device does not exist.
std::string uidOfDevice(AudioDeviceID device);
/// kAudioDeviceUnknown if no device has it.
AudioDeviceID deviceWithUID(const std::string& uid);
/// In Hz.
[[nodiscard]] OSStatus nominalRateOf(AudioDeviceID device, bool isInput, Float64& rate);

} // namespace qmx
