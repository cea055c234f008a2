// SPDX-License-Identifier: MIT
// Connects an output unit to a device of the hardware layer.
#pragma once

#include "AudioUnit/Units/CycleClient.h"
#include "Foundation/Threads/Publication.h"

#include <atomic>
#include <memory>
#include <optional>

namespace qmx
{

class DeviceRun;
class DeviceWatch;

/// Looks for no device until a call other than `name`, `use`, `stop` and `waitUntilStopped`. Splits the device's cycles
/// into slices of at most the client's maximum. The rendered channels fill the device's output streams one after the
/// other: channels left over in the streams are silent, rendered channels left over are dropped.
class UnitDevice
{
public:
    UnitDevice();
    ~UnitDevice();
    UnitDevice(const UnitDevice&) = delete;
    UnitDevice& operator=(const UnitDevice&) = delete;

    /// Which directions are used. Not while it runs.
    void use(Directions directions) { directions_.store(directions); }
    Directions directions() const { return directions_.load(); }

    /// A device as it is now. kAudioHardwareBadDeviceError if it does not exist or lacks a direction that is used.
    OSStatus examine(AudioDeviceID id, UsedDevice& device) const;
    /// Names the device to use; kAudioDeviceUnknown: the default one, whichever it is at the time. Any thread.
    void name(AudioDeviceID device) { named_.store(device); }
    AudioDeviceID named() const { return named_.load(); }
    /// The device to use: the named one, otherwise the default output, or the default input if output is not used;
    /// kAudioDeviceUnknown if there is none.
    AudioDeviceID device() const;
    /// The same, and reports changes to `client` until this object is destroyed. The reports start before the lookup,
    /// so no change is missed. One call at a time.
    AudioDeviceID watch(const std::shared_ptr<CycleClient>& client);

    /// Starts cycles, which call `client` for at most `maximumFrames` frames and keep it alive until they have stopped.
    /// The first frames come with what was lost since the end of an earlier run. One call at a time, and not inside
    /// callbacks.
    OSStatus start(const UsedDevice& device, std::shared_ptr<CycleClient> client, UInt32 maximumFrames,
                   const RunEnds& earlier);
    /// Starts no further cycle. Any thread; waits for the cycle in flight, except on real-time threads and inside
    /// callbacks, where it takes no lock.
    void stop() noexcept;
    /// Returns when all earlier stops have ended their cycles. With no lock held, and never inside a callback.
    void waitUntilStopped();

    /// Whether the device has channels in a direction.
    bool has(bool isInput) const;
    // The device's own properties, of one section, by their codes, with the statuses of units. Any thread that may
    // wait.
    OSStatus propertyInfo(bool isInput, AudioDevicePropertyID property, UInt32* size, Boolean* isWritable) const;
    OSStatus read(bool isInput, AudioDevicePropertyID property, UInt32& size, void* value) const;
    OSStatus write(bool isInput, AudioDevicePropertyID property, UInt32 size, const void* value);

private:
    void end(DeviceRun* run, bool waits) noexcept;

    std::atomic<Directions> directions_{Directions{}};
    std::atomic<AudioDeviceID> named_ = kAudioDeviceUnknown;
    std::atomic<DeviceRun*> run_ = nullptr; ///< null while stopped
    Publication stops_;                     ///< each stop is a reader until its run is destroyed
    std::unique_ptr<DeviceWatch> watch_;    ///< null until the first start
};

} // namespace qmx
