// SPDX-License-Identifier: MIT
#include "AudioToolbox/Conversion/FilterKernels.h"

#include <cmath>
#include <gtest/gtest.h>
#include <vector>

namespace
{

/// Loud values without a pattern.
std::vector<Float32> noise(std::size_t count)
{
    std::vector<Float32> values(count);
    UInt32 state = 1;
    for (Float32& value : values) {
        state = state * 1664525 + 1013904223;
        value = static_cast<Float32>(state >> 8) / 0x800000 - 1;
    }
    return values;
}

} // namespace

// a machine runs one set of them in its units; the other is tested here alone
TEST(FilterKernels, SumWhatTheirFormulasSayOnEveryProcessor)
{
    constexpr std::size_t taps = 5 * qmx::tapGroup, stride = taps + 3; // channels of any alignment
    constexpr Float64 rounding = taps * 1e-7;
    for (const qmx::FilterKernels* const kernels : {&qmx::filterKernels(), &qmx::plainFilterKernels()}) {
        for (const std::size_t channels : {1U, 2U, 65U}) {
            const auto row = noise(taps), history = noise(channels * stride);
            std::vector<Float32> out(channels + 1, 7);
            kernels->apply(row.data(), taps, history.data(), stride, channels, out.data());
            EXPECT_EQ(7, out.back()); // nothing is written after the last channel
            for (std::size_t channel = 0; channel < channels; ++channel) {
                Float64 sum = 0;
                for (std::size_t tap = 0; tap < taps; ++tap)
                    sum += Float64{row[tap]} * Float64{history[channel * stride + tap]};
                ASSERT_NEAR(sum, out[channel], rounding) << channel;
            }
        }
        const auto values = noise(4 * stride);
        const qmx::FilterKernels::Rows rows{&values[0], &values[stride], &values[2 * stride], &values[3 * stride]};
        const qmx::FilterKernels::Weights weights{-0.25F, 0.5F, 0.75F, -0.125F};
        std::vector<Float32> blended(taps + 1, 7);
        kernels->blend(rows, weights, taps, blended.data());
        kernels->addBlend(rows, weights, taps, blended.data());
        EXPECT_EQ(7, blended.back());
        for (std::size_t tap = 0; tap < taps; ++tap)
            ASSERT_NEAR(-0.25F * rows[0][tap] + 0.5F * rows[1][tap] + 0.75F * rows[2][tap] - 0.125F * rows[3][tap],
                        blended[tap] / 2, 1e-6);
    }
}
