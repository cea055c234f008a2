// SPDX-License-Identifier: MIT
// What the library's own threads report of themselves, so that simulated time never outruns them.
#pragma once

#include "Foundation/Export.h"

#include <atomic>
#include <cstdint>
#include <functional>

namespace qmx
{

/// One thread that waits for work, does it and waits again. It has work to do, or is at rest: it stands in its wait and
/// nothing has been given to it.
///
///     Worker worker([&] { return lock.condition() == 0; });
///     for (;;) {
///         {
///             const Worker::Wait wait(worker);
///             lock.lockWhenCondition(0);
///         }
///         ... the work, which is taken here and not in the wait ...
///     }
class QMX_EXPORT Worker
{
public:
    /// `hasWork` reports whether work was given that the thread has not taken. Called from other threads, must not
    /// block, nor make or destroy a Worker. Queued work must be visible through it before the queuing thread goes idle.
    explicit Worker(std::function<bool()> hasWork);
    ~Worker();
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    /// While one exists the thread stands in its wait. Made and destroyed on the worker's thread, without a lock that
    /// `hasWork` takes. Takes no lock itself while nobody waits for rest.
    class QMX_EXPORT Wait
    {
    public:
        explicit Wait(Worker& worker);
        ~Wait();
        Wait(const Wait&) = delete;
        Wait& operator=(const Wait&) = delete;

    private:
        Worker& worker_;
    };

private:
    friend struct WorkerList;
    std::function<bool()> hasWork_;
    std::atomic<std::uint64_t> turns_{0}; ///< odd at rest
    std::uint64_t seenTurns_ = 0;         ///< guarded by the list's lock
};

/// Returns when all workers are at rest at one instant. Not from a worker. After 30 s it gives up, logs that, and
/// returns false.
QMX_EXPORT bool waitUntilWorkersRest();

} // namespace qmx
