// SPDX-License-Identifier: MIT
// Extended audio files that are written to disks that fill up.
#include "platform/AudioToolbox/ExtAudioFileHelpers.h"
#include "support/MemoryDisk.h"

namespace
{

using namespace qmx::test;

const std::string path = "/d/a";

TEST(WritingFile, AFailedWriteEndsAllWritingAndKeepsNothingOfItsBlock)
{
    for (const auto& [type, format] : bothKinds)
        for (const std::size_t frames : {100U, 44100U, 500'000U}) {
            SCOPED_TRACE(testing::Message() << qmx::fourCharString(type) << " in blocks of " << frames);
            MemoryDisk disk;
            ExtendedFile file(path, type, format);
            setClient(file, floats(2));
            disk.setCapacity(60'000);
            auto samples = music(frames, 2);
            OSStatus status = noErr;
            while (status == noErr)
                status = writeFloats(file, samples, 2);
            EXPECT_EQ(status, dskFulErr);
            disk.clearFaults();
            std::ranges::fill(samples, 0.99F); // the block is the caller's again
            EXPECT_EQ(writeFloats(file, std::span(samples).first(200), 2), dskFulErr);
            const auto list = listOf(samples, 2);
            EXPECT_EQ(ExtAudioFileWriteAsync(file, 100, &list), dskFulErr);
            EXPECT_EQ(file.close(), dskFulErr);
            const auto stored = floatsAt(path, 2, 1'000'000);
            EXPECT_TRUE(std::ranges::all_of(stored, [](float sample) { return sample < 0.9F; }));
        }
}

TEST(WritingFile, ARefusedClientFormatIsNotTaken)
{
    MemoryDisk disk;
    ExtendedFile file(path, kAudioFileAIFCType, linear(11, 32, 2, 48000));
    const auto before = floats(2), after = floats(2, 22050);
    setClient(file, before);
    EXPECT_EQ(writeFloats(file, music(1000, 2), 2), noErr);
    disk.setCapacity(0); // the filter's tail finds no room
    EXPECT_EQ(ExtAudioFileSetProperty(file, kExtAudioFileProperty_ClientDataFormat, sizeof after, &after), dskFulErr);
    EXPECT_EQ(extendedValue<AudioStreamBasicDescription>(file, kExtAudioFileProperty_ClientDataFormat).mSampleRate,
              before.mSampleRate);
    EXPECT_EQ(file.close(), dskFulErr);
}

} // namespace
