// SPDX-License-Identifier: MIT
#include "CoreAudio/HAL/Virtual/VirtualBackend.h"

#include "CoreAudio/HAL/Virtual/VirtualDescription.h"
#include "CoreAudio/VirtualHardware.h"

#include <algorithm>

namespace qmx
{
namespace
{

constexpr AudioHardwarePropertyID defaultProperties[] = {kAudioHardwarePropertyDefaultInputDevice,
                                                         kAudioHardwarePropertyDefaultOutputDevice,
                                                         kAudioHardwarePropertyDefaultSystemOutputDevice};

template <class T> bool matches(const std::optional<T>& wanted, const T& present)
{
    return !wanted || *wanted == present;
}

} // namespace

VirtualBackend& VirtualBackend::shared()
{
    static auto* const backend = new VirtualBackend;
    return *backend;
}

void VirtualBackend::begin(HardwareSink& sink)
{
    sink_ = &sink;
    loopTogether(*this, 2);
}

AudioDeviceID& VirtualBackend::defaultOf(AudioHardwarePropertyID which)
{
    switch (which) {
    case kAudioHardwarePropertyDefaultInputDevice:
        return defaults_.input;
    case kAudioHardwarePropertyDefaultOutputDevice:
        return defaults_.output;
    default:
        return defaults_.systemOutput;
    }
}

bool VirtualBackend::canBeDefault(AudioHardwarePropertyID which, VirtualDevice& device) const
{
    const DeviceDescription description = device.description();
    const auto& section = description.section(which == kAudioHardwarePropertyDefaultInputDevice);
    const bool isAllowed = which == kAudioHardwarePropertyDefaultSystemOutputDevice
                               ? description.canBeDefaultSystemDevice
                               : section.canBeDefaultDevice;
    return isAllowed && !section.streams.empty();
}

// A default that is gone, or was never there, falls to the device that was added first of those that can be.
void VirtualBackend::fillDefaults()
{
    for (const AudioHardwarePropertyID which : defaultProperties) {
        AudioDeviceID& present = defaultOf(which);
        const auto hasID = [&present](const auto& device) { return device->id() == present; };
        if (std::ranges::any_of(devices_, hasID))
            continue;
        const auto candidate =
            std::ranges::find_if(devices_, [&](const auto& device) { return canBeDefault(which, *device); });
        present = candidate == devices_.end() ? kAudioDeviceUnknown : (*candidate)->id();
    }
}

std::vector<AudioDeviceID> VirtualBackend::change(std::span<const AudioDeviceID> removed,
                                                  std::span<const DeviceDescription> added)
{
    const std::vector<AudioDeviceID> ids = [&] {
        const std::scoped_lock change(changing_);
        return changeList(removed, added);
    }();
    sink_->waitForRemoved(removed); // whose procedures may be changing the devices too
    return ids;
}

// With the order of changes locked.
std::vector<AudioDeviceID> VirtualBackend::changeList(std::span<const AudioDeviceID> removed,
                                                      std::span<const DeviceDescription> added)
{
    std::vector<AudioDeviceID> ids;
    std::vector<std::pair<AudioDeviceID, NewDevice>> newDevices;
    for (const DeviceDescription& wanted : added) {
        DeviceDescription description = wanted;
        standardise(description);
        ids.push_back(sink_->makeID());
        newDevices.emplace_back(ids.back(), NewDevice{description, std::make_shared<VirtualDevice>(
                                                                       ids.back(), description, timeline_, *sink_)});
    }
    DefaultDevices defaults;
    {
        const std::scoped_lock lock(mutex_);
        std::erase_if(devices_, [&removed](const auto& device) {
            return std::ranges::find(removed, device->id()) != removed.end();
        });
        for (const auto& [id, newDevice] : newDevices)
            devices_.push_back(std::static_pointer_cast<VirtualDevice>(newDevice.device));
        fillDefaults();
        defaults = defaults_;
    }
    sink_->devicesChanged(removed, newDevices, defaults);
    return ids;
}

std::shared_ptr<VirtualDevice> VirtualBackend::device(AudioDeviceID id)
{
    const std::scoped_lock lock(mutex_);
    const auto found = std::ranges::find(devices_, id, [](const auto& device) { return device->id(); });
    return found == devices_.end() ? nullptr : *found;
}

std::vector<AudioDeviceID> VirtualBackend::deviceIDs()
{
    const std::scoped_lock lock(mutex_);
    std::vector<AudioDeviceID> ids;
    std::ranges::transform(devices_, std::back_inserter(ids), [](const auto& device) { return device->id(); });
    return ids;
}

OSStatus VirtualBackend::chooseDefault(AudioHardwarePropertyID which, AudioDeviceID id)
{
    const std::scoped_lock change(changing_);
    if (std::ranges::find(defaultProperties, which) == std::end(defaultProperties))
        return kAudioHardwareUnknownPropertyError;
    const auto chosen = device(id);
    if (id != kAudioDeviceUnknown && !chosen)
        return kAudioHardwareBadDeviceError;
    if (chosen && !canBeDefault(which, *chosen))
        return kAudioHardwareIllegalOperationError;
    DefaultDevices defaults;
    {
        const std::scoped_lock lock(mutex_);
        defaultOf(which) = id;
        defaults = defaults_;
    }
    sink_->devicesChanged({}, {}, defaults);
    return noErr;
}

OSStatus VirtualBackend::setDefaultDevice(AudioHardwarePropertyID which, AudioDeviceID device)
{
    return device == kAudioDeviceUnknown ? kAudioHardwareBadDeviceError : chooseDefault(which, device);
}

OSStatus VirtualBackend::setBootChimeVolume(Float32 scalar)
{
    std::optional<VolumeControl> volume;
    {
        const std::scoped_lock lock(mutex_);
        volume = bootChime_;
    }
    if (!volume)
        return kAudioHardwareUnknownPropertyError;
    volume->scalar = scalar;
    setBootChime(volume);
    return noErr;
}

void VirtualBackend::setBootChime(const std::optional<VolumeControl>& volume)
{
    const std::scoped_lock change(changing_);
    {
        const std::scoped_lock lock(mutex_);
        bootChime_ = volume;
    }
    sink_->bootChimeChanged(volume);
}

OSStatus VirtualBackend::admit(HardwareOperation operation, UInt32 object, const PropertyAddress& address)
{
    if (!hasFaults_.load(std::memory_order_relaxed))
        return noErr;
    const std::scoped_lock lock(mutex_);
    for (VirtualFault& fault : faults_) {
        if (!matches(fault.operation, operation) || !matches(fault.object, object) ||
            !matches(fault.property, address.property) || !matches(fault.channel, address.channel) ||
            !matches(fault.isInput, address.isInput) || fault.times == 0)
            continue;
        if (fault.passes > 0) {
            --fault.passes;
            return noErr;
        }
        if (fault.times != std::numeric_limits<UInt32>::max())
            --fault.times;
        return fault.status;
    }
    return noErr;
}

void VirtualBackend::addFault(const VirtualFault& fault)
{
    const std::scoped_lock lock(mutex_);
    faults_.push_back(fault);
    hasFaults_ = true;
}

void VirtualBackend::removeFaults()
{
    const std::scoped_lock lock(mutex_);
    faults_.clear();
    hasFaults_ = false;
}

VirtualPair loopTogether(VirtualBackend& backend, UInt32 channels)
{
    const DeviceDescription descriptions[] = {
        VirtualHardware::standardDevice("qmx.virtual.input", "Virtual Input", channels, 0),
        VirtualHardware::standardDevice("qmx.virtual.output", "Virtual Output", 0, channels)};
    const std::vector<AudioDeviceID> ids = backend.change({}, descriptions);
    const auto input = backend.device(ids[0]), output = backend.device(ids[1]);
    if (input && output)
        input->loopFrom(output);
    return {.input = ids[0], .output = ids[1]};
}

} // namespace qmx
