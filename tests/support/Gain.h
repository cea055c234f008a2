// SPDX-License-Identifier: MIT
#pragma once

#include "CoreAudioTypes/AudioBuffers.h"
#include "Processing/QMXAudioProcessor.h"

#include <atomic>
#include <functional>
#include <span>

namespace qmx::test
{

/// Multiplies what is processed, and tells of it.
struct Gain : QMXAudioProcessor {
    explicit Gain(Float32 factor, UInt32 framesGiven = 0, OSStatus status = noErr)
        : gain(factor), frames(framesGiven), result(status)
    {
    }
    void reset() override
    {
        ++resets;
        if (onReset)
            onReset();
    }
    OSStatus processAudio_numberOfFrames(AudioBufferList& audio, UInt32* numberOfFrames) override
    {
        ++passes;
        lastPass = *numberOfFrames;
        if (onPass)
            onPass();
        for (const AudioBuffer& buffer : buffersOf(audio))
            for (auto& sample : std::span(static_cast<Float32*>(buffer.mData), *numberOfFrames))
                sample *= gain;
        *numberOfFrames = frames > 0 ? frames : *numberOfFrames;
        return result;
    }
    const Float32 gain;
    const UInt32 frames; ///< that a pass gives; 0: as many as it has
    std::atomic<OSStatus> result;
    int resets = 0, passes = 0;
    UInt32 lastPass = 0;
    std::function<void()> onPass, onReset;
};

} // namespace qmx::test
