// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/Front/Devices.h>

namespace example
{

/// A simulated device in place of all others, whose time stands still until the program advances it.
qmx::Device simulatedDevice(UInt32 inputChannels, UInt32 outputChannels, double sampleRate);

} // namespace example
