// SPDX-License-Identifier: MIT
// Records kept inside AIFF files: the bytes that are written, that all else in the file survives, and what a failed or
// killed write leaves.
#include "FileRelated/QMXAudioFile.h"
#include "Foundation/Archives/KeyedArchiver.h"
#include "Tracks/Store/QMXAIFFUtility.h"
#include "Tracks/Store/QMXAudioFileTrackInfoReaderWriter.h"
#include "Tracks/Store/QMXAudioTrackInfoReaderWriterFactory.h"
#include "platform/AudioToolbox/AudioFileHelpers.h"
#include "support/CapturedLog.h"
#include "support/MemoryDisk.h"
#include "support/ShortMemory.h"
#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

namespace
{

using Bytes = std::vector<UInt8>;
using Factory = QMXAudioTrackInfoReaderWriterFactory;
using Record = std::shared_ptr<QMXTrackAndProcessingInfo>;

const std::string path = "/d/a.aif";
constexpr std::size_t block = 524'288;

void put32(Bytes& bytes, UInt32 value, bool reversed = false)
{
    for (unsigned i = 0; i < 4; ++i)
        bytes.push_back(static_cast<UInt8>(value >> (reversed ? 8 * i : 24 - 8 * i)));
}

UInt32 get32(const Bytes& bytes, std::size_t at)
{
    return UInt32{bytes[at]} << 24 | UInt32{bytes[at + 1]} << 16 | UInt32{bytes[at + 2]} << 8 | bytes[at + 3];
}

Bytes operator+(Bytes one, const Bytes& other)
{
    one.insert(one.end(), other.begin(), other.end());
    return one;
}

Bytes chunk(const std::string& id, Bytes data)
{
    Bytes bytes(id.begin(), id.end());
    put32(bytes, static_cast<UInt32>(data.size()));
    bytes = bytes + data;
    bytes.resize(bytes.size() + (data.size() & 1));
    return bytes;
}

Bytes form(const Bytes& chunks)
{
    return chunk("FORM", Bytes{'A', 'I', 'F', 'F'} + chunks);
}

/// An application chunk of ours with `size` bytes after its size field.
Bytes trackChunk(const Bytes& archive, std::size_t size, UInt32 version = 3, bool hostVersion = false)
{
    Bytes data{'t', 'R', 'a', 'K'};
    put32(data, version, hostVersion);
    put32(data, static_cast<UInt32>(archive.size()));
    data = data + archive;
    data.resize(std::max(size, data.size()));
    return chunk("APPL", data);
}

const Bytes common = chunk("COMM", {0, 1, 0, 0, 0, 4, 0, 16, 0x40, 0x0e, 0xac, 0x44, 0, 0, 0, 0, 0, 0});
const Bytes sound = chunk("SSND", {0, 0, 0, 0, 0, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8});
/// Chunks that the store must leave alone; `mark` distinguishes one set of them from another.
std::vector<Bytes> foreignChunks(UInt8 mark)
{
    return {chunk("MARK", {0, 0, mark}),     chunk("ID3 ", {1, 2, 3, mark}),
            chunk("NAME", {'n', 'a', mark}), chunk("APPL", {'o', 't', 'h', 'r', mark}),
            chunk("COMT", {0, 0, mark}),     chunk("INST", Bytes(20, mark))};
}

Bytes joined(const std::vector<Bytes>& chunks)
{
    Bytes all;
    for (const Bytes& one : chunks)
        all = all + one;
    return all;
}

const Bytes before = joined(foreignChunks(1)) + common;
const Bytes behind = joined(foreignChunks(2));

Record record(int tracks, const std::string& title = "Title")
{
    auto info = QMXTrackAndProcessingInfo::init();
    for (int i = 0; i < tracks; ++i)
        info->addTrackInfo(QMXAudioTrackInfo::initWithTrackTitle_trackBegin_trackEnd_isActive(
            title, static_cast<UInt64>(i), static_cast<UInt64>(i) + 1, true));
    return info;
}

Bytes archive(const Record& info)
{
    return qmx::KeyedArchiver::archivedDataWithRootObject(info);
}

/// The writer's last status, which tells whether the record is in the file.
OSStatus store(const Record& info, const std::string& file = path, const std::string& reason = "")
{
    const auto writer = Factory::writerWithAudioFilePath(file);
    writer->setTrackAndProcessingInfo(info);
    EXPECT_EQ(writer->write(), 0);
    EXPECT_EQ(writer->lastStatus() == noErr, writer->lastError().empty());
    EXPECT_THAT(writer->lastError(), testing::HasSubstr(reason));
    return writer->lastStatus();
}

/// Tracks that the factory's reader finds; -1 for no record.
int storedTracks()
{
    const Record info = Factory::readerWithAudioFilePath(path)->read();
    return !info ? -1 : info->trackInfos() ? static_cast<int>(info->trackInfos()->size()) : 0;
}

/// Tracks that a fresh reader of the older class finds; -1 for no record.
int tracksOfOlderClass()
{
    const auto older = QMXAudioFileTrackInfoReaderWriter::initWithAudioFilePath(path);
    return older->readTrackInfosFromFile() ? static_cast<int>(older->trackInfos()->size()) : -1;
}

bool storeWithOlderClass(int tracks)
{
    const auto older = QMXAudioFileTrackInfoReaderWriter::initWithAudioFilePath(path);
    older->addTrackInfoForAllTracks(*record(tracks)->trackInfos());
    return older->writeTrackInfosToFile();
}

class TrackStore : public testing::Test
{
protected:
    void putFile(const Bytes& bytes) { disk.setContents(path, bytes); }
    Bytes file() const { return disk.contents(path); }

    qmx::test::MemoryDisk disk;
    qmx::test::CapturedLog log;
};

TEST_F(TrackStore, StoringTwiceLeavesOneCanonicalChunkAndEverythingElse)
{
    const Bytes original = form(before + sound + behind);
    putFile(original);
    store(record(3));
    EXPECT_EQ(storedTracks(), 3);
    const std::size_t length = file().size();
    store(record(2));
    EXPECT_EQ(storedTracks(), 2);
    ASSERT_EQ(file().size(), length);
    EXPECT_EQ(length, original.size() + 8 + block);
    EXPECT_EQ(get32(file(), 4), length - 8);
    Bytes rest = file();
    const Bytes chunkBytes(rest.begin() + static_cast<std::ptrdiff_t>(original.size()), rest.end());
    const UInt32 archived = get32(chunkBytes, 16);
    const Bytes data(chunkBytes.begin() + 20, chunkBytes.begin() + 20 + archived);
    EXPECT_EQ(chunkBytes, trackChunk(data, block));
    rest.resize(original.size());
    std::copy_n(original.begin() + 4, 4, rest.begin() + 4);
    EXPECT_EQ(rest, original);
}

TEST_F(TrackStore, AChunkOfAnotherSizeIsUsedGrownOrRefusedButNeverOutgrown)
{
    const Bytes old = archive(record(1));
    const std::size_t small = old.size() + 12;
    const Bytes roomy = form(before + trackChunk(old, small + 30'000) + sound);
    putFile(roomy);
    store(record(2));
    EXPECT_EQ(storedTracks(), 2);
    EXPECT_EQ(file().size(), roomy.size());
    EXPECT_EQ(get32(file(), 12 + before.size() + 4), small + 30'000);
    EXPECT_TRUE(std::equal(sound.begin(), sound.end(), file().end() - static_cast<std::ptrdiff_t>(sound.size())));

    putFile(form(before + sound + trackChunk(old, small)));
    store(record(20));
    EXPECT_EQ(storedTracks(), 20);
    EXPECT_EQ(file().size(), 12 + before.size() + sound.size() + 8 + block);
    EXPECT_EQ(get32(file(), 4), file().size() - 8);

    const Bytes tight = form(before + trackChunk(old, small) + sound);
    putFile(tight);
    store(record(20));
    EXPECT_EQ(file(), tight);
    EXPECT_FALSE(log.lines().empty());
}

TEST_F(TrackStore, EveryFailingWriteLeavesTheFileAsItWas)
{
    const Bytes without = form(before + sound + behind);
    putFile(without);
    store(record(1));
    const Bytes with = file();
    const Bytes growing = form(before + sound + trackChunk(archive(record(1)), archive(record(1)).size() + 12));
    for (const Bytes& original : {without, with, growing})
        for (const int error : {ENOSPC, EIO})
            for (const std::size_t ordinal : {1U, 2U, 3U, 4U})
                for (const std::size_t keep : {0U, 3U, 100U, 400'000U}) {
                    putFile(original);
                    disk.failChange(ordinal, error, keep);
                    const OSStatus status = store(record(20));
                    const bool isStored = storedTracks() == 20;
                    EXPECT_EQ(isStored, status == noErr) << ordinal << ' ' << keep;
                    EXPECT_TRUE(isStored || file() == original) << ordinal << ' ' << keep;
                    const bool lacksOnlyTheJournal = error == ENOSPC && original != without;
                    EXPECT_FALSE(isStored && ordinal == 1 && !lacksOnlyTheJournal);
                    disk.clearFaults();
                }
}

/// The audio bytes that the audio file object reads after bringing the file in line.
Bytes audioBytes()
{
    const auto audio = QMXAudioFile::initWithPath_accessMode(path, QMXAudioFileAccessMode::readWrite);
    Bytes bytes(100);
    auto length = static_cast<UInt32>(bytes.size());
    if (!audio->open() || !audio->read_length_fromOffset(bytes.data(), &length, 0))
        length = 0;
    EXPECT_TRUE(audio->close());
    bytes.resize(length);
    return bytes;
}

std::string_view textOf(const Bytes& bytes)
{
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

bool holds(const Bytes& bytes, const Bytes& part)
{
    return textOf(bytes).find(textOf(part)) != std::string_view::npos;
}

/// Counts the chunks of ours, journals included.
int chunksOfOurs(const Bytes& bytes)
{
    int count = 0;
    for (const std::string_view id : {"tRaK", "tRaJ"})
        for (auto at = textOf(bytes).find(id); at != std::string_view::npos; at = textOf(bytes).find(id, at + 1))
            ++count;
    return count;
}

// Each change of the disk in turn is the last: of an append, an overwrite after and before the audio, and a growing
// last chunk. The first step afterwards is reading, storing, repairing or opening the audio.
TEST_F(TrackStore, AKilledStoreLeavesTheRecordAsItWasOrAsItIsToBe)
{
    const Bytes old = archive(record(1));
    const Bytes without = form(before + sound + behind);
    for (const Bytes& original : {without, form(before + sound), form(before + trackChunk(old, block) + sound),
                                  form(before + sound + trackChunk(old, block) + behind),
                                  form(before + sound + trackChunk(old, old.size() + 12))})
        for (std::size_t ordinal = 1; ordinal <= 4; ++ordinal)
            for (const std::size_t keep : {0U, 100U, 500'000U})
                for (const int first : {0, 1, 2, 3}) {
                    putFile(original);
                    const int tracksBefore = storedTracks();
                    disk.killAtChange(ordinal, keep);
                    store(record(20));
                    disk.clearFaults();
                    if (first == 1)
                        store(record(20));
                    if (first == 2) {
                        EXPECT_NE(QMXAIFFUtility::repairFileAtPath(path), 0);
                    }
                    if (first == 3)
                        audioBytes();
                    const int tracks = storedTracks();
                    EXPECT_TRUE(tracks == 20 || (tracks == tracksBefore && first != 1))
                        << ordinal << ' ' << keep << ' ' << first << ' ' << tracks;
                    store(record(3));
                    EXPECT_EQ(storedTracks(), 3);
                    EXPECT_TRUE(QMXAIFFUtility::validateFileAtPath(path));
                    EXPECT_EQ(chunksOfOurs(file()), 1);
                    for (const Bytes& other : {before, sound, original == without ? behind : sound})
                        EXPECT_TRUE(holds(file(), other));
                    EXPECT_EQ(audioBytes(), Bytes(sound.end() - 8, sound.end()));
                }
}

TEST_F(TrackStore, AJournalThatWasMovedOrIsNotOursChangesNothing)
{
    const Bytes old = archive(record(1));
    putFile(form(before + sound + trackChunk(old, block)));
    disk.killAtChange(2);
    store(record(20));
    disk.clearFaults();
    Bytes moved = file();
    ASSERT_EQ(chunksOfOurs(moved), 4); // the chunk, and the journal with what it holds
    moved.insert(moved.begin() + 12, before.begin(), before.end());
    Bytes damaged = file();
    damaged[damaged.size() - 40] ^= 1;
    for (const Bytes& bytes : {moved, damaged}) {
        putFile(bytes);
        EXPECT_NE(storedTracks(), 20);
        EXPECT_EQ(file(), bytes);
    }
}

TEST_F(TrackStore, ARecordingWhoseWriterWasKilledCanBeStoredInto)
{
    Bytes killed = form(before + sound);
    killed.insert(killed.end(), {9, 10, 11, 12}); // audio that the headers do not count yet
    putFile(killed);
    store(record(1));
    EXPECT_EQ(file(), killed); // refused while the sizes disagree
    EXPECT_EQ(audioBytes(), (Bytes{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}));
    store(record(2));
    EXPECT_EQ(storedTracks(), 2);
    EXPECT_EQ(audioBytes().size(), 12U);
}

TEST_F(TrackStore, AnOddEndIsPaddedAndAFullFormOrRecordIsRefused)
{
    Bytes odd = form(before + sound + chunk("NAME", {'x'}));
    odd.pop_back();
    odd[7] = static_cast<UInt8>(odd[7] - 1);
    putFile(odd);
    store(record(1));
    EXPECT_EQ(file().size(), odd.size() + 1 + 8 + block);
    EXPECT_EQ(storedTracks(), 1);

    const Bytes original = form(before + sound);
    putFile(original);
    EXPECT_EQ(store(record(1, std::string(block - 12, 'x')), path,
                    path + " could not be stored into: the record is "
                           "longer than 524276 bytes"),
              paramErr);
    EXPECT_EQ(file(), original);
    EXPECT_EQ(log.lines().size(), 2U);
}

TEST_F(TrackStore, WhatIsNoWholeAIFFIsRefusedWithALineAndStaysAsItIs)
{
    Bytes damaged = form(before + sound), picture = damaged, wave = damaged;
    damaged[6] = 9;
    std::copy_n("ILBM", 4, picture.begin() + 8);
    std::copy_n("RIFF", 4, wave.begin());
    const Bytes flac{'f', 'L', 'a', 'C', 0, 0, 0, 34, 1, 2, 3, 4, 5}, text(5, 'x');
    for (const Bytes& refused : {damaged, picture, wave, flac, text, Bytes{}})
        for (const bool isOlder : {false, true}) {
            const qmx::test::CapturedLog lines;
            putFile(refused);
            if (isOlder)
                EXPECT_FALSE(storeWithOlderClass(1));
            else
                EXPECT_NE(store(record(1)), noErr);
            EXPECT_EQ(file(), refused);
            EXPECT_TRUE(lines.has("UNABLE TO WRITE APPLICATION INFORMATION TO AUDIO FILE"));
        }
}

TEST_F(TrackStore, WhatCouldNotBeReadIsToldAndAFileWithoutARecordIsNoFailure)
{
    EXPECT_EQ(store(record(1), "/d/none.aif", "/d/none.aif could not be stored into: No such file"), fnfErr);
    EXPECT_EQ(store(record(1), "/d/a.caf", "/d/a.caf could not be stored into: files of its type keep no tracks"),
              kAudioFileUnsupportedFileTypeError);
    EXPECT_EQ(store(nullptr, path, "there is no record"), paramErr);
    const Bytes empty = form(before + sound), whole = form(before + trackChunk(archive(record(1)), 30'000) + sound);
    Bytes damaged = whole;
    damaged[6] = 9;
    const std::vector<std::tuple<Bytes, OSStatus, std::string>> cases{
        {whole, noErr, ""},
        {empty, noErr, ""},
        {damaged, kAudioFileInvalidFileError, path + " could not be read: its form does not have"},
        {form(before + trackChunk({1, 2, 3}, 30'000)), kAudioFileInvalidChunkError, "damaged or of another version"},
        {form(trackChunk(archive(record(1)), 30'000, 4)), kAudioFileInvalidChunkError, "damaged or of another version"},
        {{}, fnfErr, path + " could not be read: No such file"}};
    const auto reader = Factory::readerWithAudioFilePath(path);
    const auto older = QMXAudioFileTrackInfoReaderWriter::initWithAudioFilePath(path);
    for (const auto& [bytes, status, reason] : cases) {
        putFile(bytes);
        if (status == fnfErr)
            disk.remove(path);
        EXPECT_EQ(reader->read() != nullptr, bytes == whole);
        EXPECT_EQ(reader->lastStatus(), status);
        EXPECT_THAT(reader->lastError(), testing::HasSubstr(reason));
        EXPECT_EQ(reader->lastError().empty(), status == noErr);
        EXPECT_FALSE(older->readTrackInfosFromFile());
        EXPECT_EQ(older->lastStatus(), bytes == whole ? kAudioFileInvalidChunkError : status);
        EXPECT_EQ(older->lastError().empty(), older->lastStatus() == noErr);
    }
}

TEST_F(TrackStore, AFullDiskTakesARecordInThePlaceOfTheOldOne)
{
    putFile(form(before + sound));
    store(record(1));
    for (const std::size_t room : {0U, 1000U}) {
        disk.setCapacity(file().size() + room);
        store(record(20 - static_cast<int>(room) / 100));
        EXPECT_EQ(storedTracks(), 20 - static_cast<int>(room) / 100);
        EXPECT_TRUE(QMXAIFFUtility::validateFileAtPath(path));
    }
}

// Without a lock against other processes a journal may belong to a store that is under way.
TEST_F(TrackStore, AReaderWithoutTheLockTakesTheRecordFromTheJournalAndChangesNothing)
{
    putFile(form(before + trackChunk(archive(record(1)), block) + sound));
    for (const bool isOlder : {false, true}) {
        store(record(1));
        disk.killAtChange(2, 700);
        store(record(20));
        disk.clearFaults();
        const Bytes torn = file();
        disk.failLocks(ENOLCK);
        EXPECT_EQ(storedTracks(), 20);
        EXPECT_EQ(file(), torn);
        disk.clearFaults();
        EXPECT_EQ(isOlder ? tracksOfOlderClass() : storedTracks(), isOlder ? -1 : 20);
        EXPECT_TRUE(QMXAIFFUtility::validateFileAtPath(path)) << "under the lock the store is completed";
        EXPECT_EQ(storedTracks(), 20);
    }
}

TEST_F(TrackStore, OnlyATailWithOurSignatureIsCutOff)
{
    using namespace std::string_literals;
    const Bytes whole = form(before + sound);
    for (const std::string& tail : {"APPL"s, "APPL\0\0\0\x20tRa"s, "APPL\0\0\0\x20othr"s}) {
        const Bytes foreign = whole + Bytes(tail.begin(), tail.end());
        putFile(foreign);
        store(record(1));
        audioBytes();
        EXPECT_EQ(file(), foreign) << tail;
    }
    putFile(whole + Bytes{'A', 'P', 'P', 'L', 0, 0, 0, 32, 't', 'R', 'a', 'K'});
    EXPECT_EQ(audioBytes().size(), 8U);
    EXPECT_EQ(file(), whole);
}

TEST_F(TrackStore, ForeignChunksSurviveStoringEditingAndGrowing)
{
    putFile(form(before + sound + behind));
    Bytes samples(50'000, 3);
    for (int round = 1; round <= 3; ++round) {
        store(record(round));
        const auto audio = QMXAudioFile::initWithPath_accessMode(path, QMXAudioFileAccessMode::readWrite);
        ASSERT_TRUE(audio->open());
        auto inPlace = UInt32{8}, grown = static_cast<UInt32>(samples.size());
        EXPECT_TRUE(audio->write_length_atOffset(samples.data(), &inPlace, 0));
        EXPECT_TRUE(audio->write_length_atOffset(samples.data(), &grown, 8 + (round - 1) * SInt64{50'000}));
        EXPECT_TRUE(audio->close());
        EXPECT_EQ(storedTracks(), round);
        for (const UInt8 mark : {UInt8{1}, UInt8{2}})
            for (const Bytes& one : foreignChunks(mark))
                EXPECT_TRUE(holds(file(), one)) << textOf(one).substr(0, 4) << int{mark};
    }
    EXPECT_TRUE(QMXAIFFUtility::validateFileAtPath(path));
    EXPECT_EQ(chunksOfOurs(file()), 1);
    EXPECT_EQ(file().size(), form(before + sound + behind).size() + 150'000 + 8 + block);
}

TEST_F(TrackStore, ReadingTakesTheFirstUsableChunkAndWritingTheLastAndOnlyTheOlderClassLooksAtTen)
{
    const Bytes one = trackChunk(archive(record(1)), 2000);
    const Bytes two = trackChunk(archive(record(2)), 30'000);
    const Bytes unusable = trackChunk(archive(record(4)), 2000, 4) + trackChunk(archive(record(4)), 2000, 1);
    putFile(form(before + sound + unusable + one + two));
    EXPECT_EQ(storedTracks(), 1);
    store(record(3));
    const Bytes stored = file();
    EXPECT_EQ(storedTracks(), 1);
    EXPECT_TRUE(
        std::equal(one.begin(), one.end(),
                   stored.begin() + static_cast<std::ptrdiff_t>(12 + before.size() + sound.size() + unusable.size())));
    Bytes many = before + sound;
    for (int i = 0; i < 5; ++i)
        many = many + unusable;
    const Bytes last = trackChunk(archive(record(2)), 30'000, 3, true) + two;
    putFile(form(many + last));
    EXPECT_EQ(tracksOfOlderClass(), -1);
    store(record(3));
    EXPECT_EQ(storedTracks(), 3);
    EXPECT_EQ(file().size(), form(many + last).size());
}

TEST_F(TrackStore, HostileSizesGiveNoRecordAndEndTheWalk)
{
    const Bytes original = form(before + sound);
    for (const UInt32 size : {0U, 1U, 11U, 0x7fffffffU, 0xffffffffU}) {
        Bytes hostile = trackChunk({}, 12);
        for (unsigned i = 0; i < 4; ++i) {
            hostile[4 + i] = static_cast<UInt8>(size >> (24 - 8 * i));
            hostile[16 + i] = static_cast<UInt8>(size >> (24 - 8 * i));
        }
        putFile(form(before + hostile + sound));
        EXPECT_EQ(storedTracks(), -1) << size;
    }
    for (std::size_t length = 0; length < original.size(); ++length) {
        putFile({original.begin(), original.begin() + static_cast<std::ptrdiff_t>(length)});
        EXPECT_EQ(storedTracks(), -1);
    }
}

TEST_F(TrackStore, TheOlderClassReadsHostOrderVersionsAndDoesNotFindItsOwnChunks)
{
    putFile(form(before + sound));
    const auto older = QMXAudioFileTrackInfoReaderWriter::initWithAudioFilePath(path);
    EXPECT_FALSE(older->readTrackInfosFromFile());
    EXPECT_FALSE(older->writeTrackInfosToFile());
    older->addTrackInfo(QMXAudioTrackInfo::init());
    const std::size_t length = file().size();
    EXPECT_TRUE(older->writeTrackInfosToFile());
    EXPECT_TRUE(older->writeTrackInfosToFile());
    EXPECT_EQ(file().size(), length + 2 * (8 + block));
    EXPECT_EQ(get32(file(), length + 8), 0x4B615274U);
    EXPECT_EQ(get32(file(), length + 12), 0x03000000U);
    EXPECT_EQ(tracksOfOlderClass(), -1);
    EXPECT_EQ(storedTracks(), -1);
    putFile(form(before + trackChunk(archive(record(7)), 30'000, 3, false) + sound));
    EXPECT_EQ(tracksOfOlderClass(), -1);
    putFile(form(before + trackChunk(archive(record(7)), 30'000, 3, true) + sound));
    EXPECT_EQ(tracksOfOlderClass(), 7);
    EXPECT_TRUE(older->readTrackInfosFromFile());
    putFile(form(before + trackChunk(archive(nullptr), 30'000, 3, true) + sound));
    EXPECT_FALSE(older->readTrackInfosFromFile()) << "an archived nil takes the place of the record";
}

TEST(TrackRecords, RangesCompareAndTheFactoryChoosesAsDescribed)
{
    using Range = QMXAudioProcessingRangeInfo;
    const auto one = Range::initWithProcessNameAndRange_processingStartFrame_processingEndFrame("gain", 1, 2);
    const auto two = Range::initWithProcessNameAndRange_processingStartFrame_processingEndFrame("gain", 1, 2);
    two->addProcessingSettingFloat_value("by", 0.5F);
    two->addProcessingSettingInt_value("by", 3);
    EXPECT_TRUE(one->isEqual(two.get()));
    EXPECT_TRUE(one->isEqual(QMXAudioTrackInfo::init().get()));
    two->setProcessingEndFrame(3);
    EXPECT_FALSE(one->isEqual(two.get()));
    struct Special : Range {
    } special;
    EXPECT_TRUE(special.isEqual(two.get())) << "a plain range is not of its class";
    EXPECT_FALSE(two->isEqual(&special));
    EXPECT_EQ(two->processingSettings()->count(), 1U);
    EXPECT_EQ(one->description(), "QMXAudioProcessingRangeInfo [gain: IN:1 OUT:2]");
    EXPECT_TRUE(Factory::readerWithAudioFilePath("x.AIF"));
    EXPECT_FALSE(Factory::writerWithAudioFilePath("x.wav"));
    EXPECT_EQ(Factory::writerWithAudioFilePath("x.caf")->write(), 0);
    EXPECT_FALSE(Factory::readerWithAudioFilePath("none.m4a")->read());
}

TEST_F(TrackStore, ARecordComesBackAsItWasButForLongFrames)
{
    putFile(form(before + sound));
    auto info = record(1);
    const auto& track = info->trackInfos()->front();
    track->setTrackBegin(1);
    track->setTrackEnd(SInt64{1} << 40);
    track->setNumberOfTracks(258);
    track->setLyrics("la");
    track->setCoverArt(qmx::Image::initWithData({1, 2, 3}));
    info->addAudioProcessingInfo(
        QMXAudioProcessingRangeInfo::initWithProcessNameAndRange_processingStartFrame_processingEndFrame(
            "gain", 5'000'000'000, 5'000'000'100));
    info->setFileHasBeenProcessed(true);
    store(info);
    const Record found = Factory::readerWithAudioFilePath(path)->read();
    ASSERT_TRUE(found && found->trackInfos() && found->processingInfos());
    const auto& back = found->trackInfos()->front();
    EXPECT_EQ(back->trackBegin(), 1);
    EXPECT_EQ(back->trackEnd(), SInt64{1} << 40);
    EXPECT_EQ(back->numberOfTracks(), 258);
    EXPECT_EQ(back->trackNumber(), -1);
    EXPECT_EQ(back->lyrics(), "la");
    EXPECT_EQ(back->coverArt()->data(), (Bytes{1, 2, 3}));
    EXPECT_EQ(found->processingInfos()->front()->processingStartFrame(), 705'032'704U);
    EXPECT_EQ(found->processingInfos()->front()->processingEndFrame(), 705'032'804U);
    EXPECT_TRUE(found->fileHasBeenProcessed());
}

} // namespace

TEST(TrackStoreInShortMemory, AFileKeepsItsAudioAndTheOldRecordOrTheNew)
{
    const qmx::test::TemporaryFolder folder;
    const std::string file = folder.path("a.aif");
    const Bytes old = archive(record(1)), front = before + sound;
    const Bytes withOld = form(front + trackChunk(old, 2 * old.size()) + behind), withNone = form(front + behind);
    for (const Bytes& original : {withOld, withNone})
        qmx::test::withEveryAllocationFailing([&](qmx::test::ShortMemory& memory) {
            qmx::test::writeFile(file, original);
            const auto writer = Factory::writerWithAudioFilePath(file);
            writer->setTrackAndProcessingInfo(record(2));
            memory.during([&] { return writer->write(); });
            const Record kept = Factory::readerWithAudioFilePath(file)->read();
            const std::size_t tracks = kept ? kept->trackInfos()->size() : 0;
            EXPECT_EQ(tracks, memory.hasFailed() ? (original == withOld ? 1U : 0U) : 2U);
            const Bytes bytes = qmx::test::contentsOf(file);
            EXPECT_TRUE(std::equal(front.begin(), front.end(), bytes.begin() + 12));
            EXPECT_EQ(get32(bytes, 4), bytes.size() - 8);
        });
    qmx::test::writeFile(file, withOld);
    qmx::test::withEveryAllocationFailing([&](qmx::test::ShortMemory& memory) {
        const Record read = memory.during([&] {
            const auto reader = Factory::readerWithAudioFilePath(file);
            return reader ? reader->read() : nullptr;
        });
        EXPECT_TRUE(memory.hasFailed() ? !read : read && read->trackInfos()->size() == 1);
    });
}

TEST(TrackStoreInShortMemory, RecordsTakeAChangeOrLeaveIt)
{
    qmx::test::withEveryAllocationFailing([](qmx::test::ShortMemory& memory) {
        const auto info = QMXTrackAndProcessingInfo::init();
        const auto range = QMXAudioProcessingRangeInfo::initWithProcessName("name");
        const std::string setting = "a setting with a name that is long";
        const auto track = memory.during([] { return QMXAudioTrackInfo::init(); });
        const QMXTrackAndProcessingInfo::TrackList tracks(2);
        memory.during([&] { info->addTrackInfoForAllTracks(tracks); });
        memory.during([&] { range->addProcessingSettingInt_value(setting, 1); });
        const Bytes data = memory.during([&] { return archive(info); });
        const bool isWhole = !memory.hasFailed();
        EXPECT_TRUE(isWhole || !info->trackInfos() || info->trackInfos()->size() == 2);
        EXPECT_TRUE(!isWhole || (track && range->processingSettings()->count() == 1 && data == archive(info)));
        EXPECT_TRUE(data.empty() || data == archive(info));
    });
}
