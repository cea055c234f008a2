// SPDX-License-Identifier: MIT
#include "Tracks/QMXAudioTrackInfo.h"

#include <gtest/gtest.h>

#include <limits>

namespace
{

TEST(AudioTrackInfo, DescribesTitleAndBounds)
{
    const auto track =
        QMXAudioTrackInfo::audioTrackInfoWithTrackTitle_trackBegin_trackEnd_isActive("Intro", 0, 44100, true);
    EXPECT_EQ(track->description(), "QMXAudioTrackInfo [Intro: IN:0 OUT:44100]");
    EXPECT_TRUE(track->isActive());
    EXPECT_EQ(QMXTrackTitle, "QMXTrackName");
}

TEST(AudioTrackInfo, DurationFollowsTheBoundsAndMovesTheEnd)
{
    const auto track = QMXAudioTrackInfo::initWithTrackTitle_trackBegin_trackEnd_isActive("A", 50, 20, false);
    EXPECT_EQ(track->duration(), -30);
    track->setDuration(100);
    EXPECT_EQ(track->trackEnd(), 150);
    track->setTrackBegin(std::numeric_limits<SInt64>::min());
    EXPECT_EQ(track->duration(), std::numeric_limits<SInt64>::min() + 150);
}

} // namespace
