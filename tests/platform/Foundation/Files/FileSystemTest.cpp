// SPDX-License-Identifier: MIT
#include "Foundation/Files/FileSystem.h"

#include "platform/Foundation/Files/WholeFiles.h"
#include "support/MemoryDisk.h"
#include "support/TemporaryFolder.h"

#include <array>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using qmx::test::contents, qmx::test::write;
using Bytes = qmx::test::FileBytes;

namespace
{

constexpr int rounds = 500;

/// Counts two numbers of the file up under its lock, each round through a File of its own; false when they once differ.
/// Another File is opened and closed while the lock is held.
bool countTwiceInStep(const std::string& path)
{
    const auto opened = [&](qmx::FileAccess access) {
        std::unique_ptr<qmx::File> file;
        EXPECT_EQ(qmx::FileSystem::current().open(path, access, file), 0);
        return file;
    };
    bool inStep = true;
    std::array<int, 2> numbers{};
    for (int round = 0; round < rounds; ++round) {
        const auto reading = opened(qmx::FileAccess::read), writing = opened(qmx::FileAccess::readWrite);
        {
            const qmx::FileLock lock(reading.get());
            EXPECT_EQ(reading->read(numbers.data(), sizeof numbers, 0).error, 0);
            inStep = inStep && numbers[0] == numbers[1];
        }
        const qmx::FileLock lock(writing.get());
        EXPECT_EQ(writing->read(numbers.data(), sizeof numbers, 0).error, 0);
        ++numbers[0];
        EXPECT_EQ(writing->write(numbers.data(), sizeof numbers, 0).error, 0);
        opened(qmx::FileAccess::read).reset();
        ++numbers[1];
        EXPECT_EQ(writing->write(numbers.data(), sizeof numbers, 0).error, 0);
    }
    return inStep;
}

bool twoThreadsCountInStep(const std::string& path)
{
    bool other = false;
    std::thread thread([&] { other = countTwiceInStep(path); });
    const bool inStep = countTwiceInStep(path);
    thread.join();
    return inStep && other;
}

} // namespace

TEST(FileLock, KeepsOutOtherThreadsAndProcesses)
{
    const qmx::test::TemporaryFolder folder;
    const std::string path = folder.path("counted");
    write(path, Bytes(8));
    const pid_t child = fork();
    if (child == 0)
        _exit(countTwiceInStep(path) ? 0 : 1);
    EXPECT_TRUE(twoThreadsCountInStep(path));
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(contents(path)[0] + contents(path)[1] * 256, 3 * rounds);

    qmx::test::MemoryDisk disk;
    disk.setContents("/counted", Bytes(8));
    EXPECT_TRUE(twoThreadsCountInStep("/counted"));
    EXPECT_EQ(contents("/counted")[0] + contents("/counted")[1] * 256, 2 * rounds);
}
