// SPDX-License-Identifier: MIT
#include "Front/PlayThru.h"

#include "support/PlayAndRecord.h"

using qmx::PlayThru;

class FrontPlayThruTest : public qmx::test::PlayAndRecord
{
};

TEST_F(FrontPlayThruTest, PlaysWhatIsCapturedUntilItsHandleGoes)
{
    const auto input = addDevice("in", 2, 0), output = addDevice("out", 0, 2);
    EXPECT_EQ(noErr, hardware.setInput(input->deviceID(), [](Float32* samples, UInt32 frames, UInt32 channels, SInt64) {
        std::fill_n(samples, frames * channels, 0.25F);
    }));
    const qmx::Device in = *qmx::device("in"), out = *qmx::device("out");
    {
        auto thru = PlayThru::start(in, out, {.volume = 0.5F});
        ASSERT_TRUE(thru) << thru.error().text();
        EXPECT_TRUE(thru->isRunning());
        EXPECT_EQ(0.5F, thru->volume());
        EXPECT_GT(thru->latency(), 1024 / 44100.0);
        EXPECT_NEAR(0.125F, played(*output, 40).back(), 1e-3F);
        EXPECT_EQ(0U, thru->refusedFetches());
        EXPECT_FALSE(thru->failure());
        EXPECT_EQ(noErr, hardware.removeDevice(input->deviceID()));
        posted();
        ASSERT_TRUE(thru->failure());
        EXPECT_FALSE(thru->failure()->text().empty());
    }
    EXPECT_FALSE(hardware.advanceCycles(output->deviceID()));
    const auto refused = PlayThru::start(in, out);
    ASSERT_FALSE(refused);
    EXPECT_EQ("Name of in is gone", refused.error().text());
}
