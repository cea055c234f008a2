// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace example
{

/// Puts `contents` into the file `path`, replacing what it held. The file is written under another name beside it and
/// renamed when it is complete, so nobody sees half of it. A device or a pipe is written to as it is. A Failure
/// otherwise.
void writeWholeFile(const std::string& path, const std::string& contents);

} // namespace example
