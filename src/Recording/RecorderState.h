// SPDX-License-Identifier: MIT
// The numbers that a recorder's parts share.
#pragma once

#include "CoreAudioTypes/MacTypes.h"

namespace recorder
{

/// States; 0 is one whose making has not ended.
constexpr SInt32 ready = 1, recording = 2, paused = 3, ended = 4;
/// Bits of the event mask.
constexpr UInt32 startedBit = 1, stoppedBit = 2, framesBit = 4, pausedBit = 8;
/// Conditions of the saving thread's lock.
constexpr int hasWork = 0, hasNone = 1;

} // namespace recorder
