// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/CoreAudio/AudioHardware.h>
#include <QMXCoreAudio/Foundation/Export.h>

#include <vector>

/// The devices that have channels on one side, as they were when the list was built. Threads that may wait.
class QMX_EXPORT AudioDeviceList
{
public:
    struct Device {
        char mName[64]; ///< ended by a zero byte, cut where it is longer
        AudioDeviceID mID;
    };

    /// Builds the list of the devices with input channels, or with output channels.
    explicit AudioDeviceList(bool inputs);
    /// Builds it anew; empty where the devices cannot be read.
    void BuildList();
    const std::vector<Device>& GetList() const { return mDevices; }

private:
    bool mInputs;
    std::vector<Device> mDevices;
};
