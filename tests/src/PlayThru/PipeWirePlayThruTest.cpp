// SPDX-License-Identifier: MIT
#include "PlayThru/ComplexPlayThru.h"
#include "platform/CoreAudio/PipeWireTest.h"

namespace
{

constexpr Float32 level = 0.25F; // steady: what is missing is silence

} // namespace

class PipeWirePlayThruTest : public PipeWireTest
{
};

TEST_F(PipeWirePlayThruTest, IsHeardAgainWhenAnotherClientHasChangedTheCycle)
{
    server().plugIn("thru-out");
    ASSERT_TRUE(waitUntil([] { return find("thru-out") && find("thru-out.monitor"); }));
    Procedure speaker(find("test-sink"), [](const auto&, const auto&, AudioBufferList& output, const auto&) {
        std::ranges::fill(samplesOf(output), level);
    });
    std::atomic<int> sound = 0; // samples without a gap
    Procedure listener(find("thru-out.monitor"), [&](const AudioBufferList& input, const auto&, auto&, const auto&) {
        for (const Float32 sample : samplesOf(input))
            sound = std::abs(sample - level) < 0.01F ? sound + 1 : 0;
        const qmx::test::OutsideRealTime outside;
        tell();
    });
    OSStatus status = noErr;
    const auto engine = ComplexPlayThru::make(find("test-source"), find("thru-out"), status);
    ASSERT_EQ(noErr, status);
    EXPECT_EQ(noErr, speaker.start());
    EXPECT_EQ(noErr, listener.start());
    EXPECT_EQ(noErr, engine->Start());
    for (const UInt32 frames : {1024U, 4096U, 256U}) {
        server().run("pw-metadata -n settings 0 clock.force-quantum " + std::to_string(frames));
        EXPECT_TRUE(waitUntil([&] { return engine->ComputeThruOffset() >= 2 * frames; }));
        sound = 0;
        EXPECT_TRUE(waitUntil([&] { return sound > 2 * 24000; })) << "cycles of " << frames;
    }
    EXPECT_EQ(noErr, engine->lastStatus()) << engine->lastError();
    EXPECT_EQ(noErr, engine->Stop());
    EXPECT_EQ(noErr, speaker.stop());
    EXPECT_EQ(noErr, listener.stop());
}
