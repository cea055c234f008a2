// SPDX-License-Identifier: MIT
#include "src/Tracks/Store/TrackStores.h"

using namespace qmx::test::aiff;

namespace
{

using OlderReaderWriter = TrackStore;

TEST_F(OlderReaderWriter, TheOlderClassReadsHostOrderVersionsAndDoesNotFindItsOwnChunks)
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

} // namespace
