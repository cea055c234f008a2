// SPDX-License-Identifier: MIT
#include "support/SimulatedDevice.h"

#include <QMXCoreAudio/CoreAudio/VirtualHardware.h>
#include <QMXCoreAudio/Devices/QMXAudioDevice.h>

qmx::Device example::simulatedDevice(UInt32 inputChannels, UInt32 outputChannels, double sampleRate)
{
    auto& hardware = qmx::VirtualHardware::shared();
    hardware.reset();
    auto description = qmx::VirtualHardware::standardDevice("simulation", "Simulation", inputChannels, outputChannels);
    description.nominalSampleRate = description.actualSampleRate = sampleRate;
    description.availableSampleRates = {{sampleRate, sampleRate}};
    return qmx::Device(QMXAudioDevice::deviceWithDeviceID(hardware.addDevice(description)));
}
