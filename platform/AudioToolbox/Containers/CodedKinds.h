// SPDX-License-Identifier: MIT
// The files that the module of codings reads and writes: MPEG-4, ADTS, MP3 and FLAC. They are recognised without it, so
// that it is loaded for such a file only.
#pragma once

#include "AudioToolbox/Containers/ContainerTable.h"

#include <span>

namespace qmx
{

/// To be opened and made only if the module is there.
std::span<const ContainerKind> codedKinds();

} // namespace qmx
