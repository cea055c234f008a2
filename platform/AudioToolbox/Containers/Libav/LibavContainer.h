// SPDX-License-Identifier: MIT
// The files that libavformat reads and writes for us: MPEG-4, ADTS, MP3 and FLAC.
#pragma once

#include "AudioToolbox/Containers/ContainerTable.h"

#include <span>

namespace qmx
{

/// Empty in a build without the codings.
std::span<const ContainerKind> libavKinds();

} // namespace qmx
