// SPDX-License-Identifier: MIT
// AIFF and AIFF-C.
#pragma once

#include "AudioToolbox/Containers/ContainerTable.h"

namespace qmx
{

extern const ContainerKind aiffKind;
extern const ContainerKind aifcKind;

} // namespace qmx
