// SPDX-License-Identifier: MIT
// Recording through an audio unit, into files of any type that can be written.
#pragma once

#include "support/AudioTypes.h"

#include <QMXCoreAudio/Devices/QMXAudioDevice.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace example
{

struct UnitRecording {
    std::shared_ptr<QMXAudioDevice> device;
    std::string path; ///< of the file; an existing one is replaced
    AudioFileTypeID type = 0;
    RequestedFormat format;
    std::vector<SInt32> channels;          ///< of the device, from 0; empty for the first two
    std::optional<double> seconds;         ///< where it ends by itself
    std::optional<UInt64> simulatedFrames; ///< of a device in manual time, which ends it too
};

/// Records until its end or Ctrl-C, and gives the frames of the file and their rate. A Failure that says what was lost
/// where something was.
std::pair<SInt64, Float64> recordThroughUnit(const UnitRecording& recording);

} // namespace example
