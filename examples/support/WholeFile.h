// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace example
{

/// Replaces the contents of the file `path`. The file is written under another name beside it and renamed when it is
/// complete, so that an incomplete one is never seen. A device or a pipe is written to directly. A Failure if it cannot
/// be written.
void writeWholeFile(const std::string& path, const std::string& contents);

} // namespace example
