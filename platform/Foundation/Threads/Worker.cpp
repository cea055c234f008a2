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

// How many wait for rest now. Only then a worker that comes to rest looks for the list.
std::atomic<int> waitsForRest{0};

} // namespace

struct WorkerList {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<Worker*> workers;
    const pid_t process = getpid();

    // Never destroyed: threads may rest while the process ends. A forked process starts a list of its own, since it has
    // none of its parent's threads and one of them may have held the lock.
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

    // Who is at rest in the same turn at both looks rested in between, so that all rested at one instant between the
    // looks. Work that was given before it is seen at the second look; later nobody was left to give any.
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
