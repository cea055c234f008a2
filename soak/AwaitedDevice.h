// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/Devices/QMXAudioDevice.h>
#include <QMXCoreAudio/Foundation/MainThread/RunLoop.h>

/// A device of a server that was just started; null if it does not come.
inline std::shared_ptr<QMXAudioDevice> awaitedDevice(const char* uid)
{
    for (int tries = 0; tries < 300; ++tries) {
        qmx::RunLoop::main().runFor(0.1);
        if (auto device = QMXAudioDevice::deviceWithDeviceUID(uid))
            return device;
    }
    return nullptr;
}
