// SPDX-License-Identifier: MIT
// What an output unit asks of a device layer.
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
    /// What cycles render: packed native floats, all channels interleaved.
    AudioStreamBasicDescription format() const;
};

/// Receives the cycles of a device.
class OutputClient
{
public:
    virtual ~OutputClient() = default;
    /// Renders `frames` frames into `data`, which is silent and of `layout`. The device's I/O thread.
    virtual void renderCycle(const AudioTimeStamp& time, UInt32 frames, const PcmLayout& layout,
                             AudioBufferList& data) = 0;
    /// The device that it runs on may be lost or have changed, or another one may be the default now. A thread that may
    /// wait.
    virtual void deviceChanged() = 0;
};

/// One unit's way to its device. Asks for none before one of its calls but `name`, `stop` and `waitUntilStopped`.
class OutputHardware
{
public:
    virtual ~OutputHardware() = default;

    /// A device as it is now. kAudioHardwareBadDeviceError where there is none to play on.
    virtual OSStatus examine(AudioDeviceID id, OutputDevice& device) const = 0;
    /// Names the device to play on; kAudioDeviceUnknown: the default output, whichever it is at the time. Any thread.
    virtual void name(AudioDeviceID device) = 0;
    /// The one to play on: the named one, else the default output; unknown without one.
    virtual AudioDeviceID device() const = 0;
    /// The same, and from before it was looked up `client` hears of changes, until this is destroyed. One call at a
    /// time.
    virtual AudioDeviceID watch(const std::shared_ptr<OutputClient>& client) = 0;

    /// Cycles of at most `maximumFrames` begin to call `client`, which is kept until they have stopped. One call at a
    /// time, and not inside callbacks.
    virtual OSStatus start(const OutputDevice& device, std::shared_ptr<OutputClient> client, UInt32 maximumFrames) = 0;
    /// No further cycle begins. Any thread; waits for the cycle in flight but on real-time threads and inside
    /// callbacks, where it takes no lock.
    virtual void stop() noexcept = 0;
    /// Returns when no cycle is in flight after earlier stops. With no lock held, and never inside a callback.
    virtual void waitUntilStopped() = 0;

    // The device's own properties, of its output section, by their codes; with statuses of units. Any thread that may
    // wait.
    virtual OSStatus propertyInfo(AudioDevicePropertyID property, UInt32* size, Boolean* isWritable) const = 0;
    virtual OSStatus read(AudioDevicePropertyID property, UInt32& size, void* value) const = 0;
    virtual OSStatus write(AudioDevicePropertyID property, UInt32 size, const void* value) = 0;
};

} // namespace qmx
