// SPDX-License-Identifier: MIT
#include "PlayThru/AudioDevice.h"
#include "PlayThru/AudioDeviceList.h"
#include "support/VirtualDevices.h"

using AudioDeviceRecords = qmx::test::VirtualDevices;

TEST_F(AudioDeviceRecords, HoldOneSideOfADeviceAndTheListOfDevices)
{
    auto description = hardware.standardDevice("a", "Six in, " + std::string(80, 'x'), 6, 0);
    description.input.safetyOffset = 24;
    const AudioDeviceID id = hardware.addDevice(description);
    add("out", 0, 2);
    AudioDevice device;
    EXPECT_EQ(noErr, device.Init(id, true));
    EXPECT_EQ(6, device.CountChannels());
    EXPECT_EQ(24U, device.mSafetyFrames);
    EXPECT_EQ(44100, device.mStreamFormat.mSampleRate);
    EXPECT_EQ(noErr, device.SetBufferSize(256));
    EXPECT_EQ(256U, device.mBufferFrames);
    char name[8];
    EXPECT_STREQ("Six in,", device.GetName(name, sizeof name));
    EXPECT_EQ('S', *device.GetName(name, 0)); // untouched

    AudioDeviceList inputs(true);
    ASSERT_EQ(1U, inputs.GetList().size());
    EXPECT_EQ(id, inputs.GetList()[0].mID);
    EXPECT_EQ("Six in, " + std::string(55, 'x'), inputs.GetList()[0].mName);
    ASSERT_EQ(1U, AudioDeviceList(false).GetList().size());
    news(); // else the registry's own read may be the one that fails, after which it keeps its lock
    hardware.addFault(qmx::test::failing(qmx::HardwareOperation::getProperty, kAudioHardwarePropertyDevices, 1));
    inputs.BuildList();
    EXPECT_TRUE(inputs.GetList().empty());

    ASSERT_EQ(noErr, hardware.removeDevice(id));
    EXPECT_EQ(kAudioHardwareBadDeviceError, device.Init(id, true));
    EXPECT_EQ(0U, device.mBufferFrames);
    EXPECT_EQ(0, device.CountChannels());
    EXPECT_STREQ("", device.GetName(name, sizeof name));
}
