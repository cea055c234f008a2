// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/MacTypes.h>

#include <atomic>

namespace qmx::test
{

/// The system calls that threads marked real-time have made, where the trap watches them.
struct RealTimeCalls {
    static std::atomic<UInt32> wakes;  ///< of threads that may wait for a buffer
    static std::atomic<UInt32> events; ///< of the main thread
};

} // namespace qmx::test
