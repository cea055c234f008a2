// SPDX-License-Identifier: MIT
#pragma once

#include "CoreAudioTypes/MacTypes.h"

#include <atomic>
#include <cstddef>
#include <vector>

namespace qmx
{

/// The last frames that an output played, by its sample time. One thread writes, any thread reads, and none waits:
/// samples are atomic words, and frames that were never written, or are overwritten, read as silence.
class LoopbackRing
{
public:
    explicit LoopbackRing(UInt32 channels);

    UInt32 channels() const { return channels_; }
    /// Writes frames of `channels` interleaved channels; channels beyond the ring's are dropped.
    void write(SInt64 first, const Float32* samples, UInt32 frames, UInt32 channels);
    /// One sample of a frame; 0 for a frame or channel that the ring does not hold.
    Float32 sample(SInt64 frame, UInt32 channel) const;

private:
    static constexpr SInt64 capacity = 65536; // frames
    std::atomic<Float32>& slot(SInt64 frame, UInt32 channel);
    const std::atomic<Float32>& slot(SInt64 frame, UInt32 channel) const;
    void clear(SInt64 from, SInt64 to);

    const UInt32 channels_;
    std::vector<std::atomic<Float32>> samples_;
    std::atomic<SInt64> begin_{0};
    std::atomic<SInt64> end_{0};
};

} // namespace qmx
