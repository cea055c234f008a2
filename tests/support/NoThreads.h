// SPDX-License-Identifier: MIT
#pragma once

namespace qmx::test
{

/// While one exists, the system has no thread left for this process: every attempt to make one fails.
class NoThreads
{
public:
    NoThreads() noexcept;
    ~NoThreads();
    NoThreads(const NoThreads&) = delete;
    NoThreads& operator=(const NoThreads&) = delete;
};

} // namespace qmx::test
