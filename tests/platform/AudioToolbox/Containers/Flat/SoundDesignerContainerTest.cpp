// SPDX-License-Identifier: MIT
#include "platform/AudioToolbox/AudioFileHelpers.h"
#include "support/DecimalComma.h"
#include "support/MemoryDisk.h"

#include <cerrno>

using namespace qmx::test;

namespace
{

const std::string path = "/d/a", sidecar = "/d/._a";

} // namespace

TEST(SoundDesigner, RatesKeepTheirFractionInEveryLocale)
{
    const DecimalComma comma;
    MemoryDisk disk;
    makeFile(path, kAudioFileSoundDesigner2Type, linear(14, 16, 2, 44100.5), {});
    EXPECT_EQ(propertyAt<AudioStreamBasicDescription>(path, kAudioFilePropertyDataFormat).mSampleRate, 44100.5);
}

TEST(SoundDesigner, FilesAreKnownByTheForkBesideThem)
{
    MemoryDisk disk;
    makeFile(path, kAudioFileSoundDesigner2Type, linear(14, 24, 2, 48000), {});
    const ByteBlock both = disk.contents(sidecar);
    const ByteBlock bare(both.begin() + 82, both.end()); // behind the header and the Finder info
    for (const ByteBlock& fork : {both, bare}) {
        disk.setContents("/d/b", pattern(60));
        disk.setContents("/d/._b", fork);
        const auto opened = openFile("/d/b");
        ASSERT_EQ(opened.status, noErr);
        EXPECT_EQ(formatOf(opened.file).mSampleRate, 48000);
        EXPECT_EQ(formatOf(opened.file).mBytesPerFrame, 6U);
        EXPECT_EQ(audioOf(opened.file), pattern(60));
        EXPECT_EQ(AudioFileClose(opened.file), noErr);
        for (std::size_t length = 0; length + 10 < fork.size(); length += 7) { // none of these is whole
            disk.setContents("/d/._b", ByteBlock(fork.begin(), fork.begin() + static_cast<long>(length)));
            EXPECT_EQ(openFile("/d/b").status, kAudioFileUnsupportedFileTypeError);
        }
    }
}

TEST(SoundDesigner, SamplesThatStartLikeACompressedFrameAreStillSamples)
{
    for (const ByteBlock& start : {ByteBlock{0xFF, 0xF1, 0x50, 0x40, 0x1C, 0xFF}, {0xFF, 0xFB, 0x90, 0x40, 0, 0}}) {
        const MemoryDisk disk;
        ByteBlock samples = pattern(3000);
        std::ranges::copy(start, samples.begin());
        makeFile(path, kAudioFileSoundDesigner2Type, linear(14, 16, 1), samples);
        EXPECT_EQ(propertyAt<UInt32>(path, kAudioFilePropertyFileFormat), kAudioFileSoundDesigner2Type);
        EXPECT_EQ(audioAt(path), samples);
    }
}

TEST(SoundDesigner, AFileThatOnlyHasItsNameIsKept)
{
    MemoryDisk disk;
    disk.setContents(sidecar, pattern(300));
    EXPECT_EQ(createFile(path, kAudioFileSoundDesigner2Type, linear(14, 16, 2)).status, dupFNErr);
    EXPECT_EQ(openFile(path).status, fnfErr);
    EXPECT_EQ(AudioFileClose(createFile(path, kAudioFileAIFFType, linear(14, 16, 2)).file), noErr);
    EXPECT_EQ(disk.contents(sidecar), pattern(300));
}

TEST(SoundDesigner, AFileMadeAnewInVainKeepsItsForkUntilTheNewOneIsWhole)
{
    for (std::size_t change = 1; change <= 5; ++change) {
        MemoryDisk disk;
        makeFile(path, kAudioFileSoundDesigner2Type, linear(14, 16, 2), pattern(400));
        disk.failChange(change, ENOSPC);
        const FSRef reference{path};
        const auto other = linear(14, 24, 1, 48000);
        AudioFileID again = nullptr;
        const OSStatus status = AudioFileInitialize(&reference, kAudioFileSoundDesigner2Type, &other, 0, &again);
        disk.clearFaults();
        EXPECT_EQ(status, change <= 4 ? dskFulErr : noErr) << change;
        const auto opened = openFile(path);
        ASSERT_EQ(opened.status, noErr);
        EXPECT_EQ(formatOf(opened.file).mBitsPerChannel, status == noErr ? 24U : 16U);
        EXPECT_EQ(bytesIn(opened.file), change < 4 ? 400U : 0U);
        EXPECT_TRUE(disk.contents(sidecar + ".new").empty());
        EXPECT_EQ(AudioFileClose(opened.file), noErr);
        if (again) {
            EXPECT_EQ(AudioFileClose(again), noErr);
        }
    }
}
