// SPDX-License-Identifier: MIT
#include "Processing/FailureLine.h"

#include <cstdio>

namespace qmx
{

OSStatus FailureLine::operator()(OSStatus status, int line) const
{
    if (status != noErr) {
        std::fprintf(stderr, "%s: %ld ->  %s:  %d\n", prefix_, static_cast<long>(status), file_, line);
        std::fflush(stdout);
    }
    return status;
}

} // namespace qmx
