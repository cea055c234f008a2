// SPDX-License-Identifier: MIT
#include "AudioUnit/Units/OutputUnit.h"

#include "CoreAudio/VirtualHardware.h"
#include "support/Units.h"

#include <gmock/gmock.h>

#include <limits>

using namespace qmx::test;
using testing::ElementsAre;

TEST(OutputUnit, NeedsNoDeviceUntilItIsStarted)
{
    auto& hardware = qmx::VirtualHardware::shared();
    hardware.reset();
    qmx::VirtualFault fault; // for the first call of the hardware layer
    fault.times = 1;
    hardware.addFault(fault);
    OpenUnit unit(defaultOutput);
    set(unit, kAudioUnitProperty_SampleRate, kAudioUnitScope_Input, 48000.0);
    EXPECT_EQ(48000, get<Float64>(unit, kAudioDevicePropertyNominalSampleRate, kAudioUnitScope_Input));
    EXPECT_EQ(48000, get<Float64>(unit, kAudioUnitProperty_SampleRate, kAudioUnitScope_Output));
    EXPECT_EQ(kAudioUnitErr_PropertyNotWritable,
              set(unit, kAudioUnitProperty_SampleRate, kAudioUnitScope_Output, 44100.0));
    EXPECT_EQ(noErr, AudioUnitSetParameter(unit, kHALOutputParam_Volume, kAudioUnitScope_Global, 0, 7, 0));
    Float32 volume = 0;
    EXPECT_EQ(noErr, AudioUnitGetParameter(unit, kHALOutputParam_Volume, kAudioUnitScope_Global, 0, &volume));
    EXPECT_EQ(1, volume);
    EXPECT_EQ(kAudioUnitErr_InvalidParameter,
              AudioUnitSetParameter(unit, kHALOutputParam_Volume, kAudioUnitScope_Global, 0,
                                    std::numeric_limits<Float32>::quiet_NaN(), 0));

    Counter counter;
    set(unit, kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Input, counter.callback());
    EXPECT_EQ(kAudioUnitErr_Uninitialized, AudioOutputUnitStart(unit));
    EXPECT_EQ(noErr, AudioUnitInitialize(unit));
    std::vector<Float32> samples(4);
    BufferList list(samples, 2);
    EXPECT_EQ(noErr, render(unit, 2, list));
    EXPECT_THAT(samples, ElementsAre(0, 1, 1000, 1001));
    UInt32 size = 0;
    EXPECT_EQ(kAudioHardwareUnspecifiedError,
              AudioHardwareGetPropertyInfo(kAudioHardwarePropertyDevices, &size, nullptr)); // the first call
    EXPECT_EQ(kAudioHardwareBadDeviceError,
              set(unit, kAudioOutputUnitProperty_CurrentDevice, kAudioUnitScope_Global, UInt32{256}));
    EXPECT_EQ(0U, get<UInt32>(unit, kAudioOutputUnitProperty_CurrentDevice, kAudioUnitScope_Global));
    EXPECT_EQ(kAudioHardwareBadDeviceError, AudioOutputUnitStart(unit));
    EXPECT_EQ(0U, get<UInt32>(unit, kAudioOutputUnitProperty_IsRunning, kAudioUnitScope_Global));
    EXPECT_EQ(noErr, AudioOutputUnitStop(unit));
}
