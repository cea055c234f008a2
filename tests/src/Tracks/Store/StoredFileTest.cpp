// SPDX-License-Identifier: MIT
// Recording, storing and reading in one file at once, by threads and by processes: afterwards all audio is there, and
// one whole record. Every round is another interleaving; --gtest_repeat makes more of them.
#include "Tracks/Store/QMXAIFFUtility.h"
#include "platform/AudioToolbox/AudioFileHelpers.h"
#include "src/Tracks/Store/TrackStores.h"
#include "support/TemporaryFolder.h"

#include <random>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using namespace qmx::test;

namespace
{

using Random = std::minstd_rand;

/// Stores `tracks` tracks, all titled with that number; long enough that a half-written chunk shows.
void store(const std::string& path, int tracks)
{
    aiff::store(aiff::record(tracks, std::to_string(tracks) + std::string(2000, 'x')), path);
}

/// How many tracks the file's record holds; -1 without one, and if they are not those of one store.
int tracksIn(const std::string& path)
{
    const auto record = aiff::Factory::readerWithAudioFilePath(path)->read();
    if (!record || !record->trackInfos())
        return -1;
    const auto count = static_cast<int>(record->trackInfos()->size());
    for (const auto& track : *record->trackInfos())
        if (!track->trackTitle()->starts_with(std::to_string(count) + "x"))
            return -1;
    return count;
}

void storeOften(const std::string& path, Random random)
{
    for (auto left = 1 + random() % 4; left > 0; --left)
        store(path, 1 + static_cast<int>(random() % 9));
}

/// Appends blocks of any size to the pattern in the file; returns its bytes.
std::size_t recordInto(const std::string& path, Random random)
{
    const auto file = QMXAudioFile::initWithPath_accessMode(path, QMXAudioFileAccessMode::readWrite);
    file->setUseCache(random() % 2 == 0);
    EXPECT_TRUE(file->open());
    auto end = static_cast<std::size_t>(file->lengthInBytes());
    file->setOffset(static_cast<SInt64>(end));
    for (auto left = random() % 12; left > 0; --left) {
        const ByteBlock data = pattern(2 * (1 + random() % (random() % 4 == 0 ? 200'000 : 3000)), end);
        auto length = static_cast<UInt32>(data.size());
        EXPECT_TRUE(file->write_length(data.data(), &length));
        end += data.size();
        if (random() % 3 == 0)
            file->flush();
    }
    EXPECT_TRUE(file->close());
    return end;
}

void expectAudio(const std::string& path, std::size_t bytes)
{
    const auto opened = openFile(path);
    ASSERT_EQ(opened.status, noErr);
    EXPECT_TRUE(audioOf(opened.file) == pattern(bytes));
    EXPECT_EQ(AudioFileClose(opened.file), noErr);
}

class StoredFile : public testing::TestWithParam<bool>
{
protected:
    /// Runs `work` beside the test, in a process or a thread.
    template <class Work> void startBeside(Work work)
    {
        if (!GetParam())
            threads.emplace_back(work);
        else if (const pid_t child = fork(); child == 0) {
            work();
            _exit(HasFailure() || !log.lines().empty() ? 1 : 0);
        } else
            children.push_back(child);
    }
    void waitForAll()
    {
        for (std::thread& thread : threads)
            thread.join();
        for (const pid_t child : children) {
            int status = 0;
            waitpid(child, &status, 0);
            EXPECT_EQ(status, 0);
        }
        threads.clear();
        children.clear();
    }

    const TemporaryFolder folder;
    const std::string path = folder.path("recording.aif");
    CapturedLog log;
    std::vector<std::thread> threads;
    std::vector<pid_t> children;
};

} // namespace

TEST_P(StoredFile, KeepsAllAudioAndOneWholeRecordWhateverHappensAtOnce)
{
    static Random random(static_cast<unsigned>(testing::UnitTest::GetInstance()->random_seed()) + 1);
    for (int round = 0; round < 25 && !HasFailure(); ++round) {
        SCOPED_TRACE(round);
        std::filesystem::remove(path);
        const auto made = createFile(path, kAudioFileAIFFType, linear(14, 16, 1));
        EXPECT_EQ(writeAudio(made.file, 0, pattern(74)), noErr);
        EXPECT_EQ(AudioFileClose(made.file), noErr);
        const bool hasRecord = random() % 2 == 0;
        if (hasRecord)
            store(path, 3);
        for (auto writers = 1 + random() % 2; writers > 0; --writers)
            startBeside([&, seed = random()] { storeOften(path, Random(seed)); });
        startBeside([&] {
            for (int i = 0; i < 10; ++i)
                EXPECT_TRUE(tracksIn(path) > 0 || !hasRecord);
        });
        const std::size_t bytes = recordInto(path, Random(random()));
        waitForAll();
        expectAudio(path, bytes);
        EXPECT_GT(tracksIn(path), 0);
        EXPECT_TRUE(QMXAIFFUtility::validateFileAtPath(path));
        const auto chunks = chunksOf(contentsOf(path));
        EXPECT_EQ(std::ranges::count(chunks, "APPL", &FoundChunk::id), 1);
        EXPECT_TRUE(log.lines().empty()) << log.lines().front();
    }
}

INSTANTIATE_TEST_SUITE_P(TrackStore, StoredFile, testing::Bool(),
                         [](const auto& test) { return test.param ? "BetweenProcesses" : "BetweenThreads"; });
