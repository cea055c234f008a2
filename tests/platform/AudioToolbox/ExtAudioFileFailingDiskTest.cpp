// SPDX-License-Identifier: MIT
// Extended audio files on disks that fill up or fail: the status is returned, and all that could be read or written is
// there.
#include "ExtAudioFileHelpers.h"
#include "support/MemoryDisk.h"

#include <array>
#include <cerrno>
#include <utility>

namespace
{

using namespace qmx::test;

const std::string path = "/d/a";
const AudioStreamBasicDescription lossless{44100, kAudioFormatAppleLossless, 0, 0, 0, 0, 2, 0, 0};
const std::array kinds{std::pair{kAudioFileAIFCType, linear(11, 32, 2)}, std::pair{kAudioFileM4AType, lossless}};

OSStatus write(ExtAudioFileRef file, std::span<const float> samples)
{
    const auto list = listOf(samples, 2);
    return ExtAudioFileWrite(file, static_cast<UInt32>(samples.size() / 2), &list);
}

TEST(ExtAudioFileFailingDisk, AFailedWriteEndsAllWritingAndKeepsNothingOfItsBlock)
{
    for (const auto& [type, format] : kinds)
        for (const std::size_t frames : {100U, 44100U, 500'000U}) {
            SCOPED_TRACE(testing::Message() << qmx::fourCharString(type) << " in blocks of " << frames);
            MemoryDisk disk;
            const ExtAudioFileRef file = createExtended(path, type, format);
            setClient(file, floats(2));
            disk.setCapacity(60'000);
            auto samples = music(frames, 2);
            OSStatus status = noErr;
            while (status == noErr)
                status = write(file, samples);
            EXPECT_EQ(status, dskFulErr);
            disk.clearFaults();
            std::ranges::fill(samples, 0.99F); // the caller may change the block again
            EXPECT_EQ(write(file, std::span(samples).first(200)), dskFulErr);
            const auto list = listOf(samples, 2);
            EXPECT_EQ(ExtAudioFileWriteAsync(file, 100, &list), dskFulErr);
            EXPECT_EQ(ExtAudioFileDispose(file), dskFulErr);
            const ExtAudioFileRef back = openExtended(path);
            setClient(back, floats(2));
            const auto stored = readFloats(back, 2, 1'000'000);
            EXPECT_TRUE(std::ranges::all_of(stored, [](float sample) { return sample < 0.9F; }));
            EXPECT_EQ(ExtAudioFileDispose(back), noErr);
        }
}

TEST(ExtAudioFileFailingDisk, ARefusedClientFormatIsNotTaken)
{
    MemoryDisk disk;
    const ExtAudioFileRef file = createExtended(path, kAudioFileAIFCType, linear(11, 32, 2, 48000));
    const auto before = floats(2), after = floats(2, 22050);
    setClient(file, before);
    EXPECT_EQ(write(file, music(1000, 2)), noErr);
    disk.setCapacity(0); // the filter's tail finds no room
    EXPECT_EQ(ExtAudioFileSetProperty(file, kExtAudioFileProperty_ClientDataFormat, sizeof after, &after), dskFulErr);
    EXPECT_EQ(extendedValue<AudioStreamBasicDescription>(file, kExtAudioFileProperty_ClientDataFormat).mSampleRate,
              before.mSampleRate);
    EXPECT_EQ(ExtAudioFileDispose(file), dskFulErr);
}

void prime(ExtAudioFileRef file)
{
    UInt32 none = 0;
    EXPECT_EQ(ExtAudioFileRead(file, &none, nullptr), noErr);
}

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

TEST(ExtAudioFileFailingDisk, AReadErrorComesAfterTheFramesBeforeItAndReadingGoesOnThere)
{
    for (const auto& [type, format] : kinds)
        for (const Float64 rate : {44100, 48000})
            for (const bool isPrimed : {false, true})
                for (const bool seeksBack : {false, true}) {
                    SCOPED_TRACE(testing::Message() << qmx::fourCharString(type) << " at " << rate << " Hz, primed "
                                                    << isPrimed << ", seeks back " << seeksBack);
                    MemoryDisk disk;
                    writeMusic(path, type, format, music(100'000, 2));
                    const ExtAudioFileRef file = openExtended(path);
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
                    EXPECT_EQ(ExtAudioFileDispose(file), noErr);
                }
}

} // namespace
