// SPDX-License-Identifier: MIT
// A file's fork: its second part, kept in a file beside it, with the same name after "._".
#pragma once

#include "Foundation/Files/FileSystem.h"

namespace qmx
{

/// The path of the fork of the file at `path`, whether it exists or not.
std::string forkPath(const std::string& path);
/// Looks for a fork of the file at `path`: an AppleDouble file or a bare resource fork. Any other file of that name is
/// somebody's own. Returns an error if a file that may be a fork cannot be opened, otherwise 0.
[[nodiscard]] SystemError findFork(const std::string& path, bool& isThere);
/// Whether a fork of `path` can be read.
bool hasFork(const std::string& path);
/// Removes the fork of `path`; 0 if there is none.
[[nodiscard]] SystemError removeFork(const std::string& path);

} // namespace qmx
