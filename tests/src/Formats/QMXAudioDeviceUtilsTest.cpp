// SPDX-License-Identifier: MIT
#include "Formats/QMXAudioDeviceUtils.h"

#include <gtest/gtest.h>

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
