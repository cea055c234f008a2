// SPDX-License-Identifier: MIT
#include "FileRelated/QMXAudioFile.h"

#include "Formats/QMXAudioStreamBasicDescription.h"
#include "Foundation/Threads/Worker.h"
#include "platform/AudioToolbox/AudioFileHelpers.h"
#include "support/CapturedLog.h"
#include "support/FileWork.h"
#include "support/ShortMemory.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

using qmx::test::pattern;
using Mode = QMXAudioFileAccessMode;
using Format = QMXAudioStreamBasicDescription;
using Bytes = std::vector<Byte>;

namespace
{

constexpr UInt32 span = 786432; // of one cache buffer

std::shared_ptr<QMXAudioFile> createdFile(const std::string& path, bool usesCache)
{
    auto file = QMXAudioFile::initWithPath_accessMode(path, Mode::write);
    EXPECT_TRUE(file->setFileStreamFormat(*Format::standardFormat(7)));
    file->setUseCache(usesCache);
    EXPECT_TRUE(file->create());
    return file;
}

bool writeAll(QMXAudioFile& file, const Bytes& bytes, std::size_t block)
{
    for (std::size_t at = 0; at < bytes.size(); at += block) {
        auto length = static_cast<UInt32>(std::min(block, bytes.size() - at));
        const UInt32 wanted = length;
        if (!file.write_length(bytes.data() + at, &length) || length != wanted)
            return false;
    }
    return true;
}

/// Writes bytes at an offset, and into what the file is expected to hold.
void overwrite(QMXAudioFile& file, const Bytes& bytes, SInt64 offset, Bytes& expected)
{
    auto length = static_cast<UInt32>(bytes.size());
    ASSERT_TRUE(file.write_length_atOffset(bytes.data(), &length, offset));
    expected.resize(std::max(expected.size(), static_cast<std::size_t>(offset) + bytes.size()));
    std::copy(bytes.begin(), bytes.end(), expected.begin() + offset);
}

Bytes readAll(const std::string& path, bool usesCache, std::size_t block)
{
    const auto file = QMXAudioFile::initWithPath_accessMode(path, Mode::read);
    file->setUseCache(usesCache);
    EXPECT_TRUE(file->open());
    Bytes all(file->lengthInBytes());
    for (std::size_t at = 0; at < all.size();) {
        auto length = static_cast<UInt32>(std::min(block, all.size() - at));
        if (!file->read_length(all.data() + at, &length) || length == 0) {
            ADD_FAILURE() << "read stopped at byte " << at << " of " << all.size();
            return {};
        }
        at += length;
    }
    EXPECT_EQ(file->offset(), static_cast<SInt64>(all.size()));
    return all;
}

} // namespace

class AudioFileObject : public qmx::test::FileWork
{
protected:
    qmx::test::CapturedLog log;
};

TEST_F(AudioFileObject, ClosedFilesAnswerAsDescribedPerOperation)
{
    const auto file = QMXAudioFile::initWithPath_accessMode("/d/none.aif", Mode::read);
    EXPECT_EQ(file->name(), "none.aif");
    EXPECT_EQ(file->fileType(), kAudioFileAIFFType);
    Byte byte = 0;
    UInt32 length = 1, packets = 1, bytes = 0;
    EXPECT_TRUE(file->read_length(&byte, &length));
    expectFailure(*file, fnOpnErr, "/d/none.aif could not be read: it is not open");
    EXPECT_TRUE(file->write_length_atOffset(&byte, &length, 0));
    EXPECT_FALSE(file->write_length(&byte, &length));
    expectFailure(*file, fnOpnErr, "/d/none.aif could not be written: it is not open");
    EXPECT_FALSE(file->readPackets_numBytes_outPacketDescriptions_numPackets(&byte, &bytes, nullptr, &packets));
    EXPECT_EQ(length, 1u);
    EXPECT_EQ(file->offset(), 0);
    EXPECT_EQ(file->lengthInFrames() + file->lengthInMilliSeconds() + file->lengthInBytes(), 0u);
    EXPECT_FALSE(file->formatIDName());
    EXPECT_TRUE(file->close());
    EXPECT_EQ(file->lastStatus(), noErr) << "of closing";
    EXPECT_FALSE(file->open());
    expectFailure(*file, fnfErr, "/d/none.aif could not be opened: no such file or folder");
    EXPECT_EQ(log.lines().size(), 4u) << "two lines with a status each";
    EXPECT_EQ(log.lines().at(0), "QMXAudioFile: Error opening audio file in read mode");
    EXPECT_EQ(log.lines().at(2), "QMXAudioFile: Error opening audio file");
    EXPECT_FALSE(file->setFileStreamFormat(*Format::standardFormat(0))) << "not in mode read";
    EXPECT_EQ(QMXAudioFile::initWithPath_accessMode({}, Mode::read)->path(), std::nullopt);
}

TEST_F(AudioFileObject, ReportsLengthsFormatAndType)
{
    auto file = createdFile("/d/a.aif", false);
    ASSERT_TRUE(writeAll(*file, pattern(1000000), 70000));
    EXPECT_EQ(file->lengthInFrames(), 250000u);
    EXPECT_EQ(file->lengthInMilliSeconds(), 5668u);
    ASSERT_TRUE(file->close());
    EXPECT_EQ(file->offset(), 0);

    const auto attributes = qmx::FileManager::defaultManager().fileAttributesAtPath("/d/a.aif");
    EXPECT_EQ(attributes.NSFileHFSCreatorCode, qmx::fourCharCode("KaRt"));
    EXPECT_EQ(attributes.NSFileHFSTypeCode, qmx::fourCharCode("FFIA"));

    file = QMXAudioFile::initWithPath_accessMode("/d/a.aif", Mode::read);
    ASSERT_TRUE(file->open());
    EXPECT_TRUE(file->fileStreamFormat()->isEqual(Format::standardFormat(7).get()));
    EXPECT_EQ(file->fileType(), kAudioFileAIFFType);
    EXPECT_EQ(file->lengthInBytes(), 1000000u);
    EXPECT_EQ(file->formatIDName(), "Linear PCM");
    EXPECT_NE(file->dumpDebugInfo().find("\n        lengthInFrames: 250000\n\n"), std::string::npos);
    UInt32 size = 9;
    EXPECT_EQ(file->magicCookie(&size), nullptr);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(QMXAudioFile::propertyName(kAudioFilePropertyMaximumPacketSize), "kAudioFilePropertyMaximumPacketSize");
    EXPECT_EQ(QMXAudioFile::propertyName(qmx::fourCharCode("abcd")), "Unknown property: abcd");
    EXPECT_TRUE(log.lines().empty());
    QMXAudioFile::printOSStatusCode(kAudioFileOperationNotSupportedError);
    QMXAudioFile::printOSStatusCode(qmx::statusCode("abcd"));
    EXPECT_TRUE(log.has("OS Status: kAudioFileOperationNotSupportedError"));
    EXPECT_TRUE(log.has("QMXAudioFile: OS Status: abcd (1633837924)"));
}

TEST_F(AudioFileObject, ModesAndFormatsFollowTheRules)
{
    auto file = createdFile("/d/a", false);
    EXPECT_FALSE(file->create()) << "already open";
    EXPECT_TRUE(file->setFileStreamFormat(*Format::standardFormat(5))) << "an open file is closed and created anew";
    EXPECT_TRUE(file->isOpen());
    EXPECT_EQ(file->fileType(), kAudioFileAIFCType) << "floats need AIFF-C";
    EXPECT_EQ(file->bitsPerChannel(), 32u);
    file->setOffset(100);
    EXPECT_EQ(file->offset(), 0) << "ignored while writing a new file";
    file->changeAccessMode(Mode::read);
    EXPECT_FALSE(file->isOpen());
    ASSERT_TRUE(file->open());
    file->setOffset(100);
    EXPECT_EQ(file->offset(), 100);
    ASSERT_TRUE(file->close());
    file->changeAccessMode(Mode::write);
    EXPECT_FALSE(file->setFileStreamFormat(*Format::standardFormat(7))) << "a closed file keeps its mode";
    file->setFileType(kAudioFileWAVEType);
    EXPECT_EQ(file->fileType(), kAudioFileWAVEType);
    file = createdFile("/d/b", false);
    EXPECT_TRUE(file->setFileStreamFormat(*Format::standardFormatWithId_sampleRate(kAudioFormatAMR, 44100)));
    EXPECT_FALSE(file->isOpen());
    expectFailure(*file, kAudioFileUnsupportedDataFormatError, "/d/b could not be made: not a format for it");
}

TEST_F(AudioFileObject, ReplacesOnlyWithAFormatAndKeepsTheOldFileOtherwise)
{
    disk.setContents("/d/a", pattern(5000));
    auto file = QMXAudioFile::initWithPath_accessMode("/d/a", Mode::readWrite);
    EXPECT_FALSE(file->open()) << "neither audio nor, without a format, to be created";
    EXPECT_EQ(disk.contents("/d/a"), pattern(5000));
    EXPECT_TRUE(log.has("QMXAudioFile: Error opening audio file in read/write mode"));
    EXPECT_TRUE(log.has("QMXAudioFile: Error initializing audio file"));
    expectFailure(*file, kAudioFileUnsupportedFileTypeError,
                  "/d/a could not be opened: not an audio file of a known type");
    EXPECT_TRUE(file->setFileStreamFormat(*Format::standardFormat(7)));
    EXPECT_TRUE(file->open());
    EXPECT_EQ(file->lastStatus(), noErr) << "what failed on the way is overcome";
}

TEST_F(AudioFileObject, MovesWithItsFileAndKeepsItsFormatForTheNextPathButReplacesNothingWithOneThatItRead)
{
    auto file = createdFile("/d/a.aif", false);
    ASSERT_TRUE(writeAll(*file, pattern(400), 400) && file->close());
    ASSERT_TRUE(file->copyToPath_handler("/d/copy.aif", nullptr));
    ASSERT_TRUE(file->moveToPath_handler("/d/b.aif", nullptr));
    EXPECT_FALSE(file->moveToPath_handler("/d/copy.aif", nullptr));
    EXPECT_EQ(file->lastError(), "/d/b.aif could not be moved: File exists");
    EXPECT_EQ(file->name(), "b.aif");
    EXPECT_EQ(readAll("/d/b.aif", false, 400), pattern(400));
    EXPECT_EQ(readAll("/d/copy.aif", true, 399), pattern(400));

    file->updatePath("/d/c.aif");
    EXPECT_EQ(file->bytesPerFrame(), 0u) << "the copies of its fields are cleared";
    file->setUseCache(true);
    ASSERT_TRUE(file->create());
    ASSERT_TRUE(writeAll(*file, pattern(800), 400));
    EXPECT_EQ(file->lengthInFrames(), 200u);
    ASSERT_TRUE(file->moveToPath_handler("/d/d.aif", nullptr));
    file.reset();
    EXPECT_EQ(readAll("/d/d.aif", false, 400), pattern(800)) << "what the cache held went along";

    disk.setContents("/d/text", pattern(50));
    file = QMXAudioFile::initWithPath_accessMode("/d/d.aif", Mode::readWrite);
    ASSERT_TRUE(file->open() && file->close());
    file->updatePath("/d/text");
    EXPECT_FALSE(file->open());
    EXPECT_EQ(disk.contents("/d/text"), pattern(50));
}

TEST_F(AudioFileObject, ModeReadWriteCreatesWhatIsNotThereAndSeesTheLengthOfWhatItWrote)
{
    auto file = QMXAudioFile::initWithPath_accessMode("/d/a.aif", Mode::readWrite);
    EXPECT_TRUE(file->setFileStreamFormat(*Format::standardFormat(7)));
    ASSERT_TRUE(file->open());
    ASSERT_TRUE(writeAll(*file, pattern(400), 400) && file->close());
    EXPECT_TRUE(log.lines().empty());

    file->setUseCache(true);
    ASSERT_TRUE(file->open());
    Bytes expected = pattern(400), read(100);
    overwrite(*file, pattern(100, 7), 400, expected);
    EXPECT_EQ(file->lengthInBytes(), 500u);
    UInt32 length = 100;
    ASSERT_TRUE(file->read_length_fromOffset(read.data(), &length, 400));
    EXPECT_EQ(read, pattern(100, 7));
}

TEST_F(AudioFileObject, WritesAndReadsThroughTheCacheInAnyBlockSize)
{
    const Bytes bytes = pattern(3 * span + 12344);
    for (const std::size_t block :
         {std::size_t{span}, std::size_t{span - 4}, std::size_t{2 * span + 8}, bytes.size(), std::size_t{50000}}) {
        auto file = createdFile("/d/a", true);
        ASSERT_TRUE(writeAll(*file, bytes, block)) << block;
        EXPECT_EQ(file->lengthInBytes(), bytes.size()) << "cached bytes count";
        ASSERT_TRUE(file->close());
        ASSERT_EQ(readAll("/d/a", true, block), bytes) << block;
    }
    ASSERT_EQ(readAll("/d/a", false, 100000), bytes);
}

TEST_F(AudioFileObject, CachedWritesAtOtherOffsetsLandWhereTheyBelongAlsoIfTheCacheIsTurnedOffAndOn)
{
    auto file = createdFile("/d/a", true);
    Bytes expected = pattern(4000);
    ASSERT_TRUE(writeAll(*file, expected, 1000));
    for (const SInt64 offset : {1000, 3000, 1200}) // inside the span, ahead of it, back again
        overwrite(*file, pattern(500, 99), offset, expected);
    ASSERT_TRUE(file->flush());
    const Bytes tail = pattern(span, 7);
    ASSERT_TRUE(writeAll(*file, tail, 1000));
    expected.insert(expected.end(), tail.begin(), tail.end());
    for (const bool usesCache : {false, true}) {
        file->setUseCache(usesCache);
        EXPECT_EQ(file->lengthInBytes(), expected.size());
        overwrite(*file, pattern(500, 99), usesCache ? span + 2000 : span + 1000, expected);
    }
    ASSERT_TRUE(file->close());
    EXPECT_EQ(readAll("/d/a", false, span), expected);
}

TEST_F(AudioFileObject, CachedReadsJumpAndSeeWhatWasWrittenInBetween)
{
    Bytes bytes = pattern(4 * span);
    auto file = createdFile("/d/a", true);
    ASSERT_TRUE(writeAll(*file, bytes, 100000) && file->close());
    file = QMXAudioFile::initWithPath_accessMode("/d/a", Mode::readWrite);
    file->setUseCache(true);
    ASSERT_TRUE(file->open());
    const auto expectAt = [&](SInt64 offset, UInt32 count) {
        Bytes read(count);
        UInt32 length = count;
        ASSERT_TRUE(file->read_length_fromOffset(read.data(), &length, offset));
        ASSERT_EQ(length, std::min<UInt32>(count, static_cast<UInt32>(4 * span - offset)));
        ASSERT_TRUE(std::equal(read.begin(), read.begin() + length, bytes.begin() + offset)) << "at " << offset;
    };
    for (const SInt64 offset : {SInt64{0}, SInt64{span - 10}, SInt64{3 * span + 5}, SInt64{17}, SInt64{4 * span - 9}})
        expectAt(offset, 1000);
    expectAt(100, 10);
    overwrite(*file, pattern(600, 12345), 100, bytes);
    expectAt(50, 1000);
    Byte byte = 0;
    UInt32 length = 1;
    EXPECT_FALSE(file->read_length_fromOffset(&byte, &length, 4 * span));
    EXPECT_EQ(length, 0u);
    EXPECT_EQ(file->lastStatus(), eofErr);
}

TEST_F(AudioFileObject, AFailingDiskIsReportedOnceAndNeverHangs)
{
    auto file = createdFile("/d/a", true);
    disk.setCapacity(span / 2);
    const Bytes block = pattern(100000);
    int failed = 0;
    for (int i = 0; i < 100; ++i) {
        auto length = static_cast<UInt32>(block.size());
        const bool fails = !file->write_length(block.data(), &length);
        EXPECT_EQ(length, fails ? 0 : block.size());
        failed += fails ? 1 : 0;
    }
    EXPECT_GT(failed, 0);
    EXPECT_LT(failed, 100) << "later calls start afresh";
    EXPECT_FALSE(file->close()) << "bytes that were accepted are missing";
    EXPECT_EQ(file->lastStatus(), dskFulErr);
    readAll("/d/a", false, 100000);

    disk.clearFaults();
    file = QMXAudioFile::initWithPath_accessMode("/d/a", Mode::read);
    file->setUseCache(true);
    ASSERT_TRUE(file->open());
    disk.failReads(EIO);
    Byte byte = 0;
    UInt32 length = 1;
    EXPECT_FALSE(file->read_length(&byte, &length));
    EXPECT_EQ(length, 0u);
    EXPECT_EQ(file->lastStatus(), ioErr);
    disk.clearFaults();
    length = 1;
    EXPECT_TRUE(file->read_length(&byte, &length)) << "the next call starts afresh";
    EXPECT_EQ(byte, pattern(1)[0]);
}

TEST_F(AudioFileObject, CloseStillKnowsOfACachedWriteThatFailedOnce)
{
    auto file = createdFile("/d/a", true);
    disk.failChange(1, EIO);
    disk.setStalled(true); // until the caller's write was accepted
    ASSERT_TRUE(writeAll(*file, pattern(span), span));
    disk.setStalled(false);
    EXPECT_TRUE(qmx::waitUntilWorkersRest());
    EXPECT_FALSE(writeAll(*file, pattern(4), 4)) << "the caller learns it";
    EXPECT_TRUE(writeAll(*file, pattern(span), span)) << "and goes on";
    EXPECT_EQ(file->lastStatus(), noErr);
    EXPECT_TRUE(file->flush());
    expectFailure(*file, ioErr, "/d/a could not be written: input/output error");
    EXPECT_FALSE(file->close()) << "but the file has a hole";
    EXPECT_EQ(file->lastStatus(), ioErr);
    ASSERT_TRUE(file->create());
    EXPECT_TRUE(file->close());
}

TEST_F(AudioFileObject, AStalledDiskHoldsUpFlushOnlyBrieflyAndLosesNothing)
{
    auto file = createdFile("/d/a", true);
    const Bytes bytes = pattern(2 * span - 4);
    disk.setStalled(true);
    ASSERT_TRUE(writeAll(*file, bytes, span / 4)) << "one buffer waits for the disk, the other takes the rest";
    disk.waitForStalledWrite();
    EXPECT_TRUE(file->flush());
    disk.setStalled(false);
    EXPECT_TRUE(qmx::waitUntilWorkersRest());
    const Bytes saved = readAll("/d/a", false, span);
    EXPECT_GE(saved.size(), span) << "a full buffer is not saved";
    EXPECT_TRUE(std::equal(saved.begin(), saved.end(), bytes.begin()));
    EXPECT_TRUE(file->close());
    EXPECT_TRUE(qmx::waitUntilWorkersRest()) << "a thread is left that counts as busy";
    EXPECT_EQ(readAll("/d/a", false, span), bytes);
}

TEST(AudioFileCache, AForkedChildLetsGoOfAFileThatItsParentWritesOn)
{
    const qmx::test::TemporaryFolder folder;
    const std::string path = folder.path("a");
    auto file = createdFile(path, true);
    Bytes all = pattern(2 * span);
    ASSERT_TRUE(writeAll(*file, {all.begin(), all.begin() + 1000}, 1000) && file->flush());
    EXPECT_TRUE(qmx::waitUntilWorkersRest()); // in the file, but not yet in its header
    ASSERT_TRUE(writeAll(*file, {all.begin() + 1000, all.begin() + 3000}, 1000));
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const pid_t child = fork();
    if (child == 0) {
        alarm(60);
        close(ends[1]);
        char end = 0;
        const bool waited = read(ends[0], &end, 1) == 0;
        file.reset();
        _exit(waited ? 0 : 1);
    }
    close(ends[0]);
    EXPECT_TRUE(writeAll(*file, {all.begin() + 3000, all.end()}, 50000));
    EXPECT_TRUE(file->close());
    close(ends[1]);
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_TRUE(readAll(path, false, span) == all);
}

// On all threads: the cache's own write and read too.
TEST(QMXAudioFileInShortMemory, KeepsWhatItAcceptedAndStaysUsable)
{
    using qmx::test::ShortMemory;
    const qmx::test::TemporaryFolder folder;
    const std::string path = folder.path("a recording with a long name.aif");
    const std::optional<std::string> optionalPath = path;
    const auto format = Format::standardFormat(7);
    const Bytes bytes = pattern(span + 1000);
    for (const bool usesCache : {false, true})
        qmx::test::withEveryAllocationFailing(
            [&](ShortMemory& memory) {
                std::filesystem::remove(path);
                const auto made = [&](Mode mode) {
                    const auto make = [&] { return QMXAudioFile::initWithPath_accessMode(optionalPath, mode); };
                    auto file = memory.during(make);
                    EXPECT_TRUE(file || memory.hasFailed());
                    file = file ? file : make();
                    file->setUseCache(usesCache);
                    return file;
                };
                const auto succeed = [&](const auto& call) { EXPECT_TRUE(memory.during(call) || call()); };
                const auto file = made(Mode::write);
                succeed([&] { return file->setFileStreamFormat(*format); });
                succeed([&] { return file->create(); });
                auto length = static_cast<UInt32>(bytes.size());
                const bool isWritten = memory.during([&] { return file->write_length(bytes.data(), &length); });
                const bool isClosed = memory.during([&] { return file->close(); });
                EXPECT_TRUE((isWritten && isClosed) || memory.hasFailed());
                EXPECT_EQ(AudioFileClose(qmx::test::openFile(path, fsRdWrPerm).file), noErr); // mends a failed close

                const auto reader = made(Mode::read);
                succeed([&] { return reader->open(); });
                Bytes read(bytes.size());
                succeed([&] {
                    length = static_cast<UInt32>(read.size());
                    return reader->read_length_fromOffset(read.data(), &length, 0);
                });
                read.resize(length);
                EXPECT_TRUE(std::equal(read.begin(), read.end(), bytes.begin()));
                EXPECT_TRUE(length == bytes.size() || !isWritten || !isClosed) << length;
                EXPECT_TRUE(reader->close());
            },
            ShortMemory::Threads::all);
}
