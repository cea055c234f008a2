// SPDX-License-Identifier: MIT
// What becomes of files whose writer is killed, whose disk fails, and that other writers change meanwhile. Faults are put at
// every change of the disk in turn; one test kills a real process. A torn write of fewer than 4096 header bytes is not simulated.
#include "platform/AudioToolbox/AudioFileHelpers.h"
#include "support/MemoryDisk.h"
#include "support/TemporaryFolder.h"

#include <algorithm>
#include <csignal>
#include <cstring>
#include <random>
#include <sys/wait.h>
#include <unistd.h>

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
    {"RIFX_behind", kAudioFileWAVEType, linear(14, 16, 1), true},
};

const ByteBlock foreign1 = pattern(1001, 7);
const ByteBlock foreign2 = pattern(300, 99);
// one block, odd ones, more than the room that is made at first, and a rest that only closing brings into the header
const std::vector<std::size_t> writes{4096, 4099, 9000, 1'200'000, 5001, 3, 2};
constexpr std::size_t block = 4096;

void appendChunk(ByteBlock& file, const char* id, const ByteBlock& data)
{
    const bool isLittle = file[3] == 'F';
    const auto put = [&](std::size_t at, std::size_t value) {
        for (std::size_t i = 0; i < 4; ++i)
            file[at + i] = static_cast<std::uint8_t>(value >> 8 * (isLittle ? i : 3 - i));
    };
    const std::size_t at = file.size() + file.size() % 2;
    file.resize(at + 8);
    std::memcpy(&file[at], id, 4);
    put(at + 4, data.size());
    file.insert(file.end(), data.begin(), data.end());
    file.resize(file.size() + file.size() % 2);
    put(4, file.size() - 8);
}

// A file with a little audio and, where the case says so, chunks of others behind it; the bytes of audio.
std::size_t prepare(MemoryDisk& disk, const Case& c)
{
    const std::size_t frame = c.format.mBytesPerFrame;
    const std::size_t bytes = 37 * frame;
    const auto made = createFile("/d/file", c.type, c.format);
    EXPECT_EQ(made.status, noErr);
    EXPECT_EQ(writeAudio(made.file, 0, pattern(bytes)), noErr);
    EXPECT_EQ(AudioFileClose(made.file), noErr);
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

// Opens the file and expects at least `bytes` of audio, right up to there.
void expectAudio(const Case& c, std::size_t bytes, SInt8 permissions)
{
    const auto opened = openFile("/d/file", permissions);
    ASSERT_EQ(opened.status, noErr);
    ByteBlock audio = audioOf(opened.file);
    EXPECT_GE(audio.size(), bytes - bytes % c.format.mBytesPerFrame);
    audio.resize(std::min(audio.size(), std::max(bytes, c.format.mBytesPerFrame * std::size_t{37})));
    EXPECT_TRUE(audio == pattern(audio.size()));
    EXPECT_EQ(AudioFileClose(opened.file), noErr);
}

// The audio, and every other chunk, as it is and after it was opened for writing, which brings it in line.
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

std::string nameOf(const testing::TestParamInfo<Case>& info)
{
    return info.param.name;
}

} // namespace

TEST_P(EveryChange, KilledWriterLeavesAllAcknowledgedBlocksAndAllChunks)
{
    const Case& c = GetParam();
    for (const std::size_t keep : {std::size_t{0}, std::size_t{100}}) {
        for (std::size_t kill = 1;; ++kill) {
            SCOPED_TRACE(testing::Message() << "change " << kill << ", keeping " << keep);
            MemoryDisk disk;
            std::size_t end = prepare(disk, c);
            std::size_t acknowledged = end;
            const std::size_t before = disk.changesMade();
            const auto opened = openFile("/d/file", fsRdWrPerm);
            ASSERT_EQ(opened.status, noErr);
            disk.killAtChange(kill, keep);
            const auto isAlive = [&] { return disk.changesMade() - before < kill; };
            for (const std::size_t size : writes) {
                writeAudio(opened.file, static_cast<SInt64>(end), pattern(size, end));
                end += size;
                acknowledged = isAlive() && size >= block ? end : acknowledged;
            }
            AudioFileClose(opened.file);
            const bool wasKilled = !isAlive();
            disk.clearFaults();
            expectIntact(disk, c, wasKilled ? acknowledged : end);
            if (!wasKilled || HasFailure())
                break;
        }
    }
}

TEST_P(EveryChange, FailingWriteLosesNothingAndTheNextOnesSucceed)
{
    const Case& c = GetParam();
    const struct {
        int error;
        std::size_t keep;
    } faults[] = {{ENOSPC, 0}, {EIO, 3}, {ENOSPC, 1000}};
    for (const auto& fault : faults) {
        bool reached = true;
        for (std::size_t change = 1; reached && !HasFailure(); ++change) {
            SCOPED_TRACE(testing::Message() << "change " << change << ", keeping " << fault.keep);
            MemoryDisk disk;
            std::size_t end = prepare(disk, c);
            const std::size_t before = disk.changesMade();
            const auto opened = openFile("/d/file", fsRdWrPerm);
            ASSERT_EQ(opened.status, noErr);
            disk.failChange(change, fault.error, fault.keep);
            int failures = 0;
            for (const std::size_t size : writes) {
                for (std::size_t done = 0, tries = 0; done < size && tries < 3; ++tries) {
                    UInt32 count = 0;
                    const OSStatus status = writeAudio(opened.file, static_cast<SInt64>(end + done),
                                                       pattern(size - done, end + done), &count);
                    if (status != noErr) {
                        EXPECT_EQ(status, fault.error == ENOSPC ? dskFulErr : ioErr);
                        ++failures;
                        expectAudio(c, 0, fsRdPerm);
                        if (c.hasChunksBehind)
                            expectForeignChunks(disk.contents("/d/file"), c);
                    }
                    done += count;
                }
                end += size;
                EXPECT_EQ(bytesIn(opened.file), end - end % c.format.mBytesPerFrame);
            }
            EXPECT_LE(failures, 1);
            const ByteBlock audio = audioOf(opened.file);
            EXPECT_TRUE(audio == pattern(audio.size()));
            const OSStatus closed = AudioFileClose(opened.file);
            reached = disk.changesMade() - before >= change;
            expectIntact(disk, c, closed == noErr ? end : 0);
        }
    }
}

// The growth is cut off again at close where there is room for it, and the file is as if it had been written so.
TEST_P(EveryChange, ClosedFileHasItsChunksRightBehindTheAudio)
{
    const Case& c = GetParam();
    MemoryDisk disk;
    std::size_t end = prepare(disk, c);
    const auto opened = openFile("/d/file", fsRdWrPerm);
    for (const std::size_t size : {4096u, 4100u, 5u, 6u, 300'000u, 2u}) {
        ASSERT_EQ(writeAudio(opened.file, static_cast<SInt64>(end), pattern(size, end)), noErr);
        end += size;
    }
    ASSERT_EQ(writeAudio(opened.file, 10, pattern(5000, 10)), noErr);
    ASSERT_EQ(AudioFileClose(opened.file), noErr);
    expectIntact(disk, c, end);
    EXPECT_LT(disk.contents("/d/file").size(), end + 2000);
}

TEST_P(EveryChange, GapIsFilledWithZeros)
{
    const Case& c = GetParam();
    MemoryDisk disk;
    const std::size_t end = prepare(disk, c);
    const auto opened = openFile("/d/file", fsRdWrPerm);
    ASSERT_EQ(writeAudio(opened.file, 200'001, pattern(4099)), noErr);
    ASSERT_EQ(writeAudio(opened.file, 1'400'000, pattern(60)), noErr);
    ByteBlock expected = pattern(end);
    expected.resize(1'400'060);
    std::ranges::copy(pattern(4099), expected.begin() + 200'001);
    std::ranges::copy(pattern(60), expected.begin() + 1'400'000);
    expected.resize(expected.size() - expected.size() % c.format.mBytesPerFrame);
    EXPECT_TRUE(audioOf(opened.file) == expected);
    ASSERT_EQ(AudioFileClose(opened.file), noErr);
    expectForeignChunks(disk.contents("/d/file"), c);
    const auto again = openFile("/d/file");
    EXPECT_TRUE(audioOf(again.file) == expected);
    AudioFileClose(again.file);
}

TEST_P(EveryChange, ChunkThatAnotherWriterAppendsMeanwhileIsKept)
{
    const Case& c = GetParam();
    for (const std::size_t first : {std::size_t{0}, std::size_t{6000}}) {
        MemoryDisk disk;
        std::size_t end = prepare(disk, c);
        const auto opened = openFile("/d/file", fsRdWrPerm);
        ASSERT_EQ(writeAudio(opened.file, static_cast<SInt64>(end), pattern(first, end)), noErr);
        end += first;
        ByteBlock file = disk.contents("/d/file");
        appendChunk(file, "tRaK", foreign2);
        disk.setContents("/d/file", file);
        for (const std::size_t size : {4096u, 90u, 7000u}) {
            ASSERT_EQ(writeAudio(opened.file, static_cast<SInt64>(end), pattern(size, end)), noErr);
            end += size;
        }
        ASSERT_EQ(AudioFileClose(opened.file), noErr);
        expectIntact(disk, c, end);
        const auto chunks = chunksOf(disk.contents("/d/file"));
        EXPECT_EQ(std::ranges::count(chunks, "tRaK", &FoundChunk::id), 1);
    }
}

INSTANTIATE_TEST_SUITE_P(ChunkContainer, EveryChange, testing::ValuesIn(cases), nameOf);

namespace
{

// Writes blocks and reports each on the pipe until it is killed.
[[noreturn]] void writeUntilKilled(const std::string& path, int pipe, std::size_t blockSize)
{
    const auto opened = openFile(path, fsRdWrPerm);
    std::size_t end = opened.file ? bytesIn(opened.file) : 0;
    for (;;) {
        if (opened.status != noErr ||
            writeAudio(opened.file, static_cast<SInt64>(end), pattern(blockSize, end)) != noErr)
            _exit(1);
        end += blockSize;
        if (::write(pipe, &end, sizeof end) != sizeof end)
            _exit(1);
    }
}

// Lets a process write to the file and kills it after `reports`; the audio bytes that it reported.
std::size_t killAfter(const std::string& path, int reports, std::size_t blockSize)
{
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    const pid_t child = fork();
    if (child == 0)
        writeUntilKilled(path, ends[1], blockSize);
    close(ends[1]);
    std::size_t reported = 0;
    for (int i = 0; read(ends[0], &reported, sizeof reported) == sizeof reported; ++i)
        if (i == reports)
            kill(child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status));
    close(ends[0]);
    return reported;
}

} // namespace

TEST(ChunkContainer, KilledProcessLeavesEveryBlockItReported)
{
    const TemporaryFolder folder;
    std::minstd_rand random(20);
    for (int run = 0; run < 50; ++run) {
        const bool behind = run % 2 == 1;
        const Case c{"", run % 4 < 2 ? kAudioFileAIFFType : kAudioFileWAVEType, linear(run % 4 < 2 ? 14 : 12, 16, 2),
                     behind};
        SCOPED_TRACE(testing::Message() << "run " << run);
        ByteBlock start;
        {
            MemoryDisk disk;
            prepare(disk, c);
            start = disk.contents("/d/file");
        }
        const std::string path = folder.path("recording");
        writeFile(path, start);
        const std::size_t blockSize = 4096 + random() % 30000 * 4;
        const std::size_t reported = killAfter(path, static_cast<int>(random() % 60), blockSize);
        MemoryDisk disk;
        disk.setContents("/d/file", contentsOf(path));
        EXPECT_GT(reported, 0U);
        expectIntact(disk, c, reported);
    }
}

TEST(ChunkContainer, WaveThatOutgrows32BitsBecomesRF64AndAIFFRefuses)
{
    const TemporaryFolder folder;
    const SInt64 beyond = (SInt64{1} << 32) + 1000;
    const ByteBlock data = pattern(5000);
    {
        const auto wave = createFile(folder.path("long.wav"), kAudioFileWAVEType, linear(12, 16, 2));
        ASSERT_EQ(writeAudio(wave.file, 0, data), noErr);
        ASSERT_EQ(writeAudio(wave.file, beyond, data), noErr);
        ASSERT_EQ(AudioFileClose(wave.file), noErr);
        const auto opened = openFile(folder.path("long.wav"), fsRdWrPerm);
        ASSERT_EQ(opened.status, noErr);
        EXPECT_EQ(property<UInt32>(opened.file, kAudioFilePropertyFileFormat), kAudioFileWAVEType);
        EXPECT_EQ(bytesIn(opened.file), static_cast<UInt64>(beyond) + data.size());
        EXPECT_EQ(property<UInt32>(opened.file, kAudioFilePropertyChunkIDs), qmx::fourCharCode("ds64"));
        ByteBlock read(5000);
        UInt32 count = 5000;
        EXPECT_EQ(AudioFileReadBytes(opened.file, false, beyond, &count, read.data()), noErr);
        EXPECT_TRUE(read == data);
        EXPECT_EQ(writeAudio(opened.file, beyond + 5000, data), noErr);
        EXPECT_EQ(bytesIn(opened.file), static_cast<UInt64>(beyond) + 10000);
        AudioFileClose(opened.file);
    }
    const struct {
        const char* name;
        AudioFileTypeID type;
    } refusing[] = {{"long.aif", kAudioFileAIFFType}, {"long.rifx", kAudioFileWAVEType}};
    for (const auto& [name, type] : refusing) {
        const auto file = createFile(folder.path(name), type, linear(14, 16, 2));
        ASSERT_EQ(writeAudio(file.file, 0, data), noErr);
        UInt32 written = 1;
        EXPECT_EQ(writeAudio(file.file, beyond, data, &written), kAudioFileDoesNotAllow64BitDataSizeError);
        EXPECT_EQ(written, 0U);
        EXPECT_EQ(writeAudio(file.file, std::numeric_limits<SInt64>::max() - 10, data),
                  kAudioFileDoesNotAllow64BitDataSizeError);
        EXPECT_TRUE(audioOf(file.file) == data);
        EXPECT_EQ(AudioFileClose(file.file), noErr);
        EXPECT_LT(std::filesystem::file_size(folder.path(name)), 6000U);
    }
}
