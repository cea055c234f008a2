// SPDX-License-Identifier: MIT
// The service from a caller's view: what is refused, which sizes are reported, and how data are pulled.
#include "platform/AudioToolbox/Conversion/Conversions.h"
#include "support/ShortMemory.h"
#include "support/Slices.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numeric>

using namespace qmx::test;

namespace
{

/// Supplies mono floats in pieces of its own choice, whatever is requested.
struct Giver {
    std::vector<Float32> data;
    std::vector<UInt32> pieces;
    OSStatus statusAtEnd = noErr;
    std::size_t given = 0, calls = 0;

    OSStatus fill(const Conversion& conversion, UInt32& packets, AudioBufferList* list)
    {
        return AudioConverterFillComplexBuffer(conversion.ref, give, this, &packets, list, nullptr);
    }
    static OSStatus give(AudioConverterRef, UInt32* packets, AudioBufferList* list, AudioStreamPacketDescription**,
                         void* self)
    {
        auto& giver = *static_cast<Giver*>(self);
        const std::size_t left = giver.data.size() - giver.given;
        const UInt32 piece = giver.pieces.empty() ? *packets : giver.pieces[giver.calls % giver.pieces.size()];
        ++giver.calls;
        *packets = static_cast<UInt32>(std::min<std::size_t>(piece, left));
        list->mBuffers[0].mData = giver.data.data() + giver.given;
        list->mBuffers[0].mDataByteSize = *packets * 4;
        giver.given += *packets;
        return *packets == 0 ? giver.statusAtEnd : noErr;
    }
};

std::vector<Float32> ramp(std::size_t frames)
{
    std::vector<Float32> data(frames);
    std::iota(data.begin(), data.end(), 1.0F);
    return data;
}

/// Everything that can be pulled, in requests of `packets`.
std::vector<Float32> pulled(const Conversion& conversion, Giver giver, UInt32 packets)
{
    std::vector<Float32> all, block(packets);
    while (true) {
        UInt32 count = packets;
        AudioBufferList list{1, {{1, packets * 4, block.data()}}};
        EXPECT_EQ(noErr, giver.fill(conversion, count, &list));
        EXPECT_EQ(count * 4, list.mBuffers[0].mDataByteSize);
        all.insert(all.end(), block.begin(), block.begin() + count);
        if (count == 0)
            return all;
    }
}

} // namespace

TEST(AudioConverter, WhatCannotBeConvertedIsRefused)
{
    const auto good = pcm(16, nativeSigned, 2);
    std::vector<AudioStreamBasicDescription> bad;
    for (const UInt32 channels : {0u, 1025u})
        bad.push_back(pcm(16, nativeSigned, channels));
    for (const UInt32 bits : {0u, 33u, 0xFFFFFFFFu})
        bad.push_back(pcm(bits, nativeSigned));
    for (const Float64 rate : {0.0, -1.0, 10e6 + 1, HUGE_VAL, static_cast<Float64>(NAN), 1.0 /* too far from 44100 */})
        bad.push_back(pcm(16, nativeSigned, 2, rate));
    bad.push_back(pcm(24, nativeFloat));
    bad.push_back(pcm(24, kAudioFormatFlagIsSignedInteger, 1, 44100, 2));
    bad.push_back({44100, kAudioFormatLinearPCM, kAudioFormatFlagIsSignedInteger, 5, 1, 5, 2, 16, 0});
    bad.push_back({8000, kAudioFormatAMR, 0, 0, 160, 0, 1, 0, 0});
    for (const auto& format : bad) {
        auto* converter = reinterpret_cast<AudioConverterRef>(&bad);
        EXPECT_EQ(kAudioConverterErr_FormatNotSupported, AudioConverterNew(&good, &format, &converter));
        EXPECT_EQ(nullptr, converter);
        EXPECT_EQ(kAudioConverterErr_FormatNotSupported, AudioConverterNew(&format, &good, &converter));
    }
}

TEST(AudioConverter, SizesAreExactAtEqualRatesAndThoseOfPackedFormatsFollowFromChannelsAndBits)
{
    auto source = pcm(16, nativeSigned, 2); // became mono, byte counts left as they were
    source.mChannelsPerFrame = 1;
    EXPECT_EQ((std::vector<Float32>{0.5F, 0.5F}),
              converted<Float32>(source, pcm(32, nativeFloat, 2), std::vector<SInt16>{16384}));

    Conversion conversion(pcm(16, nativeSigned, 2), pcm(32, nativeFloat | split, 3));
    EXPECT_EQ(4u, conversion.get(kAudioConverterPropertyMinimumInputBufferSize));
    EXPECT_EQ(12u, conversion.get(kAudioConverterPropertyMinimumOutputBufferSize));
    EXPECT_EQ(1200u, conversion.get(kAudioConverterPropertyCalculateOutputBufferSize, 400));
    EXPECT_EQ(400u, conversion.get(kAudioConverterPropertyCalculateInputBufferSize, 1211));

    std::vector<Byte> input(400), output(1200, 0xEE);
    UInt32 room = 1199;
    const auto convert = [&](UInt32 inputSize) {
        return AudioConverterConvertBuffer(conversion.ref, inputSize, input.data(), &room, output.data());
    };
    EXPECT_EQ(kAudioConverterErr_InvalidOutputSize, convert(400));
    EXPECT_EQ(kAudioConverterErr_InvalidInputSize, convert(399));
    EXPECT_EQ(0xEE, output[0]);
    EXPECT_EQ(noErr, convert(0));
    EXPECT_EQ(0u, room);
}

TEST(AudioConverter, PullingGivesTheSameStreamWhateverPiecesTheInputComesIn)
{
    const auto mono = pcm(32, nativeFloat);
    for (const Float64 rate : {44100.0, 48000.0, 22050.0}) {
        const auto target = pcm(32, nativeFloat, 1, rate);
        Conversion whole(mono, target);
        auto expected = whole.operator()<Float32>(ramp(3001));
        append(expected, whole.drained<Float32>());
        for (const auto& pieces : std::vector<std::vector<UInt32>>{{}, {1}, {7, 500}, {3000}})
            for (const UInt32 request : {1u, 127u, 5000u}) {
                const auto output = pulled(Conversion(mono, target), {ramp(3001), pieces}, request);
                EXPECT_EQ(expected, output) << rate << " in requests of " << request;
            }
    }
}

TEST(AudioConverter, PullingAsksForNoMoreThanItNeedsAndStaysInsideTheBuffers)
{
    Conversion conversion(pcm(32, nativeFloat), pcm(16, nativeSigned | split, 2));
    Giver giver{std::vector<Float32>(100, 0.5F), {}};
    std::vector<SInt16> samples(2 * 12);
    BufferList output(pcm(16, nativeSigned | split, 2), reinterpret_cast<std::byte*>(samples.data()), 12, 0, 12);
    output.buffer(0).mDataByteSize = 21;
    UInt32 packets = 12;
    ASSERT_EQ(noErr, giver.fill(conversion, packets, output.list()));
    EXPECT_EQ(10u, packets); // 21 bytes hold 10 samples
    EXPECT_EQ(10u, giver.given);
    EXPECT_EQ(20u, output.buffer(1).mDataByteSize);
    EXPECT_EQ(16384, samples[12 + 9]);
    EXPECT_EQ(0, samples[12 + 10]);

    output.buffer(0).mDataByteSize = 1;
    EXPECT_EQ(kAudioConverterErr_InvalidOutputSize, giver.fill(conversion, packets, output.list()));
}

TEST(AudioConverter, AFailingInputPassesItsStatusOnWithWhatCameBefore)
{
    for (const Float64 rate : {44100.0, 88200.0}) {
        Conversion conversion(pcm(32, nativeFloat), pcm(32, nativeFloat, 1, rate));
        conversion.set(kAudioConverterSampleRateConverterQuality, 0);
        Giver giver{ramp(500), {100}, -1234};
        std::vector<Float32> block(4000);
        AudioBufferList list{1, {{1, 16000, block.data()}}};
        UInt32 packets = 4000;
        EXPECT_EQ(-1234, giver.fill(conversion, packets, &list));
        EXPECT_NEAR(500 * rate / 44100, packets, 20);
        EXPECT_EQ(packets * 4, list.mBuffers[0].mDataByteSize);
    }
}

TEST(AudioConverter, MemoryThatRunsOutIsAStatus)
{
    const auto source = pcm(32, nativeFloat, 2), target = pcm(16, nativeSigned, 2, 48000);
    const std::vector<Float32> input(2000, 0.5F);
    withEveryAllocationFailing([&](ShortMemory& memory) {
        AudioConverterRef converter = nullptr;
        const auto succeed = [&](const auto& call) { EXPECT_EQ(memory.atLast(call), noErr); };
        succeed([&] { return AudioConverterNew(&source, &target, &converter); });
        const UInt32 quality = 127;
        const std::array<SInt32, 2> map{1, 0};
        succeed([&] {
            return AudioConverterSetProperty(converter, kAudioConverterSampleRateConverterQuality, sizeof quality,
                                             &quality);
        });
        succeed(
            [&] { return AudioConverterSetProperty(converter, kAudioConverterChannelMap, sizeof map, map.data()); });
        std::vector<SInt16> output(4000);
        succeed([&] {
            auto size = static_cast<UInt32>(output.size() * sizeof(SInt16));
            return AudioConverterConvertBuffer(converter, 8000, input.data(), &size, output.data());
        });
        succeed([&] { return AudioConverterReset(converter); });
        EXPECT_EQ(AudioConverterDispose(converter), noErr);
    });
}
