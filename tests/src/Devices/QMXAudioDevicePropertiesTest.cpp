// SPDX-License-Identifier: MIT
#include "Devices/QMXAudioDevice.h"

#include "Devices/QMXAudioDeviceInfoOutput.h"
#include "Devices/QMXAudioStream.h"
#include "Formats/QMXAudioDeviceUtils.h"
#include "Formats/QMXAudioStreamBasicDescription.h"
#include "Formats/QMXAudioValueRange.h"
#include "support/CapturedLog.h"
#include "support/VirtualDevices.h"

namespace
{

using Lines = std::vector<std::string>;

class DeviceProperties : public qmx::test::VirtualDevices
{
protected:
    void edit(const std::function<void(qmx::DeviceDescription&)>& change)
    {
        EXPECT_EQ(noErr, hardware.change(id, change));
    }
    void setRaw(UInt32 property, bool isInput, std::vector<std::byte> value)
    {
        edit([&](auto& d) { d.rawProperties[{property, 0, isInput}].value = std::move(value); });
    }
    const AudioDeviceID id = add("a");
    const std::shared_ptr<QMXAudioDevice> device = QMXAudioDevice::deviceWithDeviceID(id);
};

TEST_F(DeviceProperties, VolumeAndMuteGoToTheSectionAndChannelNamed)
{
    EXPECT_TRUE(device->hasVolumeControl_isInput(1, true));
    EXPECT_FALSE(device->hasVolumeControl_isInput(9, true));
    EXPECT_EQ(device->lastStatus(), kAudioHardwareUnknownPropertyError);
    EXPECT_TRUE(device->setVolumeScalar_forChannel_isInput(0.5F, 2, false));
    EXPECT_EQ(device->volumeScalar_isInput(2, false), 0.5F);
    EXPECT_EQ(device->volumeScalar_isInput(2, true), 1.0F);
    EXPECT_TRUE(device->setVolumeDecibels_forChannel_isInput(0, 2, false));
    EXPECT_EQ(device->volumeScalar_isInput(2, false), 1.0F);
    EXPECT_EQ(device->volumeRangeDecibels_isInput(2, false)->mMinimum(), -96.0);
    EXPECT_EQ(device->volumeScalarToDecibels_isInput(2, false), -96.0F) << "of 0.0, not of the channel number";
    EXPECT_EQ(device->volumeDecibelsToScalar_isInput(2, false), 1.0F);

    EXPECT_TRUE(device->mute(true));
    EXPECT_FALSE(device->isMuted()) << "asks the input";
    edit([](auto& d) { d.input.mutes[0].isMuted = true; });
    EXPECT_TRUE(device->isMuted());
    EXPECT_TRUE(device->canMute());
    edit([](auto& d) { d.input.mutes.clear(); });
    EXPECT_FALSE(device->canMute());
    EXPECT_FALSE(device->isMuted());
}

TEST_F(DeviceProperties, DataSourcesWithoutNamesAreNumbered)
{
    edit([](auto& d) { d.input.dataSources = {{8, std::nullopt}, {7, "Seven"}, {0, "End"}, {9, "Nine"}}; });
    EXPECT_EQ(device->dataSourceNames(true), (Lines{"Unnamed data source 0", "Seven"}));
    EXPECT_NE(device->lastStatus(), noErr) << "of the first name, though the second was read";
    const auto block = device->dataSourceIDs(true);
    const auto* const ids = static_cast<const UInt32*>(block.get());
    EXPECT_EQ(ids[1], 7U);
    EXPECT_EQ(ids[4], 0U);
    EXPECT_EQ(device->lastError(), "");
    EXPECT_TRUE(device->setCurrentDataSourceID_isInput(7, true));
    EXPECT_EQ(device->currentDataSourceID(true), 7U);
    EXPECT_EQ(device->currentDataSourceName(true), "Seven");
    EXPECT_EQ(device->dataSourceNameForID_isInput(99, true), std::nullopt);
    EXPECT_NE(QMXAudioDeviceUtils::lastReportedError(), noErr);
}

TEST_F(DeviceProperties, FormatsAreReadMatchedAndSet)
{
    EXPECT_EQ(device->sampleRate(true), 44100.0);
    EXPECT_EQ(device->bytesPerFrame(true), 8U);
    EXPECT_EQ(device->formatIDName(true), "Linear PCM");
    const QMXAudioStreamBasicDescription wanted(qmx::packedPhysicalFormat(48000, 2, 24));
    EXPECT_TRUE(device->setPhysicalStreamFormat_forChannel_isInput(wanted, 0, false));
    EXPECT_TRUE(device->physicalStreamFormat_isInput(0, false)->isEqual(&wanted));
    EXPECT_EQ(device->nominalSampleRate(true), 48000.0);
    EXPECT_EQ(device->findMatchingStreamFormat_forChannel_isInput(wanted, 0, true)->sampleRate(), 48000.0);
    EXPECT_FALSE(device->streamFormats_isInput(0, true).empty());
    EXPECT_EQ(device->availableNominalSampleRates(true).size(), 4U);

    const qmx::test::CapturedLog log;
    EXPECT_FALSE(device->setActualStreamFormat_forChannel_isInput(wanted, 9, true));
    EXPECT_EQ(device->lastStatus(), kAudioHardwareUnknownPropertyError);
    EXPECT_EQ(device->actualStreamFormat_isInput(9, true), nullptr);
    EXPECT_EQ(log.lines(), Lines{}) << "refused before the hardware was asked";
}

TEST_F(DeviceProperties, ValuesOfWrongSizesAreReadWithinTheirBounds)
{
    setRaw(kAudioDevicePropertyAvailableNominalSampleRates, true, std::vector<std::byte>(15));
    EXPECT_TRUE(device->availableNominalSampleRates(true).empty());
    setRaw(kAudioDevicePropertyStreamConfiguration, true, std::vector<std::byte>(24, std::byte{1}));
    EXPECT_EQ(device->numberOfStreams(true), 1U) << "states 0x01010101 buffers and has room for one";
    setRaw(kAudioDevicePropertyNominalSampleRate, true, {std::byte{1}});
    EXPECT_GE(device->nominalSampleRate(true), 0.0);
    const qmx::test::CapturedLog log;
    setRaw(kAudioDevicePropertyLatency, true, {});
    EXPECT_EQ(device->latency(true), 0U);
    EXPECT_EQ(log.lines(), Lines{"Property (kAudioDevicePropertyLatency) value size is 0"});
}

TEST_F(DeviceProperties, RefusedSettingsAreLogged)
{
    using Utils = QMXAudioDeviceUtils;
    const auto set = [&](UInt32 property, UInt32 channel) {
        const UInt32 value = 0;
        return Utils::setDeviceProperty_inPropertyID_inChannel_isInput_inPropertyDataSize_inPropertyData(
            id, property, channel, true, sizeof value, &value);
    };
    const qmx::test::CapturedLog log;
    EXPECT_FALSE(set(kAudioDevicePropertyLatency, 0));
    EXPECT_FALSE(set(kAudioDevicePropertyMute, 5));
    hardware.addFault(qmx::test::failing(qmx::HardwareOperation::setProperty));
    EXPECT_FALSE(set(kAudioDevicePropertyMute, 0));
    EXPECT_FALSE(device->mute(true));
    EXPECT_EQ(device->lastError(),
              "Name of a could not change its kAudioDevicePropertyMute: Hardware unspecified error");
    const AudioDeviceID none = 0;
    EXPECT_FALSE(Utils::setHardwareProperty_inData(kAudioHardwarePropertyDefaultInputDevice, &none));
    EXPECT_FALSE(Utils::setHardwareProperty_inData(kAudioHardwarePropertyDevices, &none));
    EXPECT_EQ(Utils::hardwarePropertySize(kAudioHardwarePropertyBootChimeVolumeScalar), 0U);
    EXPECT_EQ(log.lines(),
              (Lines{"ERR SET DEV PROP NO WRITE: No error (kAudioDevicePropertyLatency)",
                     "ERR SET DEV PROP NO WRITE: Hardware unknown property error (kAudioDevicePropertyMute)",
                     "ERR SET DEV PROP: Hardware unknown property error (kAudioDevicePropertyMute)",
                     "ERR SET DEV PROP: Hardware unspecified error (kAudioDevicePropertyMute)",
                     "ERR SET DEV PROP: Hardware unspecified error (kAudioDevicePropertyMute)",
                     "ERR SET HW PROP: Hardware unspecified error (kAudioHardwarePropertyDefaultInputDevice)",
                     "ERR SET HW PROP: Property not writable (kAudioHardwarePropertyDevices)",
                     "ERR READ HW PROP SIZE: Hardware unknown property error "
                     "(kAudioHardwarePropertyBootChimeVolumeScalar)"}));
}

TEST_F(DeviceProperties, TheReportHasEachLineInItsPlace)
{
    edit([](auto& d) {
        d.output = {};
        d.input.streams[0].physicalFormats = {qmx::packedPhysicalFormat(44100, 2, 16)};
        d.input.streams[0].physicalFormat = qmx::packedPhysicalFormat(44100, 2, 16);
        d.input.dataSources = {{7, ""}};
        d.input.dataSource = 7;
        d.input.latency = 3;
        d.availableSampleRates = {{44100, 44100}};
    });
    const auto format = [](const char* flags, const char* names, int frame, int bits) {
        return qmx::format(
            "\tSample rate:      44100Hz\n\tFormat ID:        0x6C70636D\n\tFormat name:      Linear PCM\n"
            "\tFormat flags:     %s\n%s\t\tkAudioFormatFlagIsPacked\n\tBytes/packet:     %d\n"
            "\tFrames/packet:    1\n\tBytes/frame:      %d\n\tChannels/frame:   2\n"
            "\tBits/channel:     %d\n\tReserved:         0x0\n",
            flags, names, frame, frame, bits);
    };
    const auto stored = format("0xC", "\t\tkAudioFormatFlagIsSignedInteger\n", 4, 16);
    EXPECT_EQ(device->printDeviceInfo(),
              qmx::format("\n---- GLOBAL DEVICE DATA ---\n\nDevice ID:                    0x%X\n", id) +
                  "Device UID:                   a\nDevice Name:                  Name of a\n"
                  "Device Manufacturers name:    QMX\nSupports mixing:              Yes\n"
                  "Is running:                   No\nIs alive:                     Yes\n"
                  "Can be default device:        Yes\nCan be default system device: Yes\n"
                  "Can be input device:          Yes\nCan be output device:         No\n"
                  "\n---- INPUTS ----\n\nNumber of streams:   1\nNumber of channels:  2\n"
                  "Nominal sample rate: 44100Hz\nActual sample rate:  44100Hz\n\nJack is connected:   No\n"
                  "Current actual stream format for device:\n" +
                  format("0x9", "\t\tkAudioFormatFlagIsFloat\n", 8, 32) +
                  "Current physical stream format for device:\n" + stored +
                  "\n---- INPUT BUFFER INFO ----\n\nLatency:           3\nBuffer size:       4096\n"
                  "Buffer frame size: 512\n\nPreferred channels for stereo: 1, 2\n"
                  "\n---- Available input streams: ----\n\n" +
                  qmx::format("Stream ID: 0x%X\n", device->streams(true)[0]->streamID()) +
                  "Stream's current physical format:\n" + stored + "Physical format #0:\n" + stored +
                  "input source names:\n\tUnavailable\n\n\n---- Available nominal input sample rates: ----\n\n"
                  "Minimum: 44100Hz\nMaximum: 44100Hz\n\nCurrent input source name: \n"
                  "\ninput volume decibels: 0.00\ninput volume scalar:   1.00\n");
    edit([](auto& d) { d.input.dataSources.clear(); });
    EXPECT_NE(device->printDeviceInfo().find("\nNo current input source name available\ninput volume"),
              std::string::npos);
}

TEST_F(DeviceProperties, LayoutsAreNamed)
{
    const auto layout = device->channelLayout(true);
    ASSERT_TRUE(layout);
    EXPECT_EQ(QMXAudioDeviceInfoOutput::channelLayoutTagName(
                  static_cast<const AudioChannelLayout*>(layout.get())->mChannelLayoutTag),
              "kAudioChannelLayoutTag_Stereo");
    AudioChannelLayout described{0, 3, 1, {{kAudioChannelLabel_LFE2, 2, {1, 0.5F, 0}}}};
    EXPECT_EQ(QMXAudioDeviceInfoOutput::printChannelLayoutInfo(&described),
              "Channel Layout Tag: kAudioChannelLayoutTag_UseChannelDescriptions\nChannel Layout Bitmap: 0x3\n"
              "\tChannel Label: kAudioChannelLabel_LFE2\n\tChannel Flags: 0x2\n\tChannel Coord[0]: 1.000000\n"
              "\tChannel Coord[1]: 0.500000\n\tChannel Coord[2]: 0.000000\n");
    EXPECT_EQ(QMXAudioDeviceInfoOutput::channelLayoutTagName(5), "Unknown Channel Layout");
    EXPECT_EQ(QMXAudioDeviceInfoOutput::channelLabelName(99), "Unknown Audio Channel Label");
}

} // namespace
