// SPDX-License-Identifier: MIT
// Extended audio files that are read from a failing disk.
#include "platform/AudioToolbox/ExtAudioFileHelpers.h"
#include "support/MemoryDisk.h"

#include <cerrno>

namespace
{

using namespace qmx::test;

const std::string path = "/d/a";

/// Appends all that can be read; returns the status of the last call.
OSStatus readOn(ExtAudioFileRef file, std::vector<float>& samples)
{
    OSStatus status = noErr;
    for (UInt32 count = 1; status == noErr && count > 0;) {
        count = 1000;
        std::vector<float> block(2 * count);
        auto list = listOf(block, 2);
        status = ExtAudioFileRead(file, &count, &list);
        samples.insert(samples.end(), block.begin(), block.begin() + 2 * count);
    }
    return status;
}

TEST(ReadingFile, AReadErrorComesAfterTheFramesBeforeItAndReadingGoesOnThere)
{
    for (const auto& [type, format] : bothKinds)
        for (const Float64 rate : {44100, 48000})
            for (const bool isPrimed : {false, true})
                for (const bool seeksBack : {false, true}) {
                    SCOPED_TRACE(testing::Message() << qmx::fourCharString(type) << " at " << rate << " Hz, primed "
                                                    << isPrimed << ", seeks back " << seeksBack);
                    MemoryDisk disk;
                    writeMusic(path, type, format, music(100'000, 2));
                    const ExtendedFile file(path);
                    setClient(file, floats(2, rate));
                    const auto whole = readFloats(file, 2, 1'000'000);
                    EXPECT_EQ(ExtAudioFileSeek(file, 0), noErr);
                    const std::size_t place = disk.contents(path).size() / 2;
                    disk.failReads(EIO, place);
                    if (isPrimed)
                        prime(file);
                    std::vector<float> samples;
                    EXPECT_EQ(readOn(file, samples), ioErr);
                    EXPECT_GT(samples.size(), 2 * 40'000U);
                    if (type == kAudioFileAIFCType && rate == format.mSampleRate) {
                        const auto audio = extendedValue<AudioFileID>(file, kExtAudioFileProperty_AudioFile);
                        const auto offset = property<SInt64>(audio, kAudioFilePropertyDataOffset);
                        EXPECT_EQ(samples.size() / 2, (place - static_cast<std::size_t>(offset)) / 8);
                    }
                    const double expected = static_cast<double>(samples.size() / 2) * format.mSampleRate / rate;
                    EXPECT_EQ(positionOf(file), static_cast<SInt64>(expected));
                    EXPECT_EQ(readOn(file, samples), ioErr);
                    disk.failReads(0);
                    if (seeksBack && rate == format.mSampleRate) {
                        EXPECT_EQ(ExtAudioFileSeek(file, positionOf(file)), noErr);
                    }
                    EXPECT_EQ(readOn(file, samples), noErr);
                    EXPECT_EQ(samples, whole);
                }
}

} // namespace
