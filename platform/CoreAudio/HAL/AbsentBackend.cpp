// SPDX-License-Identifier: MIT
#include "CoreAudio/HAL/AbsentBackend.h"

#include "CoreAudio/HAL/MonotonicClock.h"

namespace qmx
{

AbsentBackend& AbsentBackend::shared()
{
    static auto* const backend = new AbsentBackend;
    return *backend;
}

UInt64 AbsentBackend::hostTime()
{
    return monotonicTime();
}

} // namespace qmx
