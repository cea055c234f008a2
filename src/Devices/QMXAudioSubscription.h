// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/Devices/QMXCoreAudioIOSubscriber.h>
#include <QMXCoreAudio/Foundation/Export.h>

#include <atomic>
#include <memory>

/// A subscriber in a device's list. One that has left is no longer called; it stays in the list until a thread that may
/// allocate removes it. Copies share one subscription.
class QMX_EXPORT QMXAudioSubscription
{
public:
    explicit QMXAudioSubscription(std::shared_ptr<QMXCoreAudioIOSubscriber> subscriber);

    QMXCoreAudioIOSubscriber* get() const { return subscriber_.get(); }
    QMXCoreAudioIOSubscriber* operator->() const { return subscriber_.get(); }
    /// Whether leave() was called. Any thread; inline, because each cycle asks each subscription.
    bool hasLeft() const { return std::atomic_ref(*hasLeft_).load(); }
    /// Marks the subscriber as one that is no longer called. Any thread.
    void leave() const;

private:
    std::shared_ptr<QMXCoreAudioIOSubscriber> subscriber_;
    std::shared_ptr<bool> hasLeft_;
};
