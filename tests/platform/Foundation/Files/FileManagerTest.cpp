// SPDX-License-Identifier: MIT
#include "Foundation/Files/FileManager.h"

#include "platform/Foundation/Files/WholeFiles.h"
#include "support/MemoryDisk.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>

using qmx::FileManager;
using qmx::test::contents, qmx::test::write;
using Bytes = qmx::test::FileBytes;

namespace
{

const Bytes someFork{0, 5, 22, 7, 0, 2, 0, 0};

/// Two file systems: renaming from one to the other fails.
class TwoDisks : public qmx::test::MemoryDisk
{
public:
    qmx::SystemError rename(const std::string&, const std::string&) override { return EXDEV; }
};

} // namespace

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
    write("/._c", someFork);
    EXPECT_FALSE(manager.removeFileAtPath_handler("/c", nullptr));
    EXPECT_FALSE(manager.fileExistsAtPath("/._c")) << "a fork without its file";
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

TEST(FileManager, ACompleteFileGetsItsNameWithItsForkAndReplacesOnlyIfAskedTo)
{
    qmx::test::MemoryDisk disk;
    FileManager& manager = FileManager::defaultManager();
    write("/new", {1, 2});
    write("/._new", someFork);
    write("/old", {9});
    EXPECT_EQ(manager.renamePath_toPath_replaces("/new", "/old", false), EEXIST);
    disk.failSynchronization(EIO);
    EXPECT_EQ(manager.renamePath_toPath_replaces("/new", "/old", true), EIO);
    EXPECT_EQ(manager.renamePath_toPath_replaces("/new", "/other", false), EIO);
    EXPECT_FALSE(manager.fileExistsAtPath("/other"));
    disk.clearFaults();
    for (const std::size_t change : {1U, 2U}) {
        disk.failChange(change, EIO);
        EXPECT_EQ(manager.renamePath_toPath_replaces("/new", "/old", true), EIO);
        EXPECT_EQ(contents("/old"), Bytes{9});
        EXPECT_EQ(contents("/._new"), someFork);
        EXPECT_FALSE(manager.fileExistsAtPath("/._old"));
    }
    disk.clearFaults();
    ASSERT_EQ(manager.renamePath_toPath_replaces("/new", "/old", true), 0);
    EXPECT_EQ(contents("/old"), (Bytes{1, 2}));
    EXPECT_EQ(contents("/._old"), someFork);
    EXPECT_FALSE(manager.fileExistsAtPath("/new") || manager.fileExistsAtPath("/._new"));
    write("/plain", {3});
    ASSERT_EQ(manager.renamePath_toPath_replaces("/plain", "/old", true), 0);
    EXPECT_FALSE(manager.fileExistsAtPath("/._old")) << "it belonged to the replaced file";
    write("/plain", {4});
    write("/._old", someFork);
    disk.failChange(2, EIO);
    EXPECT_EQ(manager.renamePath_toPath_replaces("/plain", "/old", true), 0) << "the file has its name";
    disk.clearFaults();
    ASSERT_EQ(disk.remove("/._old"), 0);
    write("/plain", {5});
    write("/._plain", someFork);
    write("/._old", {'F', 'O', 'R', 'M'}); // an ordinary file
    EXPECT_EQ(manager.renamePath_toPath_replaces("/plain", "/old", true), EEXIST);
    EXPECT_EQ(contents("/old"), Bytes{4});
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
