// SPDX-License-Identifier: MIT
// The standard-error lines that tell of failing platform calls while converter chains, units and graphs are built.
#pragma once

#include "CoreAudioTypes/MacTypes.h"

namespace qmx
{

/// Where a class reports its failing calls. Not on real-time threads.
class FailureLine
{
public:
    /// `prefix` begins each line, `file` names the source file in it. Both are literals.
    constexpr FailureLine(const char* prefix, const char* file) : prefix_(prefix), file_(file) {}

    /// Prints "PREFIX: STATUS ->  FILE:  LINE" on standard error and flushes standard output, unless `status` is 0. Gives `status`.
    OSStatus operator()(OSStatus status, int line = __builtin_LINE()) const;

private:
    const char* prefix_;
    const char* file_;
};

} // namespace qmx
