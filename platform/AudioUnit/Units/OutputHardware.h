// SPDX-License-Identifier: MIT
// What an output unit needs from a device layer.
#pragma once

#include "AudioToolbox/Conversion/PcmLayout.h"
#include "AudioUnit/AudioUnitProperties.h"
#include "CoreAudio/AudioHardware.h"

#include <memory>

namespace qmx
{

/// A device as it is to be played on.
struct OutputDevice {
    AudioDeviceID id = kAudioDeviceUnknown;
    Float64 sampleRate = 0;
    UInt32 channels = 0; ///< of all output streams together

    bool operator==(const OutputDevice&) const = default;
    /// The format that cycles render: packed native floats, all channels interleaved.
    AudioStreamBasicDescription format() const;
};

/// Receives the cycles of a device.
class OutputClient
{
public:
    virtual ~OutputClient() = default;
    /// Renders `frames` frames into `data`, which arrives silent and has `layout`. The device's I/O thread.
    virtual void renderCycle(const AudioTimeStamp& time, UInt32 frames, const PcmLayout& layout,
                             AudioBufferList& data) = 0;
    /// The device it runs on may be lost or have changed, or the default may be another one now. A thread that may
    /// wait.
    virtual void deviceChanged() = 0;
};

/// Connects one unit to its device. Looks for no device until a call other than `name`, `stop` and `waitUntilStopped`.
class OutputHardware
{
public:
    virtual ~OutputHardware() = default;

    /// A device as it is now. kAudioHardwareBadDeviceError if it does not exist or has no output channels.
    virtual OSStatus examine(AudioDeviceID id, OutputDevice& device) const = 0;
    /// Names the device to play on; kAudioDeviceUnknown: the default output, whichever it is at the time. Any thread.
    virtual void name(AudioDeviceID device) = 0;
    /// The device to play on: the named one, otherwise the default output; kAudioDeviceUnknown if there is none.
    virtual AudioDeviceID device() const = 0;
    /// The same, and reports changes to `client` until this object is destroyed. The reports start before the lookup,
    /// so no change is missed. One call at a time.
    virtual AudioDeviceID watch(const std::shared_ptr<OutputClient>& client) = 0;

    /// Starts cycles, which call `client` for at most `maximumFrames` frames and keep it alive until they have stopped.
    /// One call at a time, and not inside callbacks.
    virtual OSStatus start(const OutputDevice& device, std::shared_ptr<OutputClient> client, UInt32 maximumFrames) = 0;
    /// Starts no further cycle. Any thread; waits for the cycle in flight, except on real-time threads and inside
    /// callbacks, where it takes no lock.
    virtual void stop() noexcept = 0;
    /// Returns when all earlier stops have ended their cycles. With no lock held, and never inside a callback.
    virtual void waitUntilStopped() = 0;

    // The device's own properties (output section) by their codes, with the statuses of units. Any thread that may
    // wait.
    virtual OSStatus propertyInfo(AudioDevicePropertyID property, UInt32* size, Boolean* isWritable) const = 0;
    virtual OSStatus read(AudioDevicePropertyID property, UInt32& size, void* value) const = 0;
    virtual OSStatus write(AudioDevicePropertyID property, UInt32 size, const void* value) = 0;
};

} // namespace qmx
