// SPDX-License-Identifier: MIT
// Conversion between rates and layouts: frames to doubles, the rate converter, doubles to frames. Channels are mixed on
// the side that leaves the rate converter the fewer of them.
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

    /// From now on output channels are made by `routes`.
    void route(const ChannelRoutes& routes);

    /// Writes up to `frames` frames to `target`, reading from `source` as it needs to, and moves both on. Gives the
    /// frames written: fewer mean that `source` is used up.
    std::size_t produce(SourceFrames& source, TargetFrames& target, std::size_t frames);
    /// Takes in all that is left of `source`; what comes of it waits inside.
    void feedAll(SourceFrames& source);

    /// Output frames that are asked for at most for so many input frames: with that much room in every call nothing
    /// piles up.
    UInt64 outputFramesFor(UInt64 inputFrames) const;
    /// Input frames that last for `outputFrames` output frames; at least 1 for one or more.
    UInt64 inputFramesFor(UInt64 outputFrames) const;

private:
    void feedBlock(SourceFrames& source);

    PcmLayout source_, middle_, target_;
    Float64 sourceRate_, targetRate_; ///< Hz
    RateConverter rate_;
    std::unique_ptr<FrameConverter> toRate_, fromRate_;
    std::size_t feedFrames_, takeFrames_; ///< of one block
    std::vector<Float64> block_;          ///< on its way into or out of the rate converter
    SourceFrames blockToRead_;
    TargetFrames blockToWrite_;
};

} // namespace qmx
