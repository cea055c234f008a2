// SPDX-License-Identifier: MIT
// Sample values: rounding, saturation and every layout, against straightforward reference code.
#include "AudioToolbox/Conversion/SampleKernels.h"
#include "platform/AudioToolbox/Conversion/Conversions.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <limits>
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

/// What a conversion writes from anywhere to anywhere; what surrounds it is kept.
template <class Kernel>
std::vector<std::byte> written(const Kernel& kernel, const std::vector<std::byte>& in, std::size_t skipped,
                               std::size_t count)
{
    const std::vector<std::byte> exact(in); // ends with its memory
    std::vector<std::byte> out(8 + 8 * count + 8, std::byte{0x5A});
    kernel(exact.data() + skipped, out.data() + skipped % 4, count);
    return out;
}

/// That this processor's kernels do what the plain ones do, for every length and alignment.
template <class MakeKernel>
void expectOneResult(MakeKernel make, std::size_t bytes, const std::function<void(std::vector<std::byte>&)>& fill)
{
    const auto kernel = make(qmx::Instructions::available), plain = make(qmx::Instructions::baseline);
    for (std::size_t count = 0; count <= 70; ++count)
        for (const std::size_t skipped : {0U, 1U, 2U, 3U}) {
            std::vector<std::byte> in(bytes * count);
            fill(in);
            in.insert(in.begin(), skipped, std::byte{0});
            ASSERT_EQ(written(plain, in, skipped, count), written(kernel, in, skipped, count)) << count << " samples";
        }
}

/// Numbers on and between steps of `bits` bits, in and out of their range; from the 33rd on also those that are none or
/// far too large, as a group without them takes a way of its own.
template <class T> void fillWithNumbers(std::vector<std::byte>& bytes, UInt32 bits, std::mt19937& random)
{
    for (std::size_t i = 0; i < bytes.size() / sizeof(T); ++i) {
        const auto steps = static_cast<SInt32>(static_cast<UInt32>(random()));
        T value = static_cast<T>(steps);
        if constexpr (std::integral<T>) {
            if (bits < 32 && i % 3 == 0) // halfway
                value = static_cast<T>((static_cast<UInt32>(steps) >> (32 - bits) << (32 - bits)) +
                                       (UInt32{1} << (31 - bits)));
        } else {
            constexpr T special[] = {static_cast<T>(NAN),
                                     std::numeric_limits<T>::infinity(),
                                     -std::numeric_limits<T>::infinity(),
                                     1,
                                     -1,
                                     T{0x1p30}};
            const T halves = std::round(value * std::ldexp(T{1}, static_cast<int>(bits) - 30));
            value =
                i >= 32 && i % 7 == 3 ? special[i % std::size(special)] : std::ldexp(halves, -static_cast<int>(bits));
        }
        std::memcpy(bytes.data() + i * sizeof(T), &value, sizeof value);
    }
}

template <class T> void expectOneResultWith(const qmx::SampleFormat& format)
{
    std::mt19937 random(format.bits);
    const auto fillWithBytes = [&](std::vector<std::byte>& bytes) {
        std::ranges::generate(bytes, [&] { return static_cast<std::byte>(random()); });
    };
    const auto decoder = [&](qmx::Instructions instructions) { return qmx::SampleDecoder<T>(format, instructions); };
    const auto encoder = [&](qmx::Instructions instructions) { return qmx::SampleEncoder<T>(format, instructions); };
    expectOneResult(decoder, format.bytes, fillWithBytes);
    if (sizeof(T) == 8 || std::integral<T> || format.bits <= 24) // others take the way of doubles
        expectOneResult(encoder, sizeof(T), [&](auto& bytes) { fillWithNumbers<T>(bytes, format.bits, random); });
}

} // namespace

// a machine runs one set of them; the other is compared with it here
TEST(SampleKernels, GiveTheSameOnEveryProcessor)
{
    for (const Layout& layout : allLayouts()) {
        if (layout.bits % 8 > 1) // no other path
            continue;
        const auto format = qmx::PcmLayout::of(layout.description())->sample;
        expectOneResultWith<SInt32>(format);
        expectOneResultWith<Float32>(format);
        expectOneResultWith<Float64>(format);
        if (testing::Test::HasFatalFailure())
            FAIL() << layout.bits << " bits in " << layout.bytes << ", flags " << layout.flags;
    }
    for (const UInt32 bytes : {2U, 3U, 4U, 8U})
        expectOneResult([=](qmx::Instructions instructions) { return qmx::SampleSwapper(bytes, instructions); }, bytes,
                        [](std::vector<std::byte>& in) {
                            for (std::size_t i = 0; i < in.size(); ++i)
                                in[i] = static_cast<std::byte>(i);
                        });
}

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
