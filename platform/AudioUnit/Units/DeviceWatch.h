// SPDX-License-Identifier: MIT
// Reports to an output unit that its device may have changed.
#pragma once

#include "AudioUnit/Units/CycleClient.h"

#include <memory>
#include <vector>

namespace qmx
{

/// While it exists, listens to the default devices and to all devices that the unit has run on. The client is held
/// weakly, except during a call to it.
class DeviceWatch
{
public:
    explicit DeviceWatch(std::weak_ptr<CycleClient> client);
    /// Not inside callbacks: waits for listeners in progress, which by now only find the client gone.
    ~DeviceWatch();
    DeviceWatch(const DeviceWatch&) = delete;
    DeviceWatch& operator=(const DeviceWatch&) = delete;

    /// One call at a time.
    void add(AudioDeviceID device);

private:
    static OSStatus hearSystem(AudioHardwarePropertyID property, void* self);
    static OSStatus hearDevice(AudioDeviceID device, UInt32 channel, Boolean isInput, AudioDevicePropertyID property,
                               void* self);
    OSStatus tell() const;

    const std::weak_ptr<CycleClient> client_;
    std::vector<AudioDeviceID> devices_;
};

} // namespace qmx
