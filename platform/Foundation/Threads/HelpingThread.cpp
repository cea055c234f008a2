// SPDX-License-Identifier: MIT
#include "Foundation/Threads/HelpingThread.h"

namespace qmx
{

// no worker: it works only while a thread waits for it that is not at rest itself
HelpingThread::HelpingThread() : thread_("qmx-helper", [this] { run(); }) {}

HelpingThread& HelpingThread::shared()
{
    static auto* const thread = new HelpingThread; // outlives every use
    return *thread;
}

bool HelpingThread::offer(Call call, const void* work) noexcept
{
    State expected = State::free;
    if (!thread_.start() || !state_.compare_exchange_strong(expected, State::reserved, std::memory_order_acquire))
        return false;
    call_ = call;
    work_ = work;
    state_.store(State::offered, std::memory_order_release);
    state_.notify_one(); // nobody else waits while no work is begun
    return true;
}

/// Whether the work was not begun: then it never is.
bool HelpingThread::withdraw() noexcept
{
    State expected = State::offered;
    return state_.compare_exchange_strong(expected, State::free, std::memory_order_relaxed);
}

void HelpingThread::waitUntilDone() noexcept
{
    state_.wait(State::begun, std::memory_order_acquire);
    state_.store(State::free, std::memory_order_release);
}

void HelpingThread::run()
{
    for (;;) {
        State seen = state_.load(std::memory_order_relaxed);
        if (seen != State::offered) {
            state_.wait(seen, std::memory_order_relaxed);
        } else if (state_.compare_exchange_strong(seen, State::begun, std::memory_order_acquire)) {
            call_(work_);
            state_.store(State::done, std::memory_order_release);
            state_.notify_one();
        }
    }
}

} // namespace qmx
