// SPDX-License-Identifier: MIT
// The threads that serve the whole process.
#pragma once

#include "Foundation/Threads/Worker.h"

#include <atomic>
#include <functional>
#include <mutex>
#include <optional>

namespace qmx
{

/// A thread that lasts as long as the process. start() makes it when it is first needed, or later if the system had no
/// thread left then. Once the thread exists, this object must not be destroyed.
class QMX_MODULE_EXPORT LastingThread
{
public:
    /// `body` never returns. If `hasWork` is given, the thread is a worker.
    LastingThread(const char* name, std::function<void()> body, std::function<bool()> hasWork = {});
    LastingThread(const LastingThread&) = delete;
    LastingThread& operator=(const LastingThread&) = delete;

    /// Makes the thread unless it exists; returns whether it exists now. Makes none on a real-time thread. Hold no lock
    /// that `hasWork` takes.
    bool start();
    /// The thread's worker; for the thread itself.
    Worker& worker() { return *worker_; }

private:
    const char* const name_;
    const std::function<void()> body_;
    const std::function<bool()> hasWork_;
    std::mutex starting_;
    std::optional<Worker> worker_; // set before the thread is made
    std::atomic<bool> isThere_{false};
};

} // namespace qmx
