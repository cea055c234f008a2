// SPDX-License-Identifier: MIT
#pragma once

#include "Foundation/Text/Log.h"

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

namespace qmx::test
{

/// Collects the library's log lines while it exists.
class CapturedLog
{
public:
    CapturedLog()
    {
        setLogHandler([this](LogLevel, const std::string& line) {
            const std::scoped_lock lock(mutex_);
            lines_.push_back(line);
        });
    }
    ~CapturedLog() { setLogHandler({}); }
    CapturedLog(const CapturedLog&) = delete;
    CapturedLog& operator=(const CapturedLog&) = delete;

    std::vector<std::string> lines() const
    {
        const std::scoped_lock lock(mutex_);
        return lines_;
    }
    bool has(const std::string& line) const { return std::ranges::count(lines(), line) > 0; }

private:
    mutable std::mutex mutex_;
    std::vector<std::string> lines_;
};

} // namespace qmx::test
