// SPDX-License-Identifier: MIT
// ADTS streams of AAC.
#pragma once

#include "AudioToolbox/Containers/ContainerTable.h"

namespace qmx
{

extern const ContainerKind adtsKind;

} // namespace qmx
