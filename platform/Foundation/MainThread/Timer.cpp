// SPDX-License-Identifier: MIT
#include "Foundation/MainThread/Timer.h"

#include "Foundation/MainThread/MainLoop.h"
#include "Foundation/MainThread/TimerQueue.h"

#include <sys/timerfd.h>

#include <algorithm>
#include <cmath>

namespace qmx
{
namespace
{

TimerQueue& queue()
{
    return RunLoop::main().implementation().timers;
}

std::chrono::steady_clock::duration durationOf(double seconds)
{
    constexpr double longest = 1e9;
    return std::chrono::duration_cast<std::chrono::steady_clock::duration>(
        std::chrono::duration<double>(std::clamp(seconds, 0.0, longest)));
}

} // namespace

Timer::Timer(double seconds, bool repeats, Handler handler)
    : due_(Clock::now() + durationOf(seconds)), interval_(std::max(durationOf(seconds), Clock::duration{100'000})),
      repeats_(repeats), handler_(std::move(handler))
{
}

std::shared_ptr<Timer> Timer::scheduledTimer(double seconds, bool repeats, Handler handler)
{
    const bool isPossible = std::isfinite(seconds);
    auto timer = std::make_shared<Timer>(isPossible ? seconds : 0, repeats, std::move(handler));
    if (isPossible)
        queue().add(timer);
    else
        timer->valid_ = false;
    return timer;
}

void Timer::invalidate()
{
    if (valid_.exchange(false))
        queue().remove(*this);
}

bool Timer::isValid() const
{
    return valid_;
}

void TimerQueue::add(std::shared_ptr<Timer> timer)
{
    const std::scoped_lock lock(mutex);
    timers.push_back(std::move(timer));
    arm();
}

void TimerQueue::remove(const Timer& timer)
{
    std::shared_ptr<Timer> removed; // its handler is destroyed without the lock
    const std::scoped_lock lock(mutex);
    const auto found = std::ranges::find(timers, &timer, &std::shared_ptr<Timer>::get);
    if (found == timers.end())
        return;
    removed = std::move(*found);
    timers.erase(found);
    arm();
}

bool TimerQueue::fire()
{
    const Clock::time_point now = Clock::now();
    bool any = false;
    while (const std::shared_ptr<Timer> timer = takeDue(now)) {
        any = true;
        if (!timer->repeats_)
            timer->valid_ = false;
        timer->handler_(*timer);
        if (!timer->valid_)
            continue;
        const auto missed = (Clock::now() - timer->due_) / timer->interval_;
        timer->due_ += (missed + 1) * timer->interval_;
        add(timer);
        if (!timer->valid_) // invalidated while it was in no list
            remove(*timer);
    }
    return any;
}

std::shared_ptr<Timer> TimerQueue::takeDue(Clock::time_point now)
{
    const std::scoped_lock lock(mutex);
    const auto first = std::ranges::min_element(timers, {}, [](const auto& timer) { return timer->due_; });
    if (first == timers.end() || (*first)->due_ > now)
        return nullptr;
    std::shared_ptr<Timer> timer = std::move(*first);
    timers.erase(first);
    arm();
    return timer;
}

void TimerQueue::arm()
{
    itimerspec setting{};
    if (!timers.empty()) {
        const auto first = std::ranges::min_element(timers, {}, [](const auto& timer) { return timer->due_; });
        const auto due = std::max(Clock::duration{1}, (*first)->due_.time_since_epoch());
        const auto seconds = std::chrono::floor<std::chrono::seconds>(due);
        setting.it_value.tv_sec = seconds.count();
        setting.it_value.tv_nsec = std::chrono::nanoseconds(due - seconds).count();
    }
    timerfd_settime(descriptor, TFD_TIMER_ABSTIME, &setting, nullptr); // which also makes it unreadable
}

} // namespace qmx
