// SPDX-License-Identifier: MIT
#include "Foundation/Thread.h"

#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <system_error>

namespace qmx
{
namespace
{

constexpr double ordinaryPriority = 0.5;
constexpr double nicesPerPriority = 40.0; // the whole range of 1.0 covers the scheduler's 40 levels

thread_local double currentPriority = ordinaryPriority;

bool isScheduledAsRealTime()
{
    const int policy = sched_getscheduler(0);
    return policy == SCHED_FIFO || policy == SCHED_RR;
}

std::thread start(const std::string& name, std::function<void()> body)
{
    try {
        return std::thread([name = name.substr(0, 15), body = std::move(body)] {
            pthread_setname_np(pthread_self(), name.c_str());
            body();
        });
    } catch (const std::system_error&) {
        return {}; // the system has no thread left
    }
}

} // namespace

Thread::Thread(const std::string& name, std::function<void()> body) : thread_(start(name, std::move(body))) {}

Thread& Thread::operator=(Thread&& other) noexcept
{
    join();
    thread_ = std::move(other.thread_);
    return *this;
}

Thread::~Thread()
{
    join();
}

bool Thread::isJoinable() const
{
    return thread_.joinable();
}

void Thread::join()
{
    if (thread_.joinable())
        thread_.join();
}

bool Thread::detachNewThread(const std::string& name, std::function<void()> body)
{
    std::thread thread = start(name, std::move(body));
    if (!thread.joinable())
        return false;
    thread.detach();
    return true;
}

double Thread::threadPriority()
{
    return currentPriority;
}

bool Thread::setThreadPriority(double priority)
{
    if (isScheduledAsRealTime())
        return true;
    priority = std::clamp(priority, 0.0, 1.0);
    const int nice =
        std::clamp(static_cast<int>(std::lround((ordinaryPriority - priority) * nicesPerPriority)), -20, 19);
    const auto thread = static_cast<id_t>(syscall(SYS_gettid));
    if (setpriority(PRIO_PROCESS, thread, nice) != 0)
        return false;
    currentPriority = priority;
    return true;
}

} // namespace qmx
