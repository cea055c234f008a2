// SPDX-License-Identifier: MIT
// The virtual hardware as a backend: its devices, the defaults, and the calls that fail.
#pragma once

#include "CoreAudio/HAL/Virtual/VirtualDevice.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

namespace qmx
{

class VirtualBackend final : public Backend
{
public:
    /// The only object; never destroyed.
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
    /// Adds an input and an output that are looped together, with new UIDs.
    VirtualPair addLoopbackPair(UInt32 channels);
    /// Replaces a default that can no longer be one.
    void reviewDefaults();
    /// Forgets all choices of no default.
    void forgetChoices();
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
    DefaultDevices fittingDefaults() const;
    bool hasUID(const std::string& uid);

    HardwareSink* sink_ = nullptr;
    Timeline timeline_;
    std::mutex changing_; // orders changes of the list and the defaults, and their reports
    std::mutex mutex_;    // guards the members below
    std::vector<std::shared_ptr<VirtualDevice>> devices_;
    DefaultDevices defaults_;
    std::set<AudioHardwarePropertyID> unwanted_; // defaults that were set to none, until one is chosen
    std::optional<VolumeControl> bootChime_;
    std::vector<VirtualFault> faults_;
    std::atomic<bool> hasFaults_{false};
};

} // namespace qmx
