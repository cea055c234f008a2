// SPDX-License-Identifier: MIT
#pragma once

#include "Tracks/QMXAudioPause.h"

#include <optional>

class QMXAudioFile;

namespace qmx
{

/// The pauses of an opened file, and its length.
struct NoiseFloorFindings {
    QMXAudioPauses pauses;
    UInt64 frames = 0;
};

struct NoiseFloorWish {
    std::optional<UInt64> cuts;           ///< so many of the clearest pauses divide; else all that are clear
    std::optional<double> secondsToStart; ///< from a cut to the next track's start; else the middle of the pause
};

/// Reads the file from its start to its end, within a run of the auto-definer: failures, progress and cancelling are
/// the run's. A file that cannot be read has no frames; one that cannot be read to its end is searched as far as it
/// can.
NoiseFloorFindings searchByNoiseFloor(QMXAudioFile& file, const NoiseFloorWish& wish);

} // namespace qmx
