// SPDX-License-Identifier: MIT
#include "platform/CoreAudio/PipeWireTest.h"

#include "CoreAudio/AudioDeviceTypes.h"

#include <algorithm>
#include <sstream>

namespace
{

UInt32 channelsOf(AudioDeviceID device, bool isInput)
{
    AudioBufferList list{};
    UInt32 size = sizeof list;
    AudioDeviceGetProperty(device, 0, isInput, kAudioDevicePropertyStreamConfiguration, &size, &list);
    return list.mNumberBuffers ? list.mBuffers[0].mNumberChannels : 0;
}

} // namespace

TEST_F(PipeWireTest, SinksSourcesAndTheMonitorsOfSinksAreListed)
{
    const AudioDeviceID sink = find("test-sink"), source = find("test-source"), monitor = find("test-sink.monitor");
    ASSERT_TRUE(sink && source && monitor);
    EXPECT_EQ(devices().size(), 3U);
    EXPECT_EQ(textOf(sink, kAudioDevicePropertyDeviceNameCFString), "Test Sink");
    EXPECT_EQ(textOf(monitor, kAudioDevicePropertyDeviceNameCFString), "Monitor of Test Sink");
    EXPECT_EQ(channelsOf(sink, false), 2U);
    EXPECT_EQ(channelsOf(sink, true), 0U);
    EXPECT_EQ(channelsOf(source, true), 2U);
    EXPECT_EQ(channelsOf(monitor, true), 2U);
    EXPECT_EQ(get<UInt32>(sink, 0, false, kAudioDevicePropertyTransportType), kAudioDeviceTransportTypeVirtual);
    EXPECT_EQ(get<UInt32>(sink, 0, false, kAudioDevicePropertyBufferFrameSize), 1024U);
    const auto range = get<AudioValueRange>(sink, 0, false, kAudioDevicePropertyBufferFrameSizeRange);
    EXPECT_EQ(range.mMinimum, 32);
    EXPECT_EQ(range.mMaximum, 8192);
    std::array<AudioValueRange, 8> rates{};
    UInt32 size = sizeof rates;
    ASSERT_EQ(
        AudioDeviceGetProperty(sink, 0, false, kAudioDevicePropertyAvailableNominalSampleRates, &size, rates.data()),
        noErr);
    ASSERT_EQ(size, 3 * sizeof(AudioValueRange));
    EXPECT_EQ(rates[2].mMaximum, 96000);
    EXPECT_EQ(get<UInt32>(monitor, 0, true, kAudioDevicePropertyDeviceCanBeDefaultDevice), 0U);
}

TEST_F(PipeWireTest, WhatIsPluggedInAndOutFromOutsideComesAndGoes)
{
    server().plugIn("plugged");
    EXPECT_TRUE(waitUntil([] { return find("plugged") && find("plugged.monitor"); }));
    const AudioDeviceID plugged = find("plugged");
    EXPECT_EQ(channelsOf(plugged, false), 2U);
    server().unplug("plugged");
    EXPECT_TRUE(waitUntil([] { return !find("plugged") && !find("plugged.monitor"); }));
    UInt32 size = 0;
    EXPECT_EQ(AudioDeviceGetPropertyInfo(plugged, 0, false, kAudioDevicePropertyDeviceUID, &size, nullptr),
              kAudioHardwareBadDeviceError);
}

TEST_F(PipeWireTest, DefaultsAreReadSetAndFollowed)
{
    server().plugIn("second");
    EXPECT_TRUE(waitUntil([] { return find("second") != 0; }));
    EXPECT_EQ(defaultDevice(kAudioHardwarePropertyDefaultOutputDevice), find("test-sink")); // nobody chose: the oldest
    EXPECT_EQ(defaultDevice(kAudioHardwarePropertyDefaultInputDevice), find("test-source"));

    server().run("pw-metadata 0 default.audio.sink '{ \"name\": \"second\" }' Spa:String:JSON");
    EXPECT_TRUE(waitUntil([] { return defaultDevice(kAudioHardwarePropertyDefaultOutputDevice) == find("second"); }));
    server().run("pw-metadata -d 0 default.audio.sink");
    EXPECT_TRUE(
        waitUntil([] { return defaultDevice(kAudioHardwarePropertyDefaultOutputDevice) == find("test-sink"); }));

    AudioDeviceID wanted = find("second");
    ASSERT_EQ(AudioHardwareSetProperty(kAudioHardwarePropertyDefaultOutputDevice, sizeof wanted, &wanted), noErr);
    EXPECT_TRUE(waitUntil([&] { return defaultDevice(kAudioHardwarePropertyDefaultOutputDevice) == wanted; }));
    EXPECT_NE(server().run("pw-metadata 0").find("default.configured.audio.sink' value:'{ \"name\": \"second\" }'"),
              std::string::npos);

    AudioDeviceID monitor = find("test-sink.monitor");
    EXPECT_NE(AudioHardwareSetProperty(kAudioHardwarePropertyDefaultInputDevice, sizeof monitor, &monitor), noErr);
}

TEST_F(PipeWireTest, LevelsAreSetSeenOutsideAndFollowed)
{
    const AudioDeviceID sink = find("test-sink");
    listenTo(sink);
    const auto volume = [sink](UInt32 channel) {
        return get<Float32>(sink, channel, false, kAudioDevicePropertyVolumeScalar);
    };
    EXPECT_EQ(volume(1), 1.0F);
    EXPECT_EQ(set(sink, 1, false, kAudioDevicePropertyVolumeScalar, 0.5F), noErr);
    EXPECT_EQ(set(sink, 2, false, kAudioDevicePropertyVolumeScalar, 0.25F), noErr); // builds on the one before
    EXPECT_EQ(set(sink, 0, false, kAudioDevicePropertyMute, UInt32{1}), noErr);
    EXPECT_TRUE(waitUntil([&] {
        return volume(1) == 0.5F && volume(2) == 0.25F && get<UInt32>(sink, 0, false, kAudioDevicePropertyMute) == 1;
    }));
    EXPECT_NEAR(get<Float32>(sink, 1, false, kAudioDevicePropertyVolumeDecibels), -6.02, 0.01);
    std::istringstream words(server().run("pw-cli enum-params test-sink Props"));
    std::string seen;
    for (std::string word; words >> word;)
        seen += word + ' ';
    EXPECT_NE(seen.find("Float 0.500000 Float 0.250000"), std::string::npos) << seen;

    server().run("pw-cli set-param test-sink Props '{ mute: false, channelVolumes: [ 0.75, 0.125 ] }'");
    EXPECT_TRUE(waitUntil([&] {
        return volume(1) == 0.75F && volume(2) == 0.125F && get<UInt32>(sink, 0, false, kAudioDevicePropertyMute) == 0;
    }));
    stopListeningTo(sink);
}

TEST_F(PipeWireTest, DevicesGoWithTheServerAndComeBackUnderTheirUIDs)
{
    const AudioDeviceID sink = find("test-sink");
    EXPECT_EQ(set(sink, 0, false, kAudioDevicePropertyBufferFrameSize, UInt32{256}), noErr);
    server().kill();
    EXPECT_TRUE(waitUntil([] { return devices().empty(); }));
    EXPECT_EQ(defaultDevice(kAudioHardwarePropertyDefaultOutputDevice), kAudioDeviceUnknown);
    server().start();
    EXPECT_TRUE(waitUntil([] { return find("test-sink") && find("test-source") && find("test-sink.monitor"); }));
    EXPECT_NE(find("test-sink"), sink);
    EXPECT_EQ(get<UInt32>(find("test-sink"), 0, false, kAudioDevicePropertyBufferFrameSize), 256U); // the wish is kept
}
