// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace example
{

/// Repairs an AIFF file whose writer was killed: completes or removes what an interrupted store left at its end, and
/// corrects outdated sizes. Returns one line about what was done.
std::string repairRecording(const std::string& path);

} // namespace example
