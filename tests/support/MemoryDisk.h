// SPDX-License-Identifier: MIT
#pragma once

#include "Foundation/Files/MemoryFileSystem.h"

namespace qmx::test
{

/// A file system in memory that is the current one while it exists. It has a folder /d.
class MemoryDisk : public MemoryFileSystem
{
public:
    MemoryDisk()
    {
        FileSystem::setCurrent(this);
        setContents("/d/.", {});
    }
    ~MemoryDisk() override { FileSystem::setCurrent(nullptr); }
};

} // namespace qmx::test
