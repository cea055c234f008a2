// SPDX-License-Identifier: MIT
// What all devices share. Built first, never freed: listeners may need it until the process has ended.
#pragma once

#include "Devices/QMXAudioDevice.h"
#include "Devices/QMXVUMeterDataProvider.h"
#include "Foundation/Threads/ConditionLock.h"

#include <atomic>
#include <mutex>

namespace qmx
{

struct DeviceClassState {
    /// Sets up the registry at its first call.
    static DeviceClassState& shared();

    QMXAudioDeviceDictionary devices;
    QMXAudioDeviceList deviceArray;
    QMXAudioDeviceList inputDeviceArray;
    QMXAudioDeviceList outputDeviceArray;
    ConditionLock mutexLock;   // held during a refresh; a failed refresh leaves it held, and every later one blocks
    ConditionLock hwMutexLock; // held while a change of the hardware is handled; taken before mutexLock
    std::mutex globalRunLock;  // every device's startCalls
    std::mutex chainLock;      // new subscribers of any device; they may be devices too
    std::shared_ptr<Object> classObject;
    std::mutex outputProviderLock;
    std::shared_ptr<QMXVUMeterDataProvider> outputProvider;

    std::recursive_mutex initialization; // recursive: the initialising thread may come back, others wait
    bool initializationHasBegun = false;
    std::atomic<bool> isInitialized{false};
};

} // namespace qmx
