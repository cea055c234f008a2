// SPDX-License-Identifier: MIT
#include "AudioUnit/Units/DeviceOutput.h"

#include "AudioToolbox/AUGraph.h"
#include "Processing/QMXAudioUnit.h"
#include "support/Hardware.h"
#include "support/Units.h"

#include <cmath>
#include <gmock/gmock.h>
#include <numbers>
#include <thread>

using namespace qmx::test;
using testing::Each;
using testing::ElementsAre;

namespace
{

/// One channel of a sine of 1 kHz at the client's rate.
struct Sine {
    Float64 rate;
    static OSStatus give(void* refCon, AudioUnitRenderActionFlags*, const AudioTimeStamp* time, UInt32, UInt32 frames,
                         AudioBufferList* data)
    {
        const Float64 step = 2000 * std::numbers::pi / static_cast<Sine*>(refCon)->rate;
        for (UInt32 i = 0; i < frames; ++i)
            static_cast<Float32*>(data->mBuffers[0].mData)[i] =
                static_cast<Float32>(0.5 * std::sin(step * (time->mSampleTime + i)));
        return noErr;
    }
};

/// What of `samples` is not a sine of 1 kHz, relative to it, in dB.
Float64 residue(std::span<const Float32> samples, Float64 rate)
{
    Float64 a = 0, b = 0, power = 0, rest = 0;
    const auto n = static_cast<Float64>(samples.size()); // whole periods
    const auto angle = [rate](std::size_t i) { return 2000 * std::numbers::pi / rate * static_cast<Float64>(i); };
    for (std::size_t i = 0; i < samples.size(); ++i) {
        a += samples[i] * std::sin(angle(i)) * 2 / n;
        b += samples[i] * std::cos(angle(i)) * 2 / n;
    }
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const Float64 sine = a * std::sin(angle(i)) + b * std::cos(angle(i));
        power += sine * sine;
        rest += (samples[i] - sine) * (samples[i] - sine);
    }
    return 10 * std::log10(rest / power);
}

class DeviceOutput : public HardwareTest
{
protected:
    DeviceOutput()
    {
        device = add("first", 0, 2);
        setInput(unit, counter.callback());
        AudioUnitAddPropertyListener(unit, kAudioOutputUnitProperty_IsRunning, hear, this);
    }
    ~DeviceOutput() override { unit.close(); }
    static void setInput(AudioUnit to, const AURenderCallbackStruct& callback)
    {
        set(to, kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Input, callback);
    }
    template <class T> static OSStatus set(AudioUnit to, AudioUnitPropertyID property, AudioUnitScope scope, const T& v)
    {
        return qmx::test::set(to, property, scope, v);
    }
    OSStatus nameDevice(AudioDeviceID id)
    {
        return set(unit, kAudioOutputUnitProperty_CurrentDevice, kAudioUnitScope_Global, id);
    }
    bool isRunning()
    {
        hardware.settle();
        return qmx::test::get<UInt32>(unit, kAudioOutputUnitProperty_IsRunning, kAudioUnitScope_Global) != 0;
    }
    /// What `id` is given in its next cycles, interleaved.
    std::vector<Float32> played(AudioDeviceID id, UInt32 cycles = 1, UInt32 channels = 2)
    {
        hardware.captureOutput(id, std::size_t{cycles} * 512 * channels);
        hardware.advanceCycles(id, cycles);
        return hardware.capturedOutput(id);
    }
    static void hear(void* self, AudioUnit, AudioUnitPropertyID, AudioUnitScope, AudioUnitElement)
    {
        ++static_cast<DeviceOutput*>(self)->changes;
    }

    OpenUnit unit{defaultOutput};
    Counter counter;
    AudioDeviceID device = 0;
    std::atomic<int> changes = 0;
};

} // namespace

TEST_F(DeviceOutput, GivesEachStreamItsChannelsBitForBit)
{
    hardware.change(device, [](qmx::DeviceDescription& d) {
        d.output.streams.resize(2, d.output.streams[0]);
        d.output.streams[0].channels = 1;
    });
    AUGraph graph = nullptr;
    AUNode node = 0, upstreamNode = 0;
    AudioUnit output = nullptr, upstream = nullptr;
    NewAUGraph(&graph);
    AUGraphNewNode(graph, &defaultOutput, 0, nullptr, &node);
    AUGraphNewNode(graph, &converterUnit, 0, nullptr, &upstreamNode);
    AUGraphOpen(graph);
    AUGraphConnectNodeInput(graph, upstreamNode, 0, node, 0);
    AUGraphGetNodeInfo(graph, upstreamNode, nullptr, nullptr, nullptr, &upstream);
    AUGraphGetNodeInfo(graph, node, nullptr, nullptr, nullptr, &output);
    set(output, kAudioUnitProperty_MaximumFramesPerSlice, kAudioUnitScope_Global, UInt32{200}); // cycles are split
    setInput(upstream, counter.callback());
    HardwareTest::set(device, 0, false, kAudioDevicePropertyNominalSampleRate, 48000.0); // a connection brings no rate
    counter.times.reserve(9);
    EXPECT_EQ(noErr, AUGraphInitialize(graph));
    EXPECT_EQ(noErr, AUGraphStart(graph));
    auto samples = played(device, 2, 3);
    ASSERT_EQ(2U * 512 * 3, samples.size());
    for (std::size_t i = 0; i < samples.size(); i += 3) // channels that are not rendered are silent
        ASSERT_THAT(std::vector(&samples[i], &samples[i] + 3),
                    ElementsAre(static_cast<Float32>(i / 3), static_cast<Float32>(i / 3) + 1000, 0));
    EXPECT_THAT(counter.times, ElementsAre(0, 200, 400, 512, 712, 912));
    EXPECT_EQ(
        3U, qmx::test::get<AudioStreamBasicDescription>(output, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Output)
                .mChannelsPerFrame);
    EXPECT_EQ(512U, qmx::test::get<UInt32>(output, kAudioDevicePropertyBufferFrameSize, kAudioUnitScope_Global));
    AUGraphStop(graph);
    EXPECT_FALSE(hardware.advanceCycles(device));
    DisposeAUGraph(graph);
}

TEST_F(DeviceOutput, ResamplesToTheDevicesRateAlsoWhenThatChanges)
{
    Sine sine{44100};
    set(unit, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input, linearFormat(32, 1, kAudioFormatFlagIsFloat));
    setInput(unit, {Sine::give, &sine});
    AudioUnitInitialize(unit);
    AudioOutputUnitStart(unit);
    const std::tuple<Float64, std::size_t, UInt32> settings[] = {
        {48000, 4800, 512}, {44100, 4410, 2048}, {96000, 9600, 1024}};
    for (const auto& [rate, frames, bufferFrames] : settings) {
        set(unit, kAudioDevicePropertyBufferFrameSize, kAudioUnitScope_Global, bufferFrames);
        HardwareTest::set(device, 0, false, kAudioDevicePropertyNominalSampleRate, rate);
        ASSERT_TRUE(isRunning());
        hardware.advanceCycles(device, 10); // the filter's beginning
        const auto stereo = played(device, 20);
        std::vector<Float32> left(frames);
        for (std::size_t i = 0; i < frames; ++i)
            left[i] = stereo[2 * i];
        EXPECT_LT(residue(left, rate), -100) << rate;
    }
}

TEST_F(DeviceOutput, StopsInsideItsCallbackWithoutTouchingOthers)
{
    OpenUnit other(defaultOutput);
    Counter otherCounter;
    setInput(other, otherCounter.callback());
    AudioUnitInitialize(other);
    AudioOutputUnitStart(other);
    AudioUnitInitialize(unit);
    AudioOutputUnitStart(unit);
    AudioUnitSetParameter(unit, kHALOutputParam_Volume, kAudioUnitScope_Global, 0, 0.5, 0);
    EXPECT_THAT(played(device), testing::Contains(1.5 * 511));
    counter.onGive = [&] {
        EXPECT_EQ(noErr, AudioOutputUnitStop(unit));
        EXPECT_EQ(kAudioUnitErr_CannotDoInCurrentContext, AudioOutputUnitStart(unit));
    };
    EXPECT_EQ(1023, played(device)[1022]); // of the other alone
    EXPECT_FALSE(isRunning());
    counter.onGive = [] { ADD_FAILURE() << "called after a stop"; };
    hardware.advanceCycles(device);
    AudioOutputUnitStop(other);
    EXPECT_FALSE(hardware.advanceCycles(device));

    // goes on where it was, and another unit's callback stops it as well as its own
    counter.onGive = nullptr;
    EXPECT_EQ(noErr, AudioOutputUnitStart(unit));
    EXPECT_EQ(0.5 * 1024, played(device)[0]);
    otherCounter.onGive = [&] { AudioOutputUnitStop(unit); };
    AudioOutputUnitStart(other);
    hardware.advanceCycles(device);
    EXPECT_FALSE(isRunning());
    EXPECT_EQ(noErr, AudioOutputUnitStart(unit));
    unit.close(); // while it runs
    hardware.advanceCycles(device);
}

TEST_F(DeviceOutput, StopsWithItsDeviceAndGoesOnWithTheNextOneNamed)
{
    EXPECT_EQ(kAudioHardwareBadDeviceError, nameDevice(add("input", 2, 0)));
    EXPECT_EQ(noErr, nameDevice(device));
    AudioUnitInitialize(unit);
    AudioOutputUnitStart(unit);
    hardware.advanceCycles(device);
    const AudioDeviceID second = add("second", 0, 2), third = add("third", 0, 2);
    changes = 0;
    hardware.removeDevice(device);
    EXPECT_FALSE(isRunning());
    EXPECT_EQ(1, changes);
    EXPECT_EQ(noErr, nameDevice(second));
    EXPECT_TRUE(isRunning());
    EXPECT_THAT(played(second), testing::Contains(512));         // goes on where it was
    EXPECT_EQ(kAudioHardwareBadDeviceError, nameDevice(device)); // refused: the old one goes on
    EXPECT_TRUE(isRunning());
    hardware.removeDevice(second);
    EXPECT_FALSE(isRunning());
    AudioOutputUnitStop(unit);
    EXPECT_EQ(noErr, nameDevice(third));
    EXPECT_FALSE(isRunning()); // was stopped meanwhile
}

TEST_F(DeviceOutput, FollowsTheDefaultOutputUnlessADeviceIsNamed)
{
    const auto wrapped = QMXAudioUnit::defaultOutputUnit();
    ASSERT_TRUE(wrapped);
    Counter other;
    setInput(wrapped->audioUnit(), other.callback());
    EXPECT_EQ(noErr, AudioOutputUnitStart(wrapped->audioUnit()));
    nameDevice(device);
    nameDevice(kAudioDeviceUnknown); // the default one again
    AudioUnitInitialize(unit);
    AudioOutputUnitStart(unit);
    const AudioDeviceID second = add("second", 0, 2);
    hardware.setDefaultDevice(kAudioHardwarePropertyDefaultOutputDevice, second);
    EXPECT_TRUE(isRunning());
    EXPECT_EQ(2, played(second)[2]); // both
    EXPECT_FALSE(hardware.advanceCycles(device));
    EXPECT_EQ(second,
              qmx::test::get<AudioDeviceID>(unit, kAudioOutputUnitProperty_CurrentDevice, kAudioUnitScope_Global));
    changes = 0;
    hardware.removeDevice(second);
    hardware.removeDevice(device);
    EXPECT_FALSE(isRunning());
    const AudioDeviceID third = add("third", 0, 2);
    EXPECT_TRUE(isRunning());
    EXPECT_EQ(0, changes % 2); // every stop and start was told
    EXPECT_THAT(played(third), testing::Not(Each(0)));
    EXPECT_EQ(noErr, AudioOutputUnitStop(wrapped->audioUnit()));
}

TEST_F(DeviceOutput, StandsStartsStopsAndDevicesFromAllSides)
{
    const AudioDeviceID second = add("second", 0, 1);
    AudioUnitInitialize(unit);
    hardware.setTime(qmx::VirtualTime::fast);
    const auto often = [](const auto& act) {
        return std::thread([act] {
            for (int i = 0; i < 200; ++i)
                act(i);
        });
    };
    std::thread threads[] = {
        often([&](int) { AudioOutputUnitStart(unit); }),
        often([&](int) { AudioOutputUnitStop(unit); }),
        often([&](int i) {
            nameDevice(i % 3 == 0 ? kAudioDeviceUnknown : i % 3 == 1 ? device : second);
        }),
        often([&](int i) {
            HardwareTest::set(device, 0, false, kAudioDevicePropertyNominalSampleRate, i % 2 ? 48000.0 : 44100.0);
            hardware.setDefaultDevice(kAudioHardwarePropertyDefaultOutputDevice, i % 2 ? device : second);
        }),
    };
    for (std::thread& thread : threads)
        thread.join();
    hardware.setTime(qmx::VirtualTime::manual);
    EXPECT_EQ(noErr, AudioOutputUnitStop(unit));
    EXPECT_FALSE(isRunning());
    EXPECT_FALSE(hardware.advanceCycles(device) || hardware.advanceCycles(second)); // nothing was left running
    EXPECT_EQ(noErr, nameDevice(device));
    EXPECT_EQ(noErr, AudioOutputUnitStart(unit));
    EXPECT_THAT(played(device), testing::Not(Each(0)));
}
