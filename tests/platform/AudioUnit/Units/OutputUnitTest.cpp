// SPDX-License-Identifier: MIT
#include "AudioUnit/Units/OutputUnit.h"

#include "support/Hardware.h"
#include "support/ShortMemory.h"
#include "support/Units.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <limits>
#include <numbers>

using namespace qmx::test;
using testing::Each;
using testing::ElementsAre;

namespace
{

/// The sample that a device captures: the frame, and the channel times 2^16.
Float32 captured(SInt64 frame, UInt32 channel)
{
    return static_cast<Float32>(frame + channel * 65536);
}

void captureNumbers(Float32* samples, UInt32 frames, UInt32 channels, SInt64 first)
{
    for (UInt32 frame = 0; frame < frames; ++frame)
        for (UInt32 channel = 0; channel < channels; ++channel)
            *samples++ = captured(first + frame, channel);
}

/// Renders each slice that an input unit offers, and keeps what came.
struct Listener {
    static OSStatus hear(void* refCon, AudioUnitRenderActionFlags* flags, const AudioTimeStamp* time, UInt32 bus,
                         UInt32 frames, AudioBufferList*)
    {
        auto& self = *static_cast<Listener*>(refCon);
        self.largest = std::max(self.largest, frames);
        if (self.times.size() < self.times.capacity())
            self.times.push_back(time->mSampleTime);
        for (UInt32 channel = 0; channel < self.channels; ++channel)
            self.list.buffer(channel) = {1, frames * 4, &self.heard[channel][self.frames]};
        EXPECT_EQ(1U, bus);
        EXPECT_EQ(noErr, AudioUnitRender(self.unit, flags, time, bus, frames, self.list.list()));
        self.frames += frames;
        if (self.stopsAfter > 0 && self.frames >= self.stopsAfter) {
            EXPECT_EQ(noErr, AudioOutputUnitStop(self.unit));
        }
        return self.result;
    }

    explicit Listener(UInt32 channelCount)
        : channels(channelCount), heard(channelCount, std::vector<Float32>(1 << 16)), one(channelCount),
          list(one, channelCount)
    {
        times.reserve(100);
    }
    AURenderCallbackStruct callback() { return {hear, this}; }

    AudioUnit unit = nullptr;
    UInt32 channels;
    std::vector<std::vector<Float32>> heard; ///< of each channel
    std::vector<Float32> one;
    BufferList list;
    std::vector<Float64> times;
    UInt32 frames = 0, largest = 0, stopsAfter = 0;
    OSStatus result = noErr;
};

class HALUnit : public HardwareTest
{
protected:
    ~HALUnit() override { unit.close(); }
    void enableInput(UInt32 isEnabled = 1)
    {
        EXPECT_EQ(noErr, unit.set(kAudioOutputUnitProperty_EnableIO, kAudioUnitScope_Input, isEnabled, 1));
    }
    void useInputAlone(AudioDeviceID device = kAudioDeviceUnknown)
    {
        enableInput();
        EXPECT_EQ(noErr, unit.set(kAudioOutputUnitProperty_EnableIO, kAudioUnitScope_Output, UInt32{0}));
        EXPECT_TRUE(device == kAudioDeviceUnknown || unit.nameDevice(device) == noErr);
    }
    /// The format of captured frames: floats of one channel.
    void captureMono(Float64 rate = 44100)
    {
        EXPECT_EQ(noErr, unit.set(kAudioUnitProperty_StreamFormat, kAudioUnitScope_Output,
                                  linearFormat(32, 1, kAudioFormatFlagIsFloat, rate), 1));
    }
    AudioDeviceID addInput(const std::string& uid, UInt32 channels, UInt32 outputs = 0)
    {
        const AudioDeviceID id = add(uid, channels, outputs);
        EXPECT_EQ(noErr, hardware.setInput(id, captureNumbers));
        return id;
    }
    void startWith(Listener& listener)
    {
        listener.unit = unit;
        EXPECT_EQ(noErr,
                  unit.set(kAudioOutputUnitProperty_SetInputCallback, kAudioUnitScope_Global, listener.callback()));
        unit.start();
    }

    OpenUnit unit{halOutput};
};

} // namespace

TEST(OutputUnit, NeedsNoDeviceUntilItIsStarted)
{
    auto& hardware = qmx::VirtualHardware::shared();
    hardware.reset();
    qmx::VirtualFault fault; // for the first call of the hardware layer
    fault.times = 1;
    hardware.addFault(fault);
    OpenUnit unit(defaultOutput);
    unit.set(kAudioUnitProperty_SampleRate, kAudioUnitScope_Input, 48000.0);
    EXPECT_EQ(48000, unit.get<Float64>(kAudioDevicePropertyNominalSampleRate, kAudioUnitScope_Input));
    EXPECT_EQ(48000, unit.get<Float64>(kAudioUnitProperty_SampleRate, kAudioUnitScope_Output));
    EXPECT_EQ(kAudioUnitErr_PropertyNotWritable,
              unit.set(kAudioUnitProperty_SampleRate, kAudioUnitScope_Output, 44100.0));
    EXPECT_EQ(noErr, AudioUnitSetParameter(unit, kHALOutputParam_Volume, kAudioUnitScope_Global, 0, 7, 0));
    Float32 volume = 0;
    EXPECT_EQ(noErr, AudioUnitGetParameter(unit, kHALOutputParam_Volume, kAudioUnitScope_Global, 0, &volume));
    EXPECT_EQ(1, volume);
    EXPECT_EQ(kAudioUnitErr_InvalidParameter,
              AudioUnitSetParameter(unit, kHALOutputParam_Volume, kAudioUnitScope_Global, 0,
                                    std::numeric_limits<Float32>::quiet_NaN(), 0));

    Counter counter;
    unit.setInput(counter.callback());
    EXPECT_EQ(kAudioUnitErr_Uninitialized, AudioOutputUnitStart(unit));
    EXPECT_EQ(noErr, AudioUnitInitialize(unit));
    std::vector<Float32> samples(4);
    BufferList list(samples, 2);
    EXPECT_EQ(noErr, render(unit, 2, list));
    EXPECT_THAT(samples, ElementsAre(0, 1, 1000, 1001));
    UInt32 size = 0;
    EXPECT_EQ(kAudioHardwareUnspecifiedError,
              AudioHardwareGetPropertyInfo(kAudioHardwarePropertyDevices, &size, nullptr)); // the first call
    EXPECT_EQ(kAudioHardwareBadDeviceError, unit.nameDevice(256));
    EXPECT_EQ(0U, unit.get<UInt32>(kAudioOutputUnitProperty_CurrentDevice, kAudioUnitScope_Global));
    EXPECT_EQ(kAudioHardwareBadDeviceError, AudioOutputUnitStart(unit));
    EXPECT_FALSE(unit.isRunning());
    EXPECT_EQ(noErr, AudioOutputUnitStop(unit));
}

TEST_F(HALUnit, DeliversEveryChannelThatADeviceCaptures)
{
    useInputAlone();
    for (const UInt32 channels : {1U, 2U, 6U, 8U}) {
        const AudioDeviceID device = addInput("input " + std::to_string(channels), channels);
        EXPECT_EQ(noErr, hardware.change(device, [&](qmx::DeviceDescription& d) {
            if (channels == 6) { // over two streams
                d.input.streams.resize(2, d.input.streams[0]);
                d.input.streams[0].channels = 4;
                d.input.streams[1].channels = 2;
            }
        }));
        set(device, 0, true, kAudioDevicePropertyNominalSampleRate, 48000.0);
        EXPECT_EQ(noErr, unit.nameDevice(device));
        auto format = unit.get<AudioStreamBasicDescription>(kAudioUnitProperty_StreamFormat,
                                                            kAudioUnitScope_Input); // mirrors element 1
        EXPECT_EQ(48000, format.mSampleRate);
        format.mChannelsPerFrame = channels;
        EXPECT_EQ(noErr, unit.set(kAudioUnitProperty_StreamFormat, kAudioUnitScope_Output, format, 1));
        Listener listener(channels + 1); // one more than the format has
        std::ranges::fill(listener.heard[channels], 1.0F);
        startWith(listener);
        EXPECT_TRUE(hardware.advanceCycles(device, 3));
        EXPECT_EQ(noErr, AudioOutputUnitStop(unit));
        ASSERT_EQ(3U * 512, listener.frames);
        hardware.advance(1'000'000'000);
        const auto first = static_cast<SInt64>(listener.heard[0][0]);
        for (UInt32 channel = 0; channel < channels; ++channel)
            for (UInt32 frame = 0; frame < listener.frames; ++frame)
                ASSERT_EQ(captured(first + frame, channel), listener.heard[channel][frame]) << channel;
        EXPECT_THAT(std::span(listener.heard[channels]).first(listener.frames), Each(0));
        EXPECT_EQ(noErr, AudioOutputUnitStart(unit)); // a stop loses nothing, cycles that are skipped are lost
        EXPECT_TRUE(hardware.advanceCycles(device));
        EXPECT_EQ(noErr, hardware.skipCycles(device, 2));
        EXPECT_TRUE(hardware.advanceCycles(device));
        EXPECT_THAT(listener.times, ElementsAre(0, 512, 1024, 3 * 512, 6 * 512));
        EXPECT_EQ(noErr, AudioUnitUninitialize(unit));
    }
}

TEST_F(HALUnit, ConvertsToTheClientsRateInSlicesOfTheBufferSizeAtInitialize)
{
    const AudioDeviceID device = add("input", 1, 0);
    EXPECT_EQ(noErr, hardware.setInput(device, [](Float32* samples, UInt32 frames, UInt32, SInt64 first) {
        for (UInt32 i = 0; i < frames; ++i)
            samples[i] =
                static_cast<Float32>(0.5 * std::sin(2000 * std::numbers::pi / 44100 * static_cast<Float64>(first + i)));
    }));
    useInputAlone(device);
    captureMono(48000);
    Listener listener(1);
    listener.result = -1; // does not stop it
    startWith(listener);
    EXPECT_EQ(noErr, unit.set(kAudioDevicePropertyBufferFrameSize, kAudioUnitScope_Global, UInt32{2048}));
    EXPECT_EQ(kAudioUnitErr_Initialized,
              unit.set(kAudioOutputUnitProperty_EnableIO, kAudioUnitScope_Output, UInt32{1}));
    EXPECT_TRUE(hardware.advanceCycles(device, 20));
    EXPECT_EQ(512U, listener.largest);
    EXPECT_NEAR((512 + 19 * 2048) * 48000.0 / 44100, listener.frames, 400);
    const std::vector<Float32>& heard = listener.heard[0];
    const Float64 turn = 2 * std::cos(2000 * std::numbers::pi / 48000);
    for (UInt32 i = 1001; i + 1 < listener.frames; ++i)
        ASSERT_LT(std::abs(heard[i - 1] + heard[i + 1] - turn * heard[i]), 1e-5) << i;
    EXPECT_GT(*std::ranges::max_element(heard), 0.49F);
}

TEST_F(HALUnit, LosesFramesByARestartAloneAndTellsOfThem)
{
    const AudioDeviceID device = addInput("in", 1);
    useInputAlone(device);
    Listener listener(1);
    captureMono();
    startWith(listener);
    const auto run = [&] {
        EXPECT_TRUE(hardware.advanceCycles(device, 3));
        hardware.advance(7'000'000); // a part of a cycle
    };
    run();
    EXPECT_EQ(kAudioHardwareBadDeviceError, unit.nameDevice(9999));
    run();
    EXPECT_EQ(noErr, unit.nameDevice(device)); // as it is
    run();
    EXPECT_EQ(Float64{9 * 512}, listener.times.back() + 512 - listener.times.front());
    EXPECT_EQ(noErr, hardware.change(device, [](auto& description) { description.input.streams[0].channels = 2; }));
    EXPECT_TRUE(unit.isRunning());
    run();
    EXPECT_LT(Float64{12 * 512}, listener.times.back() + 512 - listener.times.front());
    for (std::size_t slice = 0; slice < listener.times.size(); ++slice)
        EXPECT_EQ(listener.times[slice] - listener.times[0],
                  listener.heard[0][slice * 512] - listener.heard[0][0] - (slice < 9 ? 0 : 32768)); // two are mixed

    // the times go on at another rate of the device too, and after a stop, whose time was not lost
    const Float64 last = listener.times.back();
    set(device, 0, true, kAudioDevicePropertyNominalSampleRate, 48000.0);
    EXPECT_TRUE(unit.isRunning());
    run();
    EXPECT_EQ(noErr, AudioOutputUnitStop(unit));
    hardware.advance(10'000'000'000);
    EXPECT_EQ(noErr, AudioOutputUnitStart(unit));
    run();
    EXPECT_TRUE(std::ranges::is_sorted(listener.times));
    EXPECT_GT(last + 8 * 512, listener.times.back());
}

TEST_F(HALUnit, BeginsAfterAStopWithWhatIsCapturedThen)
{
    static std::atomic<Float32> level;
    const AudioDeviceID device = add("in", 1, 0);
    EXPECT_EQ(noErr, hardware.setInput(device, [](Float32* samples, UInt32 frames, UInt32, SInt64) {
        std::fill_n(samples, frames, level.load());
    }));
    useInputAlone(device);
    Listener listener(1);
    captureMono(48000); // a filter holds some frames
    level = 1;
    startWith(listener);
    EXPECT_TRUE(hardware.advanceCycles(device, 5));
    EXPECT_EQ(noErr, AudioOutputUnitStop(unit));
    EXPECT_EQ(1, std::round(listener.heard[0][listener.frames - 1]));
    const UInt32 before = listener.frames;
    level = 0;
    EXPECT_EQ(noErr, AudioOutputUnitStart(unit));
    EXPECT_TRUE(hardware.advanceCycles(device, 5));
    EXPECT_LT(before, listener.frames);
    EXPECT_THAT(std::span(listener.heard[0]).subspan(before, listener.frames - before), Each(0));
}

TEST_F(HALUnit, CapturedFramesWaitForTwoCyclesAtMost)
{
    const AudioDeviceID device = addInput("both", 1, 1);
    enableInput();
    EXPECT_EQ(noErr, unit.nameDevice(device));
    captureMono();
    EXPECT_EQ(noErr, unit.set(kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input,
                              linearFormat(32, 1, kAudioFormatFlagIsFloat)));
    struct Late {
        AudioUnit unit;
        int idleCycles;
        static OSStatus pull(void* self, AudioUnitRenderActionFlags* flags, const AudioTimeStamp* time, UInt32,
                             UInt32 frames, AudioBufferList* data)
        {
            auto& late = *static_cast<Late*>(self);
            return late.idleCycles-- > 0 ? noErr : AudioUnitRender(late.unit, flags, time, 1, frames, data);
        }
    } late{unit, 30};
    EXPECT_EQ(noErr, unit.setInput(AURenderCallbackStruct{Late::pull, &late}));
    unit.start();
    EXPECT_TRUE(hardware.advanceCycles(device, 31));
    const Float32 newest = captured(31 * 512, 0); // of the next cycle
    EXPECT_LE(newest - 2 * 512, played(device).at(0));
}

TEST_F(HALUnit, PlaysOnDevicesOfAnyWidthByItsMap)
{
    for (const UInt32 channels : {1U, 2U, 6U, 8U}) {
        SCOPED_TRACE(channels);
        const AudioDeviceID device = add("out" + std::to_string(channels), 0, channels);
        OpenUnit output(halOutput);
        const auto setMap = [&](const std::vector<SInt32>& map) {
            return AudioUnitSetProperty(output, kAudioOutputUnitProperty_ChannelMap, kAudioUnitScope_Output, 0,
                                        map.data(), static_cast<UInt32>(map.size() * sizeof(SInt32)));
        };
        EXPECT_EQ(noErr, output.nameDevice(device));
        Counter counter;
        EXPECT_EQ(noErr, output.setInput(counter.callback()));
        std::vector<SInt32> map(channels, -1);
        map.back() = 1;
        EXPECT_EQ(noErr, setMap(map));
        EXPECT_EQ(kAudioUnitErr_InvalidPropertyValue, setMap(std::vector<SInt32>(channels + 1, 0)));
        EXPECT_EQ(kAudioUnitErr_InvalidPropertyValue, setMap(std::vector<SInt32>(channels, -2)));
        output.start();
        const auto samples = played(device);
        ASSERT_EQ(512 * channels, samples.size());
        for (UInt32 i = 0; i < samples.size(); ++i)
            ASSERT_EQ(i % channels == channels - 1 ? static_cast<Float32>(1000 + i / channels) : 0, samples[i]) << i;
    }
}

TEST_F(HALUnit, MayBeClosedInsideItsCallbacksAndListeners)
{
    const AudioDeviceID device = add("both", 2, 2);
    const auto close = [](void* closed, AudioUnitRenderActionFlags*, const AudioTimeStamp*, UInt32, UInt32,
                          AudioBufferList*) -> OSStatus {
        static_cast<OpenUnit*>(closed)->close();
        return noErr;
    };
    for (const bool isInput : {false, true}) {
        OpenUnit closing(halOutput);
        const AURenderCallbackStruct callback{close, &closing};
        closing.set(kAudioOutputUnitProperty_EnableIO, kAudioUnitScope_Input, UInt32{1}, 1);
        closing.set(isInput ? kAudioOutputUnitProperty_SetInputCallback : kAudioUnitProperty_SetRenderCallback,
                    isInput ? kAudioUnitScope_Global : kAudioUnitScope_Input, callback);
        closing.start();
        (void)hardware.advanceCycles(device, 2); // the second one does not come
        hardware.settle();
        EXPECT_EQ(nullptr, static_cast<AudioUnit>(closing));
    }
    struct Listening {
        OpenUnit unit{halOutput};
        int laterCalls = 0;
        static void close(void* self, AudioUnit, AudioUnitPropertyID property, AudioUnitScope, AudioUnitElement)
        {
            auto& listening = *static_cast<Listening*>(self);
            EXPECT_EQ(noErr, AudioUnitRemovePropertyListener(listening.unit, property, count));
            listening.unit.close();
        }
        static void count(void* self, AudioUnit, AudioUnitPropertyID, AudioUnitScope, AudioUnitElement)
        {
            ++static_cast<Listening*>(self)->laterCalls;
        }
    } listening;
    constexpr AudioUnitPropertyID property = kAudioUnitProperty_MaximumFramesPerSlice;
    EXPECT_EQ(noErr, AudioUnitAddPropertyListener(listening.unit, property, Listening::close, &listening));
    EXPECT_EQ(noErr, AudioUnitAddPropertyListener(listening.unit, property, Listening::count, &listening));
    EXPECT_EQ(noErr, listening.unit.set(property, kAudioUnitScope_Global, UInt32{100}));
    EXPECT_EQ(0, listening.laterCalls);
}

TEST_F(HALUnit, StopsWithoutMemory)
{
    add("out", 0, 2);
    const auto listen = [](void*, AudioUnit, AudioUnitPropertyID, AudioUnitScope, AudioUnitElement) {};
    EXPECT_EQ(noErr, AudioUnitAddPropertyListener(unit, kAudioOutputUnitProperty_IsRunning, listen, nullptr));
    EXPECT_EQ(noErr, AudioUnitInitialize(unit));
    withEveryAllocationFailing([&](ShortMemory& memory) {
        EXPECT_EQ(noErr, AudioOutputUnitStart(unit));
        EXPECT_EQ(noErr, memory.during([&] { return AudioOutputUnitStop(unit); }));
    });
}

TEST_F(HALUnit, StopsInItsInputCallbackAndGoesOnWithAnotherDevice)
{
    const AudioDeviceID device = addInput("input", 2);
    useInputAlone();
    EXPECT_EQ(noErr, unit.set(kAudioUnitProperty_MaximumFramesPerSlice, kAudioUnitScope_Global, UInt32{200}));
    Listener listener(2);
    listener.stopsAfter = 200;
    startWith(listener); // on the default input
    EXPECT_TRUE(hardware.advanceCycles(device));
    EXPECT_EQ(200U, listener.frames);
    EXPECT_FALSE(unit.isRunning());
    listener.stopsAfter = 0;
    EXPECT_EQ(noErr, AudioOutputUnitStart(unit));
    EXPECT_TRUE(hardware.advanceCycles(device));
    EXPECT_EQ(200U + 512, listener.frames);
    EXPECT_EQ(200U, listener.largest);
    EXPECT_EQ(noErr, hardware.removeDevice(device));
    EXPECT_FALSE(unit.isRunning());
    const AudioDeviceID second = addInput("second", 6);
    EXPECT_TRUE(unit.isRunning()); // it became the default
    EXPECT_TRUE(hardware.advanceCycles(second));
    EXPECT_EQ(200U + 2 * 512, listener.frames);
    EXPECT_EQ(65536, listener.heard[1][720] - listener.heard[0][720]);

    // nobody else renders what was captured
    std::vector<Float32> samples(128);
    BufferList list(samples, 2);
    const AudioTimeStamp zero;
    EXPECT_EQ(kAudioUnitErr_CannotDoInCurrentContext, AudioUnitRender(unit, nullptr, &zero, 1, 64, list.list()));
    EXPECT_EQ(kAudioUnitErr_Uninitialized, AudioUnitRender(unit, nullptr, &zero, 0, 64, list.list()));
}

TEST_F(HALUnit, CarriesInputToOutputInAGraph)
{
    const AudioDeviceID device = addInput("both", 2, 2), output = add("output", 0, 2);
    OpenGraph graph;
    const AUNode node = graph.add(halOutput), between = graph.add(converterUnit);
    EXPECT_EQ(noErr, AUGraphOpen(graph));
    AudioUnit const hal = graph.unitOf(node);
    qmx::test::set(hal, kAudioOutputUnitProperty_EnableIO, kAudioUnitScope_Input, UInt32{1}, 1);
    const auto name = [&](AudioDeviceID id) {
        return qmx::test::set(hal, kAudioOutputUnitProperty_CurrentDevice, kAudioUnitScope_Global, id);
    };
    EXPECT_EQ(kAudioHardwareBadDeviceError, name(output)); // it has no input
    EXPECT_EQ(noErr, name(device));
    EXPECT_EQ(1U, qmx::test::get<UInt32>(hal, kAudioOutputUnitProperty_HasIO, kAudioUnitScope_Input, 1));
    EXPECT_EQ(noErr, AUGraphConnectNodeInput(graph, node, 1, between, 0));
    EXPECT_EQ(kAUGraphErr_InvalidConnection, AUGraphConnectNodeInput(graph, between, 0, node, 1));
    EXPECT_EQ(noErr, AUGraphConnectNodeInput(graph, between, 0, node, 0));
    EXPECT_EQ(noErr, AUGraphInitialize(graph));
    EXPECT_EQ(noErr, AUGraphStart(graph));
    const auto samples = played(device, 3);
    ASSERT_EQ(3U * 512 * 2, samples.size());
    for (UInt32 i = 0; i < samples.size(); ++i)
        ASSERT_EQ(captured(static_cast<SInt64>(samples[0]) + i / 2, i % 2), samples[i]);
}

TEST_F(HALUnit, AnswersForBothOfItsSides)
{
    const auto enabled = [&](AudioUnitScope scope, AudioUnitElement element) {
        return unit.get<UInt32>(kAudioOutputUnitProperty_EnableIO, scope, element);
    };
    EXPECT_EQ(0U, enabled(kAudioUnitScope_Input, 1));
    EXPECT_EQ(1U, enabled(kAudioUnitScope_Output, 0));
    EXPECT_EQ(kAudioUnitErr_InvalidElement,
              unit.set(kAudioOutputUnitProperty_EnableIO, kAudioUnitScope_Input, UInt32{1}, 0));
    for (const auto& [scope, element] : {std::pair(kAudioUnitScope_Output, 0U), {kAudioUnitScope_Input, 1U}})
        EXPECT_EQ(kAudioUnitErr_PropertyNotWritable, unit.set(kAudioUnitProperty_SampleRate, scope, 48000.0, element));
    EXPECT_EQ(kAudioUnitErr_InvalidElement, unit.set(kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Input,
                                                     AURenderCallbackStruct{Listener::hear, nullptr}, 1));
    OpenUnit withoutInput(defaultOutput);
    EXPECT_EQ(kAudioUnitErr_InvalidElement,
              withoutInput.set(kAudioOutputUnitProperty_EnableIO, kAudioUnitScope_Input, UInt32{1}, 1));
    // the rate of the device comes to both client sides until it is initialised
    const AudioDeviceID device = addInput("both", 2, 6);
    set(device, 0, true, kAudioDevicePropertyNominalSampleRate, 96000.0);
    enableInput();
    EXPECT_EQ(noErr, unit.nameDevice(device));
    const auto side = [&](AudioUnitScope scope, AudioUnitElement element) {
        const auto format = unit.get<AudioStreamBasicDescription>(kAudioUnitProperty_StreamFormat, scope, element);
        return std::pair(format.mSampleRate, format.mChannelsPerFrame);
    };
    EXPECT_EQ(std::pair(96000.0, 2U), side(kAudioUnitScope_Input, 0));
    EXPECT_EQ(std::pair(96000.0, 6U), side(kAudioUnitScope_Output, 0));
    EXPECT_EQ(std::pair(96000.0, 2U), side(kAudioUnitScope_Input, 1));
    EXPECT_EQ(std::pair(96000.0, 2U), side(kAudioUnitScope_Output, 1));
    // a direction that the device lacks, for a while
    const AudioDeviceID wide = add("wide", 0, 8);
    enableInput(0);
    EXPECT_EQ(noErr, unit.nameDevice(wide));
    enableInput();
    enableInput(0);
    EXPECT_EQ(8U, side(kAudioUnitScope_Output, 0).second);
    enableInput();
    EXPECT_EQ(noErr, unit.nameDevice(device));
    EXPECT_EQ(noErr, AudioUnitInitialize(unit));
    set(device, 0, true, kAudioDevicePropertyNominalSampleRate, 44100.0);
    unit.nameDevice(device);
    EXPECT_EQ(std::pair(96000.0, 2U), side(kAudioUnitScope_Output, 1));
    EXPECT_EQ(std::pair(44100.0, 2U), side(kAudioUnitScope_Input, 1));
}

TEST_F(HALUnit, KeepsItsInputWhereItCannotTakeAnother)
{
    constexpr UInt32 channels = 200;
    constexpr Float64 rate = 100; // too far from the device's for a rate conversion
    EXPECT_EQ(noErr, unit.nameDevice(add("wide", 0, channels)));
    OpenUnit upstream(converterUnit);
    auto format = upstream.get<AudioStreamBasicDescription>(kAudioUnitProperty_StreamFormat, kAudioUnitScope_Output);
    format.mSampleRate = rate;
    format.mChannelsPerFrame = channels;
    for (const AudioUnitScope scope : {kAudioUnitScope_Input, kAudioUnitScope_Output})
        EXPECT_EQ(noErr, upstream.set(kAudioUnitProperty_StreamFormat, scope, format));
    Counter counter, other;
    EXPECT_EQ(noErr, upstream.setInput(counter.callback()));
    EXPECT_EQ(noErr, AudioUnitInitialize(upstream));
    EXPECT_EQ(noErr, unit.setInput(other.callback()));
    EXPECT_EQ(noErr, AudioUnitInitialize(unit));

    // behind the callback the upstream format would be refused, behind the connection it is not converted
    const AudioUnitConnection connection{upstream, 0, 0};
    EXPECT_EQ(noErr, unit.set(kAudioUnitProperty_MakeConnection, kAudioUnitScope_Input, connection));
    EXPECT_EQ(kAudioUnitErr_FormatNotSupported, unit.setInput(other.callback()));
    EXPECT_EQ(rate, unit.get<Float64>(kAudioUnitProperty_SampleRate, kAudioUnitScope_Input));
    std::vector<Float32> samples(2 * channels);
    BufferList list(samples, 1);
    list.buffer(0) = {channels, 2 * channels * 4, samples.data()};
    EXPECT_EQ(noErr, render(unit, 2, list));
    EXPECT_EQ(1001, samples[channels + 1]); // the connected unit's second frame
}
