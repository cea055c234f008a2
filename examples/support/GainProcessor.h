// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/Processing/QMXAudioProcessor.h>

namespace example
{

/// Multiplies all samples by a factor.
class GainProcessor : public QMXAudioProcessor
{
public:
    /// The factor of 0 dB is exactly 1.
    explicit GainProcessor(double decibels);

    void reset() override {}
    OSStatus processAudio_numberOfFrames(AudioBufferList& audio, UInt32* numberOfFrames) override;

private:
    float factor_;
};

} // namespace example
