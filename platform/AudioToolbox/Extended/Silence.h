// SPDX-License-Identifier: MIT
#pragma once

#include "CoreAudioTypes/CoreAudioTypes.h"

#include <cstddef>
#include <vector>

namespace qmx
{

inline constexpr UInt32 silenceFrames = 4096;

/// A stretch of silence of `silenceFrames` frames, in a format whose samples need not be zero for it.
std::vector<std::byte> silenceIn(const AudioStreamBasicDescription& format);

} // namespace qmx
