// SPDX-License-Identifier: MIT
#include "AudioToolbox/Extended/BackgroundThread.h"

namespace qmx
{

BackgroundThread::BackgroundThread(const char* name)
    : thread_(
          name, [this] { run(); }, [this] { return work_.condition() == asked; })
{
}

BackgroundThread& BackgroundThread::writer()
{
    static auto* const thread = new BackgroundThread("qmx-file-writer"); // outlives every file
    return *thread;
}

BackgroundThread& BackgroundThread::reader()
{
    static auto* const thread = new BackgroundThread("qmx-file-reader");
    return *thread;
}

bool BackgroundThread::add(const std::shared_ptr<BackgroundWork>& work)
{
    const std::scoped_lock lock(mutex_);
    std::erase_if(works_, [](const auto& known) { return known.expired(); });
    works_.push_back(work);
    return thread_.start();
}

void BackgroundThread::wake() noexcept
{
    work_.unlockWithCondition(asked);
}

void BackgroundThread::run()
{
    while (true) {
        {
            const Worker::Wait wait(thread_.worker());
            work_.lockWhenCondition(asked);
        }
        work_.unlockWithCondition(none);
        workForAll();
    }
}

// Does not allocate: this thread has nobody to report a lack of memory to. The work being run is alive, and so keeps
// its place in the list.
void BackgroundThread::workForAll()
{
    std::unique_lock lock(mutex_);
    for (const auto& known : works_) {
        const auto work = known.lock();
        if (!work)
            continue;
        lock.unlock();
        work->work();
        lock.lock();
    }
}

} // namespace qmx
