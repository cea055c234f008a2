// SPDX-License-Identifier: MIT
// Records as they are stored and read through the factory, and what is refused.
#include "platform/AudioToolbox/AudioFileHelpers.h"
#include "src/Tracks/Store/TrackStores.h"

using namespace qmx::test::aiff;

namespace
{

using ReaderWriterFactory = TrackStore;

TEST(FactoryOfReadersAndWriters, ChoosesByTheExtension)
{
    EXPECT_TRUE(Factory::readerWithAudioFilePath("x.AIF"));
    EXPECT_FALSE(Factory::writerWithAudioFilePath("x.wav"));
    EXPECT_EQ(Factory::writerWithAudioFilePath("x.caf")->write(), 0);
    EXPECT_FALSE(Factory::readerWithAudioFilePath("none.m4a")->read());
}

TEST_F(ReaderWriterFactory, ARecordComesBackAsItWasButForLongFrames)
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

TEST_F(ReaderWriterFactory, ARecordingWhoseWriterWasKilledCanBeStoredInto)
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

TEST_F(ReaderWriterFactory, WhatIsNoWholeAIFFIsRefusedWithALineAndStaysAsItIs)
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

TEST_F(ReaderWriterFactory, WhatCouldNotBeReadIsToldAndAFileWithoutARecordIsNoFailure)
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

} // namespace
