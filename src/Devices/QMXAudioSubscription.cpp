// SPDX-License-Identifier: MIT
#include "Devices/QMXAudioSubscription.h"

#include <atomic>
#include <utility>

QMXAudioSubscription::QMXAudioSubscription(std::shared_ptr<QMXCoreAudioIOSubscriber> subscriber)
    : subscriber_(std::move(subscriber)), hasLeft_(std::make_shared<bool>(false))
{
}

bool QMXAudioSubscription::hasLeft() const
{
    return std::atomic_ref(*hasLeft_).load();
}

void QMXAudioSubscription::leave() const
{
    std::atomic_ref(*hasLeft_).store(true);
}
