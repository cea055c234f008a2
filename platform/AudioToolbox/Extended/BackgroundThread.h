// SPDX-License-Identifier: MIT
// The threads of the process that write and read files on behalf of real-time threads: one per direction, for all
// files.
#pragma once

#include "Foundation/Threads/ConditionLock.h"
#include "Foundation/Threads/LastingThread.h"

#include <list>
#include <memory>
#include <mutex>

namespace qmx
{

/// What such a thread does for a file each time it is woken. It may run once more after its owner released it.
class BackgroundWork
{
public:
    virtual ~BackgroundWork() = default;
    virtual void work() = 0;
};

class BackgroundThread
{
public:
    /// The writing thread, and the one that reads ahead. They start with their first work and last as long as the
    /// process.
    static BackgroundThread& writer();
    static BackgroundThread& reader();

    /// False if the system has no thread left for it. Releasing the last reference to the work ends it.
    [[nodiscard]] bool add(const std::shared_ptr<BackgroundWork>& work);
    /// Any thread, real-time ones too: costs a store and, while the thread sleeps, a wake-up.
    void wake() noexcept;

private:
    enum : int { none, asked };
    explicit BackgroundThread(const char* name);
    void run();
    void workForAll();

    std::mutex mutex_;
    std::list<std::weak_ptr<BackgroundWork>> works_; // guarded by it
    ConditionLock work_{none};
    LastingThread thread_;
};

} // namespace qmx
