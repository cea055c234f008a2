// SPDX-License-Identifier: MIT
#pragma once

#include "CoreAudio/HAL/Backend.h"

namespace qmx
{

/// Stands for a backend that is missing: it has no devices, so that nobody records simulated ones unawares.
class AbsentBackend final : public Backend
{
public:
    /// The only object; never destroyed.
    static AbsentBackend& shared();

    void begin(HardwareSink&) override {}
    OSStatus setDefaultDevice(AudioHardwarePropertyID, AudioDeviceID) override { return kAudioHardwareBadDeviceError; }
    OSStatus setBootChimeVolume(Float32) override { return kAudioHardwareUnknownPropertyError; }
    UInt64 hostTime() override;
    OSStatus admit(HardwareOperation, UInt32, const PropertyAddress&) override { return noErr; }

private:
    AbsentBackend() = default;
    ~AbsentBackend() override = default;
};

} // namespace qmx
