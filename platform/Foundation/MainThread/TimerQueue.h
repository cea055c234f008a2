// SPDX-License-Identifier: MIT
#pragma once

#include "Foundation/MainThread/Timer.h"

#include <memory>
#include <mutex>
#include <vector>

namespace qmx
{

/// The valid timers, and the descriptor that becomes readable when the first of them is due.
struct TimerQueue {
    using Clock = Timer::Clock;

    explicit TimerQueue(int timerDescriptor) : descriptor(timerDescriptor) {}
    void add(std::shared_ptr<Timer> timer);
    void remove(const Timer& timer);
    /// Fires the timers that are due now, each once; returns whether there were any. Main thread.
    bool fire();

private:
    std::shared_ptr<Timer> takeDue(Clock::time_point now);
    void arm();

    std::mutex mutex;
    std::vector<std::shared_ptr<Timer>> timers;
    const int descriptor;
};

} // namespace qmx
