// SPDX-License-Identifier: MIT
#include "Foundation/Threads/Worker.h"

#include "Foundation/Text/Log.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <vector>

namespace qmx
{

namespace
{

// The number of threads that wait for rest now. While it is 0, a worker that comes to rest does not take the lock.
std::atomic<int> waitsForRest{0};

} // namespace

struct WorkerList {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<Worker*> workers;
    const pid_t process = getpid();

    // Never destroyed: threads may rest while the process ends. A forked process makes its own list, because it has
    // none of its parent's threads, and one of those may have held the lock.
    static WorkerList& shared()
    {
        static std::atomic<WorkerList*> current{new WorkerList};
        WorkerList* list = current;
        if (list->process == getpid())
            return *list;
        auto* const own = new WorkerList;
        if (current.compare_exchange_strong(list, own))
            return *own;
        delete own;
        return *list;
    }

    static void turn(Worker& worker) { worker.turns_.fetch_add(1); }

    static void tellRest()
    {
        if (waitsForRest.load() == 0)
            return;
        WorkerList& list = shared();
        const std::scoped_lock lock(list.mutex);
        list.changed.notify_all();
    }

    // A worker that is at rest in the same turn in both passes rested in between, so all of them rested at one instant
    // between the passes. Work queued before that instant is seen in the second pass; after it, no worker was left to
    // queue any.
    bool allRest() const
    {
        for (Worker* const worker : workers)
            worker->seenTurns_ = worker->turns_.load();
        return std::ranges::all_of(workers, [](const Worker* worker) {
            return worker->seenTurns_ % 2 == 1 && !worker->hasWork_() && worker->turns_.load() == worker->seenTurns_;
        });
    }
};

Worker::Worker(std::function<bool()> hasWork) : hasWork_(std::move(hasWork))
{
    WorkerList& list = WorkerList::shared();
    const std::scoped_lock lock(list.mutex);
    list.workers.push_back(this);
}

Worker::~Worker()
{
    WorkerList& list = WorkerList::shared();
    const std::scoped_lock lock(list.mutex);
    std::erase(list.workers, this);
    list.changed.notify_all();
}

Worker::Wait::Wait(Worker& worker) : worker_(worker)
{
    WorkerList::turn(worker_);
    WorkerList::tellRest();
}

Worker::Wait::~Wait()
{
    WorkerList::turn(worker_);
}

bool waitUntilWorkersRest()
{
    constexpr std::chrono::seconds patience{30};
    WorkerList& list = WorkerList::shared();
    std::unique_lock lock(list.mutex);
    ++waitsForRest;
    const bool allRest = list.changed.wait_for(lock, patience, [&list] { return list.allRest(); });
    --waitsForRest;
    if (allRest)
        return true;
    lock.unlock();
    Log("Worker: a thread of the library has not come to rest in 30 s; time goes on without it");
    return false;
}

} // namespace qmx
