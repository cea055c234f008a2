// SPDX-License-Identifier: MIT
// The status of operations that go on after a step that failed.
#pragma once

#include "CoreAudioTypes/MacTypes.h"

namespace qmx
{

/// Makes `status` that of the next step if that failed.
inline void keepLast(OSStatus& status, OSStatus next)
{
    if (next != noErr)
        status = next;
}

} // namespace qmx
