// SPDX-License-Identifier: MIT
#include "CoreAudio/HAL/Virtual/VirtualBackend.h"

#include "CoreAudio/HAL/DeviceView.h"
#include "CoreAudio/HAL/Virtual/VirtualDescription.h"
#include "CoreAudio/VirtualHardware.h"

#include <algorithm>
#include <array>
#include <string>

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

AudioDeviceID& defaultOf(DefaultDevices& defaults, AudioHardwarePropertyID which)
{
    switch (which) {
    case kAudioHardwarePropertyDefaultInputDevice:
        return defaults.input;
    case kAudioHardwarePropertyDefaultOutputDevice:
        return defaults.output;
    default:
        return defaults.systemOutput;
    }
}

// Describes an input and an output; the first pair has no number.
std::array<DeviceDescription, 2> loopbackPair(UInt32 channels, UInt32 number)
{
    const std::string text = std::to_string(number);
    const std::string uidEnd = number > 1 ? "." + text : "", nameEnd = number > 1 ? " " + text : "";
    return {VirtualHardware::standardDevice("qmx.virtual.input" + uidEnd, "Virtual Input" + nameEnd, channels, 0),
            VirtualHardware::standardDevice("qmx.virtual.output" + uidEnd, "Virtual Output" + nameEnd, 0, channels)};
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
    addLoopbackPair(2);
}

// Replaces each default that is gone, or can no longer be it, by the first added device that can.
DefaultDevices VirtualBackend::fittingDefaults() const
{
    DefaultDevices fitting = defaults_;
    for (const AudioHardwarePropertyID which : defaultProperties) {
        if (unwanted_.contains(which))
            continue;
        AudioDeviceID& present = defaultOf(fitting, which);
        const auto canBe = [which](const auto& device) { return canBeDefault(device->description(), which); };
        if (std::ranges::any_of(devices_, [&](const auto& each) { return each->id() == present && canBe(each); }))
            continue;
        const auto candidate = std::ranges::find_if(devices_, canBe);
        present = candidate == devices_.end() ? kAudioDeviceUnknown : (*candidate)->id();
    }
    return fitting;
}

// If the defaults can stay, this does not wait for a change of the list in progress.
void VirtualBackend::reviewDefaults()
{
    {
        const std::scoped_lock lock(mutex_);
        if (fittingDefaults() == defaults_)
            return;
    }
    const std::scoped_lock change(changing_);
    DefaultDevices defaults;
    {
        const std::scoped_lock lock(mutex_);
        defaults = defaults_ = fittingDefaults();
    }
    sink_->devicesChanged({}, {}, defaults);
}

void VirtualBackend::forgetChoices()
{
    const std::scoped_lock lock(mutex_);
    unwanted_.clear();
}

std::vector<AudioDeviceID> VirtualBackend::change(std::span<const AudioDeviceID> removed,
                                                  std::span<const DeviceDescription> added)
{
    std::vector<AudioDeviceID> ids = [&] {
        const std::scoped_lock change(changing_);
        return changeList(removed, added);
    }();
    sink_->waitForRemoved(removed); // unlocked: procedures may change devices too
    return ids;
}

// Called with `changing_` locked.
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
        defaults = defaults_ = fittingDefaults();
    }
    sink_->devicesChanged(removed, newDevices, defaults);
    return ids;
}

VirtualPair VirtualBackend::addLoopbackPair(UInt32 channels)
{
    const std::scoped_lock change(changing_);
    UInt32 number = 1;
    auto descriptions = loopbackPair(channels, number);
    while (std::ranges::any_of(descriptions, [this](const auto& each) { return hasUID(each.uid); }))
        descriptions = loopbackPair(channels, ++number);
    const std::vector<AudioDeviceID> ids = changeList({}, descriptions);
    device(ids[0])->loopFrom(device(ids[1]));
    return {.input = ids[0], .output = ids[1]};
}

bool VirtualBackend::hasUID(const std::string& uid)
{
    const std::scoped_lock lock(mutex_);
    return std::ranges::any_of(devices_, [&uid](const auto& device) { return device->description().uid == uid; });
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
    if (chosen && !canBeDefault(chosen->description(), which))
        return kAudioHardwareIllegalOperationError;
    DefaultDevices defaults;
    {
        const std::scoped_lock lock(mutex_);
        defaultOf(defaults_, which) = id;
        if (chosen)
            unwanted_.erase(which);
        else
            unwanted_.insert(which);
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

} // namespace qmx
