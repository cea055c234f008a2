// SPDX-License-Identifier: MIT
#pragma once

#include "CoreServices/Files.h"
#include "Foundation/Files/FileSystem.h"
#include "Front/Result.h"

#include <string>

namespace qmx
{

/// "<path>: <the system's text>". Internal to the front.
inline Error systemFailure(SystemError error, const std::string& path)
{
    return {statusForSystemError(error), path + ": " + systemErrorText(error), path};
}

} // namespace qmx
