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

    void setRests(Worker& worker, bool rests)
    {
        const std::scoped_lock lock(mutex);
        worker.rests_ = rests;
        changed.notify_all();
    }

    // What a resting worker's hasWork() looks at is changed by somebody busy only, so one look at all is exact.
    bool allRest() const
    {
        return std::ranges::all_of(workers, [](const Worker* worker) { return worker->rests_ && !worker->hasWork_(); });
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
    WorkerList::shared().setRests(worker_, true);
}

Worker::Wait::~Wait()
{
    WorkerList::shared().setRests(worker_, false);
}

bool waitUntilWorkersRest()
{
    constexpr std::chrono::seconds patience{30};
    WorkerList& list = WorkerList::shared();
    std::unique_lock lock(list.mutex);
    if (list.changed.wait_for(lock, patience, [&list] { return list.allRest(); }))
        return true;
    lock.unlock();
    Log("Worker: a thread of the library has not come to rest in 30 s; time goes on without it");
    return false;
}

} // namespace qmx
