// SPDX-License-Identifier: MIT
#include "platform/AudioToolbox/AudioFileHelpers.h"
#include "support/MemoryDisk.h"
#include "support/TemporaryFolder.h"

#include <thread>

using namespace qmx::test;

namespace
{

const AudioStreamBasicDescription stereo16 = linear(14, 16, 2);

std::size_t descriptors()
{
    const std::filesystem::directory_iterator open("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(open), end(open)));
}

} // namespace

TEST(AudioFileService, ReadReachingTheEndGivesWhatThereIsAndOnlyThenTheEndOfFile)
{
    MemoryDisk disk;
    const auto made = createFile("/d/file.aif", kAudioFileAIFFType, stereo16);
    ASSERT_EQ(writeAudio(made.file, 0, pattern(100)), noErr);
    ByteBlock buffer(200, 0xEE);
    UInt32 count = 200;
    EXPECT_EQ(AudioFileReadBytes(made.file, true, 60, &count, buffer.data()), noErr);
    EXPECT_EQ(count, 40U);
    EXPECT_TRUE(ByteBlock(buffer.begin(), buffer.begin() + 40) == pattern(40, 60));
    EXPECT_EQ(buffer[40], 0xEE);
    for (const SInt64 start : {SInt64{100}, std::numeric_limits<SInt64>::max()}) {
        count = 200;
        EXPECT_EQ(AudioFileReadBytes(made.file, false, start, &count, buffer.data()), eofErr);
        EXPECT_EQ(count, 0U);
    }
    count = 200;
    EXPECT_EQ(AudioFileReadBytes(made.file, false, -1, &count, buffer.data()), posErr);
    EXPECT_EQ(AudioFileWriteBytes(made.file, false, -1, &count, buffer.data()), posErr);
    EXPECT_EQ(count, 0U);
    disk.failReads(EIO);
    count = 200;
    EXPECT_EQ(AudioFileReadBytes(made.file, false, 0, &count, buffer.data()), ioErr);
    EXPECT_EQ(count, 0U);
    disk.clearFaults();
    EXPECT_EQ(AudioFileClose(made.file), noErr);
}

TEST(AudioFileService, PacketsOfConstantSizeAreCounted)
{
    MemoryDisk disk;
    const auto made = createFile("/d/file.wav", kAudioFileWAVEType, linear(12, 24, 2));
    const ByteBlock data = pattern(60);
    UInt32 packets = 10;
    EXPECT_EQ(AudioFileWritePackets(made.file, false, 59, nullptr, 2, &packets, data.data()), noErr);
    EXPECT_EQ(packets, 9U); // 59 bytes hold no more
    AudioStreamPacketDescription descriptions[20];
    ByteBlock buffer(200);
    UInt32 bytes = 0;
    packets = 20;
    EXPECT_EQ(AudioFileReadPackets(made.file, false, &bytes, descriptions, 1, &packets, buffer.data()), noErr);
    EXPECT_EQ(packets, 10U);
    EXPECT_EQ(bytes, 60U);
    EXPECT_TRUE(ByteBlock(buffer.begin(), buffer.begin() + 6) == ByteBlock(6));
    EXPECT_TRUE(ByteBlock(buffer.begin() + 6, buffer.begin() + 60) == pattern(54));
    EXPECT_EQ(descriptions[9].mStartOffset, 54);
    EXPECT_EQ(descriptions[9].mDataByteSize, 6U);
    packets = 1;
    EXPECT_EQ(AudioFileReadPackets(made.file, false, &bytes, nullptr, 11, &packets, buffer.data()), eofErr);
    EXPECT_EQ(packets + bytes, 0U);
    packets = 1;
    EXPECT_EQ(
        AudioFileWritePackets(made.file, false, 6, nullptr, std::numeric_limits<SInt64>::max(), &packets, data.data()),
        kAudioFileDoesNotAllow64BitDataSizeError);
    EXPECT_EQ(AudioFileClose(made.file), noErr);
}

TEST(AudioFileService, CreatingTouchesNothingItMayNot)
{
    MemoryDisk disk;
    disk.setContents("/d/there", pattern(50));
    EXPECT_EQ(createFile("/d/there", kAudioFileAIFFType, stereo16).status, dupFNErr);
    EXPECT_EQ(createFile("/d/new", kAudioFileCAFType + 1, stereo16).status, kAudioFileUnsupportedFileTypeError);
    const FSRef folder{"/d"}, file{"/d/there"};
    AudioFileID id = nullptr;
    for (const char* name : {"", "a/b"}) {
        const CFStringRef text = CFStringCreate(name);
        EXPECT_EQ(AudioFileCreate(&folder, text, kAudioFileAIFFType, &stereo16, 0, nullptr, &id), bdNamErr);
        CFRelease(text);
    }
    EXPECT_EQ(AudioFileInitialize(&file, kAudioFileAIFFType, nullptr, 0, &id), kAudioFileUnsupportedDataFormatError);
    EXPECT_EQ(AudioFileInitialize(&file, kAudioFileAIFFType, &stereo16, 1, &id), paramErr);
    EXPECT_EQ(AudioFileInitialize(&file, 0, &stereo16, 0, &id), kAudioFileUnsupportedFileTypeError);
    EXPECT_EQ(disk.changesMade(), 0U);
    for (std::size_t change = 2; change <= 3; ++change) {
        disk.clearFaults();
        disk.failChange(change, ENOSPC, 5);
        const auto made = createFile("/d/new", kAudioFileAIFFType, stereo16);
        EXPECT_EQ(made.status == noErr, change == 3);
        EXPECT_EQ(disk.contents("/d/new").empty(), change == 2); // a half-made file goes again
        AudioFileClose(made.file);
    }
    disk.clearFaults();
    ASSERT_EQ(AudioFileInitialize(&file, kAudioFileWAVEType, &stereo16, 0, &id), noErr);
    EXPECT_EQ(bytesIn(id), 0U);
    EXPECT_EQ(AudioFileClose(id), noErr);
    EXPECT_EQ(disk.contents("/d/there").size(), 44U);
}

TEST(AudioFileService, PermissionsAreKept)
{
    const TemporaryFolder folder;
    const std::string path = folder.path("file.aif");
    const std::size_t before = descriptors();
    AudioFileClose(createFile(path, kAudioFileAIFFType, stereo16).file);
    ByteBlock data = pattern(8);
    UInt32 count = 8;
    const auto reading = openFile(path);
    EXPECT_EQ(writeAudio(reading.file, 0, data, &count), kAudioFilePermissionsError);
    EXPECT_EQ(count, 0U);
    const UInt32 defer = 1;
    EXPECT_EQ(AudioFileSetProperty(reading.file, kAudioFilePropertyDeferSizeUpdates, 4, &defer),
              kAudioFilePermissionsError);
    const auto writing = openFile(path, fsWrPerm);
    EXPECT_EQ(writeAudio(writing.file, 0, data), noErr);
    count = 8;
    EXPECT_EQ(AudioFileReadBytes(writing.file, false, 0, &count, data.data()), kAudioFilePermissionsError);
    const auto current = openFile(path, fsCurPerm);
    EXPECT_EQ(writeAudio(current.file, 0, data), noErr);
    for (const AudioFileID file : {reading.file, writing.file, current.file})
        EXPECT_EQ(AudioFileClose(file), noErr);
    EXPECT_EQ(openFile(path, 4).status, paramErr);
    EXPECT_EQ(openFile(folder.path("")).status, bdNamErr);
    EXPECT_EQ(openFile(folder.path("none")).status, fnfErr);
    EXPECT_EQ(openFile("").status, fnfErr);
    EXPECT_EQ(descriptors(), before);
}

TEST(AudioFileService, AbsentHandlesAnswerParamErr)
{
    UInt32 count = 0;
    EXPECT_EQ(AudioFileClose(nullptr), paramErr);
    EXPECT_EQ(AudioFileReadBytes(nullptr, false, 0, &count, nullptr), paramErr);
    EXPECT_EQ(AudioFileWritePackets(nullptr, false, 0, nullptr, 0, &count, nullptr), paramErr);
    EXPECT_EQ(AudioFileGetPropertyInfo(nullptr, kAudioFilePropertyDataFormat, &count, nullptr), paramErr);
    EXPECT_EQ(AudioFileOpen(nullptr, fsRdPerm, 0, nullptr), paramErr);
}

TEST(AudioFileService, PropertiesTellTheFile)
{
    MemoryDisk disk;
    const auto made = createFile("/d/file", kAudioFileAIFFType, linear(14, 16, 2, 8000));
    ASSERT_EQ(writeAudio(made.file, 0, pattern(16003)), noErr);
    EXPECT_EQ(bytesIn(made.file), 16000U); // of whole frames
    EXPECT_EQ(property<UInt64>(made.file, kAudioFilePropertyAudioDataPacketCount), 4000U);
    EXPECT_EQ(property<UInt32>(made.file, kAudioFilePropertyMaximumPacketSize), 4U);
    EXPECT_EQ(property<SInt64>(made.file, kAudioFilePropertyDataOffset), 54);
    EXPECT_EQ(property<UInt32>(made.file, kAudioFilePropertyIsOptimized), 1U);
    EXPECT_EQ(property<Float64>(made.file, kAudioFilePropertyEstimatedDuration), 0.5);
    EXPECT_EQ(property<UInt32>(made.file, kAudioFilePropertyBitRate), 256000U);
    const auto name = property<CFStringRef>(made.file, kAudioFilePropertyDataFormatName);
    EXPECT_EQ(CFStringGetText(name), "Linear PCM, 16 bit big-endian signed integer");
    CFRelease(name);
    AudioFramePacketTranslation translation{.mFrame = 77};
    UInt32 size = sizeof translation;
    EXPECT_EQ(AudioFileGetProperty(made.file, kAudioFilePropertyFrameToPacket, &size, &translation), noErr);
    EXPECT_EQ(translation.mPacket, 77);
    UInt32 writable = 9;
    EXPECT_EQ(AudioFileGetPropertyInfo(made.file, kAudioFilePropertyChunkIDs, &size, &writable), noErr);
    EXPECT_EQ(size, 8U);
    EXPECT_EQ(writable, 0U);
    UInt32 code = 0;
    size = 2;
    EXPECT_EQ(AudioFileGetProperty(made.file, kAudioFilePropertyFileFormat, &size, &code),
              kAudioFileBadPropertySizeError);
    EXPECT_EQ(AudioFileGetPropertyInfo(made.file, kAudioFilePropertyMagicCookieData, &size, nullptr),
              kAudioFileUnsupportedPropertyError);
    EXPECT_EQ(AudioFileGetProperty(made.file, qmx::fourCharCode("none"), &size, &code),
              kAudioFileUnsupportedPropertyError);
    EXPECT_EQ(AudioFileSetProperty(made.file, kAudioFilePropertyDataFormat, sizeof stereo16, &stereo16),
              kAudioFileOperationNotSupportedError);
    AudioFileClose(made.file);
}

TEST(AudioFileService, DeferredSizesFollowAtClose)
{
    MemoryDisk disk;
    const auto made = createFile("/d/file", kAudioFileAIFFType, stereo16);
    const UInt32 defer = 1;
    EXPECT_EQ(AudioFileSetProperty(made.file, kAudioFilePropertyDeferSizeUpdates, sizeof defer, &defer), noErr);
    EXPECT_EQ(property<UInt32>(made.file, kAudioFilePropertyDeferSizeUpdates), 1U);
    const ByteBlock header = disk.contents("/d/file");
    ASSERT_EQ(writeAudio(made.file, 0, pattern(50000)), noErr);
    const ByteBlock file = disk.contents("/d/file");
    EXPECT_TRUE(std::equal(header.begin(), header.end(), file.begin()));
    EXPECT_EQ(AudioFileClose(made.file), noErr);
    EXPECT_EQ(chunksOf(disk.contents("/d/file")).back().data.size(), 50008U);
}

TEST(AudioFileService, TwoThreadsMayTransferAtOnce)
{
    MemoryDisk disk;
    const auto made = createFile("/d/file", kAudioFileWAVEType, linear(12, 16, 2));
    ASSERT_EQ(writeAudio(made.file, 0, pattern(4096)), noErr);
    std::thread writer([&] {
        for (std::size_t start = 4096; start < 400'000; start += 1024)
            EXPECT_EQ(writeAudio(made.file, static_cast<SInt64>(start), pattern(1024, start)), noErr);
    });
    for (int i = 0; i < 50; ++i) {
        const ByteBlock audio = audioOf(made.file);
        EXPECT_TRUE(audio == pattern(audio.size()));
    }
    writer.join();
    EXPECT_EQ(AudioFileClose(made.file), noErr);
}
