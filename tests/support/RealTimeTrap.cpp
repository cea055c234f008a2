// SPDX-License-Identifier: MIT
// Replaces the allocator, the lock functions and the common system calls in the whole test program: on a thread that is
// marked real-time they print what was called and abort; on other threads they work as always. What may be called to
// hand something over is counted instead.
#include "support/OutsideRealTime.h"
#include "support/RealTimeCalls.h"
#include <QMXCoreAudio/Foundation/RealTime.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <linux/futex.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

namespace
{

using qmx::test::RealTimeCalls;

bool isWatched()
{
    return qmx::isRealTime() && !qmx::test::OutsideRealTime::isCurrent();
}

void refuse(const char* function)
{
    if (!isWatched())
        return;
    constexpr char text[] = " was called on a real-time thread\n";
    iovec pieces[] = {{const_cast<char*>(function), std::strlen(function)}, {const_cast<char*>(text), sizeof text - 1}};
    if (writev(STDERR_FILENO, pieces, 2) < 0)
        _exit(1);
    abort();
}

/// The system's function that `function`, of this program, hides. It is looked up without a guard, which would itself
/// call such a function in order to wait.
template <auto* function> decltype(function) hiddenBy(const char* name)
{
    static constinit std::atomic<void*> hidden{nullptr};
    if (!hidden)
        hidden = dlsym(RTLD_NEXT, name);
    return reinterpret_cast<decltype(function)>(hidden.load());
}

template <auto* function, class... Arguments> auto passOn(const char* name, Arguments... arguments)
{
    refuse(name);
    return hiddenBy<function>(name)(arguments...);
}

} // namespace

std::atomic<UInt32> RealTimeCalls::wakes{0}, RealTimeCalls::events{0};

// the system's own allocator
extern "C" void* __libc_malloc(size_t size) noexcept;
extern "C" void* __libc_calloc(size_t count, size_t size) noexcept;
extern "C" void* __libc_realloc(void* block, size_t size) noexcept;
extern "C" void* __libc_memalign(size_t alignment, size_t size) noexcept;
extern "C" void __libc_free(void* block) noexcept;

extern "C" {

// operators new and delete call these, too

void* malloc(size_t size) noexcept
{
    refuse("malloc");
    return __libc_malloc(size);
}

void* calloc(size_t count, size_t size) noexcept
{
    refuse("calloc");
    return __libc_calloc(count, size);
}

void* realloc(void* block, size_t size) noexcept
{
    refuse("realloc");
    return __libc_realloc(block, size);
}

void* aligned_alloc(size_t alignment, size_t size) noexcept
{
    refuse("aligned_alloc");
    return __libc_memalign(alignment, size);
}

int posix_memalign(void** block, size_t alignment, size_t size) noexcept
{
    refuse("posix_memalign");
    *block = __libc_memalign(alignment, size);
    return *block ? 0 : ENOMEM;
}

void free(void* block) noexcept
{
    refuse("free");
    __libc_free(block);
}

// locks and waits

int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept
{
    return passOn<pthread_mutex_lock>("pthread_mutex_lock", mutex);
}

int pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex)
{
    return passOn<pthread_cond_wait>("pthread_cond_wait", condition, mutex);
}

int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock, const timespec* until)
{
    return passOn<pthread_cond_clockwait>("pthread_cond_clockwait", condition, mutex, clock, until);
}

int pthread_rwlock_rdlock(pthread_rwlock_t* lock) noexcept
{
    return passOn<pthread_rwlock_rdlock>("pthread_rwlock_rdlock", lock);
}

int pthread_rwlock_wrlock(pthread_rwlock_t* lock) noexcept
{
    return passOn<pthread_rwlock_wrlock>("pthread_rwlock_wrlock", lock);
}

int clock_nanosleep(clockid_t clock, int flags, const timespec* time, timespec* rest)
{
    return passOn<clock_nanosleep>("clock_nanosleep", clock, flags, time, rest);
}

int sched_yield() noexcept
{
    return passOn<sched_yield>("sched_yield");
}

// Only a wake hands something over: waiting for a lock that another thread holds, too, comes here.
long syscall(long number, ...) noexcept
{
    long values[6];
    va_list arguments;
    va_start(arguments, number);
    for (long& value : values)
        value = va_arg(arguments, long);
    va_end(arguments);
    if (number == SYS_futex && (values[1] & FUTEX_CMD_MASK) == FUTEX_WAKE)
        RealTimeCalls::wakes += isWatched() ? 1 : 0;
    else
        refuse("syscall");
    return hiddenBy<syscall>("syscall")(number, values[0], values[1], values[2], values[3], values[4], values[5]);
}

int eventfd_write(int file, eventfd_t value)
{
    RealTimeCalls::events += isWatched() ? 1 : 0;
    return hiddenBy<eventfd_write>("eventfd_write")(file, value);
}

// files

int open(const char* path, int flags, ...)
{
    mode_t mode = 0;
    if (flags & (O_CREAT | __O_TMPFILE)) {
        va_list arguments;
        va_start(arguments, flags);
        mode = va_arg(arguments, mode_t);
        va_end(arguments);
    }
    return passOn<open>("open", path, flags, mode);
}

ssize_t read(int file, void* bytes, size_t size)
{
    return passOn<read>("read", file, bytes, size);
}

ssize_t write(int file, const void* bytes, size_t size)
{
    return passOn<write>("write", file, bytes, size);
}

ssize_t pread(int file, void* bytes, size_t size, off_t offset)
{
    return passOn<pread>("pread", file, bytes, size, offset);
}

ssize_t pwrite(int file, const void* bytes, size_t size, off_t offset)
{
    return passOn<pwrite>("pwrite", file, bytes, size, offset);
}

int close(int file)
{
    return passOn<close>("close", file);
}

} // extern "C"
