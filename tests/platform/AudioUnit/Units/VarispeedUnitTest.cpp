// SPDX-License-Identifier: MIT
#include "Foundation/RealTime.h"
#include "support/ShortMemory.h"
#include "support/Units.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

using namespace qmx::test;

namespace
{

constexpr Float64 clientRate = 44100;
constexpr Float64 step = 2 * std::numbers::pi * 997 / clientRate; ///< of the tone's phase

class VarispeedUnit : public testing::Test
{
protected:
    VarispeedUnit()
    {
        slices.reserve(4096);
        const AURenderCallbackStruct callback{tone, this};
        EXPECT_EQ(noErr, set(unit, kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Input, callback));
        EXPECT_EQ(noErr, set(unit, kAudioUnitProperty_MaximumFramesPerSlice, kAudioUnitScope_Global, UInt32{512}));
    }

    /// A sine whose phase follows the input times.
    static OSStatus tone(void* self, AudioUnitRenderActionFlags*, const AudioTimeStamp* time, UInt32, UInt32 frames,
                         AudioBufferList* data)
    {
        auto& slices = static_cast<VarispeedUnit*>(self)->slices;
        if (slices.size() < slices.capacity())
            slices.emplace_back(time->mSampleTime, frames);
        AudioBuffer* const buffers = data->mBuffers;
        for (UInt32 i = 0; i < 2 * frames; ++i)
            static_cast<Float32*>(buffers[i / frames].mData)[i % frames] =
                static_cast<Float32>(0.5 * std::sin(step * (time->mSampleTime + i % frames)));
        return noErr;
    }
    OSStatus setRate(Float32 rate, AudioUnitParameterID id = kVarispeedParam_PlaybackRate)
    {
        return AudioUnitSetParameter(unit, id, kAudioUnitScope_Global, 0, rate, 0);
    }
    Float32 parameter(AudioUnitParameterID id)
    {
        Float32 value = 0;
        EXPECT_EQ(noErr, AudioUnitGetParameter(unit, id, kAudioUnitScope_Global, 0, &value));
        return value;
    }
    /// Renders slices of 512 frames in real time, one after the other, and adds the left channel to `played`.
    void play(int count)
    {
        std::vector<Float32> samples(std::size_t{2} * 512);
        for (int i = 0; i < count; ++i, nextTime += 512) {
            BufferList list(samples, 2);
            AudioTimeStamp time;
            time.mSampleTime = nextTime;
            time.mFlags = kAudioTimeStampSampleTimeValid;
            {
                const qmx::RealTimeScope realTime;
                EXPECT_EQ(noErr, AudioUnitRender(unit, nullptr, &time, 0, 512, list.list()));
            }
            played.insert(played.end(), samples.begin(), samples.begin() + 512);
        }
    }

    OpenUnit unit{varispeedUnit};
    std::vector<std::pair<Float64, UInt32>> slices; ///< asked for
    std::vector<Float64> played;
    Float64 nextTime = 1000;
};

} // namespace

TEST_F(VarispeedUnit, DelaysByItsLatencyAndAsksForWhatItMakesAtRateOne)
{
    ASSERT_EQ(noErr, AudioUnitInitialize(unit));
    const auto delay = get<Float64>(unit, kAudioUnitProperty_Latency, kAudioUnitScope_Global) * clientRate;
    EXPECT_NEAR(delay, std::round(delay), 1e-6);
    EXPECT_GT(delay, 32);
    play(20);
    for (std::size_t i = 2000; i < played.size(); ++i)
        ASSERT_NEAR(played[i], 0.5 * std::sin(step * (static_cast<Float64>(i) - delay)), 1e-6) << i;
    for (std::size_t i = 0; i < slices.size(); ++i)
        EXPECT_EQ(slices[i], std::pair(static_cast<Float64>(512 * i), 512U));
    nextTime += 300; // the device lost 300 frames
    play(1);
    EXPECT_EQ(slices.back().first, 512 * 20 + 300);
    ASSERT_EQ(noErr, AudioUnitReset(unit, kAudioUnitScope_Global, 0));
    play(1);
    EXPECT_EQ(played[std::size_t{512} * 21], 0);
    EXPECT_EQ(slices.back().first, 0);
}

TEST_F(VarispeedUnit, KeepsRateAndCentsInStepAndRefusesWhatIsNoRate)
{
    EXPECT_EQ(noErr, setRate(1200, kVarispeedParam_PlaybackCents));
    EXPECT_EQ(2, parameter(kVarispeedParam_PlaybackRate));
    EXPECT_EQ(noErr, setRate(100));
    EXPECT_EQ(32, parameter(kVarispeedParam_PlaybackRate));
    EXPECT_EQ(noErr, setRate(-1));
    for (const Float32 none : {std::numeric_limits<Float32>::quiet_NaN(), std::numeric_limits<Float32>::infinity()})
        EXPECT_EQ(kAudioUnitErr_InvalidParameter, setRate(none));
    EXPECT_EQ(1.0F / 32, parameter(kVarispeedParam_PlaybackRate));
    EXPECT_EQ(-6000, parameter(kVarispeedParam_PlaybackCents));

    // slow and fast, it asks for no empty slice and for no more than it may
    ASSERT_EQ(noErr, AudioUnitInitialize(unit));
    play(4);
    EXPECT_EQ(noErr, setRate(32));
    play(5);
    UInt32 pulled = 0;
    for (const auto& [time, frames] : slices) {
        EXPECT_EQ(time, pulled);
        EXPECT_TRUE(frames >= 1 && frames <= 512) << frames;
        pulled += frames;
    }
    EXPECT_GT(pulled, 3 * 32 * 512U); // the first two only get there
}

TEST_F(VarispeedUnit, ReportsShortMemory)
{
    EXPECT_EQ(noErr, set(unit, kAudioUnitProperty_RenderQuality, kAudioUnitScope_Global, UInt32{0})); // the quickest
    withEveryAllocationFailing([&](ShortMemory& memory) {
        const OSStatus status = memory.during([&] { return AudioUnitInitialize(unit); });
        EXPECT_EQ(memory.hasFailed() ? kAudio_MemFullError : noErr, status);
        EXPECT_EQ(noErr, AudioUnitUninitialize(unit));
    });
}

// What a step or a lost frame leaves stands far out of a slow sine's second differences.
TEST_F(VarispeedUnit, ChangesItsRateWithoutAClick)
{
    EXPECT_EQ(noErr, set(unit, kAudioUnitProperty_RenderQuality, kAudioUnitScope_Global, UInt32{127}));
    ASSERT_EQ(noErr, AudioUnitInitialize(unit));
    for (int i = 0; i < 40; ++i) {
        ASSERT_EQ(noErr, setRate(i % 2 == 0 ? 1.02F : 0.98F));
        play(1);
    }
    const Float64 steepest = 0.5 * std::pow(step * 1.02, 2);
    for (std::size_t i = 1000; i + 1 < played.size(); ++i)
        ASSERT_LT(std::abs(played[i - 1] - 2 * played[i] + played[i + 1]), steepest * 1.01) << i;
    EXPECT_GT(*std::max_element(played.begin(), played.end()), 0.49);
}
