// SPDX-License-Identifier: MIT
#include "Foundation/MainThread/RunLoop.h"

#include "Foundation/MainThread/MainLoop.h"
#include "Foundation/Text/Log.h"

#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>

namespace qmx
{
namespace
{

using Clock = std::chrono::steady_clock;

int makePoll(int event, int timer)
{
    const int poll = epoll_create1(EPOLL_CLOEXEC);
    for (const int source : {event, timer}) {
        epoll_event wanted{};
        wanted.events = EPOLLIN;
        wanted.data.fd = source;
        epoll_ctl(poll, EPOLL_CTL_ADD, source, &wanted);
    }
    return poll;
}

Clock::time_point deadlineAfter(double seconds)
{
    constexpr double longest = 1e9;
    const double bounded = std::isnan(seconds) ? 0 : std::clamp(seconds, 0.0, longest);
    return Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(bounded));
}

int millisecondsUntil(Clock::time_point deadline)
{
    constexpr std::chrono::milliseconds longest{60'000};
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    return static_cast<int>(std::clamp(left, std::chrono::milliseconds{0}, longest).count());
}

} // namespace

RunLoop::Implementation::Implementation()
    : event(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)), timer(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)),
      poll(makePoll(event, timer)), timers(timer)
{
}

bool RunLoop::Implementation::belongsHere()
{
    std::thread::id nobody{};
    const std::thread::id self = std::this_thread::get_id();
    return owner.compare_exchange_strong(nobody, self) || nobody == self;
}

void RunLoop::Implementation::wake() noexcept
{
    if (isAwake.exchange(true))
        return;
    eventfd_write(event, 1); // the one system call that a real-time sender makes
}

void RunLoop::Implementation::takeEvent()
{
    std::uint64_t count = 0;
    [[maybe_unused]] const ssize_t taken = read(event, &count, sizeof count);
    isAwake = false; // from here on, senders wake the loop again
}

void RunLoop::Implementation::wait(int milliseconds) const
{
    pollfd waited{.fd = poll, .events = POLLIN, .revents = 0};
    ::poll(&waited, 1, milliseconds);
}

bool RunLoop::Implementation::runOnce()
{
    takeEvent();
    const bool delivered = deliverBefore(orders.load());
    const bool fired = timers.fire();
    reportDropped();
    return delivered || fired;
}

// Work that is queued after the start of a pass waits for the next one, so that each pass ends.
bool RunLoop::Implementation::deliverBefore(std::uint64_t limit)
{
    bool any = false;
    for (;;) {
        const RealTimeRing::Entry* const entry = ring.front();
        const std::uint64_t entryOrder = entry ? entry->order : limit;
        if (std::optional<Action> action = takeAction(std::min(limit, entryOrder)))
            action->function();
        else if (entryOrder < limit)
            deliver(ring.pop());
        else
            return any;
        any = true;
    }
}

std::optional<RunLoop::Implementation::Action> RunLoop::Implementation::takeAction(std::uint64_t limit)
{
    const std::scoped_lock lock(mutex);
    if (actions.empty() || actions.front().order >= limit)
        return {};
    Action action = std::move(actions.front());
    actions.pop_front();
    return action;
}

void RunLoop::Implementation::deliver(const RealTimeRing::Entry& entry)
{
    entry.route->isPending = false;
    if (const auto sender = entry.sender ? entry.sender : entry.route->sender.lock())
        entry.route->delivery(sender, entry.route->name);
}

void RunLoop::Implementation::reportDropped()
{
    if (const std::uint32_t dropped = ring.takeDropped())
        Log("RunLoop: %u notifications of real-time threads were dropped, the main thread was busy for too long",
            dropped);
}

RunLoop& RunLoop::main()
{
    static auto* const loop = new RunLoop;
    return *loop;
}

RunLoop::RunLoop() : implementation_(new Implementation) {}

bool RunLoop::run()
{
    if (!implementation_->belongsHere())
        return false;
    for (;;) {
        implementation_->runOnce();
        if (implementation_->stopIsWanted.exchange(false))
            return true;
        implementation_->wait(-1);
    }
}

bool RunLoop::runFor(double seconds)
{
    if (!implementation_->belongsHere())
        return false;
    const Clock::time_point deadline = deadlineAfter(seconds);
    for (;;) {
        implementation_->runOnce();
        if (implementation_->stopIsWanted.exchange(false))
            return false;
        if (Clock::now() >= deadline)
            return true;
        implementation_->wait(millisecondsUntil(deadline));
    }
}

bool RunLoop::runOnce()
{
    return implementation_->belongsHere() && implementation_->runOnce();
}

void RunLoop::stop()
{
    implementation_->stopIsWanted = true;
    implementation_->wake();
}

int RunLoop::fileDescriptor() const
{
    return implementation_->poll;
}

void RunLoop::perform(std::function<void()> action)
{
    {
        const std::scoped_lock lock(implementation_->mutex);
        implementation_->actions.push_back({implementation_->orders.fetch_add(1), std::move(action)});
    }
    implementation_->wake();
}

bool RunLoop::isCurrent() const
{
    return implementation_->owner.load() == std::this_thread::get_id();
}

} // namespace qmx
