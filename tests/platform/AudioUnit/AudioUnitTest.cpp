// SPDX-License-Identifier: MIT
#include "AudioUnit/AudioUnit.h"

#include "Foundation/RealTime.h"
#include "support/Units.h"

#include <gmock/gmock.h>

#include <atomic>
#include <thread>

using namespace qmx::test;
using testing::Each;
using testing::ElementsAre;

namespace
{

/// A converter unit between canonical formats, with counting input.
class AudioUnits : public testing::Test
{
protected:
    AudioUnits()
    {
        counter.times.reserve(16);
        unit.setInput(counter.callback());
    }

    Counter counter;
    OpenUnit unit{converterUnit};
    std::vector<Float32> samples = std::vector<Float32>(8);
};

} // namespace

TEST_F(AudioUnits, FillBuffersAsFarAsTheyReach)
{
    BufferList stereo(samples, 2), mono(samples, 1), four(samples, 4);
    EXPECT_EQ(kAudioUnitErr_Uninitialized, render(unit, 4, stereo));
    ASSERT_EQ(noErr, AudioUnitInitialize(unit));
    EXPECT_EQ(noErr, render(unit, 4, stereo));
    EXPECT_THAT(samples, ElementsAre(0, 1, 2, 3, 1000, 1001, 1002, 1003));
    // fewer buffers than channels, then more, then smaller ones, then buffers without data
    EXPECT_EQ(noErr, render(unit, 4, mono));
    EXPECT_THAT(samples, ElementsAre(4, 5, 6, 7, 1000, 1001, 1002, 1003));
    EXPECT_EQ(noErr, render(unit, 2, four));
    EXPECT_THAT(samples, ElementsAre(8, 9, 1008, 1009, 0, 0, 0, 0));
    stereo.buffer(1).mDataByteSize = 9;
    EXPECT_EQ(noErr, render(unit, 4, stereo));
    EXPECT_EQ(8U, stereo.buffer(0).mDataByteSize);
    EXPECT_THAT(samples, ElementsAre(10, 11, 1008, 1009, 1010, 1011, 0, 0));
    stereo.buffer(0) = stereo.buffer(1) = {1, 0, nullptr};
    EXPECT_EQ(noErr, render(unit, 4, stereo));
    EXPECT_EQ(16U, stereo.buffer(1).mDataByteSize);
    EXPECT_EQ(1012.0F, static_cast<Float32*>(stereo.buffer(1).mData)[0]);
    EXPECT_THAT(counter.times, ElementsAre(0, 4, 8, 10, 12));

    EXPECT_EQ(noErr, AudioUnitReset(unit, kAudioUnitScope_Global, 0));
    EXPECT_EQ(noErr, render(unit, 2, stereo));
    EXPECT_EQ(0, counter.times.back());
}

TEST_F(AudioUnits, FailuresOfInputAreSilenceAndAreRemembered)
{
    EXPECT_EQ(AudioUnitInitialize(unit), noErr);
    BufferList list(samples, 2);
    counter.result = -1;
    samples.assign(8, 9);
    EXPECT_EQ(-1, render(unit, 4, list));
    EXPECT_THAT(samples, Each(0));
    EXPECT_EQ(-1, unit.get<OSStatus>(kAudioUnitProperty_LastRenderError, kAudioUnitScope_Global));
    EXPECT_EQ(noErr, unit.get<OSStatus>(kAudioUnitProperty_LastRenderError, kAudioUnitScope_Global));

    samples.assign(8, 9);
    unit.setInput(AURenderCallbackStruct{});
    EXPECT_EQ(kAudioUnitErr_NoConnection, render(unit, 4, list));
    EXPECT_THAT(samples, Each(0));
    EXPECT_EQ(kAudioUnitErr_TooManyFramesToProcess, render(unit, 4097, list));
    const AudioTimeStamp zero;
    EXPECT_EQ(kAudioUnitErr_InvalidElement, AudioUnitRender(unit, nullptr, &zero, 1, 4, list.list()));

    // a render inside the render's own callback
    counter.result = noErr;
    OSStatus inner = noErr;
    counter.onRender = [&] { inner = render(unit, 4, list); };
    unit.setInput(counter.callback());
    EXPECT_EQ(noErr, render(unit, 4, list));
    EXPECT_EQ(kAudioUnitErr_CannotDoInCurrentContext, inner);
}

TEST_F(AudioUnits, PropertiesAreCheckedBeforeTheyAreTaken)
{
    const auto setFrames = [&](UInt32 frames, AudioUnitScope scope = kAudioUnitScope_Global) {
        return unit.set(kAudioUnitProperty_MaximumFramesPerSlice, scope, frames);
    };
    EXPECT_EQ(noErr, setFrames(64));
    EXPECT_EQ(kAudioUnitErr_InvalidPropertyValue, setFrames(0));
    EXPECT_EQ(kAudioUnitErr_InvalidPropertyValue, setFrames(0xFFFFFFFF));
    EXPECT_EQ(kAudioUnitErr_InvalidScope, setFrames(64, kAudioUnitScope_Input));
    EXPECT_EQ(64U, unit.get<UInt32>(kAudioUnitProperty_MaximumFramesPerSlice, kAudioUnitScope_Global));
    EXPECT_EQ(kAudioUnitErr_InvalidPropertyValue,
              unit.set(kAudioUnitProperty_MaximumFramesPerSlice, kAudioUnitScope_Global, UInt64{64}));
    EXPECT_EQ(kAudioUnitErr_PropertyNotWritable,
              unit.set(kAudioUnitProperty_Latency, kAudioUnitScope_Global, Float64{1}));
    EXPECT_EQ(kAudioUnitErr_InvalidProperty, unit.set(9999, kAudioUnitScope_Global, 1));

    auto format = unit.get<AudioStreamBasicDescription>(kAudioUnitProperty_StreamFormat, kAudioUnitScope_Output);
    EXPECT_EQ(44100, format.mSampleRate);
    EXPECT_EQ(kAudioFormatFlagsAudioUnitCanonical, format.mFormatFlags);
    EXPECT_EQ(2U, format.mChannelsPerFrame);
    format.mFormatID = kAudioFormatMPEG4AAC;
    EXPECT_EQ(kAudioUnitErr_FormatNotSupported,
              unit.set(kAudioUnitProperty_StreamFormat, kAudioUnitScope_Output, format));
    EXPECT_EQ(kAudioUnitErr_InvalidElement,
              unit.set(kAudioUnitProperty_StreamFormat, kAudioUnitScope_Output, format, 1));
    EXPECT_EQ(kAudioUnitErr_InvalidScope, unit.set(kAudioUnitProperty_StreamFormat, kAudioUnitScope_Global, format));

    // while initialised a format that cannot be converted leaves the old one in use
    EXPECT_EQ(AudioUnitInitialize(unit), noErr);
    EXPECT_EQ(kAudioUnitErr_Initialized, setFrames(128));
    EXPECT_EQ(kAudioUnitErr_FormatNotSupported, unit.set(kAudioUnitProperty_SampleRate, kAudioUnitScope_Output, 15e6));
    EXPECT_EQ(kAudioUnitErr_FormatNotSupported, unit.set(kAudioUnitProperty_SampleRate, kAudioUnitScope_Output, 100.0));
    EXPECT_EQ(noErr, unit.set(kAudioUnitProperty_SampleRate, kAudioUnitScope_Output, 48000.0));
    EXPECT_EQ(48000, unit.get<Float64>(kAudioUnitProperty_SampleRate, kAudioUnitScope_Output));
    BufferList list(samples, 2);
    EXPECT_EQ(noErr, render(unit, 4, list));

    EXPECT_EQ(kAudio_ParamError, AudioUnitInitialize(nullptr));
    EXPECT_EQ(badComponentSelector, AudioOutputUnitStart(unit));
}

TEST_F(AudioUnits, AChannelMapSaysWhichInputFeedsWhichOutput)
{
    const SInt32 swapped[] = {1, -1}, unknown[] = {0, 2};
    EXPECT_EQ(noErr, unit.set(kAudioOutputUnitProperty_ChannelMap, kAudioUnitScope_Output, swapped));
    EXPECT_EQ(kAudioUnitErr_InvalidPropertyValue,
              unit.set(kAudioOutputUnitProperty_ChannelMap, kAudioUnitScope_Output, unknown));
    EXPECT_EQ(AudioUnitInitialize(unit), noErr);
    BufferList list(samples, 2);
    render(unit, 4, list);
    EXPECT_THAT(samples, ElementsAre(1000, 1001, 1002, 1003, 0, 0, 0, 0));
}

TEST_F(AudioUnits, ConnectionsHandTheFormatDownAndOutliveTheirSource)
{
    OpenUnit downstream(converterUnit);
    unit.set(kAudioUnitProperty_SampleRate, kAudioUnitScope_Output, 48000.0);
    const AudioUnitConnection connection{unit, 0, 0}, ring{downstream, 0, 0}, absent{unit, 1, 0};
    const auto connect = [](AudioUnit to, const AudioUnitConnection& value) {
        return set(to, kAudioUnitProperty_MakeConnection, kAudioUnitScope_Input, value);
    };
    std::vector<AudioUnitPropertyID> changed;
    const auto listener = [](void* refCon, AudioUnit, AudioUnitPropertyID property, AudioUnitScope, AudioUnitElement) {
        static_cast<std::vector<AudioUnitPropertyID>*>(refCon)->push_back(property);
    };
    EXPECT_EQ(AudioUnitAddPropertyListener(downstream, kAudioUnitProperty_StreamFormat, listener, &changed), noErr);
    EXPECT_EQ(noErr, connect(downstream, connection));
    EXPECT_EQ(48000, downstream.get<Float64>(kAudioUnitProperty_SampleRate, kAudioUnitScope_Input));
    EXPECT_THAT(changed, ElementsAre(kAudioUnitProperty_StreamFormat));
    EXPECT_EQ(AudioUnitRemovePropertyListener(downstream, kAudioUnitProperty_StreamFormat, listener), noErr);
    EXPECT_EQ(kAudioUnitErr_InvalidPropertyValue, connect(unit, ring));
    EXPECT_EQ(kAudioUnitErr_InvalidElement, connect(downstream, absent));

    downstream.set(kAudioUnitProperty_SampleRate, kAudioUnitScope_Output, 48000.0);
    unit.set(kAudioUnitProperty_SampleRate, kAudioUnitScope_Input, 48000.0);
    EXPECT_THAT(changed, ElementsAre(kAudioUnitProperty_StreamFormat));
    EXPECT_EQ(AudioUnitInitialize(downstream), noErr);
    BufferList list(samples, 2);
    EXPECT_EQ(kAudioUnitErr_Uninitialized, render(downstream, 4, list)); // upstream is not initialised
    EXPECT_EQ(AudioUnitInitialize(unit), noErr);
    EXPECT_EQ(noErr, render(downstream, 4, list));
    EXPECT_EQ(1003, samples[7]);
    // a layout that upstream does not render is not misread
    downstream.set(kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input,
                   linearFormat(16, 2, kAudioFormatFlagIsSignedInteger, 48000));
    EXPECT_EQ(kAudioUnitErr_FormatNotSupported, render(downstream, 4, list));
    EXPECT_THAT(samples, Each(0));
    unit.close();
    EXPECT_NE(noErr, render(downstream, 4, list));
}

TEST_F(AudioUnits, WhatARenderFollowsMayChangeWhileItRuns)
{
    EXPECT_EQ(AudioUnitInitialize(unit), noErr);
    std::atomic<bool> isDone = false;
    std::atomic<int> notified = 0;
    std::thread renderer([&] {
        std::vector<Float32> out(2 * 256);
        while (!isDone) {
            BufferList list(out, 2);
            const AudioTimeStamp zero;
            const qmx::RealTimeScope scope;
            (void)AudioUnitRender(unit, nullptr, &zero, 0, 256, list.list()); // fails while it is not initialised
        }
    });
    const auto notify = [](void* refCon, AudioUnitRenderActionFlags*, const AudioTimeStamp*, UInt32, UInt32,
                           AudioBufferList*) {
        ++*static_cast<std::atomic<int>*>(refCon);
        return noErr;
    };
    for (int i = 0; i < 50; ++i) {
        Counter shortLived; // a render that still used it after the change would read freed memory
        unit.setInput(shortLived.callback());
        EXPECT_EQ(AudioUnitAddRenderNotify(unit, notify, &notified), noErr);
        unit.set(kAudioUnitProperty_SampleRate, kAudioUnitScope_Output, i % 2 ? 44100.0 : 48000.0);
        EXPECT_EQ(AudioUnitReset(unit, kAudioUnitScope_Global, 0), noErr);
        EXPECT_EQ(AudioUnitRemoveRenderNotify(unit, notify, &notified), noErr);
        unit.setInput(counter.callback());
        if (i % 10 == 0) {
            EXPECT_EQ(AudioUnitUninitialize(unit), noErr);
            EXPECT_EQ(AudioUnitInitialize(unit), noErr);
        }
    }
    isDone = true;
    renderer.join();
}

TEST_F(AudioUnits, MayBeClosedInsideTheirCallback)
{
    EXPECT_EQ(AudioUnitInitialize(unit), noErr);
    BufferList list(samples, 2);
    counter.onRender = [this] { unit.close(); };
    EXPECT_EQ(noErr, render(unit, 4, list));
    EXPECT_EQ(1003, samples[7]);
}

TEST(Components, AreFoundByAnyPartOfTheirDescription)
{
    const ComponentDescription all{}, none{kAudioUnitType_Effect};
    EXPECT_EQ(4U, CountComponents(&all));
    EXPECT_EQ(nullptr, FindNextComponent(nullptr, &none));
    ComponentDescription found;
    EXPECT_EQ(noErr, GetComponentInfo(FindNextComponent(nullptr, &converterUnit), &found));
    EXPECT_EQ(kAudioUnitSubType_AUConverter, found.componentSubType);
}
