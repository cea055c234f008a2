// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/Foundation/Export.h>

#include <sys/types.h>

#include <functional>
#include <string>
#include <thread>

namespace qmx
{

/// A named thread that works for an object and ends before it: the destructor waits for the thread, so its body needs a
/// flag to stop at. Owned and joined by one thread.
class QMX_EXPORT Thread
{
public:
    Thread() = default;
    /// Starts `body` under `name` (15 characters are shown) at the ordinary priority. If the system has no thread left,
    /// the object is not joinable and the body does not run.
    Thread(const std::string& name, std::function<void()> body);
    Thread(Thread&&) noexcept = default;
    Thread& operator=(Thread&& other) noexcept;
    ~Thread();

    /// Whether there is a thread. A process made by fork() has no threads of its parent.
    bool isJoinable() const;
    /// Waits until the body has returned; returns at once if there is no thread.
    void join();

    /// Starts a thread that nothing waits for; the body must own the objects that it uses. If the system has no thread
    /// left, it returns false and the body does not run.
    [[nodiscard]] static bool detachNewThread(const std::string& name, std::function<void()> body);

    /// The calling thread's scheduling priority, 0.0 to 1.0; 0.5 is ordinary.
    static double threadPriority();
    /// Requests a priority, clamped to 0.0 to 1.0, for the calling thread. Below 0.5 the scheduler prefers other
    /// threads, above 0.5 this one if the system's limits allow it. Returns whether the system agreed; if not, the
    /// priority is unchanged. A thread that is scheduled as real-time stays as it is.
    [[nodiscard]] static bool setThreadPriority(double priority);

    /// Schedules the calling thread as real-time (true), at priority 80 or the system's limit if that is lower, or as
    /// an ordinary thread again (false). Threads and processes that it starts are ordinary. Returns false if the system
    /// does not allow it, which is logged once; the thread is then unchanged.
    [[nodiscard]] static bool setRealTime(bool isRealTime);

private:
    std::thread thread_;
    pid_t process_ = 0; // the process that it runs in
};

} // namespace qmx
