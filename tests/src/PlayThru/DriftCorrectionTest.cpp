// SPDX-License-Identifier: MIT
#include "PlayThru/DriftCorrection.h"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <random>

namespace
{

constexpr double nominal = 44100, frames = 512;

/// Two devices whose clocks are off, in steps of the output's cycles; the output's position moves by the factor.
struct Drift {
    Drift(double inputPpm, double outputPpm, double jitterSeconds = 0)
        : inputRate(nominal * (1 + inputPpm * 1e-6)), outputRate(nominal * (1 + outputPpm * 1e-6)),
          noise(-jitterSeconds, jitterSeconds)
    {
        correction.setRate(nominal);
    }

    void run(double seconds)
    {
        for (const double end = now + seconds; now < end; now += frames / outputRate) {
            for (; inputFrame / inputRate <= now; inputFrame += frames)
                correction.addInput(inputFrame, host(inputFrame / inputRate));
            const double last = factor;
            const UInt64 time = host(now);
            factor = correction.factorAt(outputFrame, time);
            steepest = std::max(steepest, std::abs(factor - last) / (frames / outputRate));
            strongest = std::max(strongest, std::abs(factor - 1));
            distance = std::abs(now - outputFrame / inputRate);
            farthest = std::max(farthest, distance);
            // further frames of the same cycle
            EXPECT_EQ(factor, correction.factorAt(outputFrame + frames / 2, time));
            outputFrame += frames * factor;
        }
    }
    UInt64 host(double seconds) { return static_cast<UInt64>((seconds + 10 + noise(random)) * 1e9); }

    qmx::DriftCorrection correction;
    double inputRate, outputRate, inputFrame = 0, outputFrame = 0, now = 0;
    double factor = 1, steepest = 0, strongest = 0, distance = 0, farthest = 0;
    std::mt19937 random{6};
    std::uniform_real_distribution<double> noise;
};

} // namespace

TEST(DriftCorrection, KeepsTheDistanceWithinAMillisecondAndChangesTheRateSlowly)
{
    for (const double sign : {1.0, -1.0}) {
        Drift drift(200 * sign, -200 * sign);
        drift.run(1800);
        EXPECT_LT(drift.farthest, 1e-3);
        EXPECT_LT(drift.distance, 3e-4); // as in the first second, whose mean is kept
        EXPECT_NEAR(drift.factor, drift.inputRate / drift.outputRate, 1e-6);
        EXPECT_LE(drift.steepest, qmx::DriftCorrection::fastestChange * 1.001);
    }
}

TEST(DriftCorrection, SmoothsStampsThatJitterAndStaysWithinItsBounds)
{
    Drift jittering(100, -100, 1e-3);
    jittering.run(300);
    jittering.strongest = jittering.farthest = 0;
    jittering.run(300);
    EXPECT_LT(jittering.strongest, 600e-6); // a millisecond at each end would be 1000
    EXPECT_LT(jittering.farthest, 1e-3);

    Drift apart(3000, 0); // more than it corrects
    apart.run(30);
    EXPECT_DOUBLE_EQ(apart.factor, 1 + qmx::DriftCorrection::largest);
    apart.correction.restart();
    EXPECT_EQ(apart.correction.factorAt(apart.outputFrame, apart.host(apart.now)), 1); // no input since
}
