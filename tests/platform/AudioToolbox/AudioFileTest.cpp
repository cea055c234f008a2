// SPDX-License-Identifier: MIT
#include "platform/AudioToolbox/AudioFileHelpers.h"
#include "support/MemoryDisk.h"
#include "support/OpenDescriptors.h"
#include "support/ShortMemory.h"
#include "support/TemporaryFolder.h"

#include <thread>

using namespace qmx::test;

namespace
{

const AudioStreamBasicDescription stereo16 = linear(14, 16, 2);
constexpr SInt64 largest = std::numeric_limits<SInt64>::max();

} // namespace

TEST(AudioFileService, ReadReachingTheEndGivesWhatThereIsAndOnlyThenTheEndOfFile)
{
    MemoryDisk disk;
    const Opened made(createFile("/d/file.aif", kAudioFileAIFFType, stereo16));
    ASSERT_EQ(writeAudio(made.file, 0, pattern(100)), noErr);
    ByteBlock buffer(200);
    const auto read = [&](SInt64 start, UInt32& count) {
        count = 200;
        return AudioFileReadBytes(made.file, true, start, &count, buffer.data());
    };
    UInt32 count = 0;
    EXPECT_EQ(read(60, count), noErr);
    EXPECT_EQ(count, 40U);
    ByteBlock expected = pattern(40, 60);
    expected.resize(200);
    EXPECT_TRUE(buffer == expected);
    for (const auto& [start, status] : {std::pair{SInt64{100}, eofErr}, {largest, eofErr}, {SInt64{-1}, posErr}}) {
        EXPECT_EQ(read(start, count), status);
        EXPECT_EQ(count, 0U);
    }
    EXPECT_EQ(writeAudio(made.file, -1, buffer), posErr);
    disk.failReads(EIO);
    EXPECT_EQ(read(0, count), ioErr);
    EXPECT_EQ(count, 0U);
    disk.clearFaults();
}

TEST(AudioFileService, PacketsOfConstantSizeAreCounted)
{
    MemoryDisk disk;
    const Opened made(createFile("/d/file.wav", kAudioFileWAVEType, linear(12, 24, 2)));
    const ByteBlock data = pattern(60);
    UInt32 packets = 10, bytes = 0;
    EXPECT_EQ(AudioFileWritePackets(made.file, false, 59, nullptr, 2, &packets, data.data()), noErr);
    EXPECT_EQ(packets, 9U); // 59 bytes hold no more
    AudioStreamPacketDescription descriptions[20];
    ByteBlock buffer(60), expected(6);
    packets = 20;
    EXPECT_EQ(AudioFileReadPackets(made.file, false, &bytes, descriptions, 1, &packets, buffer.data()), noErr);
    EXPECT_EQ(packets, 10U);
    EXPECT_EQ(bytes, 60U);
    expected.insert(expected.end(), data.begin(), data.begin() + 54);
    EXPECT_TRUE(buffer == expected);
    EXPECT_EQ(descriptions[9].mStartOffset, 54);
    EXPECT_EQ(descriptions[9].mDataByteSize, 6U);
    EXPECT_EQ(AudioFileReadPackets(made.file, false, &bytes, nullptr, 11, &packets, buffer.data()), eofErr);
    EXPECT_EQ(packets + bytes, 0U);
    packets = 1;
    EXPECT_EQ(AudioFileWritePackets(made.file, false, 6, nullptr, largest, &packets, data.data()),
              kAudioFileDoesNotAllow64BitDataSizeError);
}

TEST(AudioFileService, CreatingTouchesNothingItMayNot)
{
    MemoryDisk disk;
    disk.setContents("/d/there", pattern(50));
    EXPECT_EQ(createFile("/d/there", kAudioFileAIFFType, stereo16).status, dupFNErr);
    EXPECT_EQ(createFile("/d/new", 1, stereo16).status, kAudioFileUnsupportedFileTypeError);
    EXPECT_EQ(createFile("/d/", kAudioFileAIFFType, stereo16).status, bdNamErr);
    const FSRef file{"/d/there"};
    AudioFileID id = nullptr;
    EXPECT_EQ(AudioFileInitialize(&file, kAudioFileAIFFType, nullptr, 0, &id), kAudioFileUnsupportedDataFormatError);
    EXPECT_EQ(AudioFileInitialize(&file, kAudioFileAIFFType, &stereo16, 1, &id), paramErr);
    EXPECT_EQ(disk.changesMade(), 0U);
    disk.failChange(2, ENOSPC, 5);
    EXPECT_EQ(createFile("/d/new", kAudioFileAIFFType, stereo16).status, dskFulErr);
    EXPECT_TRUE(disk.contents("/d/new").empty()); // the half-made file is gone
    ASSERT_EQ(AudioFileInitialize(&file, kAudioFileWAVEType, &stereo16, 0, &id), noErr);
    EXPECT_EQ(bytesIn(id), 0U);
    EXPECT_EQ(AudioFileClose(id), noErr);
    EXPECT_EQ(disk.contents("/d/there").size(), 44U);
}

TEST(AudioFileService, PermissionsAreKept)
{
    const TemporaryFolder folder;
    const std::string path = folder.path("file.aif");
    const std::size_t before = openDescriptors();
    EXPECT_EQ(AudioFileClose(createFile(path, kAudioFileAIFFType, stereo16).file), noErr);
    ByteBlock data = pattern(8);
    UInt32 count = 8;
    const auto reading = openFile(path), writing = openFile(path, fsWrPerm), current = openFile(path, fsCurPerm);
    EXPECT_EQ(writeAudio(reading.file, 0, data), kAudioFilePermissionsError);
    EXPECT_EQ(AudioFileSetProperty(reading.file, kAudioFilePropertyDeferSizeUpdates, 4, &count),
              kAudioFilePermissionsError);
    EXPECT_EQ(writeAudio(writing.file, 0, data), noErr);
    EXPECT_EQ(AudioFileReadBytes(writing.file, false, 0, &count, data.data()), kAudioFilePermissionsError);
    EXPECT_EQ(writeAudio(current.file, 0, data), noErr);
    for (const AudioFileID file : {reading.file, writing.file, current.file})
        EXPECT_EQ(AudioFileClose(file), noErr);
    EXPECT_EQ(openFile(path, 4).status, paramErr);
    EXPECT_EQ(openFile(folder.path("")).status, bdNamErr);
    EXPECT_EQ(openFile(folder.path("none")).status, fnfErr);
    EXPECT_EQ(AudioFileReadBytes(nullptr, false, 0, &count, nullptr), paramErr);
    EXPECT_EQ(openDescriptors(), before);
}

TEST(AudioFileService, PropertiesTellTheFile)
{
    MemoryDisk disk;
    const Opened made(createFile("/d/file", kAudioFileAIFFType, linear(14, 16, 2, 8000)));
    ASSERT_EQ(writeAudio(made.file, 0, pattern(16003)), noErr);
    EXPECT_EQ(bytesIn(made.file), 16000U); // whole frames only
    EXPECT_EQ(property<UInt64>(made.file, kAudioFilePropertyAudioDataPacketCount), 4000U);
    EXPECT_EQ(property<SInt64>(made.file, kAudioFilePropertyDataOffset), 54);
    EXPECT_EQ(property<Float64>(made.file, kAudioFilePropertyEstimatedDuration), 0.5);
    EXPECT_EQ(property<UInt32>(made.file, kAudioFilePropertyBitRate), 256000U);
    const auto name = property<CFStringRef>(made.file, kAudioFilePropertyDataFormatName);
    EXPECT_EQ(CFStringGetText(name), "Linear PCM, 16 bit big-endian signed integer");
    CFRelease(name);
    UInt32 size = 0, writable = 9;
    EXPECT_EQ(AudioFileGetPropertyInfo(made.file, kAudioFilePropertyChunkIDs, &size, &writable), noErr);
    EXPECT_EQ(size, 8U);
    EXPECT_EQ(writable, 0U);
    size = 2;
    EXPECT_EQ(AudioFileGetProperty(made.file, kAudioFilePropertyFileFormat, &size, &writable),
              kAudioFileBadPropertySizeError);
    for (const UInt32 absent : {kAudioFilePropertyMagicCookieData, qmx::fourCharCode("none")})
        EXPECT_EQ(AudioFileGetPropertyInfo(made.file, absent, &size, nullptr), kAudioFileUnsupportedPropertyError);
    EXPECT_EQ(AudioFileSetProperty(made.file, kAudioFilePropertyDataFormat, sizeof stereo16, &stereo16),
              kAudioFileOperationNotSupportedError);
}

TEST(AudioFileService, TwoThreadsMayTransferAtOnceAndDeferredSizesFollowAtClose)
{
    MemoryDisk disk;
    const auto made = createFile("/d/file", kAudioFileAIFFType, stereo16);
    const ByteBlock header = disk.contents("/d/file");
    const UInt32 defer = 1;
    EXPECT_EQ(property<UInt32>(made.file, kAudioFilePropertyKeepsReadable), 1U);
    EXPECT_EQ(AudioFileSetProperty(made.file, kAudioFilePropertyDeferSizeUpdates, sizeof defer, &defer), noErr);
    EXPECT_EQ(property<UInt32>(made.file, kAudioFilePropertyKeepsReadable), 0U);
    std::thread writer([&] {
        for (std::size_t start = 0; start < 400'000; start += 1000)
            EXPECT_EQ(writeAudio(made.file, static_cast<SInt64>(start), pattern(1000, start)), noErr);
    });
    for (int i = 0; i < 50; ++i) {
        const ByteBlock audio = audioOf(made.file);
        EXPECT_TRUE(audio == pattern(audio.size()));
    }
    writer.join();
    const ByteBlock file = disk.contents("/d/file");
    EXPECT_TRUE(std::equal(header.begin(), header.end(), file.begin()));
    EXPECT_EQ(AudioFileClose(made.file), noErr);
    EXPECT_EQ(chunksOf(disk.contents("/d/file")).back().data.size(), 400'008U);
}

// The file has a chunk after its audio, which has to move.
TEST(AudioFileService, MemoryThatRunsOutIsAStatusAndLosesNothing)
{
    TemporaryFolder folder;
    const std::string path = folder.path("file");
    const ByteBlock chunk = pattern(200, 7), first = pattern(1000), second = pattern(6000, 1000);
    for (const AudioFileTypeID type : {kAudioFileAIFFType, kAudioFileWAVEType, kAudioFileCAFType})
        withEveryAllocationFailing([&](ShortMemory& memory) {
            std::filesystem::remove(path);
            const auto succeed = [&](const auto& call) { EXPECT_EQ(memory.atLast(call), noErr); };
            const AudioStreamBasicDescription format = linear(type == kAudioFileWAVEType ? 12 : 14, 16, 2);
            OpenResult file;
            const FSRef parent{folder.path("")}, reference{path};
            const CFStringRef name = CFStringCreate("file");
            succeed([&] { return AudioFileCreate(&parent, name, type, &format, 0, nullptr, &file.file); });
            CFRelease(name);
            succeed([&] { return writeAudio(file.file, 0, first); });
            memory.during([&] { return AudioFileClose(file.file); });

            EXPECT_EQ(AudioFileClose(openFile(path, fsRdWrPerm).file), noErr); // which mends what the close left open
            ByteBlock bytes = contentsOf(path);
            appendChunk(bytes, "info", chunk);
            writeFile(path, bytes);
            succeed([&] { return AudioFileOpen(&reference, fsRdWrPerm, 0, &file.file); });
            succeed([&] { return writeAudio(file.file, 1000, second); });
            memory.during([&] { return AudioFileClose(file.file); });

            succeed([&] { return AudioFileOpen(&reference, fsRdWrPerm, 0, &file.file); });
            ByteBlock audio(7000);
            succeed([&] {
                auto count = static_cast<UInt32>(audio.size());
                return AudioFileReadBytes(file.file, false, 0, &count, audio.data());
            });
            EXPECT_TRUE(audio == pattern(7000));
            EXPECT_EQ(AudioFileClose(file.file), noErr);
            const auto chunks = chunksOf(contentsOf(path));
            EXPECT_TRUE(std::ranges::any_of(
                chunks, [&](const FoundChunk& found) { return found.id == "info" && found.data == chunk; }));
        });
}
