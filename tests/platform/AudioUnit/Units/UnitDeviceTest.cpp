// SPDX-License-Identifier: MIT
#include "AudioUnit/Units/UnitDevice.h"

#include "Processing/QMXAudioUnit.h"
#include "support/Hardware.h"
#include "support/Units.h"

#include <cmath>
#include <gmock/gmock.h>
#include <numbers>
#include <thread>

using namespace qmx::test;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;

namespace
{

/// One channel of a sine of 1 kHz at 44.1 kHz.
OSStatus renderSine(void*, AudioUnitRenderActionFlags*, const AudioTimeStamp* time, UInt32, UInt32 frames,
                    AudioBufferList* data)
{
    for (UInt32 i = 0; i < frames; ++i)
        static_cast<Float32*>(data->mBuffers[0].mData)[i] =
            static_cast<Float32>(0.5 * std::sin(2000 * std::numbers::pi / 44100 * (time->mSampleTime + i)));
    return noErr;
}

class UnitDevice : public HardwareTest
{
protected:
    UnitDevice()
    {
        device = add("first", 0, 2);
        unit.setInput(counter.callback());
        EXPECT_EQ(AudioUnitAddPropertyListener(unit, kAudioOutputUnitProperty_IsRunning, hear, this), noErr);
    }
    ~UnitDevice() override { unit.close(); }
    static void hear(void* self, AudioUnit, AudioUnitPropertyID, AudioUnitScope, AudioUnitElement)
    {
        ++static_cast<UnitDevice*>(self)->changes;
    }

    OpenUnit unit{defaultOutput};
    Counter counter;
    AudioDeviceID device = 0;
    std::atomic<int> changes = 0;
};

} // namespace

TEST_F(UnitDevice, GivesEachStreamItsChannelsBitForBit)
{
    EXPECT_EQ(noErr, hardware.change(device, [](qmx::DeviceDescription& d) {
        d.output.streams.resize(2, d.output.streams[0]);
        d.output.streams[0].channels = 1;
    }));
    OpenGraph graph;
    const AUNode node = graph.add(defaultOutput), upstream = graph.add(converterUnit);
    EXPECT_EQ(AUGraphOpen(graph), noErr);
    EXPECT_EQ(AUGraphConnectNodeInput(graph, upstream, 0, node, 0), noErr);
    constexpr UInt32 slice = 200; // cycles are split
    qmx::test::set(graph.unitOf(node), kAudioUnitProperty_MaximumFramesPerSlice, kAudioUnitScope_Global, slice);
    qmx::test::set(graph.unitOf(upstream), kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Input,
                   counter.callback());
    set(device, 0, false, kAudioDevicePropertyNominalSampleRate, 48000.0); // ignored by a connection
    counter.times.reserve(9);
    EXPECT_EQ(noErr, AUGraphInitialize(graph));
    EXPECT_EQ(noErr, AUGraphStart(graph));
    const auto samples = played(device, 2);
    ASSERT_EQ(2U * 512 * 3, samples.size());
    for (std::size_t i = 0; i < samples.size(); i += 3) // channels that are not rendered are silent
        ASSERT_THAT(std::vector(&samples[i], &samples[i] + 3),
                    ElementsAre(static_cast<Float32>(i / 3), static_cast<Float32>(i / 3) + 1000, 0));
    EXPECT_THAT(counter.times, ElementsAre(0, 200, 400, 512, 712, 912));
    EXPECT_EQ(AUGraphStop(graph), noErr);
    EXPECT_FALSE(hardware.advanceCycles(device));
}

TEST_F(UnitDevice, ResamplesToTheDevicesRateAlsoWhenThatChanges)
{
    unit.set(kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input, linearFormat(32, 1, kAudioFormatFlagIsFloat));
    unit.setInput({renderSine, nullptr});
    unit.start();
    const std::pair<Float64, UInt32> settings[] = {{48000, 512}, {44100, 2048}, {96000, 1024}};
    for (const auto& [rate, bufferFrames] : settings) {
        unit.set(kAudioDevicePropertyBufferFrameSize, kAudioUnitScope_Global, bufferFrames);
        set(device, 0, false, kAudioDevicePropertyNominalSampleRate, rate);
        ASSERT_TRUE(unit.isRunning());
        EXPECT_TRUE(hardware.advanceCycles(device, 10)); // the filter's start
        const auto stereo = played(device, 20);
        ASSERT_EQ(20U * 512 * 2, stereo.size());
        Float64 worst = 0; // deviation of the sum of a frame's neighbours from a sine's
        for (std::size_t i = 2; i + 2 < stereo.size(); ++i)
            worst = std::max(worst, std::abs(stereo[i - 2] + stereo[i + 2] -
                                             2 * std::cos(2000 * std::numbers::pi / rate) * stereo[i]));
        EXPECT_LT(worst, 0.5e-5) << rate; // -100 dB
        EXPECT_THAT(stereo, Contains(testing::Gt(0.49)));
    }
}

TEST_F(UnitDevice, StopsInsideItsCallbackWithoutTouchingOthers)
{
    OpenUnit other(defaultOutput);
    Counter otherCounter;
    other.setInput(otherCounter.callback());
    other.start();
    unit.start();
    EXPECT_EQ(AudioUnitSetParameter(unit, kHALOutputParam_Volume, kAudioUnitScope_Global, 0, 0.5, 0), noErr);
    EXPECT_THAT(played(device), Contains(1.5 * 511));
    counter.onRender = [&] {
        EXPECT_EQ(noErr, AudioOutputUnitStop(unit));
        EXPECT_EQ(kAudioUnitErr_CannotDoInCurrentContext, AudioOutputUnitStart(unit));
    };
    EXPECT_EQ(1023, played(device)[1022]); // the other unit alone
    EXPECT_FALSE(unit.isRunning());
    counter.onRender = [] { ADD_FAILURE() << "called after a stop"; };
    EXPECT_TRUE(hardware.advanceCycles(device));
    EXPECT_EQ(AudioOutputUnitStop(other), noErr);
    EXPECT_FALSE(hardware.advanceCycles(device));

    // it goes on where it was; another unit's callback can stop it, as its own can
    counter.onRender = nullptr;
    EXPECT_EQ(noErr, AudioOutputUnitStart(unit));
    EXPECT_EQ(0.5 * 1024, played(device)[0]);
    otherCounter.onRender = [&] { (void)AudioOutputUnitStop(unit); }; // whether it runs tells
    EXPECT_EQ(AudioOutputUnitStart(other), noErr);
    EXPECT_TRUE(hardware.advanceCycles(device));
    EXPECT_FALSE(unit.isRunning());
    EXPECT_EQ(noErr, AudioOutputUnitStart(unit));
    unit.close(); // while it runs
    EXPECT_TRUE(hardware.advanceCycles(device));
}

TEST_F(UnitDevice, StopsWithItsDeviceAndGoesOnWithTheNextOneNamed)
{
    EXPECT_EQ(kAudioHardwareBadDeviceError, unit.nameDevice(add("input", 2, 0)));
    EXPECT_EQ(noErr, unit.nameDevice(device));
    unit.start();
    EXPECT_TRUE(hardware.advanceCycles(device));
    const AudioDeviceID second = add("second", 0, 2), third = add("third", 0, 2);
    changes = 0;
    EXPECT_EQ(noErr, hardware.removeDevice(device));
    EXPECT_FALSE(unit.isRunning());
    EXPECT_EQ(1, changes);
    EXPECT_EQ(noErr, unit.nameDevice(second));
    EXPECT_TRUE(unit.isRunning());
    EXPECT_THAT(played(second), Contains(512));                       // goes on where it was
    EXPECT_EQ(kAudioHardwareBadDeviceError, unit.nameDevice(device)); // refused: the old one goes on
    EXPECT_TRUE(unit.isRunning());
    EXPECT_EQ(noErr, hardware.removeDevice(second));
    EXPECT_FALSE(unit.isRunning());
    EXPECT_EQ(AudioOutputUnitStop(unit), noErr);
    EXPECT_EQ(noErr, unit.nameDevice(third));
    EXPECT_FALSE(unit.isRunning()); // stopped meanwhile

    EXPECT_EQ(AudioUnitUninitialize(unit), noErr);
    set(third, 0, false, kAudioDevicePropertyNominalSampleRate, 48000.0);
    unit.nameDevice(third);
    EXPECT_EQ(48000, unit.get<Float64>(kAudioUnitProperty_SampleRate, kAudioUnitScope_Input));
    EXPECT_EQ(AudioUnitInitialize(unit), noErr);
    qmx::VirtualFault fault;
    fault.status = kAudioDevicePermissionsError;
    fault.operation = qmx::HardwareOperation::start;
    fault.times = 1;
    hardware.addFault(fault);
    EXPECT_EQ(fault.status, AudioOutputUnitStart(unit));
    EXPECT_FALSE(unit.isRunning());
    EXPECT_EQ(0U, get<UInt32>(third, 0, false, kAudioDevicePropertyDeviceIsRunning));

    // a device that is named while it runs, and cannot start, stays named until another one is
    EXPECT_EQ(noErr, AudioOutputUnitStart(unit));
    const AudioDeviceID fourth = add("fourth", 0, 2);
    hardware.addFault(fault);
    EXPECT_EQ(fault.status, unit.nameDevice(fourth));
    EXPECT_FALSE(unit.isRunning());
    EXPECT_EQ(fourth, unit.get<AudioDeviceID>(kAudioOutputUnitProperty_CurrentDevice, kAudioUnitScope_Global));
    EXPECT_EQ(noErr, unit.nameDevice(third));
    EXPECT_TRUE(unit.isRunning());
}

TEST_F(UnitDevice, FollowsTheDefaultOutputUnlessADeviceIsNamed)
{
    const auto wrapped = QMXAudioUnit::defaultOutputUnit();
    ASSERT_TRUE(wrapped);
    Counter other;
    qmx::test::set(wrapped->audioUnit(), kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Input, other.callback());
    EXPECT_EQ(noErr, AudioOutputUnitStart(wrapped->audioUnit()));
    unit.nameDevice(device);
    unit.nameDevice(kAudioDeviceUnknown); // the default one again
    unit.start();
    const AudioDeviceID second = add("second", 0, 2);
    EXPECT_EQ(noErr, hardware.setDefaultDevice(kAudioHardwarePropertyDefaultOutputDevice, second));
    EXPECT_TRUE(unit.isRunning());
    EXPECT_EQ(2, played(second)[2]); // both
    EXPECT_FALSE(hardware.advanceCycles(device));
    EXPECT_EQ(second, unit.get<AudioDeviceID>(kAudioOutputUnitProperty_CurrentDevice, kAudioUnitScope_Global));
    changes = 0;
    EXPECT_EQ(noErr, hardware.removeDevice(second));
    EXPECT_EQ(noErr, hardware.removeDevice(device));
    EXPECT_FALSE(unit.isRunning());
    const AudioDeviceID third = add("third", 0, 2);
    EXPECT_TRUE(unit.isRunning());
    EXPECT_EQ(0, changes % 2); // every stop and start was reported
    EXPECT_THAT(played(third), testing::Not(Each(0)));
    EXPECT_EQ(noErr, AudioOutputUnitStop(wrapped->audioUnit()));
}

TEST_F(UnitDevice, StandsStartsStopsAndDevicesFromAllSides)
{
    const AudioDeviceID second = add("second", 0, 1);
    EXPECT_EQ(AudioUnitInitialize(unit), noErr);
    hardware.setTime(qmx::VirtualTime::fast);
    const auto often = [](const auto& act) {
        return std::thread([act] {
            for (int i = 0; i < 200; ++i)
                act(i);
        });
    };
    std::thread threads[] = {
        often([&](int) { (void)AudioOutputUnitStart(unit); }),
        often([&](int) { (void)AudioOutputUnitStop(unit); }),
        often([&](int i) {
            unit.nameDevice(i % 3 == 0 ? kAudioDeviceUnknown : i % 3 == 1 ? device : second);
        }),
        often([&](int i) {
            set(device, 0, false, kAudioDevicePropertyNominalSampleRate, i % 2 ? 48000.0 : 44100.0);
            EXPECT_EQ(noErr,
                      hardware.setDefaultDevice(kAudioHardwarePropertyDefaultOutputDevice, i % 2 ? device : second));
        }),
    };
    for (std::thread& thread : threads)
        thread.join();
    hardware.setTime(qmx::VirtualTime::manual);
    EXPECT_EQ(noErr, AudioOutputUnitStop(unit));
    EXPECT_FALSE(unit.isRunning());
    EXPECT_FALSE(hardware.advanceCycles(device) || hardware.advanceCycles(second)); // nothing was left running
}
