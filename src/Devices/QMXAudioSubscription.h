// SPDX-License-Identifier: MIT
#pragma once

#include "Devices/QMXCoreAudioIOSubscriber.h"
#include "Foundation/Export.h"

#include <memory>

/// A subscriber in a device's list. One that has left is called no more; it stays in the list until a thread that may
/// allocate takes it out. Copies are the same subscription.
class QMX_EXPORT QMXAudioSubscription
{
public:
    explicit QMXAudioSubscription(std::shared_ptr<QMXCoreAudioIOSubscriber> subscriber);

    QMXCoreAudioIOSubscriber* get() const { return subscriber_.get(); }
    QMXCoreAudioIOSubscriber* operator->() const { return subscriber_.get(); }
    /// Any thread.
    bool hasLeft() const;
    /// Any thread.
    void leave() const;

private:
    std::shared_ptr<QMXCoreAudioIOSubscriber> subscriber_;
    std::shared_ptr<bool> hasLeft_;
};
