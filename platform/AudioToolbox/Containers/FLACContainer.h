// SPDX-License-Identifier: MIT
// FLAC streams.
#pragma once

#include "AudioToolbox/Containers/ContainerTable.h"

namespace qmx
{

extern const ContainerKind flacKind;

} // namespace qmx
