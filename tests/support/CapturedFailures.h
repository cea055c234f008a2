// SPDX-License-Identifier: MIT
#pragma once

#include "Foundation/Text/FailureLine.h"

#include <string>
#include <vector>

namespace qmx::test
{

/// Receives the lines of failing platform calls while it exists.
class CapturedFailures
{
public:
    CapturedFailures()
    {
        setFailureLineHandler([this](OSStatus, const std::string& line) { lines_.push_back(line); });
    }
    ~CapturedFailures() { setFailureLineHandler(nullptr); }
    CapturedFailures(const CapturedFailures&) = delete;
    CapturedFailures& operator=(const CapturedFailures&) = delete;

    const std::vector<std::string>& lines() const { return lines_; }

private:
    std::vector<std::string> lines_;
};

} // namespace qmx::test
