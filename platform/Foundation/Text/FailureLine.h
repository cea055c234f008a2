// SPDX-License-Identifier: MIT
// The one line that a failing step of a chain of platform calls leaves on standard error.
#pragma once

#include "CoreAudioTypes/MacTypes.h"
#include "Foundation/Export.h"

#include <functional>
#include <string>

namespace qmx
{

/// Where a class reports its failing platform calls. Any thread.
class QMX_EXPORT FailureLine
{
public:
    /// `title` begins each line and `file` names the source in it; both are texts that stay.
    constexpr FailureLine(const char* title, const char* file) : title_(title), file_(file) {}

    /// Unless `status` is 0, prints "<title> Error: <status> ->  <file>:  <line>" to standard error and flushes
    /// standard output. On a thread marked real-time the line waits, without allocation or lock, until the next call
    /// that is made elsewhere: 64 of them at most, further ones are dropped. Gives `status`.
    OSStatus operator()(OSStatus status, unsigned line = __builtin_LINE()) const noexcept;

private:
    const char* title_;
    const char* file_;
};

/// Prints the lines that wait. Not on real-time threads.
QMX_EXPORT void printWaitingFailures();

/// Receives the lines, without their line ends, in place of standard error; an empty handler restores that.
using FailureLineHandler = std::function<void(OSStatus status, const std::string& line)>;
QMX_EXPORT void setFailureLineHandler(FailureLineHandler handler);

} // namespace qmx
