// SPDX-License-Identifier: MIT
#include "vecLib/Interleaving.h"

#include <gtest/gtest.h>

#include <numeric>
#include <vector>

namespace
{

using Frames = std::vector<Float32>;

class Interleaving : public testing::TestWithParam<std::size_t>
{
};

// Planes start at odd addresses, one in five is null, and frames have a channel beyond the planes.
TEST_P(Interleaving, MovesEachSampleToItsPlaceAndNoOther)
{
    const std::size_t planeCount = GetParam(), channels = planeCount == 2 ? 2 : planeCount + 1;
    for (const std::size_t frames : {0U, 1U, 7U, 64U}) {
        const auto sample = [&](std::size_t channel, std::size_t frame) {
            return static_cast<Float32>(channel * frames + frame + 1);
        };
        std::vector<Frames> planes(planeCount, Frames(frames + 2, -1));
        std::vector<const Float32*> inputs;
        Frames expected(frames * channels, -1);
        for (std::size_t channel = 0; channel < planeCount; ++channel) {
            std::iota(planes[channel].begin() + 1, planes[channel].end() - 1, sample(channel, 0));
            inputs.push_back(channel % 5 == 4 ? nullptr : planes[channel].data() + 1);
            for (std::size_t frame = 0; frame < frames; ++frame)
                expected[frame * channels + channel] = inputs.back() ? sample(channel, frame) : 0;
        }
        Frames interleaved(expected.size(), -1);
        qmx::interleave(inputs, interleaved.data(), channels, frames);
        EXPECT_EQ(interleaved, expected) << frames << " frames";

        std::vector<Frames> back(planeCount, Frames(frames + 2, -1));
        std::vector<Float32*> outputs;
        for (std::size_t channel = 0; channel < planeCount; ++channel)
            outputs.push_back(inputs[channel] ? back[channel].data() + 1 : nullptr);
        qmx::deinterleave(interleaved.data(), channels, outputs, frames);
        for (std::size_t channel = 0; channel < planeCount; ++channel)
            EXPECT_EQ(back[channel], outputs[channel] ? planes[channel] : Frames(frames + 2, -1)) << channel;
    }
}

INSTANTIATE_TEST_SUITE_P(Channels, Interleaving, testing::Values(1, 2, 4, 6, 8, 11));

} // namespace
