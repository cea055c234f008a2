// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/Foundation/Export.h>

#include <functional>

namespace qmx
{

/// The main thread's loop: runs timers and what other threads queue, mainly notifications. It belongs to the thread
/// that first runs it; running it on another thread does nothing and returns false.
class QMX_EXPORT RunLoop
{
public:
    /// The process's only loop; never destroyed.
    static RunLoop& main();

    /// Runs until stop(). Loops within a loop are allowed: stop() ends the innermost.
    bool run();
    /// Runs for `seconds` (0: what is due now) or until stop(). Returns whether it ran its time.
    bool runFor(double seconds);
    /// Runs what is due now and does not wait. Returns whether there was anything.
    bool runOnce();
    /// Ends the innermost run, or the next one if none is running. Any thread, and signal handlers.
    void stop();

    /// A descriptor that is readable when something is due: programs with a loop of their own poll it and call
    /// runOnce(). Owned by the loop.
    int fileDescriptor() const;

    /// Runs `action` on the main thread, in the order of the calls; does not wait. Any thread but the real-time ones.
    void perform(std::function<void()> action);
    /// Whether the loop belongs to the calling thread.
    bool isCurrent() const;

    struct Implementation; // for the timers and the hand-off of real-time threads
    Implementation& implementation() { return *implementation_; }

private:
    RunLoop();
    ~RunLoop() = delete;
    Implementation* implementation_;
};

} // namespace qmx
