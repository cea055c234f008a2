// SPDX-License-Identifier: MIT
#include "CoreAudioTypes/AudioChannelLayout.h"
#include "platform/AudioToolbox/Conversion/Conversions.h"

#include <limits>

using namespace qmx::test;
using Samples = std::vector<SInt16>;

namespace
{

Samples between(UInt32 inputs, UInt32 outputs, const Samples& input, AudioFormatFlags from = 0, AudioFormatFlags to = 0)
{
    return converted<SInt16>(pcm(16, nativeSigned | from, inputs), pcm(16, nativeSigned | to, outputs), input);
}

} // namespace

TEST(ChannelMixer, OneFeedsAllManyBecomeTheMeanAndTheRestGoStraight)
{
    EXPECT_EQ((Samples{5, 5, 5, -6, -6, -6}), between(1, 3, {5, -6}));
    EXPECT_EQ((Samples{15, 0, -32768}), between(2, 1, {10, 20, 32767, -32767, -32768, -32768}));
    EXPECT_EQ((Samples{2, 2}), between(3, 1, {1, 2, 3, 0, 0, 5})); // 1.67 to the nearest
    EXPECT_EQ((Samples{1, 2, 0, 0, 3, 4, 0, 0}), between(2, 4, {1, 2, 3, 4}));
    EXPECT_EQ((Samples{1, 2, 5, 6}), between(4, 2, {1, 2, 3, 4, 5, 6, 7, 8}));

    Samples channels(30000); // the same before a rate conversion
    for (std::size_t i = 0; i < channels.size(); ++i)
        channels[i] = i % 3 == 2 ? 300 : 0;
    const auto source = pcm(16, nativeSigned, 3), target = pcm(16, nativeSigned, 1, 22050);
    EXPECT_EQ(100, converted<SInt16>(source, target, channels).at(2000));
}

TEST(ChannelMixer, SeparateBuffersLieChannelAfterChannel)
{
    EXPECT_EQ((Samples{1, 3, 5, 2, 4, 6}), between(2, 2, {1, 2, 3, 4, 5, 6}, 0, split));
    EXPECT_EQ((Samples{1, 2, 3, 4, 5, 6}), between(2, 2, {1, 3, 5, 2, 4, 6}, split, 0));
    EXPECT_EQ((Samples{1, 3, 2, 4, 0, 0}), between(2, 3, {1, 2, 3, 4}, 0, split));
    EXPECT_EQ((Samples{2, 3}), between(2, 1, {1, 2, 3, 4}, split, 0));

    Samples interleaved(2 * 5000), planes(2 * 5000); // more than any inner block
    for (std::size_t frame = 0; frame < 5000; ++frame)
        for (std::size_t channel = 0; channel < 2; ++channel)
            interleaved[frame * 2 + channel] = planes[channel * 5000 + frame] =
                static_cast<SInt16>(frame * (channel + 1));
    EXPECT_EQ(planes, between(2, 2, interleaved, 0, split));
    EXPECT_EQ(interleaved, between(2, 2, planes, split, 0));
}

TEST(ChannelMixer, AMapOverridesTheRules)
{
    for (const Float64 rate : {44100.0, 22050.0}) {
        Conversion conversion(pcm(32, nativeFloat, 2), pcm(32, nativeFloat | split, 3, rate));
        const SInt32 map[] = {1, -1, 0}, unknown[] = {2, 0, 0};
        EXPECT_EQ(kAudio_ParamError,
                  AudioConverterSetProperty(conversion.ref, kAudioConverterChannelMap, sizeof unknown, unknown));
        EXPECT_EQ(kAudioConverterErr_BadPropertySizeError,
                  AudioConverterSetProperty(conversion.ref, kAudioConverterChannelMap, 8, map));
        ASSERT_EQ(noErr, AudioConverterSetProperty(conversion.ref, kAudioConverterChannelMap, sizeof map, map));
        std::vector<Float32> input(8000, 0.25F);
        for (std::size_t frame = 0; frame < 4000; ++frame)
            input[frame * 2 + 1] = -0.5F;
        const auto output = conversion.operator()<Float32>(input);
        const std::size_t frames = output.size() / 3, middle = frames / 2;
        EXPECT_NEAR(-0.5, output[middle], 1e-6);
        EXPECT_EQ(0, output[frames + middle]);
        EXPECT_NEAR(0.25, output[2 * frames + middle], 1e-6);
    }
}

TEST(ChannelMixer, ExtremeSamplesFoldedDownReachTheEndsAndNoFurther)
{
    const auto fold = [](AudioChannelLayoutTag tag, auto extreme) {
        using Sample = decltype(extreme);
        const UInt32 channels = AudioChannelLayoutTag_GetNumberOfChannels(tag);
        Conversion conversion(pcm(8 * sizeof(Sample), nativeSigned, channels),
                              pcm(8 * sizeof(Sample), nativeSigned, 2));
        for (const auto& [property, layoutTag] :
             {std::pair{kAudioConverterInputChannelLayout, tag},
              std::pair{kAudioConverterOutputChannelLayout, kAudioChannelLayoutTag_Stereo}}) {
            AudioChannelLayout layout;
            layout.mChannelLayoutTag = layoutTag;
            EXPECT_EQ(noErr, AudioConverterSetProperty(conversion.ref, property, sizeof layout, &layout));
        }
        return conversion.operator()<Sample>(std::vector<Sample>(channels * std::size_t{3}, extreme));
    };
    for (const AudioChannelLayoutTag tag :
         {kAudioChannelLayoutTag_MPEG_3_0_A, kAudioChannelLayoutTag_MPEG_4_0_A, kAudioChannelLayoutTag_MPEG_5_0_A,
          kAudioChannelLayoutTag_MPEG_5_1_A, kAudioChannelLayoutTag_MPEG_6_1_A, kAudioChannelLayoutTag_MPEG_7_1_A}) {
        for (const SInt16 extreme : {std::numeric_limits<SInt16>::min(), std::numeric_limits<SInt16>::max()})
            EXPECT_EQ(fold(tag, extreme), Samples(6, extreme));
        for (const SInt32 extreme : {std::numeric_limits<SInt32>::min(), std::numeric_limits<SInt32>::max()})
            EXPECT_EQ(fold(tag, extreme), std::vector<SInt32>(6, extreme));
    }
}
