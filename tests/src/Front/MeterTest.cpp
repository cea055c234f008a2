// SPDX-License-Identifier: MIT
#include "Front/Meter.h"

#include "Foundation/RealTime.h"
#include "Front/Devices.h"
#include "support/VirtualDevices.h"

#include <atomic>
#include <cmath>
#include <numbers>
#include <thread>

using qmx::Levels;

namespace
{

constexpr double silence = -std::numeric_limits<double>::infinity();

/// A sine wave at a fraction of the sample rate, from a phase given in turns on.
std::vector<float> sine(double frequency, double phase, double amplitude, std::size_t frames = 4800)
{
    std::vector<float> samples(frames);
    for (std::size_t i = 0; i < frames; ++i)
        samples[i] = static_cast<float>(amplitude *
                                        std::sin(2 * std::numbers::pi * (frequency * static_cast<double>(i) + phase)));
    return samples;
}

} // namespace

TEST(LevelsTest, FindTheWaveBetweenItsSamples)
{
    const auto levels = Levels::make(1);
    for (const double frequency : {0.05, 0.25, 1 / 6.0}) {
        // samples miss the tops as far as they can; the edges of the wave are left out
        const double phase = frequency / 2 + (frequency > 0.2 ? 0 : 0.25);
        const auto wave = sine(frequency, phase, 0.5);
        levels->add(wave, 1);
        (void)levels->read();
        levels->add(sine(frequency, phase + 4800 * frequency, 0.5), 1);
        const auto read = levels->read();
        ASSERT_EQ(1U, read.size());
        const double missed = qmx::decibels(0.5 * std::cos(std::numbers::pi * frequency));
        EXPECT_NEAR(missed, read[0].peak, 0.01) << frequency;
        EXPECT_NEAR(-6.02, read[0].truePeak, 0.2) << frequency;
        EXPECT_NEAR(-9.03, read[0].rms, 0.01) << frequency;
        EXPECT_FALSE(read[0].hasClipped);
    }
    EXPECT_EQ(silence, levels->read()[0].rms) << "read already";
}

TEST(LevelsTest, ArePerChannelAndNotUpsetByWhatIsNoNumber)
{
    const auto levels = Levels::make(2);
    const std::vector<float> samples{0.25F, NAN, 9, -1, 0.5F, 9, 0.25F, INFINITY, 9}; // three channels
    {
        const qmx::RealTimeScope realTime;
        levels->add(samples, 3);
    }
    const auto read = levels->read();
    ASSERT_EQ(2U, read.size());
    EXPECT_EQ(0, read[0].peak);
    EXPECT_TRUE(read[0].hasClipped);
    EXPECT_NEAR(qmx::decibels(0.5), read[1].peak, 1e-6);
    EXPECT_NEAR(qmx::decibels(std::sqrt(0.25 / 3)), read[1].rms, 1e-6);
}

TEST(LevelsTest, LoseNothingBetweenTwoThreads)
{
    const auto levels = Levels::make(1);
    constexpr int rounds = 2000;
    std::atomic<bool> isOver = false;
    std::thread adding([&] {
        for (int i = 0; i < rounds; ++i) {
            const float sample = i == rounds / 2 ? 1.0F : 0.25F;
            levels->add({&sample, 1}, 1);
        }
        isOver = true;
    });
    int clipped = 0;
    while (!isOver)
        clipped += levels->read()[0].hasClipped ? 1 : 0;
    adding.join();
    const float last = 0;
    levels->add({&last, 1}, 1); // what a reader held back
    clipped += levels->read()[0].hasClipped ? 1 : 0;
    EXPECT_EQ(1, clipped);
}

class MeterTest : public qmx::test::VirtualDevices
{
};

TEST_F(MeterTest, MeasuresWhatADeviceCapturesUntilItIsReleased)
{
    const AudioDeviceID id = add("in", 8, 0);
    news();
    EXPECT_EQ(noErr, hardware.setInput(id, [](Float32* samples, UInt32 frames, UInt32 channels, SInt64) {
        for (UInt32 i = 0; i < frames * channels; ++i)
            samples[i] = 1 / static_cast<Float32>(1 << i % channels);
    }));
    {
        const auto meter = qmx::Meter::start(qmx::Device(registered(id)));
        ASSERT_TRUE(meter);
        EXPECT_TRUE(hardware.advanceCycles(id, 3));
        const auto levels = meter->read();
        ASSERT_EQ(8U, levels.size());
        for (std::size_t channel = 0; channel < 8; ++channel)
            EXPECT_NEAR(-6.0206 * static_cast<double>(channel), levels[channel].rms, 0.001);
        EXPECT_TRUE(levels[0].hasClipped && !levels[1].hasClipped);
    }
    EXPECT_FALSE(hardware.advanceCycles(id)) << "still metered";
}
