// SPDX-License-Identifier: MIT
#include "Devices/QMXAudioSubscription.h"

#include <utility>

QMXAudioSubscription::QMXAudioSubscription(std::shared_ptr<QMXCoreAudioIOSubscriber> subscriber)
    : subscriber_(std::move(subscriber)), hasLeft_(std::make_shared<bool>(false))
{
}

void QMXAudioSubscription::leave() const
{
    std::atomic_ref(*hasLeft_).store(true);
}
