// SPDX-License-Identifier: MIT
#include "Foundation/RealTime.h"
#include "Foundation/Threads/Retirement.h"
#include "Foundation/Threads/Thread.h"
#include "Foundation/Threads/Worker.h"
#include "platform/AudioToolbox/ExtAudioFileHelpers.h"
#include "support/Hardware.h"
#include "support/OutsideRealTime.h"
#include "support/ShortMemory.h"
#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <functional>
#include <thread>

using qmx::test::OutsideRealTime;
using testing::ElementsAre;

namespace
{

// The arguments of a cycle. `frames` is the size of the first existing buffer.
struct Cycle {
    const AudioTimeStamp& now;
    const AudioBufferList& input;
    const AudioTimeStamp& inputTime;
    AudioBufferList& output;
    const AudioTimeStamp& outputTime;

    UInt32 frames() const
    {
        const AudioBuffer& buffer = input.mNumberBuffers ? input.mBuffers[0] : output.mBuffers[0];
        return buffer.mDataByteSize / (buffer.mNumberChannels * UInt32{sizeof(Float32)});
    }
    std::span<Float32> samples(const AudioBufferList& list) const
    {
        return {static_cast<Float32*>(list.mBuffers[0].mData), list.mBuffers[0].mDataByteSize / sizeof(Float32)};
    }
};

// A procedure with its registration.
struct Client {
    Client(AudioDeviceID id, std::function<void(const Cycle&)> action) : device(id), work(std::move(action))
    {
        EXPECT_EQ(AudioDeviceAddIOProc(device, run, this), noErr);
    }
    ~Client() { (void)AudioDeviceRemoveIOProc(device, run, this); } // may be removed already
    OSStatus start() { return AudioDeviceStart(device, run, this); }
    OSStatus stop() { return AudioDeviceStop(device, run, this); }
    static OSStatus run(AudioDeviceID, const AudioTimeStamp* now, const AudioBufferList* input,
                        const AudioTimeStamp* inputTime, AudioBufferList* output, const AudioTimeStamp* outputTime,
                        void* clientData)
    {
        auto& self = *static_cast<Client*>(clientData);
        ++self.cycles;
        EXPECT_TRUE(qmx::isRealTime() && qmx::isInsideCallback());
        if (self.work)
            self.work({*now, *input, *inputTime, *output, *outputTime});
        return noErr;
    }
    AudioDeviceID device;
    std::function<void(const Cycle&)> work;
    std::atomic<int> cycles{0};
};

// Writes samples that all differ and are exact in a float.
void writePattern(const Cycle& cycle)
{
    auto sample = static_cast<Float32>(cycle.outputTime.mSampleTime) * 2;
    for (Float32& each : cycle.samples(cycle.output))
        each = sample++ / 1048576;
}

} // namespace

TEST_F(HardwareTest, ALoopIsBitExactAndItsTimesAgree)
{
    const qmx::VirtualPair pair = hardware.addLoopbackPair();
    Client player(pair.output, writePattern);
    int heard = 0;
    Client recorder(pair.input, [&heard](const Cycle& cycle) {
        EXPECT_EQ(cycle.now.mSampleTime - cycle.inputTime.mSampleTime, 512);
        if (cycle.inputTime.mSampleTime < 1024) // the played frames come later
            return;
        auto expected = static_cast<Float32>(cycle.inputTime.mSampleTime) * 2;
        for (const Float32 each : cycle.samples(cycle.input))
            ASSERT_EQ(each, expected++ / 1048576);
        ++heard;
    });
    EXPECT_EQ(player.start(), noErr);
    EXPECT_EQ(recorder.start(), noErr);
    hardware.advance(1'000'000'000);
    EXPECT_EQ(recorder.cycles, 86); // 44100 / 512
    EXPECT_EQ(heard, 84);
}

TEST_F(HardwareTest, StoppingInsideTheProcedureEndsItAndTheDevice)
{
    const AudioDeviceID device = add("a", 2, 0);
    Heard heard;
    heard.listenToDevice(device, kAudioDevicePropertyDeviceIsRunning);
    Client client(device, {});
    client.work = [&client](const Cycle&) {
        if (client.cycles == 3) {
            EXPECT_EQ(client.stop(), noErr);
        }
    };
    for (int round = 1; round <= 2; ++round) {
        client.cycles = 0;
        EXPECT_EQ(client.start(), noErr);
        hardware.advance(100'000'000);
        EXPECT_EQ(client.cycles, 3);
        EXPECT_EQ(get<UInt32>(device, 0, true, kAudioDevicePropertyDeviceIsRunning), 0U);
        EXPECT_THAT(heard.take(), ElementsAre("goin 0 in", "goin 0 in"));
    }
    EXPECT_FALSE(hardware.advanceCycles(device));
    heard.stopListeningToDevice(device, kAudioDevicePropertyDeviceIsRunning);
}

TEST_F(HardwareTest, AProcedureMayRemoveItself)
{
    const AudioDeviceID device = add("a", 2, 0);
    Client client(device, {});
    client.work = [&client](const Cycle&) {
        EXPECT_EQ(AudioDeviceRemoveIOProc(client.device, Client::run, &client), noErr);
    };
    EXPECT_EQ(AudioDeviceAddIOProc(device, Client::run, &client), kAudioHardwareIllegalOperationError); // a second time
    client.start();
    hardware.advance(100'000'000);
    EXPECT_EQ(client.cycles, 1);
    EXPECT_EQ(client.start(), kAudioHardwareIllegalOperationError);
}

TEST_F(HardwareTest, RemovalWaitsForTheCycleInFlight)
{
    const AudioDeviceID device = add("a", 2, 0);
    std::atomic<int> stage{0};
    std::atomic<bool> isOver{false};
    auto client = std::make_unique<Client>(device, [&](const Cycle&) {
        const OutsideRealTime waits;
        int first = 0;
        if (!stage.compare_exchange_strong(first, 1))
            return;
        stage.notify_all();
        stage.wait(1); // until the removal has started
        std::this_thread::yield();
        isOver = true;
    });
    client->start();
    hardware.setTime(qmx::VirtualTime::fast);
    stage.wait(0);
    qmx::Thread release("release", [&stage] {
        stage = 2;
        stage.notify_all();
    });
    client.reset();
    EXPECT_TRUE(isOver);
}

TEST_F(HardwareTest, ADeviceThatGoesInMidCycleIsQuietAfterwards)
{
    for (int round = 0; round < 50; ++round) {
        const AudioDeviceID device = add("a", 2, 2);
        Client client(device, {});
        client.start();
        hardware.setTime(qmx::VirtualTime::fast);
        while (client.cycles == 0)
            std::this_thread::yield();
        EXPECT_EQ(noErr, hardware.removeDevice(device));
        const int cycles = client.cycles;
        hardware.setTime(qmx::VirtualTime::manual);
        EXPECT_EQ(client.cycles, cycles);
        EXPECT_EQ(client.stop(), kAudioHardwareBadDeviceError);
    }
}

TEST_F(HardwareTest, WhatARefusedRemovalWasForIsCalledNoMore)
{
    const AudioDeviceID device = add("a", 2, 0);
    const auto stream = get<AudioStreamID>(device, 0, true, kAudioDevicePropertyStreams);
    Client other(device, {});
    auto removed = std::make_unique<Client>(device, [](const Cycle&) {});
    Heard heard;
    heard.listenToDevice(device);
    EXPECT_EQ(noErr, AudioHardwareAddPropertyListener(kAudioPropertyWildcardPropertyID, Heard::hardware, &heard));
    EXPECT_EQ(noErr,
              AudioStreamAddPropertyListener(stream, 0, kAudioPropertyWildcardPropertyID, Heard::stream, &heard));
    other.start();
    removed->start();
    heard.take();
    hardware.addFault({});
    EXPECT_EQ(AudioDeviceRemoveIOProc(device, Client::run, removed.get()), kAudioHardwareUnspecifiedError);
    EXPECT_EQ(heard.stopListeningToDevice(device), kAudioHardwareUnspecifiedError);
    EXPECT_EQ(AudioHardwareRemovePropertyListener(kAudioPropertyWildcardPropertyID, Heard::hardware, &heard),
              kAudioHardwareUnspecifiedError);
    EXPECT_EQ(AudioStreamRemovePropertyListener(stream, 0, kAudioPropertyWildcardPropertyID, Heard::stream, &heard),
              kAudioHardwareUnspecifiedError);
    hardware.removeFaults();
    EXPECT_TRUE(hardware.advanceCycles(device));
    EXPECT_EQ(other.cycles, 1);
    EXPECT_EQ(removed->cycles, 0);
    set(device, 0, true, kAudioDevicePropertyNominalSampleRate, 48000.0);
    hardware.announceHardware(kAudioHardwarePropertySleepingIsAllowed);
    EXPECT_THAT(heard.take(), ElementsAre());
    qmx::test::withEveryAllocationFailing([&](qmx::test::ShortMemory& memory) {
        Client client(device, {});
        client.start();
        EXPECT_EQ(memory.during([&] { return AudioDeviceRemoveIOProc(device, Client::run, &client); }), noErr);
        (void)hardware.advanceCycles(device); // the device has stopped
        EXPECT_EQ(client.cycles, 0);
    });
}

TEST_F(HardwareTest, AProcedureMayChangeTheDevicesWhileItsOwnIsUnplugged)
{
    const AudioDeviceID device = add("a", 2, 0), other = add("b", 2, 0);
    std::atomic<int> stage{0};
    Client client(device, [&](const Cycle&) {
        const OutsideRealTime changes;
        stage = 1;
        stage.notify_all();
        while (hardware.devices().size() == 2) // until the unplugging has started
            std::this_thread::yield();
        hardware.addDevice({});
        EXPECT_EQ(hardware.setDefaultDevice(kAudioHardwarePropertyDefaultInputDevice, other), noErr);
        stage = 2;
    });
    client.start();
    hardware.setTime(qmx::VirtualTime::fast);
    stage.wait(0);
    EXPECT_EQ(noErr, hardware.removeDevice(device));
    EXPECT_EQ(stage, 2) << "it is quiet afterwards";
    EXPECT_EQ(devices().size(), 2U);
}

TEST_F(HardwareTest, LargerServerCyclesComeInSlicesWithTheirOwnTimes)
{
    const AudioDeviceID device = add("a", 2, 2);
    EXPECT_EQ(noErr, hardware.setCycleFrames(device, 1200));
    std::vector<UInt32> frames;
    std::vector<Float64> inputTimes;
    Client client(device, [&](const Cycle& cycle) {
        const OutsideRealTime records;
        frames.push_back(cycle.frames());
        inputTimes.push_back(cycle.inputTime.mSampleTime);
        writePattern(cycle);
    });
    EXPECT_EQ(noErr, hardware.captureOutput(device, 4096));
    client.start();
    EXPECT_TRUE(hardware.advanceCycles(device));
    EXPECT_THAT(frames, ElementsAre(512, 512, 176));
    EXPECT_THAT(inputTimes, ElementsAre(0, 512, 1024));
    const std::vector<Float32> played = hardware.capturedOutput(device);
    ASSERT_EQ(played.size(), 2400U);
    for (std::size_t i = 1; i < played.size(); ++i)
        ASSERT_EQ(played[i] - played[i - 1], 1.0F / 1048576);
}

TEST_F(HardwareTest, TwoClocksRunApartByTheirDrift)
{
    const AudioDeviceID fast = add("fast", 2, 0), slow = add("slow", 2, 0);
    EXPECT_EQ(noErr, hardware.setClockDrift(fast, 500));
    Client one(fast, {}), two(slow, {});
    one.start();
    two.start();
    hardware.advance(100'000'000'000); // 100 s
    AudioTimeStamp fastTime, slowTime;
    ASSERT_EQ(AudioDeviceGetCurrentTime(fast, &fastTime), noErr);
    ASSERT_EQ(AudioDeviceGetCurrentTime(slow, &slowTime), noErr);
    EXPECT_NEAR(fastTime.mSampleTime - slowTime.mSampleTime, 44100 * 100 * 500e-6, 0.01);
    EXPECT_EQ(one.cycles - two.cycles, 4); // 2205 frames
    EXPECT_NEAR(fastTime.mRateScalar, 1 / 1.0005, 1e-9);
    AudioTimeStamp host;
    host.mFlags = kAudioTimeStampHostTimeValid;
    fastTime.mSampleTime += 44122.05; // one second of host time
    ASSERT_EQ(AudioDeviceTranslateTime(fast, &fastTime, &host), noErr);
    EXPECT_NEAR(static_cast<double>(host.mHostTime - AudioGetCurrentHostTime()), 1e9, 10);
}

TEST_F(HardwareTest, InputsTakeFunctionsBuffersAndControls)
{
    const AudioDeviceID device = add("a", 2, 0);
    std::vector<Float32> heard;
    Client client(device, [&heard](const Cycle& cycle) {
        const OutsideRealTime records;
        heard.push_back(cycle.samples(cycle.input).back());
    });
    client.start();
    EXPECT_EQ(noErr, hardware.setInput(device, [](Float32* samples, UInt32 frames, UInt32 channels, SInt64) {
        std::fill_n(samples, frames * channels, 0.5F);
    }));
    EXPECT_TRUE(hardware.advanceCycles(device));
    set(device, 2, true, kAudioDevicePropertyVolumeScalar, Float32{0.5});
    EXPECT_TRUE(hardware.advanceCycles(device));
    set(device, 0, true, kAudioDevicePropertyMute, UInt32{1});
    EXPECT_TRUE(hardware.advanceCycles(device));
    set(device, 0, true, kAudioDevicePropertyMute, UInt32{0});
    EXPECT_EQ(noErr, hardware.setInputSamples(device, {1, 1, 1, 1}, 2, true));
    EXPECT_TRUE(hardware.advanceCycles(device));
    EXPECT_EQ(noErr, hardware.setInputSamples(device, {1, 1, 1, 1}, 2, false));
    EXPECT_TRUE(hardware.advanceCycles(device));
    EXPECT_THAT(heard, ElementsAre(0.5F, 0.25F, 0, 0.5F, 0));
    EXPECT_EQ(hardware.setInputFile(device, "/nowhere.wav"), fnfErr);
}

TEST_F(HardwareTest, ServerHabitsShowInTheTimesOfCycles)
{
    const AudioDeviceID device = add("a", 2, 2);
    std::vector<Float64> inputTimes, outputTimes;
    Client client(device, [&](const Cycle& cycle) {
        const OutsideRealTime records;
        inputTimes.push_back(cycle.inputTime.mSampleTime);
        outputTimes.push_back(cycle.outputTime.mSampleTime);
    });
    Heard heard;
    heard.listenToDevice(device, kAudioDeviceProcessorOverload);
    EXPECT_EQ(noErr, hardware.setStartDelay(device, 1'000'000'000));
    client.start();
    hardware.advance(1'000'000'000);
    EXPECT_EQ(client.cycles, 0);
    EXPECT_TRUE(hardware.advanceCycles(device));
    EXPECT_EQ(noErr, hardware.setCycleFrames(device, 256)); // the next cycle is planned already
    EXPECT_TRUE(hardware.advanceCycles(device, 2));
    EXPECT_EQ(noErr, hardware.skipCycles(device, 3));
    EXPECT_TRUE(hardware.advanceCycles(device));
    EXPECT_EQ(noErr, hardware.jumpSampleTime(device, -10000));
    EXPECT_TRUE(hardware.advanceCycles(device));
    EXPECT_THAT(inputTimes, ElementsAre(44100, 44612, 45124, 46148, 36404));
    EXPECT_THAT(outputTimes, ElementsAre(45124, 45636, 46148, 47172, 37428)); // each at the previous one's end
    EXPECT_THAT(heard.take(), ElementsAre("over 0 in", "over 0 out"));
    heard.stopListeningToDevice(device, kAudioDeviceProcessorOverload);
}

TEST_F(HardwareTest, ARunningDeviceKeepsTheStreamsItStartedWith)
{
    const AudioDeviceID device = add("a", 2, 0);
    std::vector<UInt32> channels;
    Client client(device, [&channels](const Cycle& cycle) {
        const OutsideRealTime records;
        channels.push_back(cycle.input.mBuffers[0].mNumberChannels);
    });
    client.start();
    EXPECT_TRUE(hardware.advanceCycles(device));
    EXPECT_EQ(noErr, hardware.change(device, [](auto& d) { d.input.streams[0].channels = 4; }));
    EXPECT_TRUE(hardware.advanceCycles(device));
    client.stop();
    client.start();
    EXPECT_TRUE(hardware.advanceCycles(device));
    EXPECT_THAT(channels, ElementsAre(2, 2, 4));
}

TEST_F(HardwareTest, ARateChangeWhileRunningChangesThePaceAtOnce)
{
    const AudioDeviceID device = add("a", 2, 0);
    Client client(device, {});
    client.start();
    hardware.advance(1'000'000'000);
    const int before = client.cycles;
    EXPECT_EQ(set(device, 0, true, kAudioDevicePropertyNominalSampleRate, 88200.0), noErr);
    hardware.advance(1'000'000'000);
    EXPECT_EQ(before, 86);
    EXPECT_EQ(client.cycles - before, 172);
}

TEST_F(HardwareTest, FastTimeWaitsForWhatACycleCausedOnOtherThreads)
{
    const AudioDeviceID device = add("a", 2, 0);
    std::atomic<int> given{0}, taken{0}, most{0};
    std::atomic<bool> ends{false};
    qmx::Worker worker([&] { return given != taken; });
    qmx::Thread saver("saver", [&] {
        for (;;) {
            {
                const qmx::Worker::Wait wait(worker);
                given.wait(taken);
            }
            if (ends)
                return;
            most = std::max<int>(most, given - taken);
            std::this_thread::yield();
            ++taken;
        }
    });
    Client client(device, [&](const Cycle&) {
        ++given;
        given.notify_one();
    });
    client.start();
    hardware.setTime(qmx::VirtualTime::fast);
    while (client.cycles < 500)
        std::this_thread::yield();
    client.stop();
    hardware.setTime(qmx::VirtualTime::manual);
    hardware.settle();
    EXPECT_EQ(most, 1);
    ends = true;
    ++given;
    given.notify_one();
}

TEST_F(HardwareTest, AnInputPlaysAnAudioFile)
{
    const qmx::test::TemporaryFolder folder;
    const std::string path = folder.path("in.wav");
    std::vector<float> samples(700);
    for (std::size_t i = 0; i < samples.size(); ++i)
        samples[i] = static_cast<float>(i + 1) / 32768;
    qmx::test::writeMusic(path, kAudioFileWAVEType, qmx::test::linear(12, 16, 1), samples);
    const AudioDeviceID device = add("a", 2, 0);
    ASSERT_EQ(hardware.setInputFile(device, path), noErr);
    std::vector<Float32> heard;
    Client client(device, [&heard](const Cycle& cycle) {
        const OutsideRealTime records;
        const auto slice = cycle.samples(cycle.input);
        heard.insert(heard.end(), slice.begin(), slice.end());
    });
    client.start();
    EXPECT_TRUE(hardware.advanceCycles(device, 2));
    ASSERT_EQ(heard.size(), 2048U);
    EXPECT_EQ(heard[2 * 699], 700.0F / 32768);
    EXPECT_EQ(heard[2 * 699 + 1], 0); // the file has one channel
    EXPECT_EQ(heard[2 * 700], 0);     // and ends
}

TEST(VirtualHardware, BeginsWithALoopedPairThatIsTheDefault)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe"); // a new process, where nothing was reset
    const auto looksRight = [] {
        std::array<AudioDeviceID, 3> ids{};
        UInt32 size = sizeof ids;
        AudioDeviceID input = 0, output = 0;
        UInt32 word = sizeof word;
        return AudioHardwareGetProperty(kAudioHardwarePropertyDevices, &size, ids.data()) == noErr &&
               size == 2 * sizeof(AudioDeviceID) &&
               AudioHardwareGetProperty(kAudioHardwarePropertyDefaultInputDevice, &word, &input) == noErr &&
               AudioHardwareGetProperty(kAudioHardwarePropertyDefaultOutputDevice, &word, &output) == noErr &&
               input == ids[0] && output == ids[1] && qmx::VirtualHardware::shared().time() == qmx::VirtualTime::real;
    };
    EXPECT_EXIT(std::exit(looksRight() ? 0 : 1), testing::ExitedWithCode(0), "");
}

TEST(VirtualHardware, AStuckListenerHoldsUpNeitherUnpluggingNorTheEndOfTheProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto unplugWhileStuck = [] {
        auto& hardware = qmx::VirtualHardware::shared();
        static std::atomic<int> entered{0};
        const AudioHardwarePropertyListenerProc stuck = [](AudioHardwarePropertyID, void*) -> OSStatus {
            entered = 1;
            entered.notify_all();
            for (;;)
                entered.wait(1);
        };
        EXPECT_EQ(noErr, AudioHardwareAddPropertyListener(kAudioPropertyWildcardPropertyID, stuck, nullptr));
        const AudioDeviceID device = hardware.devices().front();
        static Client client(device, {});
        client.start();
        hardware.announceHardware(kAudioHardwarePropertySleepingIsAllowed);
        entered.wait(0);
        return hardware.removeDevice(device) == noErr;
    };
    EXPECT_EXIT(std::exit(unplugWhileStuck() ? 0 : 1), testing::ExitedWithCode(0), "");
}

TEST_F(HardwareTest, TenThousandPlugEventsWithListenersWhileADeviceRuns)
{
    const AudioDeviceID steady = add("steady", 2, 2);
    Client client(steady, writePattern);
    std::atomic<int> changes{0};
    const AudioHardwarePropertyListenerProc count = [](AudioHardwarePropertyID property, void* clientData) -> OSStatus {
        if (property == kAudioHardwarePropertyDevices) {
            ++*static_cast<std::atomic<int>*>(clientData);
            devices();
        }
        return noErr;
    };
    hardware.settle();
    devices();
    ASSERT_EQ(AudioHardwareAddPropertyListener(kAudioPropertyWildcardPropertyID, count, &changes), noErr);
    client.start();
    hardware.setTime(qmx::VirtualTime::fast);
    Heard heard;
    for (int event = 0; event < 5000; ++event) {
        const AudioDeviceID device = add("passing", 1, 0);
        heard.listenToDevice(device);
        {
            Client passing(device, {});
            if (event % 16 == 0)
                passing.start();
            EXPECT_EQ(noErr, hardware.removeDevice(device));
        }
        EXPECT_EQ(heard.stopListeningToDevice(device), noErr);
    }
    hardware.setTime(qmx::VirtualTime::manual);
    hardware.settle();
    EXPECT_EQ(changes, 10000);
    EXPECT_GT(client.cycles, 0);
    EXPECT_THAT(devices(), ElementsAre(steady));
    EXPECT_EQ(noErr, AudioHardwareRemovePropertyListener(kAudioPropertyWildcardPropertyID, count, &changes));
    client.stop();
    qmx::waitUntilRetired();
}
