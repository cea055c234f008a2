// SPDX-License-Identifier: MIT
// Stands for std::atomic and its fences in a source that runs under a checker of the language's memory model.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <ostream>
#include <type_traits>

#include <relacy/relacy.hpp>
#undef memory_order_relaxed
#undef memory_order_acquire
#undef memory_order_release
#undef memory_order_acq_rel
#undef memory_order_seq_cst
#undef malloc
#undef calloc
#undef realloc
#undef free
#undef new
#undef delete

namespace checked
{

inline bool isOrdered = true; ///< or as if every order was relaxed and no fence was there

/// Both count from relaxed to sequentially consistent.
inline rl::memory_order order(std::memory_order of)
{
    return isOrdered ? static_cast<rl::memory_order>(of) : rl::mo_relaxed;
}

/// Every order of steps in which the threads change places at most twice on their own accord.
template <class Suite> bool holds(std::ostream& report)
{
    rl::test_params parameters;
    parameters.output_stream = parameters.progress_stream = &report;
    parameters.search_type = rl::fair_context_bound_scheduler_type;
    parameters.context_bound = 2;
    parameters.execution_depth_limit = 100000;
    return rl::simulate<Suite>(parameters);
}

} // namespace checked

namespace std
{

template <class Value> class checked_atomic
{
public:
    static constexpr bool is_always_lock_free = true;
    using Stored = std::conditional_t<sizeof(Value) == sizeof(int), int, Value>; ///< the checker's futex waits for int

    checked_atomic(Value value) { store(value, memory_order_relaxed); }
    Value load(memory_order order = memory_order_seq_cst) const
    {
        return static_cast<Value>(value_.load(checked::order(order), $));
    }
    void store(Value value, memory_order order = memory_order_seq_cst)
    {
        value_.store(static_cast<Stored>(value), checked::order(order), $);
    }
    bool compare_exchange_strong(Value& expected, Value value)
    {
        return exchange(rl::bool_t<false>(), expected, value, memory_order_seq_cst, memory_order_seq_cst);
    }
    bool compare_exchange_weak(Value& expected, Value value, memory_order done, memory_order failed)
    {
        return exchange(rl::bool_t<true>(), expected, value, done, failed);
    }
    bool compare_exchange_weak(Value& expected, Value value, memory_order order)
    {
        return compare_exchange_weak(expected, value, order, order);
    }
    rl::atomic<Stored>& checked() { return value_; }

private:
    template <class Weak>
    bool exchange(Weak isWeak, Value& expected, Value value, memory_order done, memory_order failed)
    {
        auto seen = static_cast<Stored>(expected);
        const bool isDone = value_.compare_exchange(isWeak, seen, static_cast<Stored>(value), checked::order(done),
                                                    checked::order(failed), $);
        expected = static_cast<Value>(seen);
        return isDone;
    }

    rl::atomic<Stored> value_;
};

inline void checked_atomic_thread_fence(memory_order order)
{
    if (checked::isOrdered)
        rl::atomic_thread_fence(checked::order(order), $);
}

} // namespace std
