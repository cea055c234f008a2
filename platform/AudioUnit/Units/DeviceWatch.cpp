// SPDX-License-Identifier: MIT
#include "AudioUnit/Units/DeviceWatch.h"

#include <algorithm>
#include <utility>

namespace qmx
{
namespace
{

constexpr AudioDevicePropertyID watched[] = {kAudioDevicePropertyDeviceIsAlive, kAudioDevicePropertyNominalSampleRate,
                                             kAudioDevicePropertyStreamConfiguration};
constexpr AudioHardwarePropertyID defaults[] = {kAudioHardwarePropertyDefaultOutputDevice,
                                                kAudioHardwarePropertyDefaultInputDevice};
constexpr UInt8 bothSections = kAudioPropertyWildcardSection;

} // namespace

DeviceWatch::DeviceWatch(std::weak_ptr<CycleClient> client) : client_(std::move(client))
{
    // without a listener, here and below, the unit only misses changes
    for (const AudioHardwarePropertyID which : defaults)
        (void)AudioHardwareAddPropertyListener(which, hearSystem, this);
}

DeviceWatch::~DeviceWatch()
{
    // each fails if it was never added
    for (const AudioHardwarePropertyID which : defaults)
        (void)AudioHardwareRemovePropertyListener(which, hearSystem, this);
    for (const AudioDeviceID device : devices_)
        for (const AudioDevicePropertyID property : watched)
            (void)AudioDeviceRemovePropertyListener(device, 0, bothSections, property, hearDevice, this);
}

void DeviceWatch::add(AudioDeviceID device)
{
    if (device == kAudioDeviceUnknown || std::ranges::find(devices_, device) != devices_.end())
        return;
    devices_.push_back(device);
    for (const AudioDevicePropertyID property : watched)
        (void)AudioDeviceAddPropertyListener(device, 0, bothSections, property, hearDevice, this);
}

OSStatus DeviceWatch::hearSystem(AudioHardwarePropertyID, void* self)
{
    return static_cast<const DeviceWatch*>(self)->tell();
}

OSStatus DeviceWatch::hearDevice(AudioDeviceID, UInt32, Boolean, AudioDevicePropertyID, void* self)
{
    return static_cast<const DeviceWatch*>(self)->tell();
}

/// Calls the client last, because that may destroy the client and this object with it.
OSStatus DeviceWatch::tell() const
{
    if (const auto client = client_.lock())
        client->deviceChanged();
    return noErr;
}

} // namespace qmx
