// SPDX-License-Identifier: MIT
// What passes between an output unit and its connection to a device.
#pragma once

#include "AudioToolbox/Conversion/PcmLayout.h"
#include "AudioUnit/AudioUnitProperties.h"
#include "CoreAudio/AudioHardware.h"

namespace qmx
{

/// The directions in which a unit uses its device. Aligned as a whole: every compiler makes it an atomic without a
/// lock.
struct alignas(UInt16) Directions {
    bool input = false, output = true;

    bool operator==(const Directions&) const = default;
};

/// A device as a unit uses it.
struct UsedDevice {
    AudioDeviceID id = kAudioDeviceUnknown;
    Float64 sampleRate = 0;
    UInt32 inputChannels = 0, outputChannels = 0; ///< of all streams together; 0 for a direction that is not used

    bool operator==(const UsedDevice&) const = default;
    // The formats that cycles carry: packed native floats, all channels interleaved.
    AudioStreamBasicDescription inputFormat() const { return format(inputChannels); }
    AudioStreamBasicDescription outputFormat() const { return format(outputChannels); }

private:
    AudioStreamBasicDescription format(UInt32 channels) const;
};

/// Frames that a device captured.
struct CapturedFrames {
    const AudioTimeStamp& time;
    bool isFirst;      ///< of a run
    UInt32 lostFrames; ///< that were passed over before them, by the device's clock or by a change of the device
    UInt32 frames;
    UInt64 endHostTime;
    const PcmLayout& layout; ///< one plane
    const std::byte* data;
};

/// Frames to render.
struct RenderedFrames {
    const AudioTimeStamp& time;
    UInt32 lostFrames; ///< that were passed over before them, by the device's clock or by a change of the device
    UInt32 frames;
    UInt64 endHostTime;
    const PcmLayout& layout;
    AudioBufferList& data; ///< arrives silent
};

/// The host times at which the frames of an earlier run end; 0 where there is none.
struct RunEnds {
    UInt64 captured = 0, rendered = 0;
};

/// Receives the cycles of a device, on its I/O thread.
class CycleClient
{
public:
    virtual ~CycleClient() = default;
    /// For each piece of a cycle, the captured frames come before the rendering.
    virtual void captureCycle(const CapturedFrames& captured) = 0;
    virtual void renderCycle(const RenderedFrames& rendered) = 0;
    /// The device it runs on may be lost or have changed, or the default may be another one now. A thread that may
    /// wait.
    virtual void deviceChanged() = 0;
};

} // namespace qmx
