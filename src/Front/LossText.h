// SPDX-License-Identifier: MIT
#pragma once

#include "Recording/QMXAudioRecorder.h"

#include <string>
#include <vector>

namespace qmx
{

/// "4096 frames are missing in 2 places, first at frame 98304: the disk is too slow"; without places only how many.
/// Empty if nothing was lost. Internal to the front.
std::string lossText(UInt64 frames, const std::vector<QMXAudioRecordingLoss>& places = {});

} // namespace qmx
