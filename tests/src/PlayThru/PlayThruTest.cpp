// SPDX-License-Identifier: MIT
#include "PlayThru/PlayThru.h"
#include "support/CapturedFailures.h"
#include "support/VirtualDevices.h"

using PlayThru = qmx::test::VirtualDevices;

TEST_F(PlayThru, AnswersZeroAndDoesNothingUntilItIsSetUp)
{
    qmx::test::CapturedFailures failures;
    testing::internal::CaptureStderr();
    EXPECT_EQ(1, InitPlayThru(0, 0)); // no device yet
    testing::internal::GetCapturedStderr();
    EXPECT_NE(noErr, LastStatusForPlayThru());
    EXPECT_FALSE(LastErrorForPlayThru().empty());
    float volume = 7, rate = 7;
    double latency = 7;
    unsigned long fetches = 7;
    const auto expectAll = [&](bool runs) {
        EXPECT_EQ(runs, PlayThruIsRunning());
        EXPECT_EQ(noErr, SetVolumeForPlayThru(0.5F));
        EXPECT_EQ(noErr, GetVolumeForPlayThru(&volume));
        EXPECT_EQ(noErr, SetDriftCorrectionForPlayThru(true));
        EXPECT_EQ(noErr, GetLatencyForPlayThru(&latency));
        EXPECT_EQ(noErr, GetRefusedFetchesForPlayThru(&fetches));
        EXPECT_EQ(noErr, GetRateForPlayThru(&rate));
    };
    EXPECT_EQ(noErr, SetPlayThru(true));
    EXPECT_EQ(noErr, SetInputDeviceAsCurrentForPlayThru(99999));
    EXPECT_EQ(noErr, SetOutputDeviceAsCurrentForPlayThru(99999));
    expectAll(false);
    EXPECT_EQ(noErr, SetPlayThru(false));
    EXPECT_TRUE(volume == 7 && rate == 7 && latency == 7 && fetches == 7);

    const AudioDeviceID input = add("in", 2, 0), output = add("out", 0, 2);
    ASSERT_EQ(noErr, InitPlayThru(0, 0));
    EXPECT_EQ(noErr, LastStatusForPlayThru());
    EXPECT_EQ(noErr, SetPlayThru(true));
    EXPECT_EQ(noErr, SetInputDeviceAsCurrentForPlayThru(input));
    EXPECT_EQ(noErr, SetOutputDeviceAsCurrentForPlayThru(output));
    EXPECT_EQ(kAudioHardwareBadDeviceError, SetOutputDeviceAsCurrentForPlayThru(99999));
    expectAll(true);
    EXPECT_TRUE(volume == 0.5F && rate == 1 && latency > 1024 && fetches == 0);
    ASSERT_EQ(noErr, InitPlayThru(input, output)); // in place of the one that runs
    EXPECT_FALSE(PlayThruIsRunning());
    ASSERT_EQ(noErr, hardware.removeDevice(input));
    testing::internal::CaptureStderr();
    EXPECT_EQ(1, InitPlayThru(input, output)); // and leaves none
    EXPECT_TRUE(testing::internal::GetCapturedStderr().ends_with("unable to initialize play thru"));
    EXPECT_EXIT((SetExitsOnFailureForPlayThru(true), (void)InitPlayThru(0, 0)), testing::ExitedWithCode(1), "");
}
