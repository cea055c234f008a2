// SPDX-License-Identifier: MIT
// Conversion at equal rates: one frame in, one frame out, between any two layouts.
#pragma once

#include "AudioToolbox/Conversion/ChannelMixer.h"
#include "AudioToolbox/Conversion/PcmLayout.h"

#include <cstddef>
#include <memory>
#include <vector>

namespace qmx
{

/// A run of frames in memory: one pointer per plane.
template <class ByteT> struct FrameRun {
    std::vector<ByteT*> planes;
    std::size_t planeFrameBytes = 0;
    std::size_t frames = 0; ///< from the pointers on

    void advance(std::size_t count)
    {
        for (auto& plane : planes)
            plane += count * planeFrameBytes;
        frames -= count;
    }
};

using SourceFrames = FrameRun<const std::byte>;
using TargetFrames = FrameRun<std::byte>;

/// Converts frames of one layout to another. Its scratch memory is made with it: converting allocates nothing and may
/// be done on a render thread, by one thread at a time.
class FrameConverter
{
public:
    virtual ~FrameConverter() = default;

    /// Converts the first `frames` frames of `source`, which holds at least as many, to the start of `target`, which
    /// has the room. The two do not overlap, unless they are the same memory and the layouts are equal. Neither is
    /// advanced.
    virtual void convert(const SourceFrames& source, const TargetFrames& target, std::size_t frames) = 0;

    static std::unique_ptr<FrameConverter> between(const PcmLayout& source, const PcmLayout& target,
                                                   const ChannelRoutes& routes);
};

} // namespace qmx
