// SPDX-License-Identifier: MIT
// The two telephone codings (ITU-T G.711): 8 bits that stand for 16 on a scale of eight doubling segments.
#pragma once

#include "CoreAudioTypes/MacTypes.h"

#include <algorithm>
#include <array>
#include <bit>

namespace qmx
{

namespace muLaw
{
inline constexpr int bias = 132;
inline constexpr int clip = 32635;

constexpr SInt16 expand(UInt8 code)
{
    const int inverted = code ^ 0xFF;
    const int segment = (inverted >> 4) & 7;
    const int magnitude = ((((inverted & 15) << 3) + bias) << segment) - bias;
    return static_cast<SInt16>(inverted & 0x80 ? -magnitude : magnitude);
}

constexpr UInt8 compress(SInt32 value)
{
    const int sign = value < 0 ? 0x80 : 0;
    const int magnitude = std::min(value < 0 ? -value : value, clip) + bias;
    const int segment = static_cast<int>(std::bit_width(static_cast<UInt32>(magnitude) >> 8));
    return static_cast<UInt8>((sign | (segment << 4) | ((magnitude >> (segment + 3)) & 15)) ^ 0xFF);
}
} // namespace muLaw

namespace aLaw
{
constexpr SInt16 expand(UInt8 code)
{
    const int plain = code ^ 0x55;
    const int segment = (plain >> 4) & 7;
    const int step = ((plain & 15) << 4) + 8;
    const int magnitude = segment == 0 ? step : (step + 256) << (segment - 1);
    return static_cast<SInt16>(plain & 0x80 ? magnitude : -magnitude);
}

constexpr UInt8 compress(SInt32 value)
{
    const int mask = value < 0 ? 0x55 : 0xD5;
    const int magnitude = (value < 0 ? -value - 1 : value) >> 4;
    const int segment = static_cast<int>(std::bit_width(static_cast<UInt32>(magnitude) >> 4));
    return static_cast<UInt8>(((segment << 4) | ((magnitude >> (segment > 1 ? segment - 1 : 0)) & 15)) ^ mask);
}
} // namespace aLaw

template <SInt16 (*expand)(UInt8)>
inline constexpr auto expansionTable = [] {
    std::array<SInt16, 256> table{};
    for (int code = 0; code < 256; ++code)
        table[static_cast<std::size_t>(code)] = expand(static_cast<UInt8>(code));
    return table;
}();

} // namespace qmx
