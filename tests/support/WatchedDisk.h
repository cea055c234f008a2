// SPDX-License-Identifier: MIT
#pragma once

#include "support/MemoryDisk.h"

#include <algorithm>
#include <string>
#include <vector>

namespace qmx::test
{

/// A disk in memory that remembers what was made on it.
class WatchedDisk : public MemoryDisk
{
public:
    SystemError open(const std::string& path, FileAccess access, std::unique_ptr<File>& file) override
    {
        const SystemError error = MemoryDisk::open(path, access, file);
        if (error == 0 && access != FileAccess::read)
            made.push_back(path);
        return error;
    }
    /// Whether a file that was made under a hidden name is left.
    bool isAnyLeft()
    {
        FileStatus ignored;
        return std::ranges::any_of(made, [&](const std::string& path) {
            return path.find("/.making-") != std::string::npos && status(path, ignored) == 0;
        });
    }
    std::vector<std::string> made;
};

} // namespace qmx::test
