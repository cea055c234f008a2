// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Foundation/Object.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>

namespace qmx
{

/// Calls a function on the main thread after a time, once or repeatedly. RunLoop::main() keeps it alive while it is
/// valid.
class QMX_EXPORT Timer : public Object
{
public:
    using Handler = std::function<void(Timer&)>;

    /// Starts a timer that fires after `seconds` (below 0: at once; not finite: an invalid timer) and, if it repeats,
    /// at that interval (at least 0.1 ms); times that the main thread missed are left out. Any thread but the real-time
    /// ones.
    static std::shared_ptr<Timer> scheduledTimer(double seconds, bool repeats, Handler handler);

    /// Stops the timer: the handler is not called again (a call in progress goes on). Any thread.
    void invalidate();
    /// Whether it will still fire.
    bool isValid() const;

    Timer(double seconds, bool repeats, Handler handler);

private:
    friend struct TimerQueue;
    using Clock = std::chrono::steady_clock;
    Clock::time_point due_;
    Clock::duration interval_;
    bool repeats_;
    Handler handler_;
    std::atomic<bool> valid_{true};
};

} // namespace qmx
