// SPDX-License-Identifier: MIT
// The library's callers see memory that runs out as a result like any other, never as an exception.
#pragma once

#include <new>
#include <stdexcept>
#include <utility>

namespace qmx
{

/// The result of `work`, or `otherwise` if it ran out of memory or asked a container for more than it can hold. Any
/// other exception passes.
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

/// The same for `work` without a result; true if it finished.
template <class Work> [[nodiscard]] bool withinMemory(Work&& work)
{
    return withinMemory(false, [&] {
        std::forward<Work>(work)();
        return true;
    });
}

} // namespace qmx
