// SPDX-License-Identifier: MIT
#include "Front/Convert.h"
#include "Front/FrameReader.h"
#include "Front/FrameWriter.h"
#include "Front/Process.h"
#include "Front/StoredTracks.h"
#include "FrontFiles.h"
#include "support/ShortMemory.h"

namespace
{

using namespace qmx;
using namespace qmx::test;

class FrontInShortMemoryTest : public FrontFiles
{
protected:
    FrontInShortMemoryTest() { writeMusic(source, kAudioFileAIFFType, bigSixteen, music(500, 2)); }

    /// Expects `work` to give an error or to succeed, whichever allocation fails, and to leave nothing hidden.
    template <class Work> void failEveryAllocation(const Work& work)
    {
        withEveryAllocationFailing([&](ShortMemory& memory) {
            (void)disk.remove(target);
            memory.during([&] {
                if (const auto result = work(); !result)
                    status = result.error().status();
            });
            EXPECT_FALSE(disk.isAnyLeft());
            hasFailed = hasFailed || memory.hasFailed();
        });
        EXPECT_EQ(status, hasFailed ? memFullErr : noErr); // under some sanitizers memory never runs out
    }

    const std::string source = "/d/a.aif", target = "/d/b.wav";
    OSStatus status = noErr;
    bool hasFailed = false;
};

TEST_F(FrontInShortMemoryTest, ConversionsAreErrorsAndMakeNothing)
{
    failEveryAllocation([&] { return convert(source, target); });
}

TEST_F(FrontInShortMemoryTest, AFileIsProcessedOrAsItWas)
{
    const ByteBlock before = disk.contents(source);
    failEveryAllocation([&] { return process(source, {}, [](std::span<float>, UInt32) { return true; }); });
    EXPECT_TRUE(disk.contents(source) == before);
}

TEST_F(FrontInShortMemoryTest, ReadersAndWritersGiveErrors)
{
    const std::vector<float> samples(1000);
    failEveryAllocation([&]() -> Result<void> {
        auto writer = FrameWriter::create(target, Format::wave(8000, 16).withChannels(1));
        if (!writer)
            return writer.error();
        const auto written = writer->write(samples);
        return written ? writer->finish() : written;
    });
    failEveryAllocation([&]() -> Result<void> {
        FrameReader reader(source, 1000);
        for (const std::span<const float> block : reader)
            EXPECT_EQ(block.size(), 1000U);
        return reader.error() ? Result<void>(*reader.error()) : Result<void>();
    });
}

TEST_F(FrontInShortMemoryTest, TracksAreStoredOrTheFileIsAsItWas)
{
    const std::vector<Track> one{{.first = 0, .end = 500, .title = "One"}};
    failEveryAllocation([&]() -> Result<void> {
        const auto tracks = readTracks(source);
        return tracks ? storeTracks(source, one) : tracks.error();
    });
    EXPECT_TRUE(readTracks(source));
}

} // namespace
