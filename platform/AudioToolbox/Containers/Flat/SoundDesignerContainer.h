// SPDX-License-Identifier: MIT
// Sound Designer II files.
#pragma once

#include "AudioToolbox/Containers/ContainerTable.h"

namespace qmx
{

extern const ContainerKind soundDesignerKind;

} // namespace qmx
