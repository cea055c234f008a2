// SPDX-License-Identifier: MIT
// The library's log lines. They go to the system log and, if standard error is a terminal, there too. Never called on
// an I/O or render thread.
#pragma once

#include <QMXCoreAudio/Foundation/Memory.h>
#include <QMXCoreAudio/Foundation/Text/Format.h>

#include <functional>

namespace qmx
{

enum class LogLevel { debug, info, error };

/// Receives every line at or above the level, instead of the usual sinks. May be called from several threads at once.
using LogHandler = std::function<void(LogLevel level, const std::string& line)>;

/// Replaces the sink; an empty handler restores the usual one. Any thread.
QMX_EXPORT void setLogHandler(LogHandler handler);

/// Lines below `level` are dropped before they are formatted. Initially info, or the level in the environment variable
/// QMX_LOG_LEVEL ("debug", "info", "error"). Any thread.
QMX_EXPORT void setLogLevel(LogLevel level);

QMX_EXPORT bool logs(LogLevel level);
QMX_EXPORT void logLine(LogLevel level, const std::string& line);

/// Logs one line at error level; if memory runs out, the line is dropped. Any thread but the real-time ones.
template <class... Arguments> void Log(std::string_view text, const Arguments&... arguments)
{
    if (logs(LogLevel::error))
        (void)withinMemory([&] { logLine(LogLevel::error, format(text, arguments...)); });
}

/// The same at debug level, which is off by default: traces of single passes.
template <class... Arguments> void LogDebug(std::string_view text, const Arguments&... arguments)
{
    if (logs(LogLevel::debug))
        (void)withinMemory([&] { logLine(LogLevel::debug, format(text, arguments...)); });
}

} // namespace qmx
