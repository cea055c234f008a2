// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/CoreAudioTypes.h>
#include <QMXCoreAudio/Foundation/Export.h>

/// Changes audio in place, pass by pass. Programs derive from it.
class QMX_EXPORT QMXAudioProcessor
{
public:
    virtual ~QMXAudioProcessor();

    /// Forgets what earlier passes left: the next pass starts a new stream.
    virtual void reset() = 0;
    /// Changes the samples of a pass: native 32-bit floats, one buffer per channel. `*numberOfFrames` is the pass's
    /// length and may be changed to the number of frames that result. Called on the thread that runs the pass, a render
    /// thread in players: there it must neither allocate, lock nor touch a file. 0 for success; the class that runs the
    /// processor says what another status does.
    [[nodiscard]] virtual OSStatus processAudio_numberOfFrames(AudioBufferList& audio, UInt32* numberOfFrames) = 0;
};
