// SPDX-License-Identifier: MIT
// The virtual hardware as a backend: its devices, which of them are the defaults, and the calls that shall fail.
#pragma once

#include "CoreAudio/HAL/Virtual/VirtualDevice.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <vector>

namespace qmx
{

class VirtualBackend final : public Backend
{
public:
    /// The process's one; never destroyed.
    static VirtualBackend& shared();

    // --- For the core
    void begin(HardwareSink& sink) override;
    OSStatus setDefaultDevice(AudioHardwarePropertyID which, AudioDeviceID device) override;
    OSStatus setBootChimeVolume(Float32 scalar) override;
    UInt64 hostTime() override { return timeline_.now(); }
    OSStatus admit(HardwareOperation operation, UInt32 object, const PropertyAddress& address) override;

    // --- For the control
    Timeline& timeline() { return timeline_; }
    HardwareSink* sink() { return sink_; }
    std::vector<AudioDeviceID> change(std::span<const AudioDeviceID> removed, std::span<const DeviceDescription> added);
    std::shared_ptr<VirtualDevice> device(AudioDeviceID id);
    std::vector<AudioDeviceID> deviceIDs();
    OSStatus chooseDefault(AudioHardwarePropertyID which, AudioDeviceID device);
    void setBootChime(const std::optional<VolumeControl>& volume);
    void addFault(const VirtualFault& fault);
    void removeFaults();

private:
    VirtualBackend() = default;
    ~VirtualBackend() override = default;
    std::vector<AudioDeviceID> changeList(std::span<const AudioDeviceID> removed,
                                          std::span<const DeviceDescription> added);
    AudioDeviceID& defaultOf(AudioHardwarePropertyID which);
    bool canBeDefault(AudioHardwarePropertyID which, VirtualDevice& device) const;
    void fillDefaults();

    HardwareSink* sink_ = nullptr;
    Timeline timeline_;
    std::mutex changing_; // orders changes of the list and the defaults, and their reports
    std::mutex mutex_;    // of what follows
    std::vector<std::shared_ptr<VirtualDevice>> devices_;
    DefaultDevices defaults_;
    std::optional<VolumeControl> bootChime_;
    std::vector<VirtualFault> faults_;
    std::atomic<bool> hasFaults_{false};
};

/// Adds an input and an output that are looped together.
VirtualPair loopTogether(VirtualBackend& backend, UInt32 channels);

} // namespace qmx
