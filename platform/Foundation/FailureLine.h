// SPDX-License-Identifier: MIT
// The one line that a failing step of a chain of platform calls leaves on standard error.
#pragma once

#include "CoreAudioTypes/MacTypes.h"
#include "Foundation/Export.h"

#include <functional>
#include <string>

namespace qmx
{

/// Prints "<title> Error: <status> ->  <file>:  <line>" to standard error and flushes standard output. Any thread. On a thread
/// marked real-time the line waits, without allocation or lock, until the next call that is made elsewhere: 64 of them at most,
/// further ones are dropped. `title` and `file` are texts that stay.
QMX_EXPORT void printFailure(const char* title, OSStatus status, const char* file, unsigned line) noexcept;

/// Prints the lines that wait. Not on real-time threads.
QMX_EXPORT void printWaitingFailures();

/// Receives the lines, without their line ends, in place of standard error; an empty handler restores that.
using FailureLineHandler = std::function<void(OSStatus status, const std::string& line)>;
QMX_EXPORT void setFailureLineHandler(FailureLineHandler handler);

} // namespace qmx
