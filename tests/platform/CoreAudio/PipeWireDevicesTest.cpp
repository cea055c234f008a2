// SPDX-License-Identifier: MIT
#include "platform/CoreAudio/PipeWireTest.h"

#include "CoreAudio/AudioDeviceTypes.h"

#include <cmath>

class PipeWireDevicesTest : public ManagedOrNot
{
};

TEST_P(PipeWireDevicesTest, SinksSourcesAndTheMonitorsOfSinksAreListed)
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

TEST_P(PipeWireDevicesTest, TheServersOwnDuplexDeviceHasBothDirections)
{
    server().plugIn("both", "media.class=Audio/Duplex");
    EXPECT_TRUE(waitUntil([] { return find("both") && channelsOf(find("both"), true) == 2; }));
    EXPECT_EQ(channelsOf(find("both"), false), 2U);
    EXPECT_EQ(find("both.monitor"), kAudioDeviceUnknown);
    EXPECT_EQ(cyclesOf(find("both"), 3).back(), 1024U);
}

TEST_P(PipeWireDevicesTest, DefaultsAreReadSetAndFollowed)
{
    constexpr auto output = kAudioHardwarePropertyDefaultOutputDevice;
    plugIn("second");
    EXPECT_EQ(defaultDevice(output), find("test-sink")); // none was chosen: the oldest
    EXPECT_EQ(defaultDevice(kAudioHardwarePropertyDefaultInputDevice), find("test-source"));

    server().run(GetParam() ? "wpctl set-default " + server().numberOf("second")
                            : "pw-metadata 0 default.audio.sink '{ \"name\": \"second\" }' Spa:String:JSON");
    EXPECT_TRUE(waitUntil([] { return defaultDevice(output) == find("second"); }));
    server().run(GetParam() ? "wpctl set-default " + server().numberOf("test-sink")
                            : "pw-metadata -d 0 default.audio.sink");
    EXPECT_TRUE(waitUntil([] { return defaultDevice(output) == find("test-sink"); }));

    AudioDeviceID wanted = find("second");
    ASSERT_EQ(AudioHardwareSetProperty(output, sizeof wanted, &wanted), noErr);
    EXPECT_TRUE(waitUntil([&] { return defaultDevice(output) == wanted; }));
    expectSeen("pw-metadata 0", "default.configured.audio.sink' value:'{ \"name\": \"second\" }'");
    if (GetParam())
        expectSeen("wpctl inspect @DEFAULT_AUDIO_SINK@", "node.name = \"second\"");

    for (const char* const unfit : {"test-sink.monitor", "test-sink"}) {
        const AudioDeviceID device = find(unfit);
        EXPECT_EQ(AudioHardwareSetProperty(kAudioHardwarePropertyDefaultInputDevice, sizeof device, &device),
                  kAudioHardwareIllegalOperationError);
    }
    EXPECT_EQ(server().run("pw-metadata 0").find("configured.audio.source"), std::string::npos);
    server().unplug("second"); // the default changes back, and the choice counts again when the device returns
    EXPECT_TRUE(waitUntil([] { return defaultDevice(output) == find("test-sink") && !find("second"); }));
    server().plugIn("second");
    EXPECT_TRUE(waitUntil([] { return find("second") && defaultDevice(output) == find("second"); }));
}

TEST_P(PipeWireDevicesTest, LevelsAreSetSeenOutsideAndFollowed)
{
    const AudioDeviceID sink = find("test-sink");
    listenTo(sink);
    const auto have = [sink](Float32 left, Float32 right, UInt32 isMuted) {
        return [=] {
            const auto volume = [sink](UInt32 channel) {
                return get<Float32>(sink, channel, false, kAudioDevicePropertyVolumeScalar);
            };
            return std::abs(volume(1) - left) < 1e-5F && std::abs(volume(2) - right) < 1e-5F &&
                   get<UInt32>(sink, 0, false, kAudioDevicePropertyMute) == isMuted;
        };
    };
    EXPECT_TRUE(have(1, 1, 0)());
    EXPECT_EQ(set(sink, 1, false, kAudioDevicePropertyVolumeScalar, 0.125F), noErr);
    EXPECT_EQ(set(sink, 2, false, kAudioDevicePropertyVolumeScalar, 0.25F), noErr); // starts from the request before
    EXPECT_EQ(set(sink, 0, false, kAudioDevicePropertyMute, UInt32{1}), noErr);
    EXPECT_TRUE(waitFor(sink, kAudioDevicePropertyMute, have(0.125F, 0.25F, 1)));
    EXPECT_NEAR(get<Float32>(sink, 2, false, kAudioDevicePropertyVolumeDecibels), -12.04, 0.01);
    expectSeen("pw-cli enum-params test-sink Props", "Float 0.125000 Float 0.250000");
    if (GetParam()) // the session manager shows cube roots
        expectSeen("wpctl get-volume " + server().numberOf("test-sink"), "Volume: 0.50 [MUTED]");

    server().run("pw-cli set-param test-sink Props '{ mute: false, channelVolumes: [ 0.75, 0.5 ] }'");
    EXPECT_TRUE(waitFor(sink, kAudioDevicePropertyVolumeScalar, have(0.75F, 0.5F, 0)));
    if (GetParam()) {
        server().run("wpctl set-mute @DEFAULT_AUDIO_SINK@ 1 && wpctl set-volume @DEFAULT_AUDIO_SINK@ 0.4");
        EXPECT_TRUE(waitFor(sink, kAudioDevicePropertyMute, [&] {
            return get<UInt32>(sink, 0, false, kAudioDevicePropertyMute) == 1 &&
                   get<Float32>(sink, 1, false, kAudioDevicePropertyVolumeScalar) < 0.1F;
        }));
    }
}

TEST_P(PipeWireDevicesTest, AnIdleDeviceTakesTheRateAndTheCycleThatOthersForce)
{
    const AudioDeviceID sink = plugIn("idle"); // no cycle size was chosen for it
    listenTo(sink);
    const auto has = [sink](Float64 rate, UInt32 frames) {
        return [=] {
            return get<Float64>(sink, 0, false, kAudioDevicePropertyNominalSampleRate) == rate &&
                   get<UInt32>(sink, 0, false, kAudioDevicePropertyBufferFrameSize) == frames;
        };
    };
    EXPECT_EQ(set(sink, 0, false, kAudioDevicePropertyNominalSampleRate, Float64{96000}), noErr);
    EXPECT_TRUE(waitFor(sink, kAudioDevicePropertyNominalSampleRate, has(96000, 1024)));
    force("rate", 44100);
    EXPECT_TRUE(waitFor(sink, kAudioDevicePropertyNominalSampleRate, has(44100, 1024)));
    force("quantum", 512);
    EXPECT_TRUE(waitFor(sink, kAudioDevicePropertyBufferFrameSize, has(44100, 512)));
    EXPECT_EQ(set(sink, 0, false, kAudioDevicePropertyNominalSampleRate, Float64{48000}),
              kAudioDeviceUnsupportedFormatError); // not available
    EXPECT_EQ(cyclesOf(sink, 5).back(), 512U);
    EXPECT_TRUE(waitUntil(has(44100, 512)));
    force("rate", 0);
    EXPECT_TRUE(waitFor(sink, kAudioDevicePropertyNominalSampleRate, has(96000, 512))); // the request counts again
    force("quantum", 0);
    EXPECT_EQ(set(sink, 0, false, kAudioDevicePropertyNominalSampleRate, Float64{48000}), noErr);
    EXPECT_TRUE(waitFor(sink, kAudioDevicePropertyNominalSampleRate, has(48000, 1024)));
}

INSTANTIATE_TEST_SUITE_P(Server, PipeWireDevicesTest, testing::Bool(), ManagedOrNot::name);
