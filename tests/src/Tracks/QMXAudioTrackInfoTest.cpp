// SPDX-License-Identifier: MIT
#include "Tracks/QMXAudioTrackInfo.h"

#include <gtest/gtest.h>

#include <limits>

TEST(AudioTrackInfo, DurationFollowsTheBoundsAndMovesTheEnd)
{
    const auto track = QMXAudioTrackInfo::audioTrackInfoWithTrackTitle_trackBegin_trackEnd_isActive("A", 50, 20, false);
    EXPECT_EQ(track->duration(), -30);
    track->setDuration(100);
    EXPECT_EQ(track->trackEnd(), 150);
    track->setTrackBegin(std::numeric_limits<SInt64>::min());
    EXPECT_EQ(track->duration(), std::numeric_limits<SInt64>::min() + 150);
}
