// SPDX-License-Identifier: MIT
// What renders a unit's input element: another unit, or a callback.
#pragma once

#include "AudioToolbox/Conversion/FrameConverter.h"
#include "AudioUnit/AudioUnitProperties.h"
#include "AudioUnit/Units/SliceBuffers.h"

#include <atomic>
#include <memory>

namespace qmx
{

class Unit;

/// Immutable.
class InputSource
{
public:
    InputSource() = default;
    InputSource(const InputSource&) = delete;
    InputSource& operator=(const InputSource&) = delete;
    virtual ~InputSource() = default;
    /// Renders into `data`, whose buffers hold `frames` frames of `layout`. Render thread.
    virtual OSStatus render(const AudioTimeStamp& time, UInt32 element, UInt32 frames, const PcmLayout& layout,
                            AudioBufferList& data) const = 0;
    /// The unit that the frames come from; null for a callback.
    virtual const Unit* unit() const { return nullptr; }
    /// Its output bus.
    virtual UInt32 output() const { return 0; }

    static std::unique_ptr<InputSource> callback(const AURenderCallbackStruct& callback);
    static std::unique_ptr<InputSource> connection(std::shared_ptr<Unit> unit, UInt32 output);
};

/// One input of a unit: its format and its source (null: none).
struct InputElement {
    AudioStreamBasicDescription format;
    bool isConnected = false; ///< to another unit, for new engines: those come before a new source
    std::atomic<const InputSource*> source = nullptr;
    mutable std::atomic<SInt64> position = 0; ///< frames rendered so far; outlasts the engines that render them
};

/// Renders slices of an input element. Belongs to the render thread of one bus.
class InputSlice
{
public:
    /// Slices have at most `maximumFrames` frames. `input` must outlive this object.
    InputSlice(const InputElement& input, UInt32 element, const PcmLayout& layout, UInt32 maximumFrames);

    UInt32 maximumFrames() const { return buffers_.room(); }

    /// Renders `frames` frames, 1 to the maximum, into `slice()`. Their sample time is the count of frames rendered
    /// since the last restart, their host time that of `outputTime`. Frames that were not rendered are silence; if the
    /// source fails, all of them are.
    OSStatus render(const AudioTimeStamp& outputTime, UInt32 frames);
    /// The last rendered frames.
    SourceFrames& slice() { return slice_; }
    /// Moves the sample time of the next frames by `frames`, back to 0 at the least.
    void jump(SInt64 frames);
    /// Sample times restart at 0.
    void restart();

private:
    void receive(AudioBufferList& rendered, UInt32 frames);

    const InputElement& input_;
    UInt32 element_;
    SliceBuffers buffers_;
    SourceFrames slice_;
};

} // namespace qmx
