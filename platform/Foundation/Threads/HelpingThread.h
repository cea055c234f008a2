// SPDX-License-Identifier: MIT
// The thread of the process that takes a half of somebody's work while that one does the other half.
#pragma once

#include "Foundation/Threads/LastingThread.h"

#include <atomic>

namespace qmx
{

/// Helps one thread at a time. It starts with the first work and lasts as long as the process.
class HelpingThread
{
public:
    static HelpingThread& shared();

    /// Calls `mine` here and `other` on the helping thread, and returns when both have returned. If that thread is
    /// missing, helps somebody else or has not begun when `mine` returns, `other` is called here too: a busy machine
    /// makes nobody wait for the helping thread to wake up. Neither may throw. Not for real-time threads.
    template <class Mine, class Other> void share(const Mine& mine, const Other& other)
    {
        const bool isOffered = offer([](const void* work) { (*static_cast<const Other*>(work))(); }, &other);
        mine();
        if (!isOffered || withdraw())
            other();
        else
            waitUntilDone();
    }

private:
    using Call = void (*)(const void*);
    enum class State { free, reserved, offered, begun, done };

    HelpingThread();
    bool offer(Call call, const void* work) noexcept;
    bool withdraw() noexcept;
    void waitUntilDone() noexcept;
    void run();

    // free -> reserved -> offered -> begun -> done -> free, or back to free when an offer is withdrawn. Whoever offers
    // sets all but `begun` and `done`, which the helping thread sets.
    std::atomic<State> state_{State::free};
    // published by `offered`
    Call call_ = nullptr;
    const void* work_ = nullptr;
    LastingThread thread_;
};

} // namespace qmx
