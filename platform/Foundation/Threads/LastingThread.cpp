// SPDX-License-Identifier: MIT
#include "Foundation/Threads/LastingThread.h"

#include "Foundation/RealTime.h"
#include "Foundation/Threads/Thread.h"

#include <utility>

namespace qmx
{

LastingThread::LastingThread(const char* name, std::function<void()> body, std::function<bool()> hasWork)
    : name_(name), body_(std::move(body)), hasWork_(std::move(hasWork))
{
}

bool LastingThread::start()
{
    if (isThere_.load())
        return true;
    if (isRealTime())
        return false;
    const std::scoped_lock lock(starting_);
    if (isThere_.load())
        return true;
    if (hasWork_)
        worker_.emplace(hasWork_);
    isThere_ = Thread::detachNewThread(name_, body_);
    if (!isThere_)
        worker_.reset(); // a worker without a thread would never rest
    return isThere_;
}

} // namespace qmx
