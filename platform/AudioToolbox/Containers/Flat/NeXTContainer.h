// SPDX-License-Identifier: MIT
// NeXT sound files, also known as AU.
#pragma once

#include "AudioToolbox/Containers/ContainerTable.h"

namespace qmx
{

extern const ContainerKind nextKind;

} // namespace qmx
