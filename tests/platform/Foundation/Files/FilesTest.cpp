// SPDX-License-Identifier: MIT
// File manager, file handles and references, on the machine's own file system and on one in memory with faults.
#include "CoreServices/Files.h"
#include "Foundation/Files/FileHandle.h"
#include "Foundation/Files/FileManager.h"
#include "Foundation/Files/MemoryFileSystem.h"
#include "support/MemoryDisk.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using qmx::FileManager;
using Bytes = std::vector<std::uint8_t>;

namespace
{

void write(const std::string& path, const Bytes& bytes)
{
    std::unique_ptr<qmx::File> file;
    ASSERT_EQ(qmx::FileSystem::current().open(path, qmx::FileAccess::createNew, file), 0);
    ASSERT_EQ(file->write(bytes.data(), bytes.size(), 0).error, 0);
}

Bytes contents(const std::string& path)
{
    const auto handle = qmx::FileHandle::fileHandleForReadingAtPath(path);
    return handle ? handle->readDataToEndOfFile() : Bytes{};
}

const Bytes someFork{0, 5, 22, 7, 0, 2, 0, 0};

/// Two file systems: renaming from one to the other fails.
class TwoDisks : public qmx::test::MemoryDisk
{
public:
    qmx::SystemError rename(const std::string&, const std::string&) override { return EXDEV; }
};

constexpr int rounds = 500;

/// Increments two numbers in the file under its lock, in each round through a new File; false if they ever differ.
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

TEST(FileManager, MovesAndCopiesWithCodesAndNeverOntoWhatExists)
{
    qmx::test::MemoryDisk disk; // keeps attributes wherever the test runs
    FileManager& manager = FileManager::defaultManager();
    write("/a", {1, 2, 3});
    write("/taken", {9});
    ASSERT_TRUE(manager.changeFileAttributes_atPath(
        {.NSFileHFSCreatorCode = 0x4b615274, .NSFileHFSTypeCode = {}, .NSFileSize = {}}, "/a"));
    ASSERT_TRUE(manager.changeFileAttributes_atPath(
        {.NSFileHFSCreatorCode = {}, .NSFileHFSTypeCode = 0x46464941, .NSFileSize = {}}, "/a"));
    EXPECT_FALSE(manager.copyPath_toPath_handler("/a", "/taken", nullptr));
    EXPECT_FALSE(manager.movePath_toPath_handler("/a", "/taken", nullptr));
    EXPECT_EQ(contents("/taken"), Bytes{9});
    ASSERT_TRUE(manager.copyPath_toPath_handler("/a", "/b", nullptr));
    ASSERT_TRUE(manager.movePath_toPath_handler("/b", "/c", nullptr));
    EXPECT_FALSE(manager.fileExistsAtPath("/b"));
    EXPECT_EQ(contents("/c"), (Bytes{1, 2, 3}));
    const auto attributes = manager.fileAttributesAtPath("/c");
    EXPECT_EQ(attributes.NSFileHFSCreatorCode, 0x4b615274u);
    EXPECT_EQ(attributes.NSFileHFSTypeCode, 0x46464941u);
    EXPECT_EQ(attributes.NSFileSize, 3);
}

TEST(FileManager, AFileAndItsForkGoTogether)
{
    qmx::test::MemoryDisk disk;
    FileManager& manager = FileManager::defaultManager();
    write("/a", {1, 2, 3});
    write("/._a", someFork);
    write("/._c", {0, 5, 22, 7}); // a fork without its file
    ASSERT_TRUE(manager.copyPath_toPath_handler("/a", "/b", nullptr));
    ASSERT_TRUE(manager.movePath_toPath_handler("/b", "/c", nullptr));
    EXPECT_EQ(contents("/._c"), someFork);
    EXPECT_FALSE(manager.fileExistsAtPath("/._b"));
    ASSERT_TRUE(manager.removeFileAtPath_handler("/c", nullptr));
    EXPECT_FALSE(manager.fileExistsAtPath("/._c"));
    write("/plain", {4});
    write("/._c", someFork);
    ASSERT_TRUE(manager.movePath_toPath_handler("/plain", "/c", nullptr));
    EXPECT_FALSE(manager.fileExistsAtPath("/._c")) << "it belonged to an earlier file";
    write("/._e", {'F', 'O', 'R', 'M'}); // an ordinary file, like a fork in name only
    EXPECT_FALSE(manager.copyPath_toPath_handler("/a", "/e", nullptr));
    EXPECT_FALSE(manager.movePath_toPath_handler("/a", "/e", nullptr));
    EXPECT_FALSE(manager.fileExistsAtPath("/e"));
    ASSERT_TRUE(manager.movePath_toPath_handler("/c", "/e", nullptr));
    ASSERT_TRUE(manager.removeFileAtPath_handler("/e", nullptr));
    EXPECT_EQ(contents("/._e").size(), 4u);
}

template <class Disk> class FailingFileManager : public testing::Test
{
};
using Disks = testing::Types<qmx::test::MemoryDisk, TwoDisks>;
TYPED_TEST_SUITE(FailingFileManager, Disks);

TYPED_TEST(FailingFileManager, FailedMovesAndCopiesLeaveTheSourceAndNoHalf)
{
    FileManager& manager = FileManager::defaultManager();
    for (const bool moves : {true, false})
        for (std::size_t change = 0; change <= 12; ++change) {
            SCOPED_TRACE(testing::Message() << (moves ? "moving" : "copying") << ", change " << change);
            TypeParam disk;
            write("/a", Bytes(5000, 7));
            write("/._a", someFork);
            if (change == 0)
                disk.failSynchronization(EIO);
            disk.failChange(change, EIO, 1000);
            const bool isDone = moves ? manager.movePath_toPath_handler("/a", "/b", nullptr)
                                      : manager.copyPath_toPath_handler("/a", "/b", nullptr);
            EXPECT_TRUE(isDone || change < 12);
            if (!isDone || !moves) {
                EXPECT_EQ(contents("/a").size(), 5000u);
                EXPECT_EQ(contents("/._a"), someFork);
            }
            EXPECT_EQ(contents("/b").size(), isDone ? 5000u : 0u);
            EXPECT_EQ(contents("/._b"), isDone ? someFork : Bytes{});
            EXPECT_NE(manager.fileExistsAtPath("/a"), isDone && moves);
        }
}

TEST(FileManager, ACopyHasModeTimesAndExtendedAttributes)
{
    const qmx::test::TemporaryFolder folder;
    const std::string source = folder.path("a"), copy = folder.path("b");
    write(source, {1});
    const Bytes note{5, 6};
    const bool keepsAttributes = qmx::FileSystem::current().setAttribute(source, "user.note", note) == 0;
    ASSERT_EQ(chmod(source.c_str(), 0400), 0);
    const timespec times[] = {{1000000000, 1}, {1000000001, 2}};
    ASSERT_EQ(utimensat(AT_FDCWD, source.c_str(), times, 0), 0);
    ASSERT_TRUE(FileManager::defaultManager().copyPath_toPath_handler(source, copy, nullptr));
    struct stat status {
    };
    ASSERT_EQ(stat(copy.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0400u);
    EXPECT_EQ(status.st_mtim.tv_sec, 1000000001);
    EXPECT_EQ(status.st_mtim.tv_nsec, 2);
    EXPECT_EQ(contents(copy), Bytes{1});
    Bytes found;
    (void)qmx::FileSystem::current().attribute(copy, "user.note", found); // there may be none
    EXPECT_EQ(found, keepsAttributes ? note : Bytes{});
}

TEST(FileManager, FindsCodesThatOtherToolsLeftInASidecar)
{
    qmx::test::MemoryDisk disk;
    write("/d/song", {0});
    Bytes sidecar{0, 5, 22, 7, 0, 2, 0, 0};
    sidecar.resize(24, ' ');
    for (const std::uint8_t byte : Bytes{0, 1, 0, 0, 0, 9, 0, 0, 0, 38, 0, 0, 0, 32})
        sidecar.push_back(byte);
    for (const char letter : {'A', 'I', 'F', 'F', 'T', 'E', 'S', 't'})
        sidecar.push_back(static_cast<std::uint8_t>(letter));
    sidecar.resize(38 + 32);
    write("/d/._song", sidecar);
    EXPECT_EQ(FileManager::defaultManager().fileAttributesAtPath("/d/song").NSFileHFSTypeCode, 0x41494646u);
    write("/d/other", {0});
    write("/d/._other", Bytes(sidecar.begin(), sidecar.begin() + 40)); // cut off inside the entry
    EXPECT_FALSE(FileManager::defaultManager().fileAttributesAtPath("/d/other").NSFileHFSTypeCode);
}

TEST(FileHandle, ReadsWritesAndSeeksOnTheRealFileSystem)
{
    const qmx::test::TemporaryFolder folder;
    const std::string path = folder.path("file");
    EXPECT_EQ(qmx::FileHandle::fileHandleForUpdatingAtPath(path), nullptr) << "a missing file is not created";
    EXPECT_EQ(qmx::FileHandle::fileHandleForReadingAtPath(folder.path("")), nullptr) << "a folder is no file";
    write(path, {1, 2, 3, 4, 5});
    const auto handle = qmx::FileHandle::fileHandleForUpdatingAtPath(path);
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(handle->readDataOfLength(2), (Bytes{1, 2}));
    EXPECT_EQ(handle->seekToEndOfFile(), 5);
    EXPECT_EQ(handle->writeData(Bytes{6}), 0);
    handle->seekToFileOffset(4);
    EXPECT_EQ(handle->readDataOfLength(SIZE_MAX), (Bytes{5, 6})) << "an absurd length costs no memory";
    EXPECT_EQ(handle->truncateFileAtOffset(3), 0);
    handle->closeFile();
    EXPECT_EQ(handle->writeData(Bytes{7}), EBADF);
    EXPECT_EQ(contents(path), (Bytes{1, 2, 3}));
}

TEST(FSRef, FollowsThePathAndIsEmptyForWhatIsMissing)
{
    const qmx::test::TemporaryFolder folder;
    const auto makeRef = [](const std::string& path, FSRef& reference) {
        return FSPathMakeRef(reinterpret_cast<const UInt8*>(path.c_str()), &reference, nullptr);
    };
    FSRef reference{"stale"};
    EXPECT_EQ(makeRef(folder.path("none"), reference), fnfErr);
    EXPECT_TRUE(reference.path.empty());
    EXPECT_EQ(FSGetCatalogInfo(&reference, kFSCatInfoNone, nullptr, nullptr, nullptr, nullptr), errFSBadFSRef);
    write(folder.path("file"), {1, 2});
    ASSERT_EQ(makeRef(folder.path("./file"), reference), noErr);
    FSSpec fileSpec;
    FSCatalogInfo info;
    ASSERT_EQ(FSGetCatalogInfo(&reference, kFSCatInfoDataSizes, &info, nullptr, &fileSpec, nullptr), noErr);
    EXPECT_EQ(fileSpec.name, "file");
    EXPECT_EQ(info.dataLogicalSize, 2u);
    UInt8 text[4];
    EXPECT_EQ(FSRefMakePath(&reference, text, sizeof text), paramErr) << "no room for the path";
}

TEST(FSRef, IsWhatTheSystemFindsUnderThePath)
{
    const qmx::test::TemporaryFolder folder;
    std::filesystem::create_directories(folder.path("real/inner"));
    std::filesystem::create_directory_symlink(folder.path("real/inner"), folder.path("link"));
    write(folder.path("real/file"), {1});
    write(folder.path("file"), {1, 2});
    FSRef reference;
    const auto makeRef = [&](const std::string& name) {
        return FSPathMakeRef(reinterpret_cast<const UInt8*>(folder.path(name).c_str()), &reference, nullptr);
    };
    EXPECT_EQ(makeRef("none/../file"), fnfErr);
    EXPECT_EQ(makeRef("file/"), fnfErr) << "it is no folder";
    ASSERT_EQ(makeRef("link/../file"), noErr);
    FSCatalogInfo info;
    ASSERT_EQ(FSGetCatalogInfo(&reference, kFSCatInfoDataSizes, &info, nullptr, nullptr, nullptr), noErr);
    EXPECT_EQ(info.dataLogicalSize, 1u);
    FSSpec place;
    ASSERT_EQ(makeRef("real/inner/"), noErr);
    ASSERT_EQ(FSGetCatalogInfo(&reference, kFSCatInfoNone, nullptr, nullptr, &place, nullptr), noErr);
    EXPECT_EQ(place.name, "inner");
}
