// SPDX-License-Identifier: MIT
// What a killed store leaves behind, and who completes it or takes it back.
#include "Tracks/Store/QMXAIFFUtility.h"
#include "src/Tracks/Store/TrackStores.h"

#include <cerrno>

using namespace qmx::test::aiff;

namespace
{

using StoreJournal = TrackStore;

// Each change of the disk in turn is the last: of an append, an overwrite behind and in front of the audio, and a
// growing last chunk. What comes first afterwards is reading, storing, repairing or opening the audio.
TEST_F(StoreJournal, AKilledStoreLeavesTheRecordAsItWasOrAsItIsToBe)
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

TEST_F(StoreJournal, AJournalThatWasMovedOrIsNotOursChangesNothing)
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

TEST_F(StoreJournal, AFullDiskTakesARecordInThePlaceOfTheOldOne)
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
TEST_F(StoreJournal, AReaderWithoutTheLockTakesTheRecordFromTheJournalAndChangesNothing)
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

TEST_F(StoreJournal, OnlyATailWithOurSignatureIsCutOff)
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

} // namespace
