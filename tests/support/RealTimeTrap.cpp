// SPDX-License-Identifier: MIT
// The allocator, the lock functions and the common ways into the system, replaced for the whole test program: on a thread
// that is marked real-time they say what was called and abort; on other threads they do what they always do.
#include "Foundation/RealTime.h"

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/uio.h>
#include <unistd.h>

namespace
{

void refuse(const char* function)
{
    if (!qmx::isRealTime())
        return;
    constexpr char text[] = " was called on a real-time thread\n";
    iovec pieces[] = {{const_cast<char*>(function), std::strlen(function)}, {const_cast<char*>(text), sizeof text - 1}};
    if (writev(STDERR_FILENO, pieces, 2) < 0)
        _exit(1);
    abort();
}

/// The function of that name which this program's own one hides.
template <class Function> Function* hidden(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace

// what stands behind the system's allocator
extern "C" void* __libc_malloc(size_t size) noexcept;
extern "C" void* __libc_calloc(size_t count, size_t size) noexcept;
extern "C" void* __libc_realloc(void* block, size_t size) noexcept;
extern "C" void* __libc_memalign(size_t alignment, size_t size) noexcept;
extern "C" void __libc_free(void* block) noexcept;

extern "C" {

// operators new and delete come here too

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
    refuse("pthread_mutex_lock");
    static auto* const lock = hidden<int(pthread_mutex_t*)>("pthread_mutex_lock");
    return lock(mutex);
}

int pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex)
{
    refuse("pthread_cond_wait");
    static auto* const wait = hidden<int(pthread_cond_t*, pthread_mutex_t*)>("pthread_cond_wait");
    return wait(condition, mutex);
}

int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock, const timespec* until)
{
    refuse("pthread_cond_clockwait");
    static auto* const wait =
        hidden<int(pthread_cond_t*, pthread_mutex_t*, clockid_t, const timespec*)>("pthread_cond_clockwait");
    return wait(condition, mutex, clock, until);
}

int pthread_rwlock_rdlock(pthread_rwlock_t* lock) noexcept
{
    refuse("pthread_rwlock_rdlock");
    static auto* const lockToRead = hidden<int(pthread_rwlock_t*)>("pthread_rwlock_rdlock");
    return lockToRead(lock);
}

int pthread_rwlock_wrlock(pthread_rwlock_t* lock) noexcept
{
    refuse("pthread_rwlock_wrlock");
    static auto* const lockToWrite = hidden<int(pthread_rwlock_t*)>("pthread_rwlock_wrlock");
    return lockToWrite(lock);
}

int sem_wait(sem_t* semaphore)
{
    refuse("sem_wait");
    static auto* const wait = hidden<int(sem_t*)>("sem_wait");
    return wait(semaphore);
}

int clock_nanosleep(clockid_t clock, int flags, const timespec* time, timespec* rest)
{
    refuse("clock_nanosleep");
    static auto* const sleep = hidden<int(clockid_t, int, const timespec*, timespec*)>("clock_nanosleep");
    return sleep(clock, flags, time, rest);
}

int sched_yield() noexcept
{
    refuse("sched_yield");
    static auto* const yield = hidden<int()>("sched_yield");
    return yield();
}

// files

int open(const char* path, int flags, ...)
{
    refuse("open");
    mode_t mode = 0;
    if (flags & (O_CREAT | __O_TMPFILE)) {
        va_list arguments;
        va_start(arguments, flags);
        mode = va_arg(arguments, mode_t);
        va_end(arguments);
    }
    static auto* const openFile = hidden<int(const char*, int, ...)>("open");
    return openFile(path, flags, mode);
}

ssize_t read(int file, void* bytes, size_t size)
{
    refuse("read");
    static auto* const readFile = hidden<ssize_t(int, void*, size_t)>("read");
    return readFile(file, bytes, size);
}

ssize_t write(int file, const void* bytes, size_t size)
{
    refuse("write");
    static auto* const writeFile = hidden<ssize_t(int, const void*, size_t)>("write");
    return writeFile(file, bytes, size);
}

ssize_t pread(int file, void* bytes, size_t size, off_t offset)
{
    refuse("pread");
    static auto* const readFile = hidden<ssize_t(int, void*, size_t, off_t)>("pread");
    return readFile(file, bytes, size, offset);
}

ssize_t pwrite(int file, const void* bytes, size_t size, off_t offset)
{
    refuse("pwrite");
    static auto* const writeFile = hidden<ssize_t(int, const void*, size_t, off_t)>("pwrite");
    return writeFile(file, bytes, size, offset);
}

int close(int file)
{
    refuse("close");
    static auto* const closeFile = hidden<int(int)>("close");
    return closeFile(file);
}

int poll(pollfd* files, nfds_t count, int milliseconds)
{
    refuse("poll");
    static auto* const wait = hidden<int(pollfd*, nfds_t, int)>("poll");
    return wait(files, count, milliseconds);
}

} // extern "C"
