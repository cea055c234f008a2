// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Foundation/Object.h>

#include <functional>
#include <memory>
#include <string>

namespace qmx
{

/// A notification that a real-time thread may send to the main thread. It is made beforehand, where allocating is
/// allowed and after a shared_ptr owns the sender; send() then neither allocates, frees, locks nor waits: its only
/// system call wakes the main thread. RunLoop::main() delivers notifications and the actions of RunLoop::perform in the
/// order in which they were sent.
class QMX_EXPORT RealTimeNotification
{
public:
    enum class Kind {
        state, ///< started, stopped, finished, ...: never lost (room is kept for them); the sender is kept alive until
               ///< the delivery
        frame ///< progress and levels: at most one waits at a time, further ones are dropped; the sender is held weakly
    };
    /// Called on the main thread; if empty, the default notification centre posts the name with the sender.
    using Delivery = std::function<void(const std::shared_ptr<Object>& sender, const std::string& name)>;

    RealTimeNotification(std::string name, std::weak_ptr<Object> sender, Kind kind, Delivery delivery = {});
    ~RealTimeNotification();
    RealTimeNotification(const RealTimeNotification&) = delete;
    RealTimeNotification& operator=(const RealTimeNotification&) = delete;

    /// Queues it for the main thread. Does nothing if the sender is gone. Any thread.
    void send() noexcept;

    struct Route;

private:
    std::shared_ptr<Route> route_;
};

} // namespace qmx
