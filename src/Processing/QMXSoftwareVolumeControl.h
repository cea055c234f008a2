// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/Foundation/Object.h>
#include <QMXCoreAudio/Processing/QMXAudioProcessor.h>

#include <memory>

/// One linear gain on all channels, applied in place. Settings: any thread, at any time; a new one holds from the next
/// buffer on, without a ramp.
class QMX_EXPORT QMXSoftwareVolumeControl : public qmx::Object, public QMXAudioProcessor
{
public:
    /// A control at a gain of 1.0, which leaves audio bit-identical.
    static std::shared_ptr<QMXSoftwareVolumeControl> init();

    /// Linear gain: any value, 0.0, negative ones and those above 1.0 too, is applied unchanged, without clipping.
    virtual void setVolumeScalar(Float32 scalar) = 0;
    virtual Float32 volumeScalar() const = 0;
    /// The same in decibels: 0 is a gain of 1.0, -20 one of 0.1.
    void setVolumeDecibels(Float32 decibels);

    /// Does nothing: the control has no history.
    void reset() override = 0;
    /// Multiplies `*numberOfFrames` frames of each buffer, interleaved or not; the buffers hold at least as many native
    /// floats, whatever their byte sizes say. Render threads. Always 0.
    [[nodiscard]] OSStatus processAudio_numberOfFrames(AudioBufferList& audio, UInt32* numberOfFrames) override = 0;
};
