// SPDX-License-Identifier: MIT
#pragma once

#include "Foundation/Export.h"

#include <functional>

namespace qmx
{

/// The main thread's loop: runs what other threads hand over (notifications above all) and timers. It belongs to the
/// thread that first runs it; running it on another one does nothing and returns false.
class QMX_EXPORT RunLoop
{
public:
    /// The process's one loop; never destroyed.
    static RunLoop& main();

    /// Runs until stop(). Loops within a loop are allowed: stop() ends the innermost.
    bool run();
    /// Runs for `seconds` (0: what is due now) or until stop(). Whether it ran its time.
    bool runFor(double seconds);
    /// Runs what is due now and does not wait. Whether there was anything.
    bool runOnce();
    /// Ends the innermost run, or the next one if there is none. Any thread, signal handlers too.
    void stop();

    /// Readable when something is due: programs with a loop of their own poll it and call runOnce(). Owned by the loop.
    int fileDescriptor() const;

    /// Runs `action` on the main thread, in the order of the calls; does not wait. Any thread but the real-time ones.
    void perform(std::function<void()> action);
    /// Whether the calling thread is the one that the loop belongs to.
    bool isCurrent() const;

    struct Implementation; // for the timers and the hand-off of real-time threads
    Implementation& implementation() { return *implementation_; }

private:
    RunLoop();
    ~RunLoop() = delete;
    Implementation* implementation_;
};

} // namespace qmx
