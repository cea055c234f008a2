// SPDX-License-Identifier: MIT
#pragma once

#include "Foundation/Memory.h"
#include "Front/Result.h"

namespace qmx
{

/// Short enough to need no memory itself.
inline Error noMemory()
{
    return {memFullErr, "No memory"};
}

/// What `work` gives, a Result; the error for want of memory if it ran out of it.
template <class Work> auto orNoMemory(Work&& work) -> decltype(work())
{
    return withinMemory(decltype(work())(noMemory()), std::forward<Work>(work));
}

} // namespace qmx
