// SPDX-License-Identifier: MIT
// Everything that rendering one output bus of a unit needs. Made when the unit is initialised, and again when its
// formats change.
#pragma once

#include "AudioToolbox/Conversion/FrameConverter.h"
#include "AudioUnit/AudioUnitProperties.h"
#include "AudioUnit/Units/SliceBuffers.h"

#include <atomic>

namespace qmx
{

/// The arguments of a render.
struct RenderCall {
    AudioUnitRenderActionFlags& flags;
    const AudioTimeStamp& time;
    UInt32 bus;
    UInt32 frames;
};

/// Used by one render thread at a time; a second one, or a render from inside the same bus's own callback, is refused.
/// Some are bound to a thread.
class RenderEngine
{
public:
    RenderEngine(const PcmLayout& output, UInt32 maximumFrames);
    RenderEngine(const RenderEngine&) = delete;
    RenderEngine& operator=(const RenderEngine&) = delete;
    virtual ~RenderEngine() = default;

    const PcmLayout& layout() const { return own_.layout(); }
    UInt32 maximumFrames() const { return own_.room(); }

    /// See AudioUnitRender.
    OSStatus render(const RenderCall& call, AudioBufferList& data);
    /// The next render first drops the sound held from earlier ones. Any thread.
    void requestRestart() { wantsRestart_.store(true); }

    /// Output frames that nobody renders: the input's times jump over them too. On the thread that renders.
    virtual void skip(UInt32 /*frames*/) {}

    /// Seconds from a sound's input to its output.
    virtual Float64 latency() const { return 0; }

protected:
    /// Whether the calling thread is one that may render.
    virtual bool mayRender() const { return true; }
    /// Writes `frames` frames to `target`, which has the room and may be advanced. Missing frames are written as
    /// silence, and the first failing status is returned.
    virtual OSStatus renderInto(const AudioTimeStamp& time, UInt32 frames, TargetFrames& target) = 0;
    virtual void restart() = 0;
    /// Forgets what came before, where that was asked for. On the thread that renders.
    void restartIfAsked();

private:
    UInt32 aim(AudioBufferList& data, UInt32 frames);

    SliceBuffers own_; ///< for buffers without data, and channels without a buffer
    TargetFrames target_;
    std::atomic<bool> wantsRestart_ = false;
    std::atomic_flag isRendering_;
};

} // namespace qmx
