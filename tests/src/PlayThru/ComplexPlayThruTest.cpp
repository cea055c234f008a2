// SPDX-License-Identifier: MIT
#include "PlayThru/ComplexPlayThru.h"
#include "AudioUnit/AudioUnit.h"
#include "PlayThru/AudioDevice.h"
#include "PlayThru/AudioDeviceList.h"
#include "support/CapturedFailures.h"
#include "support/ShortMemory.h"
#include "support/Units.h"
#include "support/VirtualDevices.h"

#include <cmath>

using qmx::VirtualHardware;

namespace
{

/// Every input sample says its frame: n units in the first channel, n / 2 in the second, n / 3 in the third.
constexpr SInt64 turn = 1 << 20; ///< of frames; then the count begins again
constexpr Float64 unit = 1.0 / turn;

class PlayThruEngine : public qmx::test::VirtualDevices
{
protected:
    AudioDeviceID addDevice(const std::string& uid, UInt32 inputs, UInt32 outputs, Float64 rate = 44100)
    {
        auto description = VirtualHardware::standardDevice(uid, uid, inputs, outputs);
        description.nominalSampleRate = description.actualSampleRate = rate;
        description.availableSampleRates.push_back({rate, rate});
        description.input.safetyOffset = 24;
        description.output.safetyOffset = 32;
        const AudioDeviceID id = hardware.addDevice(description);
        EXPECT_EQ(noErr, hardware.setInput(id, [](Float32* samples, UInt32 frames, UInt32 channels, SInt64 first) {
            for (UInt32 i = 0; i < frames * channels; ++i)
                samples[i] = static_cast<Float32>(unit * static_cast<Float64>((first + i / channels) % turn) /
                                                  (1 + i % channels));
        }));
        return id;
    }
    AudioDeviceID addInput(const std::string& uid, UInt32 channels = 2) { return addDevice(uid, channels, 0); }
    AudioDeviceID addOutput(const std::string& uid, Float64 rate = 44100) { return addDevice(uid, 0, 2, rate); }
    void change(AudioDeviceID device, const std::function<void(qmx::DeviceDescription&)>& edit)
    {
        EXPECT_EQ(noErr, hardware.change(device, edit));
        hardware.settle();
    }
    void remove(AudioDeviceID device)
    {
        EXPECT_EQ(noErr, hardware.removeDevice(device));
        hardware.settle();
    }
    std::unique_ptr<ComplexPlayThru> make(AudioDeviceID input, AudioDeviceID output)
    {
        OSStatus status = noErr;
        auto engine = ComplexPlayThru::make(input, output, status);
        EXPECT_EQ(noErr, status);
        return engine;
    }
    /// What an output is given in the next cycles, one channel of it, in units.
    std::vector<Float64> play(AudioDeviceID output, UInt32 cycles, std::size_t channel = 0)
    {
        EXPECT_EQ(noErr, hardware.captureOutput(output, std::size_t{cycles} * 4096));
        EXPECT_TRUE(hardware.advanceCycles(output, cycles));
        const auto all = hardware.capturedOutput(output);
        AudioDevice side;
        EXPECT_EQ(noErr, side.Init(output, false));
        std::vector<Float64> one;
        for (std::size_t i = channel; i < all.size(); i += static_cast<std::size_t>(side.CountChannels()))
            one.push_back(static_cast<Float64>(all[i]) / unit);
        return one;
    }
    /// Input frames for each frame that an output plays; the sound has begun, and nothing is missing in it.
    Float64 speed(AudioDeviceID output, std::size_t channel = 0)
    {
        play(output, 12);
        const auto played = play(output, 10, channel);
        const Float64 speed = (played.back() - played.front()) / static_cast<Float64>(played.size() - 1);
        for (std::size_t i = 0; i < played.size(); ++i)
            EXPECT_NEAR(played[i], played.front() + speed * static_cast<Float64>(i), 4) << "frame " << i;
        return speed;
    }
    void expectSilence(AudioDeviceID output, UInt32 cycles = 8)
    {
        for (const Float64 sample : play(output, cycles))
            ASSERT_EQ(0, sample);
    }
    static Float64 latency(const ComplexPlayThru& engine)
    {
        double frames = 0;
        EXPECT_EQ(noErr, engine.GetLatency(&frames));
        return frames;
    }
    bool runs(AudioDeviceID device)
    {
        UInt32 runs = 0, size = sizeof runs;
        EXPECT_EQ(noErr, AudioDeviceGetProperty(device, 0, false, kAudioDevicePropertyDeviceIsRunning, &size, &runs));
        return runs != 0;
    }

    qmx::test::CapturedFailures failures;
};

} // namespace

TEST_F(PlayThruEngine, PlaysTheInputLaterByItsLatencyAndNothingOldAfterAStop)
{
    const AudioDeviceID input = addInput("in"), output = addOutput("out");
    const auto engine = make(input, output);
    EXPECT_FALSE(engine->IsRunning());
    EXPECT_EQ(engine->ComputeThruOffset(), 24 + 512 + 32 + 512);
    EXPECT_GT(latency(*engine), engine->ComputeThruOffset());
    ASSERT_EQ(noErr, engine->Start());
    EXPECT_TRUE(engine->IsRunning());
    const auto played = play(output, 40);
    const Float64 firstFrame = -24; // of the first slice, which came with the output's first request
    const auto delay = static_cast<std::size_t>(std::lround(latency(*engine)));
    const std::size_t start = delay - 1080 + 3 * 512; // the first slice after those 1080 frames
    for (std::size_t i = 0; i < start - 200; ++i)
        ASSERT_EQ(played[i], 0) << i;
    for (std::size_t i = start + 200; i < played.size(); ++i) // the filter rings in between
        ASSERT_NEAR(played[i], static_cast<Float64>(i - delay) + firstFrame, 0.2) << i;
    EXPECT_EQ(0U, engine->GetRefusedFetches());

    float volume = 1;
    EXPECT_EQ(kAudioUnitErr_InvalidParameter, engine->SetVolume(std::numeric_limits<float>::quiet_NaN()));
    EXPECT_EQ(kAudioUnitErr_InvalidParameter, engine->lastStatus());
    EXPECT_EQ(noErr, engine->SetVolume(0.5F));
    EXPECT_EQ(noErr, engine->lastStatus());
    EXPECT_EQ(noErr, engine->GetVolume(&volume));
    EXPECT_EQ(0.5F, volume);
    EXPECT_NEAR(speed(output), 0.5, 1e-3);

    EXPECT_EQ(noErr, engine->Stop());
    EXPECT_FALSE(engine->IsRunning());
    ASSERT_EQ(noErr, hardware.setInput(input, nullptr));
    ASSERT_EQ(noErr, engine->Start());
    expectSilence(output, 20);              // although the ring still holds what came before the stop
    EXPECT_EQ(1U, failures.lines().size()); // of the volume
}

TEST_F(PlayThruEngine, KeepsThePitchBetweenDifferentRatesAndWhenTheyChange)
{
    const AudioDeviceID input = addInput("in"), output = addOutput("out", 48000);
    testing::internal::CaptureStdout();
    const auto engine = make(input, output);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Info::Sample rate mismatched: (in=44100.000000 / out=48000.000000).\n"
              "\t\t Setting Varispeed rate to 0.918750.\n");
    ASSERT_EQ(noErr, engine->Start());
    EXPECT_NEAR(speed(output), 44100.0 / 48000, 1e-4);
    const auto setRate = [this](AudioDeviceID device, bool isInput, Float64 rate) {
        EXPECT_EQ(noErr, AudioDeviceSetProperty(device, nullptr, 0, isInput, kAudioDevicePropertyNominalSampleRate,
                                                sizeof rate, &rate));
        hardware.settle();
    };
    setRate(input, true, 88200);
    EXPECT_NEAR(speed(output), 88200.0 / 48000, 1e-4);
    setRate(output, false, 44100);
    EXPECT_NEAR(speed(output), 2, 1e-4);
    EXPECT_EQ(2, engine->GetRate());
}

// The output's cycle takes more input frames than the varispeed asks for at once.
TEST_F(PlayThruEngine, CorrectsNoDriftWhereThereIsNone)
{
    const AudioDeviceID input = addDevice("in", 2, 0, 48000), output = addOutput("out");
    const auto engine = make(input, output);
    hardware.advance(1000000000); // from 0 on no earlier time could be stamped
    engine->SetDriftCorrection(true);
    ASSERT_EQ(noErr, engine->Start());
    hardware.advance(UInt64{5} * 1000000000);
    EXPECT_EQ(0U, engine->GetRefusedFetches());
    EXPECT_NEAR(engine->GetRate(), 48000.0 / 44100, 5e-5);
}

TEST_F(PlayThruEngine, TakesAnyChannelCounts)
{
    const AudioDeviceID output = addOutput("out");
    for (const UInt32 channels : {1U, 6U}) {
        const AudioDeviceID input = addInput("in", channels);
        const auto engine = make(input, output);
        ASSERT_EQ(noErr, engine->Start());
        EXPECT_NEAR(speed(output, 0), 1, 1e-4);
        EXPECT_NEAR(speed(output, 1), channels == 1 ? 1 : 0.5, 1e-4); // one is heard on both
        EXPECT_EQ(noErr, engine->Stop());
        EXPECT_EQ(noErr, engine->EnableIO());
        testing::internal::CaptureStdout();
        // the unit refuses to take a second channel of one
        EXPECT_EQ(channels == 1 ? kAudioUnitErr_InvalidPropertyValue : noErr, engine->MapChannels());
        EXPECT_EQ(testing::internal::GetCapturedStdout(),
                  "---Channel Mapping---\nInfo:Input Channel (0): maps to output channel 0  \n"
                  "Info:Input Channel (1): maps to output channel 1  \n");
        EXPECT_EQ(noErr, engine->SetupBuffers());
        ASSERT_EQ(noErr, engine->Start());
        EXPECT_NEAR(speed(output), 1, 1e-4);
        remove(input);
    }
    const AudioDeviceID stereo = addInput("stereo"), mono = addDevice("mono", 0, 1);
    const auto engine = make(stereo, mono);
    ASSERT_EQ(noErr, engine->Start());
    EXPECT_NEAR(speed(mono), 0.75, 1e-4); // the mean of both
}

TEST_F(PlayThruEngine, KeepsItsLatencyWhenTheOutputsChannelsChange)
{
    const AudioDeviceID input = addInput("in"), output = addOutput("out"), headset = addDevice("headset", 2, 2);
    const auto engine = make(input, output);
    ASSERT_EQ(noErr, engine->Start());
    EXPECT_NEAR(speed(output), 1, 1e-4);
    const auto distance = [&] {
        const Float64 played = play(output, 1).back();
        return static_cast<Float64>(hardware.now()) * 44100e-9 - played;
    };
    const Float64 start = distance();
    for (const UInt32 channels : {4U, 6U, 2U}) {
        change(output, [&](auto& description) { description.output.streams[0].channels = channels; });
        play(output, 12);
        EXPECT_NEAR(distance(), start, 2) << channels;
    }
    EXPECT_EQ(noErr, engine->SetInputDeviceAsCurrent(headset)); // one device for both
    EXPECT_EQ(noErr, engine->SetOutputDeviceAsCurrent(headset));
    EXPECT_NEAR(speed(headset), 1, 1e-4);
    change(headset, [](auto& description) { description.nominalSampleRate = description.actualSampleRate = 88200; });
    EXPECT_NEAR(speed(headset), 1, 1e-4);
}

// A cycle of the output takes four of the input, and all of their frames must be there, whichever comes first.
TEST_F(PlayThruEngine, HasLatencyEnoughForASlowerOutput)
{
    const AudioDeviceID input = addDevice("in", 2, 0, 192000), output = addOutput("out", 48000);
    const auto engine = make(input, output);
    ASSERT_EQ(noErr, engine->Start());
    EXPECT_EQ(engine->ComputeThruOffset(), 24 + 512 + 32 + 512);
    EXPECT_NEAR(play(output, 20).back(), 4 * (20 * 512 - 1) - latency(*engine) - 24, 4);
    for (UInt64 phase = 0; phase < 8; ++phase) {
        hardware.advance(1300000 * phase);                          // into a cycle of 10.7 ms
        EXPECT_EQ(noErr, engine->SetOutputDeviceAsCurrent(output)); // measures anew
        EXPECT_NEAR(speed(output), 4, 1e-3) << phase;
    }
}

TEST_F(PlayThruEngine, GoesOverToOtherDevicesAndSurvivesTheirLoss)
{
    AudioDeviceID input = addInput("in"), output = addOutput("out");
    const AudioDeviceID other = addOutput("other", 48000), otherInput = addInput("other in", 1);
    auto engine = make(0, 0); // the defaults
    ASSERT_EQ(noErr, engine->Start());
    EXPECT_NEAR(speed(output), 1, 1e-4);
    EXPECT_EQ(noErr, engine->SetOutputDeviceAsCurrent(other));
    EXPECT_NEAR(speed(other), 44100.0 / 48000, 1e-4);
    EXPECT_FALSE(runs(output));
    EXPECT_EQ(noErr, engine->SetInputDeviceAsCurrent(otherInput));
    EXPECT_NEAR(speed(other, 1), 44100.0 / 48000, 1e-4);
    EXPECT_EQ(kAudioHardwareBadDeviceError, engine->SetInputDeviceAsCurrent(99999));
    EXPECT_EQ(kAudioHardwareBadDeviceError, engine->lastStatus());
    EXPECT_TRUE(engine->lastError().starts_with("The input device cannot be used")) << engine->lastError();
    ASSERT_EQ(noErr, hardware.setDefaultDevice(kAudioHardwarePropertyDefaultInputDevice, kAudioDeviceUnknown));
    EXPECT_EQ(kAudioHardwareBadDeviceError, engine->SetInputDeviceAsCurrent(0));
    EXPECT_NEAR(speed(other, 1), 44100.0 / 48000, 1e-4); // as before
    EXPECT_EQ(noErr, engine->SetInputDeviceAsCurrent(input));
    EXPECT_EQ(noErr, engine->SetOutputDeviceAsCurrent(output));
    EXPECT_NEAR(speed(output, 1), 0.5, 1e-4);

    remove(input);
    EXPECT_EQ(kAudioHardwareBadDeviceError, engine->lastStatus());
    EXPECT_EQ("in is gone: it is used again when it returns", engine->lastError());
    play(output, 12);
    expectSilence(output);
    EXPECT_GT(engine->GetRefusedFetches(), 0U);
    input = addInput("in");
    hardware.settle();
    EXPECT_EQ(noErr, engine->lastStatus());
    EXPECT_NEAR(speed(output), 1, 1e-4);
    remove(output);
    EXPECT_FALSE(engine->IsRunning());
    EXPECT_EQ(kAudioHardwareBadDeviceError, engine->SetOutputDeviceAsCurrent(output)); // and it is awaited all the same
    output = addOutput("out", 88200);
    hardware.settle();
    EXPECT_NEAR(speed(output), 0.5, 1e-4);

    // stopped while the output is away: stopped when it returns
    remove(output);
    EXPECT_EQ(noErr, engine->Stop());
    EXPECT_FALSE(runs(input));
    output = addOutput("out");
    hardware.settle();
    EXPECT_FALSE(engine->IsRunning());
    // started while the input is away: heard when it returns
    remove(input);
    EXPECT_EQ(noErr, engine->Start());
    EXPECT_EQ(kAudioHardwareBadDeviceError, engine->lastStatus());
    expectSilence(output);
    input = addInput("in");
    hardware.settle();
    EXPECT_NEAR(speed(output), 1, 1e-4);

    engine.reset(); // while it runs
    EXPECT_FALSE(runs(input) || runs(output));
}

TEST_F(PlayThruEngine, FollowsCyclesThatBecomeLonger)
{
    const AudioDeviceID input = addInput("in"), output = addOutput("out");
    const auto engine = make(input, output);
    ASSERT_EQ(noErr, engine->Start());
    EXPECT_NEAR(speed(output), 1, 1e-4);
    for (const AudioDeviceID device : {input, output}) {
        ASSERT_EQ(noErr, hardware.setCycleFrames(device, 2048));
        change(device, [](auto& description) { description.bufferFrameSize = 2048; });
    }
    EXPECT_EQ(engine->ComputeThruOffset(), 24 + 32 + 2 * 2048);
    play(output, 8);
    const auto refused = engine->GetRefusedFetches();
    EXPECT_NEAR(speed(output), 1, 1e-4);
    EXPECT_EQ(refused, engine->GetRefusedFetches());

    testing::internal::CaptureStderr();
    change(output, [](auto& description) { description.bufferFrameSize = 8192; });
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "qmxcoreaudio error: output cycles of 8192 frames do not fit the ring of 10240\n");
    EXPECT_EQ("out is silent until the next start: output cycles of 8192 frames do not fit the ring of 10240",
              engine->lastError());
    ASSERT_EQ(noErr, hardware.setCycleFrames(output, 8192));
    EXPECT_EQ(noErr, engine->Stop());
    EXPECT_EQ(noErr, engine->Start());
    EXPECT_NEAR(speed(output), 1, 1e-4);
}

// Cycles of 512 frames at 8000 Hz: few of them in a long time.
TEST_F(PlayThruEngine, StaysInStepWithClocksThatDriftApart)
{
    constexpr Float64 rate = 8000;
    const AudioDeviceID input = addDevice("in", 1, 0, rate), output = addOutput("out", rate);
    const auto engine = make(input, output);
    hardware.advance(1000000000); // from 0 on no earlier time could be stamped
    ASSERT_EQ(noErr, hardware.setClockDrift(input, 200));
    ASSERT_EQ(noErr, hardware.setClockDrift(output, -200));
    engine->SetDriftCorrection(true);
    ASSERT_EQ(noErr, engine->Start());
    /// Seconds between the frame that the input is at and the one that is played.
    const auto distance = [&] {
        const Float64 played = play(output, 1).back();
        const Float64 captured = 1 + (static_cast<Float64>(hardware.now()) * 1e-9 - 1) * (1 + 200e-6);
        return std::remainder(captured - played / rate, static_cast<Float64>(turn) / rate);
    };
    play(output, 8);
    const Float64 start = distance();
    for (int i = 0; i < 6; ++i) {
        hardware.advance(UInt64{5} * 1000000000);
        EXPECT_NEAR(distance(), start, 1e-3);
    }
    EXPECT_EQ(0U, engine->GetRefusedFetches());
    EXPECT_NEAR(engine->GetRate(), (1 + 200e-6) / (1 - 200e-6), 2e-5);
    ASSERT_EQ(noErr, hardware.skipCycles(output, 3)); // lost, not played later
    play(output, 1);
    EXPECT_NEAR(distance(), start, 1e-3);

    // The clock jumps: the offset is measured again.
    ASSERT_EQ(noErr, hardware.jumpSampleTime(output, 100000));
    play(output, 12);
    EXPECT_GT(engine->GetRefusedFetches(), 0U);
    EXPECT_NEAR(speed(output), 1, 1e-3);
}

TEST_F(PlayThruEngine, SaysWhatFails)
{
    OSStatus status = noErr;
    std::string reason;
    testing::internal::CaptureStderr();
    EXPECT_FALSE(ComplexPlayThru::make(0, 0, status, &reason));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "qmxcoreaudio error: unable to initialize play thru");
    EXPECT_EQ(1, status);
    EXPECT_TRUE(reason.starts_with("The input device does not exist: ")) << reason;
    ASSERT_FALSE(failures.lines().empty());
    EXPECT_TRUE(failures.lines()[0].starts_with("qmxcoreaudio error: "));
    EXPECT_NE(std::string::npos, failures.lines()[0].find(" ->  coreaudio_aac/src/PlayThru/ComplexPlayThru:  "));

    const AudioDeviceID input = addInput("in");
    const auto engine = make(0, 0); // no output yet
    EXPECT_NE(noErr, engine->lastStatus());
    EXPECT_NE(noErr, engine->Start());
    EXPECT_FALSE(runs(input)); // nobody listens in vain
    const AudioDeviceID output = addOutput("out", 48000);
    auto fault = qmx::test::failing(qmx::HardwareOperation::start, {}, 1);
    fault.status = kAudioHardwareIllegalOperationError;
    fault.object = input;
    hardware.addFault(fault);
    EXPECT_EQ(noErr, engine->Start());
    EXPECT_EQ(kAudioHardwareIllegalOperationError, engine->lastStatus());
    EXPECT_TRUE(engine->lastError().starts_with("in cannot be started: ")) << engine->lastError();
    EXPECT_EQ(noErr, engine->Start()); // tries it again
    EXPECT_EQ(noErr, engine->lastStatus());
    EXPECT_NEAR(speed(output), 44100.0 / 48000, 1e-4);
    hardware.addFault(fault);
    EXPECT_EQ(noErr, engine->Stop());
    EXPECT_EQ(noErr, engine->Start());
    const AudioDeviceID other = addInput("other");
    EXPECT_EQ(noErr, engine->SetInputDeviceAsCurrent(other)); // starts in its place
    EXPECT_NEAR(speed(output), 44100.0 / 48000, 1e-4);

    const auto unplugged = make(input, 99999);
    EXPECT_EQ(kAudioHardwareBadDeviceError, unplugged->Start()); // not the default output instead
    EXPECT_FALSE(runs(input));
}

TEST_F(PlayThruEngine, ThrowsNothingWithoutMemory)
{
    const AudioDeviceID input = addInput("in"), output = addOutput("out"), other = addOutput("other");
    const qmx::test::OpenUnit varispeed(qmx::test::varispeedUnit); // keeps its filters, which take long to make
    ASSERT_EQ(noErr, AudioUnitInitialize(varispeed));
    qmx::test::withEveryAllocationFailing([&](qmx::test::ShortMemory& memory) {
        OSStatus status = noErr;
        testing::internal::CaptureStderr();
        const auto made = memory.during([&] { return ComplexPlayThru::make(input, output, status); });
        testing::internal::GetCapturedStderr();
        EXPECT_EQ(made ? noErr : 1, status);
        memory.during([] { return AudioDeviceList(true).GetList().size(); });
    });
    const auto engine = make(input, output);
    ASSERT_EQ(noErr, engine->Start());
    qmx::test::withEveryAllocationFailing([&](qmx::test::ShortMemory& memory) {
        const OSStatus status = memory.during([&] { return engine->SetOutputDeviceAsCurrent(other); });
        EXPECT_EQ(status, memory.during([&] { return engine->lastStatus(); }));
        (void)memory.during([&] { return engine->lastError(); });
        EXPECT_EQ(noErr, engine->SetOutputDeviceAsCurrent(output));
    });
    EXPECT_NEAR(speed(output), 1, 1e-4);
}
