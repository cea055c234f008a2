// SPDX-License-Identifier: MIT
#include "AudioToolbox/Conversion/RateConverter.h"

#include <soxr.h>

namespace qmx
{
namespace
{

/// From this quality on nearly all of the narrower side's band is kept, so that a recording survives converting there
/// and back.
constexpr UInt32 steepQuality = 112;
constexpr double steepPassband = 0.997; // of the band; the library accepts no more

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
    : inputRate_(inputRate), outputRate_(outputRate), channels_(channels)
{
    if (outputRate <= inputRate * highestRatio && inputRate <= outputRate * highestRatio)
        restart();
}

bool RateConverter::isUsable() const
{
    return filter_ && !soxr_error(filter_.get());
}

void RateConverter::setQuality(UInt32 quality)
{
    quality_ = quality;
    if (!hasInput_)
        restart();
}

void RateConverter::feed(const Float64* frames, std::size_t count)
{
    // given no place for the count, the filter takes everything into its own queue
    hasInput_ = hasInput_ || count > 0;
    Float64 nothing = 0;
    if (filter_) // none if a restart found no memory
        soxr_process(filter_.get(), frames, count, nullptr, &nothing, 0, nullptr);
}

void RateConverter::finish()
{
    Float64 nothing = 0;
    if (hasInput_ && !isFinished_ && filter_)
        soxr_process(filter_.get(), nullptr, 0, nullptr, &nothing, 0, nullptr);
    isFinished_ = true;
}

std::size_t RateConverter::take(Float64* frames, std::size_t count)
{
    return hasInput_ && filter_ ? soxr_output(filter_.get(), frames, count) : 0;
}

void RateConverter::restart()
{
    hasInput_ = isFinished_ = false;
    const soxr_io_spec_t doubles = soxr_io_spec(SOXR_FLOAT64_I, SOXR_FLOAT64_I);
    soxr_quality_spec_t recipe = soxr_quality_spec(recipeOf(quality_), 0);
    if (quality_ >= steepQuality)
        recipe.passband_end = steepPassband;
    const soxr_runtime_spec_t oneThread = soxr_runtime_spec(1);
    filter_.reset(soxr_create(inputRate_, outputRate_, channels_, nullptr, &doubles, &recipe, &oneThread));
}

} // namespace qmx
