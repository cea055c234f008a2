// SPDX-License-Identifier: MIT
// Rate conversion by its properties: purity, length, alignment, and that the size of pieces does not matter.
#include "platform/AudioToolbox/Conversion/Conversions.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <numbers>
#include <random>
#include <thread>

using namespace qmx::test;
using Signal = std::vector<Float64>;

namespace
{

constexpr Float64 turn = 2 * std::numbers::pi;

Signal sine(Float64 frequency, Float64 rate, std::size_t frames)
{
    Signal signal(frames);
    for (std::size_t i = 0; i < frames; ++i)
        signal[i] = std::sin(turn * frequency * static_cast<Float64>(i) / rate);
    return signal;
}

AudioStreamBasicDescription doubles(Float64 rate, UInt32 channels = 1)
{
    return pcm(64, nativeFloat, channels, rate);
}

/// All of `input`, fed in pieces of the given sizes in turn, and drained.
Signal resampled(Conversion& conversion, const Signal& input, const std::vector<std::size_t>& pieces)
{
    Signal output;
    for (std::size_t at = 0, turnOf = 0; at < input.size(); ++turnOf) {
        const std::size_t length = std::min(pieces[turnOf % pieces.size()], input.size() - at);
        append(output, conversion.operator()<Float64>(Signal(&input[at], &input[at] + length)));
        at += length;
    }
    append(output, conversion.drained<Float64>());
    return output;
}

Signal resampled(Float64 from, Float64 to, const Signal& input, UInt32 quality = 96)
{
    Conversion conversion(doubles(from), doubles(to));
    EXPECT_EQ(noErr, conversion.set(kAudioConverterSampleRateConverterQuality, quality));
    return resampled(conversion, input, {input.size()});
}

/// The error against the same tone at the new rate, in dB of it, away from the ends: they are abrupt, and the best
/// filter rings for long.
Float64 errorOf(Float64 frequency, Float64 from, Float64 to, UInt32 quality)
{
    constexpr std::size_t ends = 8000;
    const Signal output = resampled(from, to, sine(frequency, from, 30000), quality);
    const Signal ideal = sine(frequency, to, output.size());
    Float64 error = 0;
    for (std::size_t i = ends; i < output.size() - ends; ++i)
        error += (output[i] - ideal[i]) * (output[i] - ideal[i]);
    return 10 * std::log10(error / (static_cast<Float64>(output.size() - 2 * ends) / 2));
}

} // namespace

TEST(RateChain, ATonePassesUnchangedAndInPhase)
{
    for (const auto& [quality, limit] : {std::pair{96u, -130}, {127u, -150}, {64u, -85}, {0u, -30}}) {
        EXPECT_LT(errorOf(997, 44100, 48000, quality), limit);
        EXPECT_LT(errorOf(997, 48000, 44100, quality), limit);
    }
    // the best quality keeps nearly the whole band
    EXPECT_LT(errorOf(21500, 44100, 48000, 127), -60);
    EXPECT_GT(errorOf(21500, 44100, 48000, 96), -10);
}

TEST(RateChain, AToneOfTwentyKilohertzLeavesNoImageAtTheDefaultQuality)
{
    const Signal output = resampled(44100, 48000, sine(20000, 44100, 40000));
    const auto level = [&](Float64 frequency) { // 4800 frames hold whole turns of every multiple of 10 Hz
        std::complex<Float64> sum = 0;
        for (std::size_t i = 0; i < 4800; ++i)
            sum += output[20000 + i] * std::polar(1.0, -turn * frequency * static_cast<Float64>(i) / 48000);
        return std::abs(sum) / 2400;
    };
    EXPECT_NEAR(1, level(20000), 1e-3);
    for (Float64 frequency = 20100; frequency < 24000; frequency += 100) // 23900: the image of 44100 - 20000
        EXPECT_LT(20 * std::log10(level(frequency)), -130) << frequency;
}

TEST(RateChain, ChunksLeaveNoTraceAndTheTotalIsTheRatioOfAllInput)
{
    std::mt19937 random(3);
    std::uniform_real_distribution<Float64> noise(-1, 1);
    for (const auto& [from, to] : {std::pair{44100.0, 48000.0}, {96000.0, 11025.0}, {8000.0, 48000.0}}) {
        Signal input(2 * 9001);
        std::ranges::generate(input, [&] { return noise(random); });
        Conversion whole(doubles(from, 2), doubles(to, 2)), pieces(doubles(from, 2), doubles(to, 2));
        const Signal expected = resampled(whole, input, {input.size()});
        EXPECT_NEAR(9001 * to / from, static_cast<Float64>(expected.size()) / 2, 1);
        EXPECT_EQ(expected, resampled(pieces, input, {2, 4, 6, 14, 254, 4098})) << from;
        EXPECT_EQ(expected, resampled(pieces, input, {602})) << "the stream after a drained one, " << from;
        pieces.operator()<Float64>(Signal(100, 1.0));
        EXPECT_EQ(AudioConverterReset(pieces.ref), noErr);
        EXPECT_EQ(expected, resampled(pieces, input, {2000})) << "after a reset, " << from;
    }
}

TEST(RateChain, EveryChannelIsConvertedAsItWouldBeAloneByHoweverManyThreads)
{
    constexpr UInt32 channels = 5;
    std::mt19937 random(4);
    std::uniform_real_distribution<Float64> noise(-1, 1);
    std::array<Signal, channels> inputs, expected;
    Signal together;
    for (std::size_t channel = 0; channel < channels; ++channel) {
        inputs[channel].resize(60'000);
        std::ranges::generate(inputs[channel], [&] { return noise(random); });
        expected[channel] = resampled(44100, 48000, inputs[channel]);
    }
    for (std::size_t i = 0; i < channels * inputs[0].size(); ++i)
        together.push_back(inputs[i % channels][i / channels]);
    // two converters at once: the helping thread is busy with one of them or with the other
    std::array<Signal, 2> outputs;
    std::array<std::thread, 2> threads;
    for (std::size_t i = 0; i < threads.size(); ++i)
        threads[i] = std::thread([&, i] {
            Conversion conversion(doubles(44100, channels), doubles(48000, channels));
            outputs[i] = resampled(conversion, together, {together.size(), 30'000, 10});
        });
    for (std::thread& thread : threads)
        thread.join();
    for (const Signal& output : outputs) {
        ASSERT_EQ(output.size(), channels * expected[0].size());
        for (std::size_t i = 0; i < output.size(); ++i)
            ASSERT_EQ(output[i], expected[i % channels][i / channels]) << i;
    }
}

TEST(RateChain, TheRoomAskedForIsEnoughAndLessIsRefusedWithoutTakingAnything)
{
    Conversion conversion(doubles(44100), doubles(48000));
    const Signal input = sine(1000, 44100, 1000);
    UInt32 room = conversion.get(kAudioConverterPropertyCalculateOutputBufferSize, 8000);
    Signal output(2000);
    room -= 8;
    EXPECT_EQ(kAudioConverterErr_InvalidOutputSize,
              AudioConverterConvertBuffer(conversion.ref, 8000, input.data(), &room, output.data()));
    EXPECT_EQ(resampled(44100, 48000, input), resampled(conversion, input, {1000}));
}

TEST(RateChain, TheInputAskedForLastsForTheOutput)
{
    const Conversion up(doubles(44100), doubles(48000)), down(doubles(96000), doubles(44100));
    const auto needed = [](const Conversion& conversion, UInt32 frames) {
        return conversion.get(kAudioConverterPropertyCalculateInputBufferSize, frames * 8) / 8;
    };
    EXPECT_EQ(4410u, needed(up, 4800));
    EXPECT_EQ(96000u, needed(down, 44100));
    EXPECT_EQ(0u, needed(up, 0)); // an input of 0 bytes is the end of a stream, so only an output of 0 needs none
    for (UInt32 frames = 1; frames < 20; ++frames) {
        EXPECT_EQ(std::ceil(frames * 44100.0 / 48000), needed(up, frames));
        EXPECT_EQ(std::ceil(frames * 96000.0 / 44100), needed(down, frames));
    }
}

TEST(RateChain, QualityWaitsForTheNextStreamOnceDataWereFed)
{
    const Signal input = sine(5000, 44100, 3000);
    const Signal low = resampled(44100, 48000, input, 0), high = resampled(44100, 48000, input, 127);
    Conversion conversion(doubles(44100), doubles(48000));
    EXPECT_EQ(96u, conversion.get(kAudioConverterSampleRateConverterQuality));
    conversion.set(kAudioConverterSampleRateConverterQuality, 0);
    EXPECT_EQ(kAudio_ParamError, conversion.set(kAudioConverterSampleRateConverterQuality, 128));
    Signal output = conversion.operator()<Float64>(input);
    conversion.set(kAudioConverterSampleRateConverterQuality, 127);
    append(output, conversion.drained<Float64>());
    EXPECT_EQ(low, output);
    EXPECT_EQ(high, resampled(conversion, input, {3000}));
    conversion.set(kAudioConverterSampleRateConverterQuality, 0); // nothing of a stream was fed yet
    EXPECT_EQ(low, resampled(conversion, input, {3000}));
}
