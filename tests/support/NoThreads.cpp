// SPDX-License-Identifier: MIT
#include "support/NoThreads.h"

#include <atomic>
#include <cerrno>
#include <dlfcn.h>
#include <pthread.h>

namespace
{

std::atomic<int> depth{0};

} // namespace

extern "C" {

using Body = void* (*)(void*);

/// The sanitizers' own function, if they are built in.
[[gnu::weak]] int __interceptor_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, Body body,
                                               void* argument);

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, Body body, void* argument) noexcept
{
    if (depth > 0)
        return EAGAIN;
    static auto* const hidden =
        __interceptor_pthread_create
            ? __interceptor_pthread_create
            : reinterpret_cast<decltype(&__interceptor_pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
    return hidden(thread, attributes, body, argument);
}

} // extern "C"

namespace qmx::test
{

NoThreads::NoThreads() noexcept
{
    ++depth;
}

NoThreads::~NoThreads()
{
    --depth;
}

} // namespace qmx::test
