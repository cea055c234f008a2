// SPDX-License-Identifier: MIT
// What play-through does in the cycles of its two devices.
#pragma once

#include "AudioUnit/AudioUnit.h"
#include "Formats/OwnedBufferList.h"
#include "PlayThru/AudioRingBuffer.h"
#include "PlayThru/DriftCorrection.h"

#include <atomic>

namespace qmx
{

/// Captured slices go into a ring under their sample times; the output fetches what lies a constant offset before its
/// own times. The offset is measured with the first slices of both sides after a restart. Nothing here allocates, locks
/// or waits after prepare().
class ThruCycles
{
public:
    /// Takes room for slices of `frames` frames, and in the ring for twenty of them, but at least for `needed` frames.
    /// While no cycle runs. kAudio_MemFullError without memory: then nothing is captured.
    OSStatus prepare(UInt32 channels, UInt32 frames, UInt32 bytesPerFrame, unsigned long needed);
    /// Frames that the ring is made for.
    unsigned long ringFrames() const { return ringFrames_.load(); }

    /// Any thread: the input's nominal rate in Hz.
    void setInputRate(Float64 rate) { drift_.setRate(rate); }
    /// Any thread: the next slices are the first ones, and `distance` frames of the input lie between them. What was
    /// captured before is not played any more.
    void restart(Float64 distance);
    /// Any thread.
    void setDriftCorrection(bool isOn);
    unsigned long refusedFetches() const { return refusedFetches_.load(std::memory_order_relaxed); }

    /// The input's I/O thread: renders a slice of `unit` and stores it. A slice that cannot be rendered is silence, and
    /// its status is returned.
    OSStatus capture(AudioUnit unit, AudioUnitRenderActionFlags* flags, const AudioTimeStamp& time, UInt32 bus,
                     UInt32 frames);
    /// The output's render thread: fills `data`, with silence where nothing is held. -1, and the buffers stay as they
    /// are, as long as the offset is not measured.
    OSStatus play(const AudioTimeStamp& time, UInt32 frames, AudioBufferList& data);
    /// The output's render thread: how much faster than at the nominal rate it should play.
    Float64 factor() const { return factor_; }

private:
    static constexpr unsigned long slicesInRing = 20;

    void measureAgain();
    void noteRefusal(UInt32 frames);

    OwnedBufferList captured_;              ///< a mono buffer for each channel
    std::atomic<UInt32> captureFrames_ = 0; ///< room of each
    std::atomic<unsigned long> ringFrames_ = 0;
    AudioRingBuffer ring_;
    DriftCorrection drift_;
    std::atomic<bool> correctsDrift_ = false;
    std::atomic<unsigned long> refusedFetches_ = 0;

    std::atomic<UInt32> restarts_ = 1;
    std::atomic<Float64> distance_ = 0;
    // of the input's thread, read by the output's
    std::atomic<Float64> inputStart_ = 0;  ///< time of the first slice since a restart
    std::atomic<UInt32> inputRestart_ = 0; ///< which restart that was
    // of the output's thread
    Float64 offset_ = 0;       ///< from the time of a frame at the input to that at the output
    UInt32 offsetRestart_ = 0; ///< the restart after which it was measured
    UInt64 refusedFrames_ = 0; ///< less an eighth of those that were not
    Float64 factor_ = 1;
};

} // namespace qmx
