// SPDX-License-Identifier: MIT
// The line that a failing step in a chain of platform calls prints to standard error.
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/MacTypes.h>
#include <QMXCoreAudio/Foundation/Export.h>

#include <functional>
#include <string>

namespace qmx
{

/// A class reports its failing platform calls through one of these. Any thread.
class QMX_EXPORT FailureLine
{
public:
    /// `title` and `word` start each line and `file` names the source in it; all texts must outlive this object.
    constexpr FailureLine(const char* title, const char* file, const char* word = "Error")
        : title_(title), file_(file), word_(word)
    {
    }

    /// Unless `status` is 0, prints "<title> <word>: <status> ->  <file>:  <line>" to standard error and flushes
    /// standard output. On a thread marked real-time the line is queued, without allocation or lock, until the next
    /// failure outside of real time: at most 64 lines, further ones are dropped. Returns `status`.
    OSStatus operator()(OSStatus status, unsigned line = __builtin_LINE()) const noexcept;

private:
    const char* title_;
    const char* file_;
    const char* word_;
};

/// A line in a class's own words about a status.
class QMX_EXPORT StatusLine
{
public:
    /// `text`, which must outlive this object, has %d for the status, and then %-4.4s for its four characters.
    constexpr explicit StatusLine(const char* text) : text_(text) {}

    /// Prints as a failure line does, on real-time threads too.
    OSStatus operator()(OSStatus status) const noexcept;

private:
    const char* text_;
};

/// While one exists, failing steps on its thread print no lines: for who reports failures as values. Not on real-time
/// threads, whose lines wait.
class QMX_EXPORT QuietFailureLines
{
public:
    QuietFailureLines();
    ~QuietFailureLines();
    QuietFailureLines(const QuietFailureLines&) = delete;
    QuietFailureLines& operator=(const QuietFailureLines&) = delete;
};

/// Prints the queued lines. Not on real-time threads.
QMX_EXPORT void printWaitingFailures();

/// Receives the lines, without line ends, instead of standard error; an empty handler restores standard error.
using FailureLineHandler = std::function<void(OSStatus status, const std::string& line)>;
QMX_EXPORT void setFailureLineHandler(FailureLineHandler handler);

} // namespace qmx
