// SPDX-License-Identifier: MIT
#pragma once

#include "Foundation/MainThread/RealTimeRing.h"
#include "Foundation/MainThread/RunLoop.h"
#include "Foundation/MainThread/TimerQueue.h"

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>

namespace qmx
{

/// The implementation of the main thread's loop: three sources of work and the descriptors that announce it.
struct RunLoop::Implementation {
    struct Action {
        std::uint64_t order;
        std::function<void()> function;
    };

    Implementation();
    bool belongsHere();
    bool runOnce();
    void wait(int milliseconds) const;
    void wake() noexcept;

    const int event;
    const int timer;
    const int poll; ///< readable when either of the two is
    std::atomic<bool> isAwake{false};
    std::atomic<bool> stopIsWanted{false};
    std::atomic<std::thread::id> owner{};
    std::atomic<std::uint64_t> orders{0};
    RealTimeRing ring;
    TimerQueue timers;
    std::mutex mutex;
    std::deque<Action> actions;

private:
    void takeEvent();
    bool deliverBefore(std::uint64_t limit);
    std::optional<Action> takeAction(std::uint64_t limit);
    static void deliver(const RealTimeRing::Entry& entry);
    void reportDropped();
};

} // namespace qmx
