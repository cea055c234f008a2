// SPDX-License-Identifier: MIT
// Formats and whole-buffer conversions in few words.
#pragma once

#include "AudioToolbox/AudioConverter.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

namespace qmx::test
{

inline constexpr AudioFormatFlags nativeFloat = kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked;
inline constexpr AudioFormatFlags nativeSigned = kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsPacked;
inline constexpr AudioFormatFlags split = kAudioFormatFlagIsNonInterleaved;

/// Linear PCM; without `sampleBytes` as many as the bits take.
inline AudioStreamBasicDescription pcm(UInt32 bits, AudioFormatFlags flags, UInt32 channels = 1, Float64 rate = 44100,
                                       UInt32 sampleBytes = 0)
{
    const UInt32 samples = flags & split ? 1 : channels;
    const UInt32 frameBytes = (sampleBytes ? sampleBytes : (bits + 7) / 8) * samples;
    return {rate, kAudioFormatLinearPCM, flags, frameBytes, 1, frameBytes, channels, bits, 0};
}

template <class T> void append(std::vector<T>& all, const std::vector<T>& more)
{
    all.insert(all.end(), more.begin(), more.end());
}

/// A converter, disposed of at the end.
class Conversion
{
public:
    Conversion(const AudioStreamBasicDescription& source, const AudioStreamBasicDescription& target)
    {
        EXPECT_EQ(noErr, AudioConverterNew(&source, &target, &ref));
    }
    ~Conversion() { EXPECT_EQ(AudioConverterDispose(ref), noErr); }
    Conversion(const Conversion&) = delete;
    Conversion& operator=(const Conversion&) = delete;

    UInt32 get(AudioConverterPropertyID property, UInt32 value = 0) const
    {
        UInt32 size = sizeof value;
        EXPECT_EQ(noErr, AudioConverterGetProperty(ref, property, &size, &value));
        return value;
    }
    OSStatus set(AudioConverterPropertyID property, UInt32 value)
    {
        return AudioConverterSetProperty(ref, property, sizeof value, &value);
    }

    /// The output of one call with just the room that the converter asks for.
    template <class Out, class In> std::vector<Out> operator()(const std::vector<In>& input)
    {
        const auto inputBytes = static_cast<UInt32>(input.size() * sizeof(In));
        return call<Out>(inputBytes, input.data(), get(kAudioConverterPropertyCalculateOutputBufferSize, inputBytes));
    }
    /// All that the filter still holds.
    template <class Out> std::vector<Out> drained()
    {
        std::vector<Out> all, part;
        while (!(part = call<Out>(0, nullptr, 800)).empty())
            append(all, part);
        return all;
    }

    AudioConverterRef ref = nullptr;

private:
    template <class Out> std::vector<Out> call(UInt32 inputBytes, const void* input, UInt32 room)
    {
        std::vector<Out> output((room + sizeof(Out) - 1) / sizeof(Out) + 1);
        EXPECT_EQ(noErr, AudioConverterConvertBuffer(ref, inputBytes, input, &room, output.data()));
        output.resize(room / sizeof(Out));
        return output;
    }
};

template <class Out, class In>
std::vector<Out> converted(const AudioStreamBasicDescription& source, const AudioStreamBasicDescription& target,
                           const std::vector<In>& input)
{
    return Conversion(source, target).operator()<Out>(input);
}

} // namespace qmx::test
