// SPDX-License-Identifier: MIT
// What an output unit asks of a device layer.
#pragma once

#include "AudioUnit/AudioUnitProperties.h"

namespace qmx
{

/// Receives the cycles of a device.
class OutputClient
{
public:
    virtual ~OutputClient() = default;
    /// Fills `data`, in the device's format, with `frames` frames. The device's I/O thread.
    virtual void renderCycle(const AudioTimeStamp& time, UInt32 frames, AudioBufferList& data) = 0;
};

/// One unit's way to its device.
class OutputHardware
{
public:
    virtual ~OutputHardware() = default;

    /// The format that cycles take: packed native floats. What it says while a unit is initialised holds until it is not.
    virtual AudioStreamBasicDescription format() const = 0;

    /// Cycles begin to call `client`, which lives until they have stopped. Not on real-time threads.
    virtual OSStatus start(OutputClient& client) = 0;
    /// No further cycle begins. Returns at once; any thread, real-time ones included.
    virtual void stop() = 0;
    /// Returns when no cycle is in flight after a stop. With no lock held, and never inside a callback.
    virtual void waitUntilStopped() = 0;

    /// Properties of the unit that are the device's: kAudioOutputUnitProperty_CurrentDevice, and the device's own by their
    /// codes. kAudioUnitErr_InvalidProperty for unknown ones. None of them waits for a cycle; another device is named only while
    /// the unit is stopped.
    virtual OSStatus propertySize(AudioUnitPropertyID property, UInt32& size, bool& isWritable) const = 0;
    virtual OSStatus read(AudioUnitPropertyID property, UInt32 size, void* value) const = 0;
    virtual OSStatus write(AudioUnitPropertyID property, UInt32 size, const void* value) = 0;
};

} // namespace qmx
