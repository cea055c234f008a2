// SPDX-License-Identifier: MIT
#include "vecLib/ChannelPeaks.h"

#include <algorithm>
#include <array>
#include <utility>

namespace qmx
{
namespace
{

constexpr std::size_t framesAtOnce = 8;
constexpr std::size_t mostUnrolled = 8; // channels

Float32 larger(Float32 sample, Float32 peak)
{
    return sample > peak ? sample : peak;
}

/// The peaks of whole rows of `framesAtOnce` frames; returns the number of samples that were examined.
template <std::size_t Channels> std::size_t rowPeaks(const Float32* samples, std::size_t count, Float32* peaks)
{
    constexpr std::size_t row = Channels * framesAtOnce;
    std::array<Float32, row> lanes{};
    std::size_t done = 0;
    for (; done + row <= count; done += row)
        for (std::size_t i = 0; i < row; ++i)
            lanes[i] = larger(samples[done + i], lanes[i]);
    for (std::size_t i = 0; i < row; ++i)
        peaks[i % Channels] = larger(lanes[i], peaks[i % Channels]);
    return done;
}

using RowPeaks = std::size_t (*)(const Float32*, std::size_t, Float32*);

template <std::size_t... Index> constexpr auto tableOfRowPeaks(std::index_sequence<Index...>)
{
    return std::array<RowPeaks, sizeof...(Index)>{rowPeaks<Index + 1>...};
}

constexpr auto rowPeaksByChannels = tableOfRowPeaks(std::make_index_sequence<mostUnrolled>());

} // namespace

void channelPeaks(const Float32* samples, std::size_t count, std::size_t channels, Float32* peaks,
                  std::size_t peakCount)
{
    std::fill_n(peaks, peakCount, 0.0F);
    std::size_t done = 0;
    if (channels > 0 && channels <= mostUnrolled && peakCount == channels)
        done = rowPeaksByChannels[channels - 1](samples, count, peaks);
    for (; channels > 0 && done < count; done += channels)
        for (std::size_t i = 0; i < peakCount && done + i < count; ++i)
            peaks[i] = larger(samples[done + i], peaks[i]);
}

} // namespace qmx
