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

/// A thread that lasts as long as the process. It is made at its first need; where the system had no thread left, at a
/// later one. Once the thread is there this object is never destroyed.
class LastingThread
{
public:
    /// `body` never returns. Where `hasWork` is given, the thread is a worker while it is there.
    LastingThread(const char* name, std::function<void()> body, std::function<bool()> hasWork = {});
    LastingThread(const LastingThread&) = delete;
    LastingThread& operator=(const LastingThread&) = delete;

    /// Makes the thread unless it is there; whether it is now. A thread marked real-time makes none. Hold no lock that
    /// `hasWork` takes.
    bool start();
    /// For the thread itself.
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
