// SPDX-License-Identifier: MIT
#include "Devices/QMXAudioStream.h"

#include "CoreAudio/AudioDeviceTypes.h"
#include "Formats/QMXAudioStreamBasicDescription.h"
#include "support/VirtualDevices.h"

#include <gmock/gmock.h>

#include <cstring>
#include <limits>

namespace
{

using AudioStream = qmx::test::VirtualDevices;

TEST_F(AudioStream, TellsItsPlaceInItsDevice)
{
    auto description = qmx::VirtualHardware::standardDevice("a", "A", 2, 1);
    description.input.streams.push_back(description.input.streams[0]);
    auto device = QMXAudioDevice::deviceWithDeviceID(hardware.addDevice(description));
    const auto streams = device->streams(true);
    ASSERT_EQ(streams.size(), 2U);
    EXPECT_EQ(streams[1]->startingChannel(), 3U);
    EXPECT_EQ(streams[1]->streamDirection(), 1U);
    EXPECT_EQ(streams[1]->terminalType(), INPUT_MICROPHONE);
    EXPECT_EQ(streams[1]->numberOfChannels(), 4U) << "of both streams";
    EXPECT_EQ(streams[1]->physicalFormat()->channelsPerFrame(), 2U);
    EXPECT_EQ(device->streams(false)[0]->streamDirection(), 0U);
    const AudioDeviceID id = device->deviceID();
    device.reset();
    EXPECT_EQ(streams[0]->owningDeviceID(), id) << "the stream keeps its device";

    EXPECT_EQ(noErr, hardware.removeDevice(id));
    EXPECT_EQ(streams[1]->lastStatus(), noErr);
    EXPECT_EQ(streams[1]->startingChannel(), 0U);
    EXPECT_EQ(streams[1]->physicalFormat(), nullptr);
    EXPECT_EQ(streams[1]->lastStatus(), kAudioHardwareBadStreamError);
    EXPECT_THAT(streams[1]->lastError(), testing::HasSubstr(" could not give its kAudioStreamPropertyStartingChannel"));
    EXPECT_TRUE(streams[1]->expandedPhysicalFormats().empty());
    EXPECT_EQ(QMXAudioStream::initWithAudioDevice_streamID(nullptr, 5)->streamID(), kAudioStreamUnknown);
}

TEST_F(AudioStream, ExpandsFormatsForAllRatesBehindThoseOfOneRate)
{
    constexpr double infinite = std::numeric_limits<double>::infinity();
    auto description = qmx::VirtualHardware::standardDevice("a", "A", 2, 0);
    auto& stream = description.input.streams[0];
    const auto all = qmx::packedPhysicalFormat(0, 2, 16), one = qmx::packedPhysicalFormat(44100, 2, 24);
    stream.physicalFormats = {all, one, all};
    const AudioDeviceID id = hardware.addDevice(description);
    const auto device = QMXAudioDevice::deviceWithDeviceID(id);
    const auto expandedWith = [&](std::vector<AudioValueRange> ranges) {
        std::vector<std::byte> value(ranges.size() * sizeof(AudioValueRange));
        std::memcpy(value.data(), ranges.data(), value.size());
        EXPECT_EQ(noErr, hardware.change(id, [&](auto& d) {
            d.rawProperties[{kAudioDevicePropertyAvailableNominalSampleRates, 0, true}].value = value;
        }));
        return device->streams(true)[0]->expandedPhysicalFormats();
    };
    const auto wide = expandedWith({{8000, 96000}, {48000, 48000}});
    ASSERT_EQ(wide.size(), 1U + 3521U) << "equal copies are kept once";
    EXPECT_EQ(wide[0]->sampleRate(), 44100.0);
    EXPECT_EQ(wide[2]->sampleRate(), 8025.0);
    EXPECT_EQ(wide.back()->sampleRate(), 96000.0);
    EXPECT_EQ(expandedWith({{22050, 22050}, {48000, 44100}}).size(), 2U);
    EXPECT_EQ(expandedWith({{5512.5, 5512.5}}).back()->sampleRate(), 5512.5);
    EXPECT_EQ(expandedWith({{5512.5, 9000}})[1]->sampleRate(), 8012.5) << "the steps begin at the range's own end";
    EXPECT_EQ(expandedWith({{-infinite, infinite}}).size(), 1U + (768000 - 8000) / 25 + 1);

    EXPECT_EQ(noErr, hardware.change(id, [&](auto& d) { d.input.streams[0].physicalFormats = {one}; }));
    EXPECT_EQ(device->streams(true)[0]->expandedPhysicalFormats().size(), 1U);
}

} // namespace
