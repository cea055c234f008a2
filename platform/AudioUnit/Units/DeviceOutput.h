// SPDX-License-Identifier: MIT
// Connects an output unit to a device of the hardware layer.
#pragma once

#include "AudioUnit/Units/OutputHardware.h"
#include "Foundation/Threads/Publication.h"

#include <atomic>
#include <memory>

namespace qmx
{

class DeviceRun;
class DeviceWatch;

/// Splits the device's cycles into slices of at most the client's maximum. The rendered channels fill the device's
/// output streams one after the other: channels left over in the streams are silent, rendered channels left over are
/// dropped.
class DeviceOutput final : public OutputHardware
{
public:
    DeviceOutput();
    ~DeviceOutput() override;

    OSStatus examine(AudioDeviceID id, OutputDevice& device) const override;
    void name(AudioDeviceID device) override { named_.store(device); }
    AudioDeviceID device() const override;
    AudioDeviceID watch(const std::shared_ptr<OutputClient>& client) override;
    OSStatus start(const OutputDevice& device, std::shared_ptr<OutputClient> client, UInt32 maximumFrames) override;
    void stop() noexcept override;
    void waitUntilStopped() override;
    OSStatus propertyInfo(AudioDevicePropertyID property, UInt32* size, Boolean* isWritable) const override;
    OSStatus read(AudioDevicePropertyID property, UInt32& size, void* value) const override;
    OSStatus write(AudioDevicePropertyID property, UInt32 size, const void* value) override;

private:
    void end(DeviceRun* run, bool waits) noexcept;

    std::atomic<AudioDeviceID> named_ = kAudioDeviceUnknown;
    std::atomic<DeviceRun*> run_ = nullptr; ///< null while stopped
    Publication stops_;                     ///< each stop is a reader until its run is destroyed
    std::unique_ptr<DeviceWatch> watch_;    ///< null until the first start
};

} // namespace qmx
