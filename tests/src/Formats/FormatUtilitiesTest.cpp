// SPDX-License-Identifier: MIT
// The small helpers: byte order and code texts. References and codes of files are in QMXAudioFileTest.cpp.
#include "Formats/ByteUtility.h"
#include "Formats/QMXAudioDeviceUtils.h"

#include <gtest/gtest.h>

#include <vector>

namespace
{

TEST(ByteUtility, ReversesWordByWordAndALastPartWordWhole)
{
    using Bytes = std::vector<UInt8>;
    const auto reversed = [](UInt32 wordLength, UInt32 length) {
        Bytes bytes{1, 2, 3, 4, 5, 6, 7, 8};
        ByteUtility::toNetworkByteOrder_wordLength_length(bytes.data(), wordLength, length);
        return bytes;
    };
    EXPECT_EQ(reversed(2, 8), (Bytes{2, 1, 4, 3, 6, 5, 8, 7}));
    EXPECT_EQ(reversed(4, 8), (Bytes{4, 3, 2, 1, 8, 7, 6, 5}));
    EXPECT_EQ(reversed(4, 5), (Bytes{4, 3, 2, 1, 8, 7, 6, 5}));
    EXPECT_EQ(reversed(1, 8), (Bytes{1, 2, 3, 4, 5, 6, 7, 8}));
    EXPECT_EQ(reversed(0, 8), (Bytes{1, 2, 3, 4, 5, 6, 7, 8}));

    UInt64 word = 1;
    ByteUtility::toNetworkByteOrder64bit(&word);
    EXPECT_EQ(word, 72057594037927936u);
}

TEST(AudioDeviceUtils, GivesTextsForStatusesCodingsAndPropertiesAndTheDevicesNameForASharedCode)
{
    EXPECT_EQ(QMXAudioDeviceUtils::errorMessage(0), "No error");
    EXPECT_EQ(QMXAudioDeviceUtils::errorMessage(qmx::statusCode("abcd")), "Unknown error code: (61626364) 'abcd'");
    EXPECT_EQ(QMXAudioDeviceUtils::errorMessage(qmx::statusCode("!hog")), "Permission denied");
    EXPECT_EQ(QMXAudioDeviceUtils::formatNameForID(qmx::fourCharCode("cac3")), "AC-3 IEC 60958");
    EXPECT_EQ(QMXAudioDeviceUtils::formatNameForID(qmx::fourCharCode("alac")), "Unknown format");
    EXPECT_EQ(QMXAudioDeviceUtils::errorMessage_forProperty(kAudioHardwareBadPropertySizeError,
                                                            kAudioDevicePropertyNominalSampleRate),
              "Hardware bad property size error (kAudioDevicePropertyNominalSampleRate)");
    EXPECT_EQ(QMXAudioDeviceUtils::propertyName(kAudioStreamPropertyLatency), "kAudioDevicePropertyLatency");
    EXPECT_EQ(QMXAudioDeviceUtils::propertyName(kAudioStreamPropertyTerminalType), "kAudioStreamPropertyTerminalType");
    EXPECT_EQ(QMXAudioDeviceUtils::propertyName(kAudioHardwarePropertyProcessIsMaster), "Unknown property: 'mast'");
}

} // namespace
