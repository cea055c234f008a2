// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/MacTypes.h>

#include <limits>

namespace qmx
{

/// Frames of a file from `first` up to `end`, which is cut to the file's.
struct FrameRange {
    SInt64 first = 0;
    SInt64 end = std::numeric_limits<SInt64>::max();
};

} // namespace qmx
