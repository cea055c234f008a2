// SPDX-License-Identifier: MIT
#pragma once

#include "Devices/QMXCoreAudioIOSubscriber.h"

#include <atomic>
#include <memory>
#include <utility>

/// A subscriber in a device's list. One that has left is called no more; it stays in the list until a thread that may
/// allocate takes it out. Copies are the same subscription.
class QMXAudioSubscription
{
public:
    explicit QMXAudioSubscription(std::shared_ptr<QMXCoreAudioIOSubscriber> subscriber)
        : subscriber_(std::move(subscriber))
    {
    }

    QMXCoreAudioIOSubscriber* get() const { return subscriber_.get(); }
    QMXCoreAudioIOSubscriber* operator->() const { return subscriber_.get(); }
    /// Any thread.
    bool hasLeft() const { return hasLeft_->load(); }
    /// Any thread.
    void leave() const { hasLeft_->store(true); }

private:
    std::shared_ptr<QMXCoreAudioIOSubscriber> subscriber_;
    std::shared_ptr<std::atomic<bool>> hasLeft_ = std::make_shared<std::atomic<bool>>(false);
};
