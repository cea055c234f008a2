// SPDX-License-Identifier: MIT
// Sample values: rounding, saturation and every layout, against straightforward reference code.
#include "platform/AudioToolbox/Conversion/Conversions.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <numeric>
#include <random>

using namespace qmx::test;

namespace
{

/// One integer layout, and how a value is written in it.
struct Layout {
    UInt32 bits, bytes;
    AudioFormatFlags flags;

    AudioStreamBasicDescription description() const { return pcm(bits, flags, 1, 44100, bytes); }

    void write(SInt64 value, std::vector<UInt8>& out) const
    {
        const SInt64 offset = flags & kAudioFormatFlagIsSignedInteger ? 0 : SInt64{1} << (bits - 1);
        auto word = static_cast<UInt64>(value + offset);
        if ((flags & (kAudioFormatFlagIsAlignedHigh | kAudioFormatFlagIsPacked)) || (bits == 20 && bytes == 3))
            word <<= 8 * bytes - bits;
        for (UInt32 i = 0; i < bytes; ++i)
            out.push_back(static_cast<UInt8>(word >> 8 * (flags & kAudioFormatFlagIsBigEndian ? bytes - 1 - i : i)));
    }
};

std::vector<Layout> allLayouts()
{
    std::vector<Layout> layouts;
    for (UInt32 bits = 1; bits <= 32; ++bits)
        for (UInt32 bytes = (bits + 7) / 8; bytes <= 4; ++bytes)
            for (AudioFormatFlags order : {0u, kAudioFormatFlagIsBigEndian})
                for (AudioFormatFlags sign : {0u, kAudioFormatFlagIsSignedInteger})
                    for (AudioFormatFlags place : {0u, kAudioFormatFlagIsAlignedHigh, kAudioFormatFlagIsPacked})
                        if (place != kAudioFormatFlagIsPacked || bytes == (bits + 7) / 8)
                            layouts.push_back({bits, bytes, order | sign | place});
    return layouts;
}

/// Steps of `bits` bits on and beside every corner; 19 of them, so that vector code and its remainder both run.
std::vector<Float64> cornerSteps(UInt32 bits)
{
    const Float64 full = std::ldexp(1, static_cast<int>(bits) - 1);
    return {NAN,      HUGE_VAL,   -HUGE_VAL, 0,     0.5,      1.5,       -0.5,     -1.5,        0.49, -0.51,
            full - 1, full - 0.5, full,      -full, 1 - full, -full - 1, 3 * full, -7e4 * full, NAN};
}

SInt64 expectedStep(Float64 step, UInt32 bits)
{
    const Float64 full = std::ldexp(1, static_cast<int>(bits) - 1);
    return std::isnan(step) ? 0 : std::llrint(std::clamp(step, -full, full - 1));
}

template <class Float> void checkCorners(const Layout& layout)
{
    std::vector<Float> input;
    std::vector<UInt8> expected;
    for (const Float64 step : cornerSteps(layout.bits)) {
        input.push_back(static_cast<Float>(std::ldexp(step, 1 - static_cast<int>(layout.bits))));
        layout.write(expectedStep(step, layout.bits), expected);
    }
    EXPECT_EQ(expected, converted<UInt8>(pcm(8 * sizeof(Float), nativeFloat), layout.description(), input))
        << layout.bits << " bits in " << layout.bytes << ", flags " << layout.flags;
}

} // namespace

TEST(SampleKernels, EveryIntegerLayoutRoundsAndSaturatesAtItsCorners)
{
    for (const Layout& layout : allLayouts()) {
        checkCorners<Float64>(layout);
        if (layout.bits <= 22) // more bits beside full scale than a single-precision float can distinguish
            checkCorners<Float32>(layout);
    }
}

TEST(SampleKernels, EveryIntegerLayoutGivesItsValuesBackThroughEveryWiderForm)
{
    std::mt19937 random(1);
    for (const Layout& layout : allLayouts()) {
        const SInt64 full = SInt64{1} << (layout.bits - 1);
        std::uniform_int_distribution<SInt64> anyStep(-full, full - 1);
        std::vector<UInt8> bytes;
        std::vector<Float64> numbers;
        for (int i = 0; i < 33; ++i) {
            const SInt64 step = i == 0 ? -full : i == 1 ? full - 1 : anyStep(random);
            layout.write(step, bytes);
            numbers.push_back(static_cast<Float64>(step) / static_cast<Float64>(full));
        }
        const auto format = layout.description();
        ASSERT_EQ(numbers, converted<Float64>(format, pcm(64, nativeFloat), bytes)) << layout.bits << layout.flags;
        std::vector<AudioStreamBasicDescription> wider{pcm(64, nativeFloat | kAudioFormatFlagIsBigEndian),
                                                       pcm(32, nativeSigned), pcm(32, kAudioFormatFlagIsPacked)};
        if (layout.bits <= 24)
            wider.push_back(pcm(32, nativeFloat));
        for (const auto& wide : wider)
            ASSERT_EQ(bytes, converted<UInt8>(wide, format, converted<UInt8>(format, wide, bytes)))
                << layout.bits << " bits in " << layout.bytes << ", flags " << layout.flags << " by way of "
                << wide.mBitsPerChannel;
    }
}

TEST(SampleKernels, BitsBelowTheSignificantOnesAreKept)
{
    const std::vector<SInt16> samples{0x1239, -0x1239, 0x7FFF, -1};
    const std::vector<SInt32> wide{0x12390000, -0x12390000, 0x7FFF0000, -0x10000};
    const auto highTwelve = kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsAlignedHigh;
    EXPECT_EQ(wide, converted<SInt32>(pcm(12, highTwelve, 1, 44100, 2), pcm(32, nativeSigned), samples));
    const std::vector<UInt8> bytes{0x12, 0x34, 0x5F, 0xED, 0xCB, 0xAF};
    EXPECT_EQ((std::vector<SInt32>{0x12345F00, -0x12345100}),
              converted<SInt32>(pcm(20, nativeSigned | kAudioFormatFlagIsBigEndian), pcm(32, nativeSigned), bytes));
}

TEST(SampleKernels, NarrowerIntegersAreRoundedToTheNearestEvenAndSaturated)
{
    const std::vector<SInt32> wide{0x00017FFF, 0x00018000, 0x00018001, 0x00028000,     -0x8000,
                                   -0x8001,    0x7FFFFFFF, 0x7FFF8000, -0x7FFFFFFF - 1};
    const std::vector<SInt16> narrow{1, 2, 2, 2, 0, -1, 32767, 32767, -32768};
    EXPECT_EQ(narrow, converted<SInt16>(pcm(32, nativeSigned), pcm(16, nativeSigned), wide));
}

TEST(SampleKernels, TheSameFormatAndItsSwappedTwinKeepEveryBit)
{
    std::mt19937 random(2);
    std::vector<UInt8> bytes(24 * 21);
    std::ranges::generate(bytes, [&] { return static_cast<UInt8>(random()); }); // signalling NaNs among them
    for (const UInt32 bits : {16u, 20u, 24u, 32u, 64u})
        for (const AudioFormatFlags flags : {nativeSigned, nativeFloat}) {
            if (flags == nativeFloat ? bits < 32 : bits > 32)
                continue;
            const auto format = pcm(bits, flags), swapped = pcm(bits, flags | kAudioFormatFlagIsBigEndian);
            EXPECT_EQ(bytes, converted<UInt8>(format, format, bytes));
            const auto reversed = converted<UInt8>(format, swapped, bytes);
            EXPECT_EQ(bytes[0], reversed[format.mBytesPerFrame - 1]) << bits;
            EXPECT_EQ(bytes, converted<UInt8>(swapped, format, reversed)) << bits;
        }
}

TEST(SampleKernels, CompandedCodesMeanTheirReferenceValuesAndAreChosenWithinHalfAStep)
{
    struct Reference {
        AudioFormatID id;
        UInt8 codeOf1000;
        std::vector<std::pair<UInt8, SInt16>> values;
    };
    const Reference references[] = {
        {kAudioFormatULaw,
         0xCE,
         {{0x00, -32124}, {0x80, 32124}, {0xFF, 0}, {0x7F, 0}, {0xF0, 120}, {0xEF, 132}, {0x0F, -16764}}},
        {kAudioFormatALaw, 0xFA, {{0xD5, 8}, {0x55, -8}, {0xAA, 32256}, {0x2A, -32256}, {0xD4, 24}, {0x80, 5504}}}};
    std::vector<UInt8> codes(256);
    std::vector<SInt16> samples(65536);
    std::iota(samples.begin(), samples.end(), SInt16{-32768});
    std::iota(codes.begin(), codes.end(), UInt8{0});
    for (const Reference& reference : references) {
        const AudioStreamBasicDescription companded{44100, reference.id, 0, 1, 1, 1, 1, 8, 0};
        const auto linear = pcm(16, nativeSigned);
        const auto values = converted<SInt16>(companded, linear, codes);
        for (const auto& [code, value] : reference.values)
            EXPECT_EQ(value, values[code]) << "code " << int{code};
        const auto chosen = converted<UInt8>(linear, companded, samples);
        for (std::size_t i = 0; i < samples.size(); ++i) {
            const int value = values[chosen[i]], halfStep = std::max(8, (std::abs(value) + 132) / 33);
            ASSERT_LE(std::abs(value - samples[i]), halfStep) << "sample " << samples[i];
        }
        EXPECT_EQ(reference.codeOf1000, chosen[32768 + 1000]);
        EXPECT_EQ(values, converted<SInt16>(companded, linear, converted<UInt8>(linear, companded, values)));
    }
}
