// SPDX-License-Identifier: MIT
#include "Tracks/BandLevels.h"

#include <gtest/gtest.h>

#include <cmath>

using qmx::BandLevels;

TEST(BandLevels, ATonesPowerIsInItsBandWhateverTheRateAndTheChannelsThatDropOut)
{
    for (const double rate : {8000.0, 44100.0, 192000.0})
        for (const UInt32 channels : {1U, 2U, 6U, 19U}) {
            BandLevels levels(rate, channels, 0);
            const auto frames = static_cast<std::size_t>(rate);
            std::vector<float> samples(frames * channels);
            for (std::size_t i = 0; i < frames;
                 ++i) { // in all channels of six, then in the last; half of full scale: -9 dB
                const bool isInAll = channels <= 6 && i < 10 * levels.framesPerStep();
                for (std::size_t channel = isInAll ? 0 : channels - 1; channel < channels; ++channel)
                    samples[i * channels + channel] =
                        static_cast<float>(0.5 * std::sin(2 * M_PI * 900 * static_cast<double>(i) / rate));
            }
            levels.add(samples);
            levels.finish();
            ASSERT_GT(levels.steps().size(), 15U);
            for (const auto& step : levels.steps()) {
                EXPECT_NEAR(qmx::decibelsOf(step[2]), -9, 1) << rate << ", " << channels << " channels";
                EXPECT_LT(qmx::decibelsOf(step[5]), -60) << rate << ", " << channels << " channels";
            }
        }
}

TEST(BandLevels, StepsAreAsLongAsKeepsThemFewerThanAMillion)
{
    constexpr UInt64 hour = UInt64{3600} * 48000;
    EXPECT_EQ(BandLevels(48000, 2, 12 * hour).framesPerStep(), BandLevels(48000, 2, 0).framesPerStep());
    EXPECT_LE(200 * hour / BandLevels(48000, 2, 200 * hour).framesPerStep(), UInt64{1} << 20);
}
