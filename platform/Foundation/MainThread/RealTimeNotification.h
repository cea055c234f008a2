// SPDX-License-Identifier: MIT
#pragma once

#include "Foundation/Export.h"
#include "Foundation/Object.h"

#include <functional>
#include <memory>
#include <string>

namespace qmx
{

/// One notification that a thread in real time may hand to the main thread. Made beforehand, where allocating is
/// allowed and after the sender has its owner; send() then neither allocates, frees, locks nor waits: its only system
/// call wakes the main thread. Entries are delivered by RunLoop::main() in the order in which they, and those of
/// RunLoop::perform, were sent.
class QMX_EXPORT RealTimeNotification
{
public:
    enum class Kind {
        state, ///< started, stopped, finished, ...: not lost (room is kept for them); the sender lives until the
               ///< delivery
        frame ///< progress and levels: at most one waits at a time, further ones are dropped; the sender is held weakly
    };
    /// What the main thread does; the usual: the default notification centre posts the name with the sender.
    using Delivery = std::function<void(const std::shared_ptr<Object>& sender, const std::string& name)>;

    RealTimeNotification(std::string name, std::weak_ptr<Object> sender, Kind kind, Delivery delivery = {});
    ~RealTimeNotification();
    RealTimeNotification(const RealTimeNotification&) = delete;
    RealTimeNotification& operator=(const RealTimeNotification&) = delete;

    /// Hands it over. Does nothing when the sender is gone. Any thread.
    void send() noexcept;

    struct Route;

private:
    std::shared_ptr<Route> route_;
};

} // namespace qmx
