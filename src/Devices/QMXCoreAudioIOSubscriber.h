// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/AudioTimeStamp.h>
#include <QMXCoreAudio/CoreAudioTypes/CoreAudioTypes.h>
#include <QMXCoreAudio/Foundation/Export.h>

class QMXAudioDevice;

/// Takes part in a device's input and output. Programs derive from it.
class QMX_EXPORT QMXCoreAudioIOSubscriber
{
public:
    virtual ~QMXCoreAudioIOSubscriber();

    /// Called in each cycle of the device on its I/O thread: must not wait, allocate, lock or log. Both lists hold one
    /// buffer per stream of their direction (32-bit native float, interleaved), none for a direction without streams;
    /// they and the times are valid during the call only. Input subscribers see the output too, and the reverse.
    ///
    /// `inNow`: the instant of the cycle. `inInputTime`: when the first input frame was captured. `inOutputTime`: when
    /// the first output frame will be heard. `device` is the running device; `inClientData` is the device that calls.
    /// The result is ignored; 0 is usual.
    virtual OSStatus audioIOHandler_inNow_inInputData_inInputTime_outOutputData_inOutputTime_inClientData(
        QMXAudioDevice& device, const AudioTimeStamp* inNow, const AudioBufferList* inInputData,
        const AudioTimeStamp* inInputTime, AudioBufferList* outOutputData, const AudioTimeStamp* inOutputTime,
        QMXAudioDevice& inClientData) = 0;
};
