// SPDX-License-Identifier: MIT
// What keeps a path from being read as an audio file, told before any work. Internal to the front.
#pragma once

#include "Front/Result.h"

#include <optional>
#include <string>

namespace qmx
{

/// "<path>: <why the system cannot read it>": missing, a folder, not a regular file, forbidden, empty. None if it can.
std::optional<Error> objectionToReading(const std::string& path);

} // namespace qmx
