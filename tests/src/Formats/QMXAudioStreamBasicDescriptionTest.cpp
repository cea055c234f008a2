// SPDX-License-Identifier: MIT
#include "Formats/QMXAudioStreamBasicDescription.h"
#include "Formats/PrintStreamDesc.h"

#include <gtest/gtest.h>

namespace
{

using Format = QMXAudioStreamBasicDescription;

TEST(StreamFormat, CatalogueEntriesAreConsistentAndOtherNumbersGiveFormatZero)
{
    for (SInt32 number : {-1, 12, 1000})
        EXPECT_TRUE(Format::standardFormat(number)->isEqual(Format::defaultStandardDeviceFormat().get())) << number;
    constexpr UInt32 flags[] = {9, 41, 11, 14, 14, 11, 14, 14, 14, 14, 14, 14};
    for (SInt32 number = 0; number < 12; ++number) {
        const auto format = Format::standardFormat(number);
        const UInt32 channelsInABuffer = format->isNonInterleaved() ? 1 : format->channelsPerFrame();
        EXPECT_EQ(format->formatFlags(), flags[number]) << number;
        EXPECT_EQ(format->bytesPerFrame(), channelsInABuffer * ((format->bitsPerChannel() + 7) / 8)) << number;
        EXPECT_EQ(format->bytesPerPacket(), format->bytesPerFrame()) << number;
    }
    EXPECT_EQ(Format::standardFormat(3)->description(), "48000Hz, stereo, 20 bits");
}

TEST(StreamFormat, EqualityLeavesOutTheReservedFieldAndNothingElse)
{
    const auto format = Format::defaultStandardFileFormat();
    AudioStreamBasicDescription record = *format->audioStreamBasicDescription();
    record.mReserved = 7;
    EXPECT_TRUE(format->isEqual(Format::initWithAudioStreamBasicDescription(&record).get()));
    record.mBitsPerChannel = 15;
    EXPECT_FALSE(format->isEqual(Format::initWithAudioStreamBasicDescription(&record).get()));
    EXPECT_FALSE(format->isEqual(nullptr));
    EXPECT_EQ(Format::initWithAudioStreamBasicDescription(nullptr), nullptr);
}

TEST(StreamFormat, DescribesItselfInOneLineThatMatchesOtherCodings)
{
    const auto format = Format::standardFormat(7);
    EXPECT_EQ(format->description(), "44100Hz, stereo, 16 bits");
    format->setFormatID(qmx::fourCharCode("alac"));
    EXPECT_TRUE(format->isEqualToString("44100Hz, stereo, 16 bits"));
    EXPECT_EQ(format->formatIDName(), "Unknown format");
    format->setChannelsPerFrame(6);
    EXPECT_EQ(format->description(), "44100Hz, 6 channels, 16 bits");
    EXPECT_EQ(Format::standardFormat(11)->description(), "8000Hz, mono, 8 bits");
    EXPECT_NE(Format::standardFormat(1)->debugDescription().find(
                  "\t\tkAudioFormatFlagIsPacked\n\t\tkAudioFormatFlagIsNonInterleaved\n\tBytes/packet:     4\n"),
              std::string::npos);
}

TEST(StreamFormat, PrintsToStandardOutputWithTheCodeAsItLiesInMemory)
{
    const std::string rule = "- - - - - - - - - - - - - - - - - - - -\n";
    const std::string fields = "  Sample Rate:44100.000000\n  Format ID:mcpl\n  Format Flags:E\n"
                               "  Bytes per Packet:4\n  Frames per Packet:1\n  Bytes per Frame:4\n"
                               "  Channels per Frame:2\n  Bits per Channel:16\n";
    const auto format = Format::standardFormat(7);
    testing::internal::CaptureStdout();
    D_PrintStreamDesc(format->audioStreamBasicDescription(), "Title");
    PrintStreamDesc(format->audioStreamBasicDescription());
    PrintStreamDesc(nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              rule + "Title\n" + rule + fields + rule + rule + fields + rule + "Can't print a NULL desc!\n");
}

} // namespace
