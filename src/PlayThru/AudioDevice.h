// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/CoreAudio/AudioHardware.h>
#include <QMXCoreAudio/Foundation/Export.h>

/// One side of a device as it was when it was looked at: a plain record, which asks the hardware layer only when told
/// to. Threads that may wait.
class QMX_EXPORT AudioDevice
{
public:
    AudioDevice() = default;

    /// Takes the device `device` (0: none) and its input or output side, and reads what the fields say. A property that
    /// cannot be read is 0. The first status that is not 0.
    [[nodiscard]] OSStatus Init(unsigned long device, bool isInput);
    /// Sets the device's buffer frame size and reads back what it has become. The first status that is not 0.
    [[nodiscard]] OSStatus SetBufferSize(unsigned long frames);
    /// Channels of all streams of the side; 0 if they cannot be read.
    int CountChannels() const;
    /// Writes the device's name, ended by a zero byte, to `name`, which has room for `room` bytes; cut where it is
    /// longer, empty where it cannot be read. Gives `name`.
    char* GetName(char* name, unsigned long room) const;

    AudioDeviceID mDeviceID = kAudioDeviceUnknown; ///< 0: none
    bool mInput = false;                           ///< the input side
    UInt32 mSafetyFrames = 0;                      ///< the safety offset
    UInt32 mBufferFrames = 0;                      ///< the buffer frame size
    AudioStreamBasicDescription mStreamFormat;     ///< of the side's first stream
};
