// SPDX-License-Identifier: MIT
// The threads of the process that write and read files behind real-time threads: one for each direction, for all files.
#pragma once

#include "Foundation/Threads/LastingThread.h"

#include <atomic>
#include <list>
#include <memory>
#include <mutex>

namespace qmx
{

/// What such a thread does for a file each time it is woken. It may be called once more after its owner let go of it.
class BackgroundWork
{
public:
    virtual ~BackgroundWork() = default;
    virtual void work() = 0;
};

class BackgroundThread
{
public:
    /// The thread that writes, and the one that reads ahead. They begin with their first work and last as long as the
    /// process.
    static BackgroundThread& writer();
    static BackgroundThread& reader();

    /// False where the system has no thread left for it. Whoever owns the work ends it by letting go.
    [[nodiscard]] bool add(const std::shared_ptr<BackgroundWork>& work);
    /// Any thread, real-time ones too: costs a store and, while the thread sleeps, a wake.
    void wake() noexcept;

private:
    explicit BackgroundThread(const char* name);
    void run();
    void workForAll();

    std::mutex mutex_;
    std::list<std::weak_ptr<BackgroundWork>> works_; // guarded by it
    std::atomic<unsigned> wakes_{0}, seenWakes_{0};
    LastingThread thread_;
};

} // namespace qmx
