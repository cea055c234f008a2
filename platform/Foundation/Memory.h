// SPDX-License-Identifier: MIT
// Where the platform's functions and the objects above them meet their callers, memory that ran out is a result like
// others, never an exception.
#pragma once

#include <new>
#include <stdexcept>
#include <utility>

namespace qmx
{

/// What `work` gives; `otherwise` when it ran out of memory or asked a container for more than it can hold. Everything
/// else that it throws passes.
template <class Result, class Work> Result withinMemory(Result otherwise, Work&& work)
{
    try {
        return std::forward<Work>(work)();
    } catch (const std::bad_alloc&) {
        return otherwise;
    } catch (const std::length_error&) {
        return otherwise;
    }
}

/// The same for `work` without a result: whether it came to its end.
template <class Work> [[nodiscard]] bool withinMemory(Work&& work)
{
    return withinMemory(false, [&] {
        std::forward<Work>(work)();
        return true;
    });
}

} // namespace qmx
