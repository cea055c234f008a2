// SPDX-License-Identifier: MIT
// One source for all processors: loops over groups of eight floats, which compilers split where the vectors are
// shorter. On x86 they are compiled a second time for processors with wide multiply-add, chosen while running.
#include "AudioToolbox/Conversion/FilterKernels.h"

#include <cstring>

namespace qmx
{
namespace
{

using Lanes = Float32 __attribute__((vector_size(32)));
constexpr std::size_t lanes = sizeof(Lanes) / sizeof(Float32);
static_assert(tapGroup == 2 * lanes);

/// From an address of any alignment.
[[gnu::always_inline]] inline void load(const Float32* from, Lanes& to)
{
    std::memcpy(&to, from, sizeof to);
}

/// Channels that share each load of coefficients.
template <std::size_t channels>
[[gnu::always_inline]] inline void applyTo(const Float32* row, std::size_t taps, const Float32* history,
                                           std::size_t stride, Float32* out)
{
    Lanes sums[channels][2] = {}; // two of each, so that an addition need not wait for the one before
    for (std::size_t tap = 0; tap < taps; tap += tapGroup)
        for (std::size_t half = 0; half < 2; ++half) {
            const std::size_t first = tap + half * lanes;
            Lanes coefficients, samples;
            load(row + first, coefficients);
            for (std::size_t i = 0; i < channels; ++i) {
                load(history + i * stride + first, samples);
                sums[i][half] += coefficients * samples;
            }
        }
    for (std::size_t i = 0; i < channels; ++i) {
        Lanes sum = sums[i][0] + sums[i][1];
        sum += __builtin_shufflevector(sum, sum, 4, 5, 6, 7, 0, 1, 2, 3);
        sum += __builtin_shufflevector(sum, sum, 2, 3, 0, 1, 6, 7, 4, 5);
        out[i] = sum[0] + sum[1];
    }
}

[[gnu::always_inline]] inline void applyToAll(const Float32* row, std::size_t taps, const Float32* history,
                                              std::size_t stride, std::size_t channels, Float32* out)
{
    std::size_t i = 0;
    for (; i + 2 <= channels; i += 2)
        applyTo<2>(row, taps, history + i * stride, stride, out + i);
    if (i < channels)
        applyTo<1>(row, taps, history + i * stride, stride, out + i);
}

template <bool adds>
[[gnu::always_inline]] inline void blendRows(const FilterKernels::Rows& rows, const FilterKernels::Weights& weights,
                                             std::size_t taps, Float32* row)
{
    const auto [a, b, c, d] = rows; // copies: what is written to `row` might be them
    const auto [ofA, ofB, ofC, ofD] = weights;
    for (std::size_t tap = 0; tap < taps; tap += lanes) {
        Lanes sum{}, inA, inB, inC, inD;
        if constexpr (adds)
            load(row + tap, sum);
        load(a + tap, inA);
        load(b + tap, inB);
        load(c + tap, inC);
        load(d + tap, inD);
        sum += (ofA * inA + ofB * inB) + (ofC * inC + ofD * inD);
        std::memcpy(row + tap, &sum, sizeof sum);
    }
}

void applyAnywhere(const Float32* row, std::size_t taps, const Float32* history, std::size_t stride,
                   std::size_t channels, Float32* out)
{
    applyToAll(row, taps, history, stride, channels, out);
}

template <bool adds>
void blendAnywhere(const FilterKernels::Rows& rows, const FilterKernels::Weights& weights, std::size_t taps,
                   Float32* row)
{
    blendRows<adds>(rows, weights, taps, row);
}

constexpr FilterKernels plainKernels{applyAnywhere, blendAnywhere<false>, blendAnywhere<true>};

#if defined(__x86_64__)
[[gnu::target("avx2,fma")]] void applyWide(const Float32* row, std::size_t taps, const Float32* history,
                                           std::size_t stride, std::size_t channels, Float32* out)
{
    applyToAll(row, taps, history, stride, channels, out);
}

template <bool adds>
[[gnu::target("avx2,fma")]] void blendWide(const FilterKernels::Rows& rows, const FilterKernels::Weights& weights,
                                           std::size_t taps, Float32* row)
{
    blendRows<adds>(rows, weights, taps, row);
}

constexpr FilterKernels wideKernels{applyWide, blendWide<false>, blendWide<true>};

const FilterKernels& chosenKernels()
{
    return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma") ? wideKernels : plainKernels;
}
#else
const FilterKernels& chosenKernels()
{
    return plainKernels;
}
#endif

} // namespace

const FilterKernels& filterKernels()
{
    static const FilterKernels& kernels = chosenKernels();
    return kernels;
}

const FilterKernels& plainFilterKernels()
{
    return plainKernels;
}

} // namespace qmx
