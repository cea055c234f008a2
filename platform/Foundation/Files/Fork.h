// SPDX-License-Identifier: MIT
// A file's fork: its second part, which is kept in a file beside it, named like it with "._" in front.
#pragma once

#include "Foundation/Files/FileSystem.h"

namespace qmx
{

/// Where the fork of the file at `path` is, whether there is one or not.
std::string forkPath(const std::string& path);
/// Looks whether the file at `path` has a fork: an AppleDouble file, or a bare resource fork. Any other file of that
/// name is somebody's own. The error of what may be a fork but cannot be opened, else 0.
[[nodiscard]] SystemError findFork(const std::string& path, bool& isThere);
/// Whether a fork of `path` can be read.
bool hasFork(const std::string& path);
/// Removes the fork of `path`; 0 where there is none.
[[nodiscard]] SystemError removeFork(const std::string& path);

} // namespace qmx
