// SPDX-License-Identifier: MIT
// Whole files by way of the current file system.
#pragma once

#include "Foundation/Files/FileHandle.h"
#include "Foundation/Files/FileSystem.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace qmx::test
{

using FileBytes = std::vector<std::uint8_t>;

inline void write(const std::string& path, const FileBytes& bytes)
{
    std::unique_ptr<File> file;
    ASSERT_EQ(FileSystem::current().open(path, FileAccess::createNew, file), 0);
    ASSERT_EQ(file->write(bytes.data(), bytes.size(), 0).error, 0);
}

inline FileBytes contents(const std::string& path)
{
    const auto handle = FileHandle::fileHandleForReadingAtPath(path);
    return handle ? handle->readDataToEndOfFile() : FileBytes{};
}

} // namespace qmx::test
