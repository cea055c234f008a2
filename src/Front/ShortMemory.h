// SPDX-License-Identifier: MIT
// Memory that runs out, as an error. Internal to the front.
#pragma once

#include "CoreAudioTypes/MacTypes.h"
#include "Foundation/Memory.h"
#include "Front/Result.h"

#include <memory>
#include <new>
#include <utility>

namespace qmx
{

/// The error of work that ran out of memory; made without any.
inline Error memoryError()
{
    return {memFullErr, "Out of memory"};
}

/// The same as the result of withinMemory().
template <class Value> Result<Value> outOfMemory()
{
    return memoryError();
}

/// What `work` gives, a Result; the error for want of memory if it ran out of it.
template <class Work> auto orNoMemory(Work&& work) -> decltype(work())
{
    return withinMemory(decltype(work())(memoryError()), std::forward<Work>(work));
}

/// What a described object's initializer gave, which is null when memory is short. Throws then, inside withinMemory().
template <class Object> std::shared_ptr<Object> made(std::shared_ptr<Object> object)
{
    if (!object)
        throw std::bad_alloc();
    return object;
}

} // namespace qmx
