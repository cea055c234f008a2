// SPDX-License-Identifier: MIT
#include "Foundation/Threads/Thread.h"

#include "Foundation/Files/FileSystem.h"
#include "Foundation/Memory.h"
#include "Foundation/Text/Log.h"

#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <mutex>
#include <system_error>
#include <vector>

namespace qmx
{
namespace
{

constexpr double ordinaryPriority = 0.5;
constexpr double nicesPerPriority = 40.0; // the range of 1.0 covers the scheduler's 40 levels

thread_local double currentPriority = ordinaryPriority;

bool isScheduledAsRealTime()
{
    const int policy = sched_getscheduler(0) & ~SCHED_RESET_ON_FORK;
    return policy == SCHED_FIFO || policy == SCHED_RR;
}

/// The priority that this process's limit allows; without a limit the wanted one, which a privileged process may use.
int realTimePriority()
{
    constexpr rlim_t wanted = 80; // below the kernel's and the sound server's priorities
    rlimit limit{};
    const bool isLimited = getrlimit(RLIMIT_RTPRIO, &limit) == 0 && limit.rlim_cur > 0;
    return static_cast<int>(isLimited ? std::min(limit.rlim_cur, wanted) : wanted);
}

std::thread start(const std::string& name, std::function<void()> body)
{
    return withinMemory(std::thread(), [&]() -> std::thread {
        try {
            return std::thread([name = name.substr(0, 15), body = std::move(body)] {
                pthread_setname_np(pthread_self(), name.c_str());
                body();
            });
        } catch (const std::system_error&) {
            return {}; // the system has no thread left
        }
    });
}

// Keeps a thread object of the parent process for ever: a forked process can neither join nor destroy it.
void putAside(std::thread thread)
{
    static std::mutex mutex;
    static auto* const lost = new std::vector<std::thread>;
    const std::scoped_lock lock(mutex);
    lost->push_back(std::move(thread));
}

} // namespace

Thread::Thread(const std::string& name, std::function<void()> body)
    : thread_(start(name, std::move(body))), process_(getpid())
{
}

Thread& Thread::operator=(Thread&& other) noexcept
{
    join();
    thread_ = std::move(other.thread_);
    process_ = other.process_;
    return *this;
}

Thread::~Thread()
{
    join();
}

bool Thread::isJoinable() const
{
    return thread_.joinable() && process_ == getpid();
}

void Thread::join()
{
    if (isJoinable())
        thread_.join();
    else if (thread_.joinable())
        putAside(std::move(thread_));
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

bool Thread::setRealTime(bool isRealTime)
{
    static std::once_flag refusal;
    sched_param parameters{};
    parameters.sched_priority = isRealTime ? realTimePriority() : 0;
    const int policy = isRealTime ? SCHED_FIFO : SCHED_OTHER;
    if (sched_setscheduler(0, policy | SCHED_RESET_ON_FORK, &parameters) == 0)
        return true;
    const int error = errno;
    std::call_once(refusal, [error] {
        Log("No real-time priority for audio threads (%s): sound may be lost on a busy machine",
            systemErrorText(error));
    });
    return false;
}

} // namespace qmx
