// SPDX-License-Identifier: MIT
#include "support/GainProcessor.h"

#include <QMXCoreAudio/CoreAudioTypes/AudioBuffers.h>

#include <cmath>
#include <span>

namespace example
{

GainProcessor::GainProcessor(double decibels) : factor_(static_cast<float>(std::pow(10, decibels / 20))) {}

OSStatus GainProcessor::processAudio_numberOfFrames(AudioBufferList& audio, UInt32* numberOfFrames)
{
    for (const AudioBuffer& buffer : qmx::buffersOf(audio))
        for (float& sample : std::span(static_cast<float*>(buffer.mData), *numberOfFrames))
            sample *= factor_;
    return noErr;
}

} // namespace example
