// SPDX-License-Identifier: MIT
#include "Foundation/Text/Log.h"

#include <syslog.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string_view>

namespace qmx
{
namespace
{

LogLevel levelFromEnvironment()
{
    const char* name = std::getenv("QMX_LOG_LEVEL");
    const std::string_view level = name ? name : "";
    return level == "debug" ? LogLevel::debug : level == "error" ? LogLevel::error : LogLevel::info;
}

std::atomic<LogLevel>& currentLevel()
{
    static std::atomic<LogLevel> level{levelFromEnvironment()};
    return level;
}

struct Sink {
    std::mutex mutex;
    std::shared_ptr<const LogHandler> handler;
};

Sink& sink()
{
    static auto* const instance = new Sink; // never destroyed: threads may log while the process ends
    return *instance;
}

int systemPriority(LogLevel level)
{
    return level == LogLevel::error ? LOG_ERR : level == LogLevel::info ? LOG_INFO : LOG_DEBUG;
}

} // namespace

void setLogHandler(LogHandler handler)
{
    auto shared = handler ? std::make_shared<const LogHandler>(std::move(handler)) : nullptr;
    const std::scoped_lock lock(sink().mutex);
    sink().handler = std::move(shared);
}

void setLogLevel(LogLevel level)
{
    currentLevel().store(level, std::memory_order_relaxed);
}

bool logs(LogLevel level)
{
    return level >= currentLevel().load(std::memory_order_relaxed);
}

void logLine(LogLevel level, const std::string& line)
{
    std::shared_ptr<const LogHandler> handler;
    {
        const std::scoped_lock lock(sink().mutex);
        handler = sink().handler;
    }
    if (handler) {
        (*handler)(level, line);
        return;
    }
    syslog(LOG_USER | systemPriority(level), "%s", line.c_str());
    if (isatty(STDERR_FILENO))
        std::fprintf(stderr, "%s\n", line.c_str());
}

} // namespace qmx
