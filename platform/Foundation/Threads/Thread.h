// SPDX-License-Identifier: MIT
#pragma once

#include "Foundation/Export.h"

#include <sys/types.h>

#include <functional>
#include <string>
#include <thread>

namespace qmx
{

/// A named thread that works for an object and ends before that object does: the destructor waits for it. Give the
/// body a flag to leave by. Owned and joined by one thread.
class QMX_EXPORT Thread
{
public:
    Thread() = default;
    /// Starts `body` under `name` (15 characters show) at the ordinary priority. Not joinable where the system has no
    /// thread left; the body has then not run.
    Thread(const std::string& name, std::function<void()> body);
    Thread(Thread&&) noexcept = default;
    Thread& operator=(Thread&& other) noexcept;
    ~Thread();

    /// Whether there is a thread. A process made by fork() has none of its parent's.
    bool isJoinable() const;
    /// Waits until the body has returned; at once when there is no thread.
    void join();

    /// Starts a thread that nobody waits for. It must not touch an object whose life it does not share. False where the
    /// system has no thread left; the body has then not run.
    [[nodiscard]] static bool detachNewThread(const std::string& name, std::function<void()> body);

    /// The calling thread's scheduling priority, 0.0 to 1.0; 0.5 is ordinary.
    static double threadPriority();
    /// Asks for a priority, clamped to 0.0 to 1.0, for the calling thread. Below 0.5 the scheduler prefers others,
    /// above it prefers this one where the system's limits allow; a refusal leaves the thread as it was. A thread that
    /// is scheduled as real-time stays as it is. Returns whether the system agreed.
    [[nodiscard]] static bool setThreadPriority(double priority);

    /// Has the calling thread scheduled as real-time (true), at most at priority 80 and within the system's limit, or
    /// as an ordinary thread again (false). Threads and processes that it starts are ordinary ones. False where the
    /// system does not allow it, which is logged once; the thread then stays as it was.
    static bool setRealTime(bool isRealTime);

private:
    std::thread thread_;
    pid_t process_ = 0; // in which it runs
};

} // namespace qmx
