// SPDX-License-Identifier: MIT
// MP3 streams.
#pragma once

#include "AudioToolbox/Containers/ContainerTable.h"

namespace qmx
{

extern const ContainerKind mp3Kind;

} // namespace qmx
