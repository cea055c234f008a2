// SPDX-License-Identifier: MIT
// Lets control threads replace what a render thread follows, without a lock on the render thread.
#pragma once

#include <atomic>

namespace qmx
{

/// Counts the renders in flight. A control thread stores the new pointer, waits until the gate is quiet, and frees the
/// old object: every render that began later has seen the new one.
class RenderGate
{
public:
    /// One render, from before it reads a pointer until it uses nothing behind it any more.
    class Pass
    {
    public:
        explicit Pass(RenderGate& gate) : gate_(gate) { gate_.inFlight_.fetch_add(1); }
        ~Pass()
        {
            if (gate_.inFlight_.fetch_sub(1) == 1)
                gate_.inFlight_.notify_all();
        }
        Pass(const Pass&) = delete;
        Pass& operator=(const Pass&) = delete;

    private:
        RenderGate& gate_;
    };

    /// Not inside a pass of the calling thread, and with no lock held that a render or its callback may want.
    void waitUntilQuiet() const
    {
        for (int count = inFlight_.load(); count != 0; count = inFlight_.load())
            inFlight_.wait(count);
    }

private:
    std::atomic<int> inFlight_ = 0;
};

/// What render threads may still use after it was replaced. Freed once the gates were quiet.
class Replaceable
{
public:
    Replaceable() = default;
    Replaceable(const Replaceable&) = delete;
    Replaceable& operator=(const Replaceable&) = delete;
    virtual ~Replaceable() = default;
};

} // namespace qmx
