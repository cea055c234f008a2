// SPDX-License-Identifier: MIT
// Rate conversion as units render it: purity, level and alignment against the ideal sound, at ratios that stand and
// that move.
#include "Foundation/RealTime.h"
#include "support/Units.h"

#include <algorithm>
#include <cmath>
#include <numbers>

using namespace qmx::test;

namespace
{

constexpr Float64 turn = 2 * std::numbers::pi;
constexpr UInt32 sliceFrames = 512, channels = 3;
using Sound = std::function<Float64(Float64)>; ///< by time in input frames

/// A unit whose input is a sound, in each channel a little softer.
class Rendering
{
public:
    Rendering(const ComponentDescription& kind, Float64 from, Float64 to, UInt32 quality, const Sound& sound)
        : unit_(kind), sound_(sound)
    {
        constexpr AudioFormatFlags floats = kAudioFormatFlagIsFloat | kAudioFormatFlagIsNonInterleaved;
        const auto in = linearFormat(32, channels, floats, from), out = linearFormat(32, channels, floats, to);
        EXPECT_EQ(noErr, unit_.set(kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input, in));
        EXPECT_EQ(noErr, unit_.set(kAudioUnitProperty_StreamFormat, kAudioUnitScope_Output, out));
        EXPECT_EQ(noErr, unit_.set(kAudioUnitProperty_RenderQuality, kAudioUnitScope_Global, quality));
        EXPECT_EQ(noErr, unit_.set(kAudioUnitProperty_MaximumFramesPerSlice, kAudioUnitScope_Global, sliceFrames));
        unit_.setInput({[](void* self, AudioUnitRenderActionFlags*, const AudioTimeStamp* time, UInt32, UInt32 frames,
                           AudioBufferList* data) {
                            static_cast<Rendering*>(self)->give(time->mSampleTime, frames, data->mBuffers);
                            return noErr;
                        },
                        this});
        EXPECT_EQ(noErr, AudioUnitInitialize(unit_));
    }

    /// In input frames.
    Float64 delay() const
    {
        return unit_.get<Float64>(kAudioUnitProperty_Latency, kAudioUnitScope_Global) *
               unit_.get<AudioStreamBasicDescription>(kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input)
                   .mSampleRate;
    }
    void setPlaybackRate(Float64 rate)
    {
        EXPECT_EQ(noErr, AudioUnitSetParameter(unit_, kVarispeedParam_PlaybackRate, kAudioUnitScope_Global, 0,
                                               static_cast<Float32>(rate), 0));
    }
    /// The last channel at its full level.
    std::vector<Float64> render(UInt32 frames)
    {
        std::vector<Float32> samples(std::size_t{channels} * frames);
        BufferList list(samples, channels);
        const AudioTimeStamp time;
        {
            const qmx::RealTimeScope realTime;
            EXPECT_EQ(noErr, AudioUnitRender(unit_, nullptr, &time, 0, frames, list.list()));
        }
        std::vector<Float64> last(samples.end() - frames, samples.end());
        Float64 difference = 0;
        for (UInt32 i = 0; i < frames; ++i) {
            last[i] *= channels;
            difference = std::max(difference, std::abs(last[i] - Float64{samples[i]}));
        }
        EXPECT_LT(difference, 2e-6);
        return last;
    }
    UInt32 pulled() const { return pulled_; }

private:
    void give(Float64 time, UInt32 frames, AudioBuffer* buffers)
    {
        pulled_ += frames;
        for (UInt32 i = 0; i < frames; ++i) {
            const Float64 value = sound_(time + i);
            for (UInt32 channel = 0; channel < channels; ++channel)
                static_cast<Float32*>(buffers[channel].mData)[i] = static_cast<Float32>(value / (channel + 1));
        }
    }

    OpenUnit unit_;
    Sound sound_;
    UInt32 pulled_ = 0;
};

Sound tone(Float64 frequency, Float64 rate)
{
    return [=](Float64 time) { return std::sin(turn * frequency / rate * time + 1); };
}

/// What deviates from a full-scale tone, in dB of it.
class Deviation
{
public:
    void add(Float64 error) { sum_ += 2 * error * error, ++count_; }
    Float64 decibels() const { return 10 * std::log10(sum_ / count_ + 1e-30); }

private:
    Float64 sum_ = 0;
    int count_ = 0;
};

/// From where the filter has left the silence before the input.
constexpr std::size_t settled = 1024;

Float64 deviationOf(Float64 from, Float64 to, UInt32 quality, Float64 frequency, bool isToPass = true)
{
    const Sound sound = tone(frequency, from);
    Rendering rendering(converterUnit, from, to, quality, sound);
    Deviation deviation;
    for (std::size_t at = 0; at < 8 * settled; at += sliceFrames) {
        const auto slice = rendering.render(sliceFrames);
        for (std::size_t i = 0; i < sliceFrames && at >= settled; ++i)
            deviation.add(slice[i] - (isToPass ? sound(static_cast<Float64>(at + i) * from / to) : 0));
    }
    return deviation.decibels();
}

/// Plays 20 slices whose rates alternate around `middle`.
Float64 deviationWhileMoving(Float64 middle, Float64 part, Float64 frequency)
{
    const Sound sound = tone(frequency, 1);
    Rendering rendering(varispeedUnit, 44100, 44100, 127, sound);
    Deviation deviation;
    Float64 position = -rendering.delay(), ratio = 0;
    for (int slice = 0; slice < 20; ++slice) {
        const auto rate = static_cast<Float32>(middle * (1 + (slice % 2 == 0 ? part : -part)));
        rendering.setPlaybackRate(rate);
        const Float64 last = slice == 0 ? 1 / Float64{rate} : ratio;
        const auto samples = rendering.render(sliceFrames);
        for (UInt32 i = 0; i < sliceFrames; ++i, position += 1 / ratio) {
            if (position > settled)
                deviation.add(samples[i] - sound(position));
            ratio = last + (1 / Float64{rate} - last) * (i + 1) / sliceFrames;
        }
    }
    return deviation.decibels();
}

} // namespace

TEST(VariableRateConverter, KeepsTonesInLevelAndPlaceAndSuppressesTheRest)
{
    EXPECT_LT(deviationOf(44100, 48000, 127, 20000), -135);
    EXPECT_LT(deviationOf(48000, 44100, 96, 20000), -135);
    EXPECT_LT(deviationOf(96000, 44100, 96, 20000), -135);
    EXPECT_LT(deviationOf(44100, 48000.1, 96, 20000), -135); // no ratio of small numbers
    EXPECT_LT(deviationOf(96000, 44100, 96, 22400, false), -135);
    EXPECT_LT(deviationOf(44100, 48000, 64, 19000), -118);
    EXPECT_LT(deviationOf(96000, 44100, 64, 22400, false), -118);
    EXPECT_LT(deviationOf(44100, 48000, 0, 17000), -98);
    EXPECT_LT(deviationOf(96000, 44100, 0, 22400, false), -98);
}

TEST(VariableRateConverter, KeepsTonesWhileTheRatioMoves)
{
    EXPECT_LT(deviationWhileMoving(1, 0.02, 20000.0 / 44100), -120);
    EXPECT_LT(deviationWhileMoving(44100.0 / 48000, 0.01, 20000.0 / 44100), -120);
    EXPECT_LT(deviationWhileMoving(1, 0.06, 0.43), -120);  // to where the filters begin to be mixed
    EXPECT_LT(deviationWhileMoving(2.1, 0.2, 0.17), -120); // over many cut-offs
    EXPECT_LT(deviationWhileMoving(0.3, 0.05, 0.45), -120);
}

TEST(VariableRateConverter, KeepsSilenceAndAConstantFromEndToEndOfItsRange)
{
    for (const Float64 level : {0.0, 1.0}) {
        Rendering rendering(varispeedUnit, 44100, 44100, 127, [level](Float64) { return level; });
        rendering.setPlaybackRate(32);
        rendering.render(sliceFrames); // the longest filter has left the silence before the input
        for (const Float64 rate : {1.0, 32.0, 1.0 / 32, 0.3, 7.7}) {
            rendering.setPlaybackRate(rate);
            for (const Float64 sample : rendering.render(sliceFrames))
                ASSERT_NEAR(level, sample, level * 1e-6) << rate;
        }
    }
}

// numbers near the smallest take processors a hundred times as long, and a slice would come too late
TEST(VariableRateConverter, TakesWhatFadedAwayForSilence)
{
    const auto render = [](Float64 level) {
        Rendering rendering(converterUnit, 44100, 48000, 127, [level](Float64) { return level; });
        rendering.render(sliceFrames);
        return rendering.render(sliceFrames);
    };
    for (const Float64 level : {1e-21, 1e-36, 1e-40})
        EXPECT_EQ(std::vector<Float64>(sliceFrames), render(level)) << level;
    for (const Float64 sample : render(1e-15))
        ASSERT_NEAR(1e-15, sample, 1e-20);
}

// the products of an output frame are as many as the frames it lies amidst
TEST(VariableRateConverter, TakesForFastPlaybackNoMoreProductsThanTheRateSays)
{
    constexpr Float64 fastest = 32;
    Rendering rendering(varispeedUnit, 44100, 44100, 127, tone(0.001, 1));
    rendering.setPlaybackRate(fastest);
    const Float64 atRateOne = 2 * rendering.delay();
    rendering.render(1);
    const Float64 lookAhead = rendering.delay() + rendering.pulled();
    EXPECT_LE(2 * lookAhead, atRateOne * fastest * 1.07 + fastest);
    EXPECT_GE(2 * lookAhead, atRateOne * fastest);
}
