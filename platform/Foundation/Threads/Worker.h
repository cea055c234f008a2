// SPDX-License-Identifier: MIT
// The library's own threads report here whether they work or wait, so that simulated time never outruns them.
#pragma once

#include <QMXCoreAudio/Foundation/Export.h>

#include <atomic>
#include <cstdint>
#include <functional>

namespace qmx
{

/// A thread that waits for work, does it and waits again. It is at rest while it waits and no work is queued for it.
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
    /// `hasWork` reports whether work is queued that the thread has not taken. It is called from other threads and must
    /// neither block nor make or destroy a Worker. It must report queued work before the queuing thread comes to rest.
    explicit Worker(std::function<bool()> hasWork);
    ~Worker();
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    /// While one exists, the thread waits. Made and destroyed on the worker's thread, without a lock that `hasWork`
    /// takes. Takes no lock itself unless a thread is in waitUntilWorkersRest().
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

/// Returns true when all workers are at rest at the same instant. After 30 s it gives up, logs that, and returns false.
/// Not from a worker.
QMX_EXPORT bool waitUntilWorkersRest();

} // namespace qmx
