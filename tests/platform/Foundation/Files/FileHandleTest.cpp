// SPDX-License-Identifier: MIT
#include "Foundation/Files/FileHandle.h"

#include "platform/Foundation/Files/WholeFiles.h"
#include "support/TemporaryFolder.h"

#include <cerrno>

using qmx::test::contents, qmx::test::write;
using Bytes = qmx::test::FileBytes;

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
