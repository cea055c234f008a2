// SPDX-License-Identifier: MIT
#include "Foundation/Version.h"

namespace qmx
{

const char* version() noexcept
{
    return QMX_VERSION;
}

} // namespace qmx
