// SPDX-License-Identifier: MIT
// The interface between the hardware layer (the core) and the backend that supplies its devices. A backend reports
// devices as records (DeviceDescription.h) and replaces a record when something has changed; it performs requests; it
// runs I/O cycles. The core does everything else (properties, listeners, registrations, mixing, slicing, IDs).
//
// Locks: the core calls a backend with no lock held but the one that orders a device's start and stop. A backend may
// call the core at any time, from any thread, with locks of its own held, except waitForRemoved.
#pragma once

#include "CoreAudio/AudioHardware.h"
#include "CoreAudio/DeviceDescription.h"

#include <memory>
#include <span>
#include <variant>
#include <vector>

namespace qmx
{

class DeviceIO;

// Requests to a device. The core has checked them against the device's record.
struct SetSampleRate {
    Float64 rate;
};
struct SetBufferFrameSize {
    UInt32 frames;
};
struct SetVolume {
    bool isInput;
    UInt32 channel;
    Float32 scalar;
};
struct SetMute {
    bool isInput;
    UInt32 channel;
    bool isMuted;
};
struct SetDataSource {
    bool isInput;
    UInt32 id;
};
struct SetPhysicalFormat {
    bool isInput;
    std::size_t stream;
    AudioStreamBasicDescription format;
};
struct SetRawProperty {
    PropertyAddress address;
    std::vector<std::byte> value;
};
using DeviceRequest = std::variant<SetSampleRate, SetBufferFrameSize, SetVolume, SetMute, SetDataSource,
                                   SetPhysicalFormat, SetRawProperty>;

/// One device of a backend.
class QMX_MODULE_EXPORT BackendDevice
{
public:
    virtual ~BackendDevice() = default;

    /// Performs a request, or returns why it cannot. Reports the change through HardwareSink::deviceChanged, before or
    /// after the return.
    virtual OSStatus perform(const DeviceRequest& request) = 0;
    /// Starts calling io->runCycle in each cycle, on one thread at a time, with the streams of `description` until
    /// stopIO. May wait for the hardware; must not wait for a cycle.
    virtual OSStatus startIO(const std::shared_ptr<DeviceIO>& io, const DeviceDescription& description) = 0;
    /// Starts no further cycle and does not wait for the one in flight.
    virtual void stopIO() = 0;
    /// Sample time, host time and rate scalar of the present instant.
    virtual OSStatus currentTime(AudioTimeStamp& time) = 0;
};

struct NewDevice {
    DeviceDescription description;
    std::shared_ptr<BackendDevice> device;
};

struct DefaultDevices {
    AudioDeviceID input = kAudioDeviceUnknown;
    AudioDeviceID output = kAudioDeviceUnknown;
    AudioDeviceID systemOutput = kAudioDeviceUnknown;
    bool operator==(const DefaultDevices&) const = default;
};

/// The core, as backends see it. It announces only what differs, so reporting an unchanged record does no harm.
class QMX_MODULE_EXPORT HardwareSink
{
public:
    virtual ~HardwareSink() = default;

    /// Returns a number that no device or stream had before.
    virtual AudioDeviceID makeID() = 0;
    /// Reports removed devices, added devices (with IDs made by makeID) and the new defaults as one change. Removed
    /// devices start no further cycle; waitForRemoved has to follow.
    virtual void devicesChanged(std::span<const AudioDeviceID> removed,
                                std::span<const std::pair<AudioDeviceID, NewDevice>> added,
                                const DefaultDevices& defaults) = 0;
    /// Returns when the last cycles of removed devices have ended; at once inside a callback. Hold no lock that a
    /// procedure may take.
    virtual void waitForRemoved(std::span<const AudioDeviceID> removed) = 0;
    virtual void deviceChanged(AudioDeviceID device, const DeviceDescription& description) = 0;
    virtual void bootChimeChanged(const std::optional<VolumeControl>& volume) = 0;
    /// Calls listeners without a change of the record, for example for an overload.
    virtual void announce(AudioDeviceID device, const PropertyAddress& address) = 0;
    virtual void announceHardware(AudioHardwarePropertyID property) = 0;
};

class QMX_MODULE_EXPORT Backend
{
public:
    virtual ~Backend() = default;

    /// Starts to report to `sink`, which is never destroyed. Reports the existing devices before it returns.
    virtual void begin(HardwareSink& sink) = 0;
    /// Makes a device the default; `which` is 'dIn ', 'dOut' or 'sOut'. The core has checked that it can be.
    virtual OSStatus setDefaultDevice(AudioHardwarePropertyID which, AudioDeviceID device) = 0;
    virtual OSStatus setBootChimeVolume(Float32 scalar) = 0;
    /// The host's clock, in nanoseconds. Any thread, without a lock.
    virtual UInt64 hostTime() = 0;
    /// 0 if a call may go on, otherwise the status that it returns. Asked first in each call; `object` is 0 for the
    /// system.
    virtual OSStatus admit(HardwareOperation operation, UInt32 object, const PropertyAddress& address) = 0;
    /// Why it has no devices at present, as a sentence for people; empty if nothing is wrong.
    virtual std::string failure() { return {}; }
};

} // namespace qmx
