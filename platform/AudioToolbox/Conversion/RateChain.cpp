// SPDX-License-Identifier: MIT
#include "AudioToolbox/Conversion/RateChain.h"

#include <algorithm>
#include <cmath>

namespace qmx
{
namespace
{

// large enough to hide the cost of calling the filter, small enough for the second-level cache
constexpr std::size_t blockSamples = 32768;

/// Room beyond the exact ratio, so that bursts from the filter can catch up.
constexpr UInt64 slackFrames = 16;

PcmLayout doubles(UInt32 channels)
{
    return {{.coding = SampleCoding::floating, .bytes = 8, .bits = 64}, channels, channels == 1};
}

} // namespace

RateChain::RateChain(const PcmLayout& source, Float64 sourceRate, const PcmLayout& target, Float64 targetRate)
    : source_(source), middle_(doubles(std::min(source.channels, target.channels))), target_(target),
      sourceRate_(sourceRate), targetRate_(targetRate), rate_(sourceRate, targetRate, middle_.channels)
{
    const std::size_t blockFrames = std::max<std::size_t>(64, blockSamples / middle_.channels);
    // one block in makes about one block out
    takeFrames_ = blockFrames;
    feedFrames_ = std::max<std::size_t>(
        1, static_cast<std::size_t>(static_cast<Float64>(blockFrames) / std::max(targetRate / sourceRate, 1.0)));
    block_.resize(blockFrames * middle_.channels);
    blockToRead_ = {{}, middle_.planeFrameBytes(), blockFrames};
    blockToWrite_ = {{}, middle_.planeFrameBytes(), blockFrames};
    for (std::size_t channel = 0; channel < middle_.channels; ++channel) {
        planes_.push_back(&block_[channel * blockFrames]);
        blockToRead_.planes.push_back(reinterpret_cast<const std::byte*>(planes_.back()));
        blockToWrite_.planes.push_back(reinterpret_cast<std::byte*>(planes_.back()));
    }
    route(ChannelRoutes::between(source.channels, target.channels));
}

void RateChain::route(const ChannelRoutes& routes)
{
    const ChannelRoutes unchanged = ChannelRoutes::identity(middle_.channels);
    const bool mixesFirst = source_.channels > target_.channels;
    auto toRate = FrameConverter::between(source_, middle_, mixesFirst ? routes : unchanged);
    fromRate_ = FrameConverter::between(middle_, target_, mixesFirst ? unchanged : routes);
    toRate_ = std::move(toRate);
}

std::size_t RateChain::produce(SourceFrames& source, TargetFrames& target, std::size_t frames)
{
    std::size_t made = 0;
    while (made < frames) {
        const std::size_t taken = rate_.take(planes_.data(), std::min(frames - made, takeFrames_));
        if (taken > 0) {
            fromRate_->convert(blockToRead_, target, taken);
            target.advance(taken);
            made += taken;
        } else if (source.frames > 0) {
            feedBlock(source);
        } else {
            break;
        }
    }
    return made;
}

void RateChain::feedAll(SourceFrames& source)
{
    while (source.frames > 0)
        feedBlock(source);
}

void RateChain::feedBlock(SourceFrames& source)
{
    const std::size_t length = std::min(source.frames, feedFrames_);
    toRate_->convert(source, blockToWrite_, length);
    source.advance(length);
    rate_.feed(planes_.data(), length);
}

UInt64 RateChain::outputFramesFor(UInt64 inputFrames) const
{
    const Float64 frames = static_cast<Float64>(inputFrames) * targetRate_ / sourceRate_;
    return static_cast<UInt64>(std::ceil(frames)) + slackFrames;
}

UInt64 RateChain::inputFramesFor(UInt64 outputFrames) const
{
    // multiply first: whole ratios stay exact
    return static_cast<UInt64>(std::ceil(static_cast<Float64>(outputFrames) * sourceRate_ / targetRate_));
}

} // namespace qmx
