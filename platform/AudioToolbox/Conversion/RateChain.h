// SPDX-License-Identifier: MIT
// Conversion between rates and layouts: frames to doubles, the rate converter, doubles to frames. Channels are mixed on
// the side that leaves fewer of them to the rate converter.
#pragma once

#include "AudioToolbox/Conversion/FrameConverter.h"
#include "AudioToolbox/Conversion/RateConverter.h"

#include <cstddef>
#include <memory>
#include <vector>

namespace qmx
{

/// Works in blocks of bounded size. Allocates while it runs: not for render threads.
class RateChain
{
public:
    RateChain(const PcmLayout& source, Float64 sourceRate, const PcmLayout& target, Float64 targetRate);

    RateConverter& rate() { return rate_; }

    /// From now on `routes` makes the output channels.
    void route(const ChannelRoutes& routes);

    /// Writes up to `frames` frames to `target`, reading from `source` as needed, and advances both. Returns the frames
    /// written: fewer mean that `source` is used up.
    std::size_t produce(SourceFrames& source, TargetFrames& target, std::size_t frames);
    /// Takes in all that is left of `source`; the result waits inside.
    void feedAll(SourceFrames& source);

    /// Maximum output frames to request for `inputFrames` input frames: with that much room in every call nothing piles
    /// up.
    UInt64 outputFramesFor(UInt64 inputFrames) const;
    /// Input frames that suffice for `outputFrames` output frames; at least 1 for one or more.
    UInt64 inputFramesFor(UInt64 outputFrames) const;

private:
    void feedBlock(SourceFrames& source);

    PcmLayout source_, middle_, target_;
    Float64 sourceRate_, targetRate_; ///< Hz
    RateConverter rate_;
    std::unique_ptr<FrameConverter> toRate_, fromRate_;
    std::size_t feedFrames_, takeFrames_; ///< of one block
    std::vector<Float64> block_;          ///< on its way into or out of the rate converter, one plane a channel
    std::vector<Float64*> planes_;        ///< of it
    SourceFrames blockToRead_;
    TargetFrames blockToWrite_;
};

} // namespace qmx
