// SPDX-License-Identifier: MIT
// Recordings that are kept readable while they are written.
#include "FileRelated/QMXExtAudioFile.h"
#include "Foundation/RealTime.h"
#include "support/FileWork.h"
#include "support/TemporaryFolder.h"

#include <thread>

namespace
{

using namespace qmx::test;
using namespace std::string_literals;

const struct Kind {
    const char* name;
    AudioFileTypeID type;
    AudioFormatID coding;
} kinds[] = {{"aac.m4a", kAudioFileM4AType, kAudioFormatMPEG4AAC},
             {"alac.m4a", kAudioFileM4AType, kAudioFormatAppleLossless},
             {"a.flac", kAudioFileFLACType, kAudioFormatFLAC},
             {"a.aac", kAudioFileAAC_ADTSType, kAudioFormatMPEG4AAC}};

std::shared_ptr<QMXExtAudioFile> recording(const std::string& path, const Kind& kind, bool keepsReadable,
                                           Float64 rate = 44100)
{
    const auto client = floats(1, rate);
    const AudioStreamBasicDescription format{rate, kind.coding, 0, 0, 0, 0, 1, 0, 0};
    auto file = QMXExtAudioFile::initForWriting_fileType_clientFormat_fileFormat(path, kind.type, &client, &format);
    file->setKeepsFileReadableWhileWriting(keepsReadable);
    EXPECT_EQ(file->open(), noErr);
    return file;
}

OSStatus writeTo(QMXExtAudioFile& file, std::span<const float> samples)
{
    const auto list = listOf(samples, 1);
    return file.writeSynch_numberFrames(&list, static_cast<UInt32>(samples.size()));
}

/// All frames of a file, as many as its length tells.
std::vector<float> framesOf(const std::string& path, Float64 rate = 44100)
{
    const auto client = floats(1, rate);
    const auto file = QMXExtAudioFile::initForReading_clientFormat(path, &client);
    EXPECT_EQ(file->open(), noErr) << path;
    const auto samples = file->isOpen() ? readFloats(file->extAudioFileRef(), 1, 2'000'000) : std::vector<float>();
    EXPECT_EQ(file->lengthInFrames(), static_cast<SInt64>(samples.size()));
    return samples;
}

/// How many frames another program makes of a file.
std::size_t framesByOther(const std::string& path)
{
    const std::string raw = path + ".raw";
    EXPECT_EQ(std::system(("ffmpeg -v error -y -i " + path + " -f f32le " + raw + " </dev/null").c_str()), 0);
    return contentsOf(raw).size() / sizeof(float);
}

using QMXExtAudioFileKeptReadable = FileWork;

TEST_F(QMXExtAudioFileKeptReadable, TellsOfATypeThatCannotBe)
{
    const auto caf = recording(path, {"", kAudioFileCAFType, kAudioFormatAppleLossless}, true);
    expectFailure(*caf, kAudioFileOperationNotSupportedError,
                  "/d/a.aif could not be kept readable: it does not allow that");
    EXPECT_EQ(failures.lines().size(), 1U);
    EXPECT_EQ(writeTo(*caf, music(9000, 1)), noErr);
    EXPECT_EQ(caf->close(), noErr);
    EXPECT_EQ(framesOf(path).size(), 9000U);
}

TEST_F(QMXExtAudioFileKeptReadable, OpensFromTheFirstMomentAndWhatIsQueuedFollowsSoon)
{
    const auto sound = music(8000, 1, 8000);
    for (const Kind& kind : kinds) {
        SCOPED_TRACE(kind.name);
        const auto file = recording(path, kind, true, 8000);
        if (kind.type != kAudioFileAAC_ADTSType) {
            EXPECT_TRUE(framesOf(path, 8000).empty());
        }
        const std::size_t before = disk.changesMade();
        {
            const qmx::RealTimeScope realTime;
            const auto list = listOf(std::span(sound), 1);
            ASSERT_EQ(file->write_numberFrames(&list, 8000), noErr);
        }
        while (disk.changesMade() == before) // without more frames or a close
            std::this_thread::yield();
        EXPECT_EQ(file->close(), noErr);
        EXPECT_EQ(disk.remove(path), 0);
    }
}

TEST(QMXExtAudioFileOnceKeptReadable, IsAsAnyOtherWhenItIsClosed)
{
    const TemporaryFolder folder;
    const auto sound = music(1'323'000, 1); // AAC fills one fragment and begins another
    for (const Kind& kind : kinds) {
        const std::string ordinary = folder.path(kind.name), closed = folder.path("closed-"s + kind.name);
        for (const bool keepsReadable : {false, true}) {
            const auto file = recording(keepsReadable ? closed : ordinary, kind, keepsReadable);
            EXPECT_EQ(file->lastStatus(), noErr);
            ASSERT_EQ(writeTo(*file, sound), noErr);
            ASSERT_EQ(file->close(), noErr);
        }
        EXPECT_EQ(framesOf(closed), framesOf(ordinary));
        EXPECT_EQ(framesByOther(closed), framesByOther(ordinary));
    }
}

} // namespace
