// SPDX-License-Identifier: MIT
#include "AudioToolbox/Conversion/RateConverter.h"

#include "Foundation/Threads/HelpingThread.h"

#include <soxr.h>

#include <algorithm>

namespace qmx
{
namespace
{

/// From this quality on nearly all of the narrower side's band is kept, so that a recording survives converting there
/// and back.
constexpr UInt32 steepQuality = 112;
constexpr double steepPassband = 0.997; // of the band; the library accepts no more

/// Frames, when fewer are taken, waking another thread costs more than it saves.
constexpr std::size_t worthSharing = 4096;

unsigned long recipeOf(UInt32 quality)
{
    if (quality < RateConverter::leastExactQuality)
        return SOXR_QQ;
    if (quality < 48)
        return SOXR_LQ;
    if (quality < 80)
        return SOXR_MQ;
    return quality < steepQuality ? SOXR_24_BITQ : SOXR_28_BITQ;
}

} // namespace

void RateConverter::Release::operator()(soxr* filter) const
{
    soxr_delete(filter);
}

RateConverter::RateConverter(Float64 inputRate, Float64 outputRate, UInt32 channels)
    : inputRate_(inputRate), outputRate_(outputRate), channels_{channels - channels / 2, channels / 2}
{
    if (outputRate <= inputRate * highestRatio && inputRate <= outputRate * highestRatio)
        restart();
}

bool RateConverter::isUsable() const
{
    for (std::size_t i = 0; i < filters_.size(); ++i)
        if (channels_[i] > 0 && (!filters_[i] || soxr_error(filters_[i].get())))
            return false;
    return true;
}

void RateConverter::setQuality(UInt32 quality)
{
    quality_ = quality;
    if (!hasInput_)
        restart();
}

void RateConverter::feed(Float64* const* planes, std::size_t count)
{
    hasInput_ = hasInput_ || count > 0;
    mayBeReady_ = true;
    for (const auto& filter : filters_) {
        // given no place for the count, the filter takes everything into its own queue; where it may write nothing, it
        // still wants a pointer for each plane
        if (filter) // none if a restart found no memory
            soxr_process(filter.get(), planes, count, nullptr, const_cast<Float64**>(planes), 0, nullptr);
        planes += channels_.front();
    }
}

void RateConverter::finish()
{
    for (const auto& filter : filters_)
        if (hasInput_ && !isFinished_ && filter)
            soxr_process(filter.get(), nullptr, 0, nullptr, nullptr, 0, nullptr);
    mayBeReady_ = true;
    isFinished_ = true;
}

std::size_t RateConverter::take(Float64* const* planes, std::size_t count)
{
    if (!hasInput_ || !mayBeReady_ || !isUsable())
        return 0;
    std::array<std::size_t, 2> taken{count, count};
    const auto takeFrom = [&](std::size_t i) {
        auto* const to = const_cast<Float64**>(planes) + (i == 0 ? 0 : channels_.front());
        taken[i] = soxr_output(filters_[i].get(), to, count);
    };
    const auto first = [&] { takeFrom(0); };
    const auto second = [&] { takeFrom(1); };
    if (filters_[1] && count >= worthSharing) {
        HelpingThread::shared().share(first, second);
    } else {
        first();
        if (filters_[1])
            second();
    }
    const std::size_t both = std::min(taken[0], taken[1]); // they differ only if one has run out of memory
    mayBeReady_ = both == count;
    return both;
}

void RateConverter::restart()
{
    hasInput_ = isFinished_ = mayBeReady_ = false;
    const soxr_io_spec_t planes = soxr_io_spec(SOXR_FLOAT64_S, SOXR_FLOAT64_S);
    soxr_quality_spec_t recipe = soxr_quality_spec(recipeOf(quality_), 0);
    if (quality_ >= steepQuality)
        recipe.passband_end = steepPassband;
    const soxr_runtime_spec_t oneThread = soxr_runtime_spec(1);
    for (std::size_t i = 0; i < filters_.size(); ++i)
        if (channels_[i] > 0)
            filters_[i].reset(
                soxr_create(inputRate_, outputRate_, channels_[i], nullptr, &planes, &recipe, &oneThread));
}

} // namespace qmx
