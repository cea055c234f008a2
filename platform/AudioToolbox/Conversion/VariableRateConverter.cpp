// SPDX-License-Identifier: MIT
#include "AudioToolbox/Conversion/VariableRateConverter.h"

#include <samplerate.h>
#include <vector>

namespace qmx
{
namespace
{

int filterOf(UInt32 quality)
{
    if (quality < 32)
        return SRC_SINC_FASTEST;
    return quality < 96 ? SRC_SINC_MEDIUM_QUALITY : SRC_SINC_BEST_QUALITY;
}

} // namespace

void VariableRateConverter::Release::operator()(SRC_STATE_tag* filter) const
{
    src_delete(filter);
}

VariableRateConverter::VariableRateConverter(UInt32 channels, UInt32 quality)
{
    int error = 0;
    filter_.reset(src_new(filterOf(quality), static_cast<int>(channels), &error));
    if (filter_)
        warm(channels);
}

/// Touches all memory that converting uses, so that no render waits for a page fault.
void VariableRateConverter::warm(UInt32 channels)
{
    constexpr std::size_t inputFrames = 512, outputFrames = 64;
    const std::vector<Float32> in(inputFrames * channels);
    std::vector<Float32> out(outputFrames * channels);
    process(in.data(), inputFrames, out.data(), outputFrames, 0.971);
    restart();
}

VariableRateConverter::Progress VariableRateConverter::process(const Float32* in, std::size_t frames, Float32* out,
                                                               std::size_t room, Float64 ratio)
{
    SRC_DATA data{};
    data.data_in = in;
    data.data_out = out;
    data.input_frames = static_cast<long>(frames);
    data.output_frames = static_cast<long>(room);
    data.src_ratio = ratio;
    if (src_process(filter_.get(), &data) != 0)
        return {};
    return {static_cast<std::size_t>(data.input_frames_used), static_cast<std::size_t>(data.output_frames_gen)};
}

void VariableRateConverter::restart()
{
    src_reset(filter_.get());
}

} // namespace qmx
