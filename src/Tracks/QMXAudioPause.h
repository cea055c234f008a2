// SPDX-License-Identifier: MIT
// What the search by noise floor found in a recording, so that an application can show why it is divided as it is.
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/MacTypes.h>

#include <vector>

/// A place where all of a recording sinks to its noise floor. Positions are frames of the file.
struct QMXAudioPause {
    UInt64 begin = 0;
    UInt64 end = 0;
    UInt64 cut = 0;       ///< where it divides, or would
    Float32 strength = 0; ///< how much it looks like a pause between tracks, 0 to 1
    bool divides = false;
};

/// The level of a moment, and the noise floor beneath it: decibels of full scale between 130 Hz and 10 kHz, the mean of
/// the channels that are not digitally silent, without clicks.
struct QMXAudioLevelAndFloor {
    Float32 level = 0;
    Float32 floor = 0;
};

/// What the last search found.
struct QMXAudioPauses {
    std::vector<QMXAudioPause> pauses;         ///< in order; without the quiet at the file's start and end
    std::vector<QMXAudioLevelAndFloor> levels; ///< at most 4096, from the file's start on
    UInt64 framesPerLevel = 0;
};
