// SPDX-License-Identifier: MIT
#include "Processing/QMXSoftwareVolumeControl.h"

#include <gtest/gtest.h>

#include <vector>

TEST(SoftwareVolume, MultipliesAllChannelsOfAllBuffersWithoutClipping)
{
    const auto control = QMXSoftwareVolumeControl::init();
    std::vector<Float32> stereo(2 * 512 + 1, 0.75F);
    AudioBufferList list{1, {{2, 0, stereo.data()}}};
    UInt32 frames = 512;
    control->setVolumeScalar(2);
    EXPECT_EQ(control->processAudio_numberOfFrames(list, &frames), noErr);
    EXPECT_EQ(std::vector<Float32>(stereo.begin(), stereo.end() - 1), std::vector<Float32>(1024, 1.5F));
    EXPECT_EQ(stereo.back(), 0.75F);
}

TEST(SoftwareVolume, TakesDecibels)
{
    const auto control = QMXSoftwareVolumeControl::init();
    control->setVolumeDecibels(-20);
    EXPECT_EQ(control->volumeScalar(), 0.1F);
    control->setVolumeDecibels(0);
    EXPECT_EQ(control->volumeScalar(), 1.0F);
}
