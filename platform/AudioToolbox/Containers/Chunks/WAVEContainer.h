// SPDX-License-Identifier: MIT
// WAVE: RIFF, RIFX (big-endian) and RF64 or BW64 (64-bit sizes).
#pragma once

#include "AudioToolbox/Containers/ContainerTable.h"

namespace qmx
{

extern const ContainerKind waveKind;

} // namespace qmx
