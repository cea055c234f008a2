// SPDX-License-Identifier: MIT
// Memory that runs out, as an error. Internal to the front.
#pragma once

#include "CoreAudioTypes/MacTypes.h"
#include "Foundation/Memory.h"
#include "Foundation/Text/FailureLine.h"
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

/// What `work` gives, a Result; the error for want of memory if it ran out of it. Steps that fail meanwhile print no
/// lines: the result says why.
template <class Work> auto orNoMemory(Work&& work) -> decltype(work())
{
    const QuietFailureLines quiet;
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
