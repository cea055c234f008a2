// SPDX-License-Identifier: MIT
#include "Foundation/Text/CFString.h"
#include "support/Hardware.h"

#include <gmock/gmock.h>

#include <array>
#include <cstring>
#include <limits>

using qmx::DeviceDescription;
using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(HardwareTest, ErrorsAreThePlatformsCodes)
{
    const AudioDeviceID device = add("a", 2, 0);
    UInt32 word = 0, size = sizeof word;
    Boolean writable = true;
    EXPECT_EQ(AudioDeviceGetPropertyInfo(1, 0, true, kAudioDevicePropertyLatency, &size, nullptr),
              kAudioHardwareBadDeviceError);
    EXPECT_EQ(AudioStreamGetPropertyInfo(device, 0, kAudioStreamPropertyDirection, &size, nullptr),
              kAudioHardwareBadStreamError);
    EXPECT_EQ(get(device, 0, true, qmx::fourCharCode("none"), word), kAudioHardwareUnknownPropertyError);
    EXPECT_EQ(get(device, 0, false, kAudioDevicePropertyMute, word), kAudioHardwareUnknownPropertyError);
    EXPECT_EQ(get(device, 3, true, kAudioDevicePropertyVolumeScalar, word), kAudioHardwareUnknownPropertyError);
    EXPECT_EQ(get(device, 0, true, kAudioDevicePropertyNominalSampleRate, word), kAudioHardwareBadPropertySizeError);
    EXPECT_EQ(set(device, 0, true, kAudioDevicePropertyNominalSampleRate, word), kAudioHardwareBadPropertySizeError);
    EXPECT_EQ(set(device, 0, true, kAudioDevicePropertyNominalSampleRate, 12345.0), kAudioDeviceUnsupportedFormatError);
    EXPECT_EQ(set(device, 0, true, kAudioDevicePropertyLatency, word), kAudioHardwareUnsupportedOperationError);
    EXPECT_EQ(set(device, 0, true, kAudioDevicePropertyBufferFrameSize, UInt32{1}),
              kAudioHardwareIllegalOperationError);
    EXPECT_EQ(set(device, 0, true, kAudioDevicePropertyDataSource, UInt32{7}), kAudioHardwareIllegalOperationError);
    EXPECT_EQ(AudioDeviceGetPropertyInfo(device, 0, true, kAudioDevicePropertyLatency, &size, &writable), noErr);
    EXPECT_FALSE(writable);
    EXPECT_EQ(noErr, hardware.change(device,
                                     [](DeviceDescription& description) { description.sampleRateIsSettable = false; }));
    for (const UInt32 format : {kAudioDevicePropertyStreamFormat, kAudioDevicePropertyPhysicalFormat})
        EXPECT_EQ(set(device, 0, true, format, qmx::packedPhysicalFormat(48000, 2, 16)),
                  kAudioHardwareUnsupportedOperationError);
    AudioTimeStamp time;
    EXPECT_EQ(AudioDeviceGetCurrentTime(device, &time), kAudioHardwareNotRunningError);
    EXPECT_EQ(AudioDeviceGetProperty(device, 0, true, kAudioDevicePropertyLatency, nullptr, &word), kAudio_ParamError);
}

TEST_F(HardwareTest, PropertiesAnswerFromTheDevicesRecord)
{
    DeviceDescription wanted = qmx::VirtualHardware::standardDevice("uid", "A name of thirty-one characters", 0, 2);
    wanted.output.streams.push_back(wanted.output.streams.front());
    const AudioDeviceID device = hardware.addDevice(wanted);

    const auto name = get<std::array<char, 7>>(device, 0, false, kAudioDevicePropertyDeviceName);
    EXPECT_STREQ(name.data(), "A name");

    std::array<std::byte, 64> block{};
    UInt32 size = block.size();
    EXPECT_EQ(AudioDeviceGetProperty(device, 0, false, kAudioDevicePropertyStreamConfiguration, &size, block.data()),
              noErr);
    EXPECT_EQ(size, offsetof(AudioBufferList, mBuffers) + 2 * sizeof(AudioBuffer));
    AudioBuffer second;
    std::memcpy(&second, block.data() + offsetof(AudioBufferList, mBuffers) + sizeof second, sizeof second);
    EXPECT_EQ(second.mDataByteSize, 512 * 2 * sizeof(Float32));
    EXPECT_EQ(AudioDeviceGetPropertyInfo(device, 0, true, kAudioDevicePropertyStreamConfiguration, &size, nullptr),
              noErr);
    EXPECT_EQ(size, offsetof(AudioBufferList, mBuffers)); // a direction without streams

    const auto streams = get<std::array<AudioStreamID, 2>>(device, 0, false, kAudioDevicePropertyStreams);
    EXPECT_GE(std::min(device, streams[0]), 256U);

    auto format = get<AudioStreamBasicDescription>(device, 4, false, kAudioDevicePropertyStreamFormat);
    EXPECT_EQ(format.mFormatFlags, kAudioFormatFlagsNativeFloatPacked);
    format = get<AudioStreamBasicDescription>(device, 0, false, kAudioDevicePropertyPhysicalFormat);
    EXPECT_EQ(format.mBytesPerFrame, 4U); // packed 16-bit stereo
    EXPECT_EQ(format.mSampleRate, 44100);
    format.mBitsPerChannel = 23;
    format.mSampleRate = 47000;
    size = sizeof format;
    EXPECT_EQ(AudioStreamGetProperty(streams[0], 0, kAudioStreamPropertyPhysicalFormatMatch, &size, &format), noErr);
    EXPECT_EQ(format.mBitsPerChannel, 24U);
    EXPECT_EQ(format.mSampleRate, 48000);
    EXPECT_EQ(AudioStreamGetProperty(streams[0], 0, kAudioStreamPropertyPhysicalFormatSupported, &size, &format),
              noErr);
}

TEST_F(HardwareTest, ListsGiveTheWholeEntriesThatFit)
{
    const AudioDeviceID first = add("a", 2, 0);
    add("b", 2, 0);
    std::array<std::byte, 7> block{};
    UInt32 size = block.size();
    EXPECT_EQ(AudioHardwareGetProperty(kAudioHardwarePropertyDevices, &size, block.data()), noErr);
    EXPECT_EQ(size, sizeof first);
    EXPECT_EQ(std::memcmp(block.data(), &first, sizeof first), 0);
}

TEST_F(HardwareTest, PlugAndUnplugTellDeviceThenSystemWithTheDefaults)
{
    Heard heard;
    devices();
    heard.listenToHardware();
    const AudioDeviceID one = add("one", 2, 2), two = add("two", 2, 2);
    EXPECT_THAT(heard.take(), ElementsAre("dev#", "dIn ", "dOut", "sOut", "dev#"));
    heard.listenToDevice(one);
    EXPECT_EQ(noErr, hardware.removeDevice(one));
    EXPECT_THAT(heard.take(), ElementsAre("livn 0 in", "livn 0 out", "dev#", "dIn ", "dOut", "sOut"));
    UInt32 alive = 7;
    EXPECT_EQ(get(one, 0, true, kAudioDevicePropertyDeviceIsAlive, alive), kAudioHardwareBadDeviceError);
    EXPECT_EQ(heard.stopListeningToDevice(one), noErr); // though it is gone
    EXPECT_EQ(heard.stopListeningToDevice(one), kAudioHardwareBadDeviceError);

    const DeviceDescription added[] = {qmx::VirtualHardware::standardDevice("three", "Three", 2, 0)};
    const auto ids = hardware.changeDevices(std::array{two}, added);
    EXPECT_THAT(heard.take(), ElementsAre("dev#", "dev#", "dIn ", "dOut", "sOut"));
    EXPECT_THAT(devices(), ElementsAre(ids.front()));
    hardware.announceHardware(kAudioHardwarePropertySleepingIsAllowed);
    EXPECT_THAT(heard.take(), ElementsAre("slep"));
}

TEST_F(HardwareTest, DefaultsHaveStreamsOrAreNone)
{
    constexpr auto input = kAudioHardwarePropertyDefaultInputDevice;
    const auto present = [] { return defaultDevice(input); };
    const auto choose = [](AudioDeviceID device) { return AudioHardwareSetProperty(input, sizeof device, &device); };
    const AudioDeviceID output = add("output", 0, 2), one = add("one", 2, 0), two = add("two", 2, 0);
    EXPECT_EQ(choose(output), kAudioHardwareIllegalOperationError);
    EXPECT_EQ(hardware.setDefaultDevice(input, output), kAudioHardwareIllegalOperationError);
    EXPECT_EQ(choose(1), kAudioHardwareBadDeviceError);
    EXPECT_EQ(present(), one);
    Heard heard;
    hardware.settle();
    devices();
    heard.listenToHardware();
    EXPECT_EQ(noErr, hardware.change(one, [](DeviceDescription& description) { description.input.streams.clear(); }));
    EXPECT_EQ(present(), two);
    EXPECT_EQ(hardware.setDefaultDevice(input, kAudioDeviceUnknown), noErr);
    EXPECT_THAT(heard.take(), ElementsAre("dIn ", "dIn "));
    add("three", 2, 2);
    EXPECT_EQ(present(), kAudioDeviceUnknown) << "none was chosen, and nobody chose again";
    EXPECT_EQ(choose(two), noErr);
    EXPECT_EQ(noErr, hardware.removeDevice(two));
    EXPECT_NE(present(), kAudioDeviceUnknown);
}

TEST_F(HardwareTest, LoopbackPairsHaveNamesOfTheirOwn)
{
    const auto first = hardware.addLoopbackPair(), second = hardware.addLoopbackPair();
    EXPECT_EQ(textOf(first.input, kAudioDevicePropertyDeviceUID), "qmx.virtual.input");
    EXPECT_EQ(textOf(second.input, kAudioDevicePropertyDeviceUID), "qmx.virtual.input.2");
    EXPECT_EQ(textOf(second.output, kAudioDevicePropertyDeviceNameCFString), "Virtual Output 2");
    EXPECT_EQ(noErr, hardware.removeDevice(first.input));
    EXPECT_EQ(noErr, hardware.removeDevice(first.output));
    EXPECT_EQ(textOf(hardware.addLoopbackPair().output, kAudioDevicePropertyDeviceUID), "qmx.virtual.output");
}

TEST_F(HardwareTest, ChangesAreToldOncePerSectionAndChannel)
{
    const AudioDeviceID device = add("a", 1, 2);
    const auto stream = get<AudioStreamID>(device, 0, true, kAudioDevicePropertyStreams);
    Heard heard;
    heard.listenToDevice(device);
    EXPECT_EQ(AudioStreamAddPropertyListener(stream, 0, kAudioPropertyWildcardPropertyID, Heard::stream, &heard),
              noErr);

    set(device, 0, false, kAudioDevicePropertyNominalSampleRate, 48000.0);
    EXPECT_THAT(heard.take(), ElementsAre("nsrt 0 in", "nsrt 0 out", "asrt 0 in", "asrt 0 out", "sfmt 0 in",
                                          "sfmt 0 out", "pft  0 in", "pft  0 out", "stream sfmt", "stream pft "));
    set(device, 0, false, kAudioDevicePropertyNominalSampleRate, 48000.0);
    EXPECT_THAT(heard.take(), IsEmpty()); // nothing changed
    set(device, 2, false, kAudioDevicePropertyVolumeScalar, Float32{0.5});
    set(device, 0, false, kAudioDevicePropertyMute, UInt32{1});
    set(device, 0, true, kAudioDevicePropertyDataSource, UInt32{kIOAudioSelectorControlSelectionValueLine});
    EXPECT_THAT(heard.take(), ElementsAre("volm 2 out", "vold 2 out", "mute 0 out", "ssrc 0 in"));
    EXPECT_EQ(noErr, hardware.change(device, [](DeviceDescription& description) {
        description.input.jackIsConnected = true;
        description.output.streams.clear();
        description.rawProperties[{qmx::fourCharCode("solo"), 1, true}].value.resize(4);
    }));
    EXPECT_THAT(heard.take(), testing::IsSupersetOf({"stm# 0 out", "slay 0 out", "jack 0 in", "solo 1 in"}));
    EXPECT_EQ(AudioStreamRemovePropertyListener(stream, 0, kAudioPropertyWildcardPropertyID, Heard::stream, &heard),
              noErr);
    EXPECT_EQ(heard.stopListeningToDevice(device), noErr);
}

TEST_F(HardwareTest, ListenersHearOnlyWhatTheyAskedFor)
{
    const AudioDeviceID device = add("a", 2, 2);
    Heard heard;
    const auto listen = [&](UInt32 channel, UInt8 section, UInt32 property) {
        EXPECT_EQ(AudioDeviceAddPropertyListener(device, channel, section, property, Heard::device, &heard), noErr);
    };
    listen(1, 1, kAudioDevicePropertyVolumeScalar);
    listen(kAudioPropertyWildcardChannel, 0, kAudioDevicePropertyVolumeDecibels);
    EXPECT_EQ(AudioDeviceAddPropertyListener(device, 1, 1, kAudioDevicePropertyVolumeScalar, Heard::device, &heard),
              kAudioHardwareIllegalOperationError); // it is registered already
    for (const UInt32 channel : {1U, 2U})
        for (const bool isInput : {true, false})
            set(device, channel, isInput, kAudioDevicePropertyVolumeScalar, Float32{0.25});
    EXPECT_THAT(heard.take(), ElementsAre("volm 1 in", "vold 1 out", "vold 2 out"));
    EXPECT_EQ(noErr,
              AudioDeviceRemovePropertyListener(device, 1, 1, kAudioDevicePropertyVolumeScalar, Heard::device, &heard));
    EXPECT_EQ(noErr, AudioDeviceRemovePropertyListener(device, kAudioPropertyWildcardChannel, 0,
                                                       kAudioDevicePropertyVolumeDecibels, Heard::device, &heard));
}

TEST_F(HardwareTest, ANewListenerHearsOfAListThatChangedUnread)
{
    devices();
    {
        Heard nothing;
        nothing.listenToHardware(kAudioHardwarePropertyDevices);
        EXPECT_THAT(nothing.take(), IsEmpty());
    }
    add("a", 2, 0);
    hardware.settle();
    UInt32 size = 0; // read before the device came
    std::byte none{};
    EXPECT_EQ(AudioHardwareGetProperty(kAudioHardwarePropertyDevices, &size, &none), noErr);
    Heard heard;
    heard.listenToHardware();
    EXPECT_THAT(heard.take(), ElementsAre("dev#"));
}

TEST_F(HardwareTest, AListenerMayRemoveItselfAndAnotherOne)
{
    struct Pair {
        AudioDeviceID device;
        Heard other;
        int calls = 0;
        static OSStatus listen(AudioDeviceID id, UInt32, Boolean, AudioDevicePropertyID, void* clientData)
        {
            auto& self = *static_cast<Pair*>(clientData);
            ++self.calls;
            EXPECT_EQ(AudioDeviceRemovePropertyListener(id, 0, 0, kAudioDevicePropertyMute, listen, clientData), noErr);
            EXPECT_EQ(self.other.stopListeningToDevice(id), noErr);
            return noErr;
        }
    };
    Pair pair{.device = add("a", 0, 2), .other = {}};
    EXPECT_EQ(AudioDeviceAddPropertyListener(pair.device, 0, 0, kAudioDevicePropertyMute, Pair::listen, &pair), noErr);
    pair.other.listenToDevice(pair.device);
    for (const UInt32 flag : {1U, 0U})
        set(pair.device, 0, false, kAudioDevicePropertyMute, flag);
    EXPECT_THAT(pair.other.take(), IsEmpty()); // although the same change was queued for it
    EXPECT_EQ(pair.calls, 1);
}

TEST_F(HardwareTest, AListenerHearsNoneOfTheChangesBeforeIt)
{
    struct First {
        Heard second;
        static OSStatus listen(AudioDeviceID id, UInt32, Boolean, AudioDevicePropertyID, void* clientData)
        {
            auto& self = *static_cast<First*>(clientData);
            EXPECT_EQ(AudioDeviceRemovePropertyListener(id, 0, 0, kAudioDevicePropertyMute, listen, clientData), noErr);
            set(id, 0, false, kAudioDevicePropertyMute, UInt32{0}); // is told after this call
            self.second.listenToDevice(id);
            return noErr;
        }
    };
    First first;
    const AudioDeviceID device = add("a", 0, 2);
    EXPECT_EQ(AudioDeviceAddPropertyListener(device, 0, 0, kAudioDevicePropertyMute, First::listen, &first), noErr);
    set(device, 0, false, kAudioDevicePropertyMute, UInt32{1});
    EXPECT_THAT(first.second.take(), IsEmpty());
    set(device, 0, false, kAudioDevicePropertyMute, UInt32{1});
    EXPECT_THAT(first.second.take(), ElementsAre("mute 0 out"));
    EXPECT_EQ(first.second.stopListeningToDevice(device), noErr);
}

TEST_F(HardwareTest, FaultsFailTheChosenCallsAsOftenAsWanted)
{
    const AudioDeviceID device = add("a", 2, 0);
    qmx::VirtualFault fault;
    fault.operation = qmx::HardwareOperation::getProperty;
    fault.object = device;
    fault.property = kAudioDevicePropertyLatency;
    fault.passes = 1;
    fault.times = 2;
    hardware.addFault(fault);
    UInt32 latency = 0;
    std::vector<OSStatus> statuses;
    for (int i = 0; i < 4; ++i)
        statuses.push_back(get(device, 0, true, kAudioDevicePropertyLatency, latency));
    EXPECT_THAT(statuses, ElementsAre(noErr, kAudioHardwareUnspecifiedError, kAudioHardwareUnspecifiedError, noErr));
}

TEST_F(HardwareTest, RawPropertiesStandInForTheRecord)
{
    const AudioDeviceID device = add("a", 2, 0);
    EXPECT_EQ(noErr, hardware.change(device, [](DeviceDescription& description) {
        description.rawProperties[{kAudioDevicePropertyLatency, 0, true}] = {{std::byte{9}, {}, {}, {}}, true};
    }));
    EXPECT_EQ(get<UInt32>(device, 0, true, kAudioDevicePropertyLatency), 9U);
    EXPECT_EQ(set(device, 0, true, kAudioDevicePropertyLatency, UInt32{12}), noErr);
    EXPECT_EQ(get<UInt32>(device, 0, true, kAudioDevicePropertyLatency), 12U);
}

TEST_F(HardwareTest, ABootChimeThatIsThereCanBeSet)
{
    Float32 value = 0;
    UInt32 size = sizeof value;
    EXPECT_EQ(AudioHardwareGetProperty(kAudioHardwarePropertyBootChimeVolumeScalar, &size, &value),
              kAudioHardwareUnknownPropertyError);
    Heard heard;
    devices();
    heard.listenToHardware();
    hardware.setBootChimeVolume(qmx::VolumeControl{});
    EXPECT_THAT(heard.take(), ElementsAre("bbvs", "bbvd", "bbd#"));
    hardware.setBootChimeVolume(qmx::VolumeControl{.minimumDecibels = -48});
    EXPECT_THAT(heard.take(), ElementsAre("bbd#"));
    value = std::numeric_limits<Float32>::quiet_NaN();
    for (const auto property :
         {kAudioHardwarePropertyBootChimeVolumeScalar, kAudioHardwarePropertyBootChimeVolumeDecibels})
        EXPECT_EQ(AudioHardwareSetProperty(property, size, &value), kAudioHardwareIllegalOperationError);
    value = -6.0206F;
    EXPECT_EQ(AudioHardwareSetProperty(kAudioHardwarePropertyBootChimeVolumeDecibels, size, &value), noErr);
    EXPECT_EQ(AudioHardwareGetProperty(kAudioHardwarePropertyBootChimeVolumeScalar, &size, &value), noErr);
    EXPECT_NEAR(value, 0.5F, 1e-4F);
}
