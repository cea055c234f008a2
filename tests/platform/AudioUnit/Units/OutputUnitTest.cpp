// SPDX-License-Identifier: MIT
#include "AudioUnit/Units/OutputUnit.h"

#include "CoreAudio/VirtualHardware.h"
#include "Foundation/RealTime.h"
#include "support/Units.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <limits>

using namespace qmx::test;
using testing::Each;
using testing::ElementsAre;

namespace
{

/// A device of 48 kHz mono whose cycles the test drives.
class Device : public qmx::OutputHardware
{
public:
    OSStatus examine(AudioDeviceID id, qmx::OutputDevice& found) const override
    {
        found = {id, 48000, 1};
        return noErr;
    }
    void name(AudioDeviceID) override {}
    AudioDeviceID device() const override { return 256; }
    OSStatus start(const qmx::OutputDevice& device, std::shared_ptr<qmx::OutputClient> by, UInt32) override
    {
        layout = {{.coding = qmx::SampleCoding::floating, .bytes = 4, .bits = 32}, device.channels, true};
        client = by.get();
        return refusal;
    }
    void stop() noexcept override { ++stops; }
    void waitUntilStopped() override { ++waits; }
    OSStatus propertyInfo(AudioDevicePropertyID, UInt32*, Boolean*) const override { return noErr; }
    OSStatus read(AudioDevicePropertyID, UInt32&, void*) const override { return noErr; }
    OSStatus write(AudioDevicePropertyID, UInt32, const void*) override { return noErr; }

    qmx::OutputClient* client = nullptr;
    qmx::PcmLayout layout;
    OSStatus refusal = noErr;
    int stops = 0, waits = 0;
};

constexpr qmx::UnitPropertyAddress inputFormat{kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input, 0};
constexpr qmx::UnitPropertyAddress currentDevice{kAudioOutputUnitProperty_CurrentDevice, kAudioUnitScope_Global, 0};
constexpr qmx::UnitPropertyAddress callback{kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Input, 0};

} // namespace

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
              AudioHardwareGetPropertyInfo(kAudioHardwarePropertyDevices, &size, nullptr)); // which is this one
    EXPECT_EQ(kAudioHardwareBadDeviceError,
              set(unit, kAudioOutputUnitProperty_CurrentDevice, kAudioUnitScope_Global, UInt32{256}));
    EXPECT_EQ(0U, get<UInt32>(unit, kAudioOutputUnitProperty_CurrentDevice, kAudioUnitScope_Global));
    EXPECT_EQ(kAudioHardwareBadDeviceError, AudioOutputUnitStart(unit));
    EXPECT_EQ(0U, get<UInt32>(unit, kAudioOutputUnitProperty_IsRunning, kAudioUnitScope_Global));
    EXPECT_EQ(noErr, AudioOutputUnitStop(unit));
}

TEST(OutputUnit, PlaysOnItsDeviceUntilItIsStopped)
{
    auto owned = std::make_unique<Device>();
    Device& device = *owned;
    const auto made = std::make_shared<qmx::OutputUnit>(std::move(owned));
    qmx::OutputUnit& unit = *made;
    const UInt32 number = 256;
    EXPECT_EQ(noErr, unit.setProperty(currentDevice, &number, sizeof number));
    AudioStreamBasicDescription format;
    UInt32 size = sizeof format;
    unit.property(inputFormat, &format, size);
    EXPECT_EQ(48000, format.mSampleRate); // the device's, because one was named before initialising
    format = linearFormat(32, 1, kAudioFormatFlagIsFloat, 48000);
    unit.setProperty(inputFormat, &format, sizeof format);

    Counter counter;
    const auto input = counter.callback();
    unit.setProperty(callback, &input, sizeof input);
    EXPECT_EQ(noErr, unit.initialise());
    device.refusal = kAudioHardwareNotRunningError;
    EXPECT_EQ(kAudioHardwareNotRunningError, unit.start());
    EXPECT_FALSE(unit.isRunning());
    device.refusal = noErr;
    EXPECT_EQ(noErr, unit.start());
    EXPECT_TRUE(unit.isRunning());

    std::vector<Float32> samples(4);
    const auto cycle = [&] {
        std::ranges::fill(samples, 0.0F); // as cycles come
        BufferList list(samples, 1);
        const qmx::RealTimeScope scope;
        device.client->renderCycle({}, 4, device.layout, *list.list());
    };
    unit.setParameter(kHALOutputParam_Volume, kAudioUnitScope_Global, 0.5);
    cycle();
    EXPECT_THAT(samples, ElementsAre(0, 0.5, 1, 1.5));

    // a stop inside the callback waits for nothing, and silences its slice and all that follow
    const int waits = device.waits;
    counter.onGive = [&] { unit.stop(); };
    cycle();
    EXPECT_THAT(samples, Each(0));
    EXPECT_FALSE(unit.isRunning());
    EXPECT_EQ(waits, device.waits);
    counter.onGive = [] { ADD_FAILURE() << "called after a stop"; };
    cycle();
    EXPECT_THAT(samples, Each(0));
    EXPECT_EQ(noErr, unit.start());
    EXPECT_EQ(waits + 1, device.waits);
    unit.close();
    EXPECT_FALSE(unit.isRunning());
}
