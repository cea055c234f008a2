// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/Foundation/Export.h>

namespace qmx
{

/// The version of the library that is running, "major.minor.patch". Any thread.
QMX_EXPORT const char* version() noexcept;

} // namespace qmx
