// SPDX-License-Identifier: MIT
// MPEG-4 files of AAC and ALAC.
#pragma once

#include "AudioToolbox/Containers/ContainerTable.h"

namespace qmx
{

extern const ContainerKind m4aKind;
extern const ContainerKind mpeg4Kind;

} // namespace qmx
