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
    /// Brings the registry up at its first call.
    static DeviceClassState& shared();

    QMXAudioDeviceDictionary devices;
    QMXAudioDeviceList deviceArray;
    QMXAudioDeviceList inputDeviceArray;
    QMXAudioDeviceList outputDeviceArray;
    ConditionLock mutexLock;   // held through a refresh; blocks whoever comes when a failed one has left it held
    ConditionLock hwMutexLock; // held while a change of the hardware is looked at; taken before mutexLock
    std::mutex globalRunLock;  // every device's startCalls
    std::mutex chainLock;      // new subscribers of any device, which may be devices
    std::shared_ptr<Object> classObject;
    std::mutex outputProviderLock;
    std::shared_ptr<QMXVUMeterDataProvider> outputProvider;

    std::recursive_mutex initialization; // the thread that initialises may come back, others wait
    bool initializationHasBegun = false;
    std::atomic<bool> isInitialized{false};
};

} // namespace qmx
