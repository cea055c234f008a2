// SPDX-License-Identifier: MIT
#include "Tracks/QMXAudioProcessingRangeInfo.h"

#include "Tracks/QMXAudioTrackInfo.h"

#include <gtest/gtest.h>

TEST(AudioProcessingRangeInfo, ComparesNameRangeAndSettings)
{
    using Range = QMXAudioProcessingRangeInfo;
    const auto one = Range::initWithProcessNameAndRange_processingStartFrame_processingEndFrame("gain", 1, 2);
    const auto two = Range::initWithProcessNameAndRange_processingStartFrame_processingEndFrame("gain", 1, 2);
    two->addProcessingSettingFloat_value("by", 0.5F);
    two->addProcessingSettingInt_value("by", 3);
    EXPECT_TRUE(one->isEqual(two.get()));
    EXPECT_TRUE(one->isEqual(QMXAudioTrackInfo::init().get()));
    two->setProcessingEndFrame(3);
    EXPECT_FALSE(one->isEqual(two.get()));
    struct Special : Range {
    } special;
    EXPECT_TRUE(special.isEqual(two.get())) << "a plain range is not of its class";
    EXPECT_FALSE(two->isEqual(&special));
    EXPECT_EQ(two->processingSettings()->count(), 1U);
    EXPECT_EQ(one->description(), "QMXAudioProcessingRangeInfo [gain: IN:1 OUT:2]");
}
