// SPDX-License-Identifier: MIT
#include "platform/CoreAudio/PipeWireTest.h"

#include "support/FakeHardware.h"
#include "support/TimedSound.h"

#include <algorithm>
#include <atomic>
#include <cerrno>

namespace
{

constexpr SInt64 second = 48000; // frames

} // namespace

class PipeWireIOTest : public ManagedOrNot
{
protected:
    /// Plays a sound on one device and captures another, or the same one; returns whether most of it arrived in order.
    /// A busy machine may lose a cycle, and reports it.
    bool isPlayedAndCaptured(AudioDeviceID output, AudioDeviceID input)
    {
        Capture capture(2 * second);
        Times playerTimes, recorderTimes;
        SInt64 played = 0;
        for (const AudioDeviceID device : {output, input})
            listenTo(device);
        Procedure player(output, [&](const auto&, const auto&, AudioBufferList& list, const AudioTimeStamp& time) {
            playerTimes.add(time, samplesOf(list).size() / 2);
            qmx::test::TimedSound::fill(samplesOf(list), played);
            played += static_cast<SInt64>(samplesOf(list).size() / 2);
        });
        Procedure recorder(input, [&](const AudioBufferList& list, const AudioTimeStamp& time, auto&, const auto&) {
            recorderTimes.add(time, samplesOf(list).size() / 2);
            capture.add(samplesOf(list));
            const qmx::test::OutsideRealTime outside;
            if (capture.isFull())
                tell();
        });
        EXPECT_EQ(recorder.start(), noErr);
        EXPECT_EQ(player.start(), noErr);
        EXPECT_TRUE(waitUntil([&] { return capture.isFull(); }));
        EXPECT_EQ(player.stop(), noErr);
        EXPECT_EQ(recorder.stop(), noErr);
        qmx::test::TimedTake arrived;
        arrived.add(capture.samples);
        EXPECT_EQ(arrived.changed, 0);
        const auto isTold = [&] {
            return playerTimes.breaks + recorderTimes.breaks > 0 || wasTold(output, kAudioDeviceProcessorOverload) ||
                   wasTold(input, kAudioDeviceProcessorOverload);
        };
        EXPECT_TRUE(arrived.breaks == 0 || waitUntil(isTold)) << arrived.breaks << " breaks though no gap was told";
        return arrived.right > second / 2 && arrived.longest > second / 4;
    }
    void expectExact(const std::string& output, const std::string& input)
    {
        bool isExact = false;
        for (int attempt = 0; attempt < 10 && !isExact; ++attempt)
            isExact = isPlayedAndCaptured(find(output), find(input));
        EXPECT_TRUE(isExact) << input;
    }
};

TEST_P(PipeWireIOTest, WhatASinkPlaysIsCapturedBitForBit)
{
    expectExact("test-sink", "test-source");
    expectExact("test-sink", "test-sink.monitor");
}

TEST_P(PipeWireIOTest, CyclesHaveTheSizeAndTheRateThatWereAskedFor)
{
    const AudioDeviceID sink = find("test-sink");
    ASSERT_EQ(set(sink, 0, false, kAudioDevicePropertyBufferFrameSize, UInt32{256}), noErr);
    ASSERT_EQ(set(sink, 0, false, kAudioDevicePropertyNominalSampleRate, Float64{44100}), noErr);
    listenTo(sink);
    ASSERT_TRUE(waitUntil([&] {
        return get<Float64>(sink, 0, false, kAudioDevicePropertyNominalSampleRate) == 44100 &&
               get<UInt32>(sink, 0, false, kAudioDevicePropertyBufferFrameSize) == 256;
    }));
    std::atomic<int> cycles{0}, others{0};
    std::atomic<UInt32> frames{0};
    AudioTimeStamp first, last;
    Procedure player(sink, [&](const auto&, const auto&, AudioBufferList& output, const AudioTimeStamp& time) {
        if (cycles++ == 0)
            first = time;
        last = time;
        frames = static_cast<UInt32>(samplesOf(output).size() / 2);
        if (frames != 256 && cycles < 100)
            ++others;
        const qmx::test::OutsideRealTime outside;
        tell();
    });
    ASSERT_EQ(player.start(), noErr);
    EXPECT_TRUE(waitUntil([&] { return cycles >= 100; }));
    EXPECT_EQ(get<UInt32>(sink, 0, false, kAudioDevicePropertyDeviceIsRunning), 1U);
    const std::string program = program_invocation_short_name;
    const std::string nodes = server().run("pw-cli info all");
    for (const std::string& text :
         {std::string("node.latency = \"256/44100\""), std::string("media.name = \"Test Sink\""),
          std::string("media.role = \"Music\""), "application.name = \"" + program + "\"",
          "application.id = \"" + program + "\"", "application.icon-name = \"" + program + "\""})
        EXPECT_TRUE(nodes.find(text) != std::string::npos) << text;
    EXPECT_EQ(set(sink, 0, false, kAudioDevicePropertyBufferFrameSize, UInt32{128}), noErr);
    EXPECT_TRUE(waitUntil([&] { return frames == 128; })); // while it runs, too
    AudioTimeStamp now;
    EXPECT_EQ(AudioDeviceGetCurrentTime(sink, &now), noErr);
    EXPECT_EQ(player.stop(), noErr);
    qmx::waitForIOCycle(sink);
    EXPECT_EQ(set(sink, 0, false, kAudioDevicePropertyNominalSampleRate, Float64{48000}), noErr); // they would be kept
    EXPECT_EQ(set(sink, 0, false, kAudioDevicePropertyBufferFrameSize, UInt32{1024}), noErr);
    EXPECT_LE(others, 3); // before the server has changed the cycle
    const Float64 seconds = static_cast<Float64>(last.mHostTime - first.mHostTime) / 1e9;
    EXPECT_NEAR((last.mSampleTime - first.mSampleTime) / seconds, 44100, 44100 * 0.03); // a busy server drops cycles
    EXPECT_NEAR(now.mSampleTime, last.mSampleTime, 4 * 1024);
}

TEST_P(PipeWireIOTest, ADeviceThatIsUnpluggedWhileItRunsGoesAtOnce)
{
    const AudioDeviceID plugged = plugIn("plugged");
    EXPECT_TRUE(waitUntil([] { return find("plugged.monitor") != 0; }));
    std::atomic<int> cycles{0};
    Procedure player(plugged, counting(cycles));
    ASSERT_EQ(player.start(), noErr);
    ASSERT_TRUE(waitUntil([&] { return cycles > 5; }));
    const auto begin = std::chrono::steady_clock::now();
    server().unplug("plugged");
    EXPECT_TRUE(waitUntil([] { return !find("plugged"); }));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(4000)); // no wait for its cycles
    EXPECT_TRUE(waitUntil([] { return !find("plugged.monitor"); }));
    UInt32 size = 0;
    EXPECT_EQ(AudioDeviceGetPropertyInfo(plugged, 0, false, kAudioDevicePropertyDeviceUID, &size, nullptr),
              kAudioHardwareBadDeviceError);
    qmx::waitForIOCycle(plugged);
    const int last = cycles;
    EXPECT_TRUE(find("test-sink"));
    EXPECT_EQ(cycles, last);
}

TEST_P(PipeWireIOTest, ServersMayDieAndComeBackWhileDevicesRun)
{
    const AudioDeviceID first = find("test-sink");
    EXPECT_EQ(set(first, 0, false, kAudioDevicePropertyBufferFrameSize, UInt32{256}), noErr);
    for (int round = 0; round < 20; ++round) {
        ASSERT_TRUE(waitUntil([] { return find("test-sink") && find("test-source"); })) << round;
        std::atomic<int> played{0}, captured{0};
        Procedure player(find("test-sink"), counting(played));
        Procedure recorder(find("test-source"), counting(captured));
        ASSERT_EQ(player.start(), noErr) << round;
        ASSERT_EQ(recorder.start(), noErr) << round;
        ASSERT_TRUE(waitUntil([&] { return played > 0 && captured > 0; })) << round;
        server().kill();
        ASSERT_TRUE(waitUntil([] { return devices().empty(); })) << round;
        EXPECT_EQ(defaultDevice(kAudioHardwarePropertyDefaultOutputDevice), kAudioDeviceUnknown);
        server().start(GetParam());
    }
    EXPECT_TRUE(waitUntil([] { return find("test-sink") && find("test-source") && find("test-sink.monitor"); }));
    EXPECT_NE(find("test-sink"), first);
    EXPECT_EQ(get<UInt32>(find("test-sink"), 0, false, kAudioDevicePropertyBufferFrameSize), 256U); // still requested
    EXPECT_EQ(set(find("test-sink"), 0, false, kAudioDevicePropertyBufferFrameSize, UInt32{1024}), noErr);
}

TEST_P(PipeWireIOTest, AProcedureThatOverrunsItsCycleIsTold)
{
    const AudioDeviceID sink = find("test-sink");
    for (const int milliseconds : {28, 100}) { // the next cycle comes in time all the same, or some are missed
        listenTo(sink);
        std::atomic<int> cycles{0};
        Times times;
        Procedure player(sink, [&](const auto&, const auto&, AudioBufferList& output, const AudioTimeStamp& time) {
            times.add(time, samplesOf(output).size() / 2);
            const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
            while (++cycles == 3 && std::chrono::steady_clock::now() < end)
                --cycles;
            const qmx::test::OutsideRealTime outside;
            tell();
        });
        ASSERT_EQ(player.start(), noErr);
        EXPECT_TRUE(waitUntil([&] { return cycles > 5; }));
        EXPECT_EQ(player.stop(), noErr);
        EXPECT_TRUE(waitUntil([&] { return wasTold(sink, kAudioDeviceProcessorOverload); })) << milliseconds;
        EXPECT_TRUE(milliseconds < 100 || times.breaks > 0);
    }
}

// No sound is better than sound of the wrong pitch.
TEST_P(PipeWireIOTest, ADeviceThatOthersRunAtAnotherRateDoesNotStart)
{
    const AudioDeviceID sink = plugIn("shared"); // no rate was chosen for it
    listenTo(sink);
    {
        qmx::test::FakeHardware other;
        other.addNode("media.class=Audio/Source node.name=player node.rate=1/44100 node.force-rate=44100", 0, 2);
        ASSERT_TRUE(waitUntil([] { return find("player") != 0; }));
        server().run("pw-link player:out_1 shared:playback_FL");
        EXPECT_TRUE(waitFor(sink, kAudioDevicePropertyDeviceIsRunningSomewhere, [sink] {
            return get<UInt32>(sink, 0, false, kAudioDevicePropertyDeviceIsRunningSomewhere) == 1;
        }));
        Procedure procedure(sink, [](const auto&, const auto&, auto&, const auto&) { FAIL(); });
        EXPECT_EQ(procedure.start(), kAudioHardwareUnspecifiedError);
        EXPECT_EQ(get<UInt32>(sink, 0, false, kAudioDevicePropertyDeviceIsRunning), 0U);
    }
    EXPECT_TRUE(waitUntil([] { return !find("player"); }));
    EXPECT_EQ(cyclesOf(sink, 3).size(), 3U);
}

TEST_P(PipeWireIOTest, DuplexDevicesCaptureAndPlayInOneCycleAndGoOnWhenTheyGetOtherPorts)
{
    qmx::test::FakeHardware box; // its outputs are looped to its inputs
    box.addNode("media.class=Audio/Duplex node.name=box node.description=Box", 2, 2);
    ASSERT_TRUE(waitUntil([] { return find("box") != 0; }));
    EXPECT_FALSE(find("box.monitor"));
    const AudioDeviceID duplex = find("box");
    std::atomic<int> wrong{0};
    std::atomic<Float32> left{0}, right{0}, cycles{0};
    Float32 sent = 0;
    Float64 last = -1;
    Procedure procedure(duplex, [&](const auto& input, const auto& inputTime, auto& output, const auto& outputTime) {
        const bool isRight = samplesOf(input).size() == samplesOf(output).size() &&
                             input.mBuffers[0].mNumberChannels == 2 && inputTime.mSampleTime > last &&
                             inputTime.mSampleTime < outputTime.mSampleTime;
        wrong += isRight ? 0 : 1;
        last = inputTime.mSampleTime;
        left = samplesOf(input)[0];
        right = samplesOf(input)[1];
        cycles = cycles + 1;
        std::ranges::fill(samplesOf(output), sent += 1.0F / 65536);
        const qmx::test::OutsideRealTime outside;
        tell();
    });
    ASSERT_EQ(procedure.start(), noErr);
    EXPECT_TRUE(waitUntil([&] { return left > 0 && right > 0; }));
    listenTo(duplex);
    const auto goesOn = [&](const std::atomic<Float32>& sign) { // some cycles were missed
        left = cycles = 0;
        return waitFor(duplex, kAudioDeviceProcessorOverload, [&] { return sign > 0; });
    };
    server().run(std::string("pw-link -d box:out_1 ").append(program_invocation_short_name).append(":input_1"));
    EXPECT_TRUE(goesOn(left));
    box.renewPorts(1, 1); // such ports carry no sound in filters of 0.3.65
    EXPECT_TRUE(waitFor(duplex, kAudioDevicePropertyStreamConfiguration,
                        [&] { return channelsOf(duplex, true) == 1 && channelsOf(duplex, false) == 1; }));
    EXPECT_TRUE(goesOn(cycles));
    EXPECT_EQ(procedure.stop(), noErr);
    EXPECT_EQ(find("box"), duplex);
    EXPECT_EQ(wrong, 0);
}

INSTANTIATE_TEST_SUITE_P(Server, PipeWireIOTest, testing::Bool(), ManagedOrNot::name);
