// SPDX-License-Identifier: MIT
#include "Processing/QMXAudioConverter.h"

#include "Formats/QMXAudioStreamBasicDescription.h"
#include "support/CapturedLog.h"

#include <gmock/gmock.h>

#include <vector>

using Format = QMXAudioStreamBasicDescription;

namespace
{

auto converterFromFileToDevice()
{
    return QMXAudioConverter::initWithSourceFormat_destinationFormat(Format::defaultStandardFileFormat(),
                                                                     Format::defaultStandardDeviceFormat());
}

} // namespace

TEST(QMXAudioConverter, ConvertsTheFileFormatToTheDeviceFormat)
{
    const auto converter = converterFromFileToDevice();
    ASSERT_TRUE(converter);
    EXPECT_EQ(4u, converter->minimumInputBufferSize());
    EXPECT_EQ(16u, converter->calculateOutputBufferSize(8));
    EXPECT_EQ(8u, converter->calculateInputBufferSize(16));
    EXPECT_EQ("QMXAudioConverter:[ minimumInputBufferSize: 4; ]minimumOutputBufferSize: 8; ]",
              converter->description());

    const Byte input[] = {0x40, 0x00, 0xC0, 0x00};
    Float32 output[2] = {};
    UInt32 size = sizeof output;
    EXPECT_EQ(noErr, converter->convertBuffer_inputBufferSize_outputBuffer_outputBufferSize(input, 4, output, &size));
    EXPECT_EQ(8u, size);
    EXPECT_EQ(0.5F, output[0]);
    EXPECT_EQ(-0.5F, output[1]);
}

TEST(QMXAudioConverter, MissingBuffersAndFailuresAreLogged)
{
    const qmx::test::CapturedLog log;
    const auto converter = converterFromFileToDevice();
    Byte bytes[8] = {};
    UInt32 size = 1;
    EXPECT_EQ(noErr,
              converter->convertBuffer_inputBufferSize_outputBuffer_outputBufferSize(nullptr, 4, nullptr, &size));
    EXPECT_EQ(converter->lastError(), "The converter could not convert: a wrong argument");
    EXPECT_EQ(kAudioConverterErr_InvalidOutputSize,
              converter->convertBuffer_inputBufferSize_outputBuffer_outputBufferSize(bytes, 4, bytes, &size));
    EXPECT_EQ(converter->lastStatus(), kAudioConverterErr_InvalidOutputSize);
    converter->setSampleRateConverterQuality(128);
    EXPECT_NE(converter->lastStatus(), noErr);
    converter->setSampleRateConverterQuality(127);
    EXPECT_EQ(converter->lastStatus(), noErr);
    QMXAudioConverter::printOSStatusCode(qmx::statusCode("abcd"));
    EXPECT_THAT(log.lines(),
                testing::ElementsAre("*** WARNING *** QMXAudioConverter:convertBuffer  input is NULL",
                                     "*** WARNING *** QMXAudioConverter:convertBuffer  output buffer is NULL",
                                     "*** ERROR *** QMXAudioConverter:convertBuffer",
                                     "OS Status: kAudioConverterErr_InvalidOutputSize",
                                     "QMXAudioConverter: OS Status: abcd"));
}

TEST(QMXAudioConverter, AMagicCookieSetsTheLowestQualityAndDecodesNothing)
{
    const auto converter = converterFromFileToDevice();
    EXPECT_EQ(96u, converter->sampleRateConverterQuality());
    converter->setMagicCookie_length("cookie", 6);
    EXPECT_EQ(0u, converter->sampleRateConverterQuality());

    const auto compressed = Format::standardFormatWithId_sampleRate(kAudioFormatAMR, 44100);
    EXPECT_FALSE(
        QMXAudioConverter::initWithSourceFormat_destinationFormat(compressed, Format::defaultStandardFileFormat()));
}
