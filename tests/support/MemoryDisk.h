// SPDX-License-Identifier: MIT
#pragma once

#include "Foundation/Files/MemoryFileSystem.h"

namespace qmx::test
{

/// A file system in memory that is the current one while it exists. It has a folder /d. It can call back when a file is
/// opened.
class MemoryDisk : public MemoryFileSystem
{
public:
    MemoryDisk()
    {
        FileSystem::setCurrent(this);
        setContents("/d/.", {});
    }
    ~MemoryDisk() override { FileSystem::setCurrent(nullptr); }
    SystemError open(const std::string& path, FileAccess access, std::unique_ptr<File>& file) override
    {
        if (onOpen)
            onOpen();
        return MemoryFileSystem::open(path, access, file);
    }
    std::function<void()> onOpen;
};

} // namespace qmx::test
