// SPDX-License-Identifier: MIT
// An output unit's way to a device of the hardware layer.
#pragma once

#include "AudioUnit/Units/OutputHardware.h"
#include "Foundation/Threads/Publication.h"

#include <atomic>
#include <memory>

namespace qmx
{

class DeviceRun;
class DeviceWatch;

/// The device's cycles, split to what the client renders at once, are delivered to its output streams one after the
/// other: channels that the streams have beyond the rendered ones are silent, rendered ones beyond the streams' are
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
    Publication stops_;                     ///< each is inside until its run is destroyed
    std::unique_ptr<DeviceWatch> watch_;    ///< null until the first start
};

} // namespace qmx
