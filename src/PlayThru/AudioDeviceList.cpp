// SPDX-License-Identifier: MIT
#include "PlayThru/AudioDeviceList.h"

#include "Formats/PropertyBlock.h"
#include "Foundation/Memory.h"
#include "PlayThru/AudioDevice.h"

AudioDeviceList::AudioDeviceList(bool inputs) : mInputs(inputs)
{
    BuildList();
}

void AudioDeviceList::BuildList()
{
    mDevices.clear();
    const auto build = [this] {
        for (const auto id : qmx::readHardwareProperty(kAudioHardwarePropertyDevices).entries<AudioDeviceID>()) {
            AudioDevice side;
            side.mDeviceID = id;
            side.mInput = mInputs;
            if (side.CountChannels() == 0)
                continue;
            Device& device = mDevices.emplace_back();
            device.mID = id;
            side.GetName(device.mName, sizeof device.mName);
        }
    };
    if (!qmx::withinMemory(build))
        mDevices.clear();
}
