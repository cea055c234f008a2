// SPDX-License-Identifier: MIT
// The bytes of a stored record, that all else in the file survives, and what a failing write leaves behind.
#include "Tracks/Store/QMXAIFFUtility.h"
#include "platform/AudioToolbox/AudioFileHelpers.h"
#include "src/Tracks/Store/TrackStores.h"
#include "support/ShortMemory.h"
#include "support/TemporaryFolder.h"

#include <cerrno>

using namespace qmx::test::aiff;

namespace
{

using ApplicationChunk = TrackStore;

TEST_F(ApplicationChunk, StoringTwiceLeavesOneCanonicalChunkAndEverythingElse)
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

TEST_F(ApplicationChunk, AChunkOfAnotherSizeIsUsedGrownOrRefusedButNeverOutgrown)
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

TEST_F(ApplicationChunk, EveryFailingWriteLeavesTheFileAsItWas)
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

TEST_F(ApplicationChunk, AnOddEndIsPaddedAndAFullFormOrRecordIsRefused)
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

TEST_F(ApplicationChunk, ForeignChunksSurviveStoringEditingAndGrowing)
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

TEST_F(ApplicationChunk, ReadingTakesTheFirstUsableChunkAndWritingTheLastAndOnlyTheOlderClassLooksAtTen)
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

TEST_F(ApplicationChunk, HostileSizesGiveNoRecordAndEndTheWalk)
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

TEST(ApplicationChunkInShortMemory, AFileKeepsItsAudioAndTheOldRecordOrTheNew)
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

} // namespace
