// SPDX-License-Identifier: MIT
#pragma once

#include "CoreAudioTypes/MacTypes.h"

#include <ctime>

namespace qmx
{

/// Nanoseconds of the clock that sound servers put into their time stamps.
inline UInt64 monotonicTime()
{
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<UInt64>(time.tv_sec) * 1'000'000'000 + static_cast<UInt64>(time.tv_nsec);
}

} // namespace qmx
