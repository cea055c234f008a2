// SPDX-License-Identifier: MIT
// Files whose writer is killed, whose disk fails, and which other writers change meanwhile. Every change of the disk
// fails in turn; one test kills a real process. A torn write of fewer than 4096 header bytes is not simulated.
#include "platform/AudioToolbox/AudioFileHelpers.h"
#include "support/MemoryDisk.h"
#include "support/TemporaryFolder.h"

#include <algorithm>
#include <cstring>
#include <numeric>

using namespace qmx::test;

namespace
{

struct Case {
    const char* name;
    AudioFileTypeID type;
    AudioStreamBasicDescription format;
    bool hasChunksBehind;
};

void PrintTo(const Case& c, std::ostream* stream)
{
    *stream << c.name;
}

const Case cases[] = {
    {"AIFF", kAudioFileAIFFType, linear(14, 16, 2), false},
    {"AIFF_odd", kAudioFileAIFFType, linear(14, 8, 1), false},
    {"AIFF_behind", kAudioFileAIFFType, linear(14, 16, 2), true},
    {"AIFF_odd_behind", kAudioFileAIFFType, linear(14, 24, 1), true},
    {"WAVE", kAudioFileWAVEType, linear(12, 16, 2), false},
    {"WAVE_behind", kAudioFileWAVEType, linear(9, 32, 1), true},
    {"WAVE_odd_behind", kAudioFileWAVEType, linear(8, 8, 1), true},
    {"CAF", kAudioFileCAFType, linear(9, 32, 6), false},
    {"CAF_behind", kAudioFileCAFType, linear(14, 16, 2), true},
    {"CAF_odd_behind", kAudioFileCAFType, linear(12, 24, 1), true},
};

const ByteBlock foreign1 = pattern(1001, 7);
const ByteBlock foreign2 = pattern(300, 99);
// one block, odd ones, more than the room that is made at first, and a few bytes
const std::vector<std::size_t> writes{4096, 4099, 9000, 1'200'000, 5001, 3, 2};
constexpr std::size_t block = 4096;

// A file with a little audio and, if the case says so, foreign chunks after it; returns the bytes of audio.
std::size_t prepare(MemoryDisk& disk, const Case& c)
{
    const std::size_t bytes = 37 * c.format.mBytesPerFrame;
    makeFile("/d/file", c.type, c.format, pattern(bytes));
    if (c.hasChunksBehind) {
        ByteBlock file = disk.contents("/d/file");
        appendChunk(file, "APPL", foreign1);
        appendChunk(file, "note", foreign2);
        disk.setContents("/d/file", file);
    }
    return bytes;
}

void expectForeignChunks(const ByteBlock& file, const Case& c)
{
    std::size_t found = 0;
    for (const FoundChunk& chunk : chunksOf(file))
        found += (chunk.id == "APPL" && chunk.data == foreign1) || (chunk.id == "note" && chunk.data == foreign2);
    EXPECT_EQ(found, c.hasChunksBehind ? 2U : 0U);
}

// Opens the file and expects at least `bytes` of audio, correct to the end.
void expectAudio(const Case& c, std::size_t bytes, SInt8 permissions)
{
    const Opened opened(openFile("/d/file", permissions));
    ASSERT_EQ(opened.status, noErr);
    ByteBlock audio = audioOf(opened.file);
    EXPECT_GE(audio.size(), bytes - bytes % c.format.mBytesPerFrame);
    if (c.type == kAudioFileAIFFType && c.hasChunksBehind) {
        EXPECT_TRUE(audio == pattern(audio.size())) << "bytes that were not acknowledged yet are audio or not there";
    }
    audio.resize(std::min(audio.size(), std::max(bytes, c.format.mBytesPerFrame * std::size_t{37})));
    EXPECT_TRUE(audio == pattern(audio.size()));
}

// Expects the audio, and every other chunk, before and after opening for writing brings the file in line.
void expectIntact(MemoryDisk& disk, const Case& c, std::size_t bytes)
{
    if (c.hasChunksBehind)
        expectForeignChunks(disk.contents("/d/file"), c);
    expectAudio(c, bytes, fsRdPerm);
    expectAudio(c, bytes, fsRdWrPerm);
    expectForeignChunks(disk.contents("/d/file"), c);
    expectAudio(c, bytes, fsRdPerm);
}

class EveryChange : public testing::TestWithParam<Case>
{
};

} // namespace

TEST_P(EveryChange, KilledWriterLeavesAllAcknowledgedBlocksAndAllChunks)
{
    const Case& c = GetParam();
    for (std::size_t run = 0;; ++run) {
        const std::size_t kill = run / 2 + 1, keep = run % 2 * 100;
        SCOPED_TRACE(testing::Message() << "change " << kill << ", keeping " << keep);
        MemoryDisk disk;
        std::size_t end = prepare(disk, c), acknowledged = end;
        const std::size_t before = disk.changesMade();
        const auto opened = openFile("/d/file", fsRdWrPerm);
        disk.killAtChange(kill, keep);
        const auto isAlive = [&] { return disk.changesMade() - before < kill; };
        for (const std::size_t size : writes) {
            writeAudio(opened.file, static_cast<SInt64>(end), pattern(size, end));
            end += size;
            acknowledged = isAlive() && size >= block ? end : acknowledged;
        }
        (void)AudioFileClose(opened.file); // fails if the writer was killed
        const bool survived = isAlive();
        disk.clearFaults();
        expectIntact(disk, c, survived ? end : acknowledged);
        if (survived || HasFailure())
            break;
    }
}

TEST_P(EveryChange, FailingWriteLosesNothingAndTheNextOnesSucceed)
{
    const Case& c = GetParam();
    const std::pair<int, std::size_t> faults[] = {{ENOSPC, 0}, {EIO, 3}, {ENOSPC, 1000}}; // error, and bytes kept
    for (std::size_t run = 0;; ++run) {
        const auto& [error, keep] = faults[run % 3];
        const std::size_t change = run / 3 + 1;
        SCOPED_TRACE(testing::Message() << "change " << change << ", keeping " << keep);
        MemoryDisk disk;
        std::size_t end = prepare(disk, c);
        const std::size_t before = disk.changesMade();
        const auto opened = openFile("/d/file", fsRdWrPerm);
        disk.failChange(change, error, keep);
        int failures = 0;
        for (const std::size_t size : writes) {
            for (std::size_t done = 0, tries = 0; done < size && tries < 3; ++tries) {
                UInt32 count = 0;
                const ByteBlock data = pattern(size - done, end + done);
                const OSStatus status = writeAudio(opened.file, static_cast<SInt64>(end + done), data, &count);
                done += count;
                if (status == noErr)
                    continue;
                EXPECT_EQ(status, error == ENOSPC ? dskFulErr : ioErr);
                ++failures;
                expectAudio(c, 0, fsRdPerm);
                if (c.hasChunksBehind)
                    expectForeignChunks(disk.contents("/d/file"), c);
            }
            end += size;
            EXPECT_EQ(bytesIn(opened.file), end - end % c.format.mBytesPerFrame);
        }
        EXPECT_LE(failures, 1);
        const ByteBlock audio = audioOf(opened.file);
        EXPECT_TRUE(audio == pattern(audio.size()));
        const OSStatus closed = AudioFileClose(opened.file);
        expectIntact(disk, c, closed == noErr ? end : 0);
        if (failures == 1) {
            EXPECT_LT(disk.contents("/d/file").size(), end + 3000); // no room is left
        }
        if (disk.changesMade() - before < change || HasFailure())
            break;
    }
}

// Another writer appends a chunk meanwhile. A gap is filled with zeros. Closing gives up the room made for growth.
TEST_P(EveryChange, GrowthKeepsEveryByteAndEndsWithTheChunksRightBehindTheAudio)
{
    const Case& c = GetParam();
    MemoryDisk disk;
    ByteBlock audio = pattern(prepare(disk, c));
    const auto opened = openFile("/d/file", fsRdWrPerm);
    for (const std::size_t gap : {0U, 0U, 200'001U, 0U, 5U, 1'200'000U, 0U}) {
        audio.resize(audio.size() + gap);
        const ByteBlock data = pattern(gap == 5 ? 1 : 4099, audio.size());
        ASSERT_EQ(writeAudio(opened.file, static_cast<SInt64>(audio.size()), data), noErr);
        audio.insert(audio.end(), data.begin(), data.end());
        if (gap != 0) {
            ByteBlock file = disk.contents("/d/file");
            appendChunk(file, "tRaK", foreign2);
            disk.setContents("/d/file", file);
        }
    }
    ByteBlock longer = disk.contents("/d/file"); // another writer comes after the last growth
    appendChunk(longer, "tRaK", foreign2);
    disk.setContents("/d/file", longer);
    ASSERT_EQ(writeAudio(opened.file, 10, {1, 2, 3}), noErr);
    std::iota(audio.begin() + 10, audio.begin() + 13, std::uint8_t{1});
    audio.resize(audio.size() - audio.size() % c.format.mBytesPerFrame);
    EXPECT_TRUE(audioOf(opened.file) == audio);
    ASSERT_EQ(AudioFileClose(opened.file), noErr);
    EXPECT_TRUE(audioAt("/d/file") == audio);
    const ByteBlock file = disk.contents("/d/file");
    expectForeignChunks(file, c);
    const auto chunks = chunksOf(file);
    EXPECT_EQ(std::count_if(chunks.begin(), chunks.end(), [](const auto& chunk) { return chunk.id == "tRaK"; }), 4);
    EXPECT_LT(file.size(), audio.size() + 3000);
}

INSTANTIATE_TEST_SUITE_P(ChunkContainer, EveryChange, testing::ValuesIn(cases),
                         [](const auto& test) { return test.param.name; });

// They are moved out of the way of growing chunks, and after an error moved back.
TEST(ChunkContainer, BytesBehindTheFormOutliveADiskThatFailsTwice)
{
    const ByteBlock others(500, 0xEE);
    for (std::size_t change = 1; change <= 6; ++change) {
        MemoryDisk disk;
        const std::size_t end = prepare(disk, cases[2]);
        ByteBlock file = disk.contents("/d/file");
        file.insert(file.end(), others.begin(), others.end());
        disk.setContents("/d/file", file);
        const Opened opened(openFile("/d/file", fsRdWrPerm));
        disk.failChange(change, EIO);
        disk.failReads(EIO, file.size()); // where they were moved to
        EXPECT_EQ(writeAudio(opened.file, static_cast<SInt64>(end), pattern(5000, end)), ioErr) << change;
        disk.clearFaults();
        file = disk.contents("/d/file");
        EXPECT_NE(std::search(file.begin(), file.end(), others.begin(), others.end()), file.end()) << change;
    }
}

TEST(ChunkContainer, PrintableAudioThatACAFDoesNotTellYetIsNoChunk)
{
    MemoryDisk disk;
    const Case caf{"", kAudioFileCAFType, linear(14, 16, 2), false};
    const std::size_t told = prepare(disk, caf);
    const ByteBlock loud(2000, 'A');
    ByteBlock file = disk.contents("/d/file");
    file.insert(file.end(), loud.begin(), loud.end());
    disk.setContents("/d/file", file);
    const auto opened = openFile("/d/file", fsRdWrPerm);
    EXPECT_EQ(bytesIn(opened.file), told + loud.size());
    EXPECT_EQ(writeAudio(opened.file, static_cast<SInt64>(told + loud.size()), loud), noErr);
    const ByteBlock audio = audioOf(opened.file);
    EXPECT_TRUE(std::equal(loud.begin(), loud.end(), audio.begin() + static_cast<long>(told)));
    EXPECT_EQ(AudioFileClose(opened.file), noErr);

    file = disk.contents("/d/file"); // a chunk that the format knows was cut off, and is kept
    appendChunk(file, "info", foreign1);
    file.resize(file.size() - 10);
    disk.setContents("/d/file", file);
    const auto cut = openFile("/d/file", fsRdWrPerm);
    EXPECT_EQ(bytesIn(cut.file), audio.size());
    EXPECT_EQ(AudioFileClose(cut.file), noErr);
    EXPECT_EQ(disk.contents("/d/file"), file);
}

TEST(ChunkContainer, FilesOutgrow32BitsWhereTheirTypeAllowsAndOthersRefuse)
{
    const TemporaryFolder folder;
    const SInt64 beyond = (SInt64{1} << 32) + 1000, largest = std::numeric_limits<SInt64>::max() - 10;
    const ByteBlock data = pattern(5000);
    ByteBlock read(5000);
    UInt32 count = 5000;
    for (const auto& [type, flags] :
         {std::pair{kAudioFileWAVEType, 12U}, {kAudioFileCAFType, 14U}, {kAudioFileNextType, 14U}}) {
        const std::string path = folder.path("long");
        std::filesystem::remove(path);
        const auto made = createFile(path, type, linear(flags, 16, 2));
        EXPECT_EQ(writeAudio(made.file, 0, data), noErr);
        EXPECT_EQ(writeAudio(made.file, beyond, data), noErr);
        EXPECT_EQ(AudioFileClose(made.file), noErr);
        const Opened opened(openFile(path, fsRdWrPerm));
        if (type == kAudioFileWAVEType) {
            EXPECT_EQ(property<UInt32>(opened.file, kAudioFilePropertyChunkIDs), qmx::fourCharCode("ds64"));
        }
        count = 5000;
        EXPECT_EQ(AudioFileReadBytes(opened.file, false, beyond, &count, read.data()), noErr);
        EXPECT_TRUE(read == data);
        EXPECT_EQ(writeAudio(opened.file, beyond + 5000, data), noErr);
        EXPECT_EQ(bytesIn(opened.file), static_cast<UInt64>(beyond) + 10000);
    }
    for (const AudioFileTypeID type : {kAudioFileAIFFType, kAudioFileWAVEType}) {
        const std::string path = folder.path(qmx::fourCharString(type));
        const auto file = createFile(path, type, linear(14, 16, 2)); // RIFX in a WAVE
        EXPECT_EQ(writeAudio(file.file, 0, data), noErr);
        for (const SInt64 start : {beyond, largest}) {
            EXPECT_EQ(writeAudio(file.file, start, data, &count), kAudioFileDoesNotAllow64BitDataSizeError);
            EXPECT_EQ(count, 0U);
        }
        EXPECT_TRUE(audioOf(file.file) == data);
        EXPECT_EQ(AudioFileClose(file.file), noErr);
        EXPECT_LT(std::filesystem::file_size(path), 6000U);
    }
}
