// SPDX-License-Identifier: MIT
#pragma once

namespace qmx::test
{

/// While one exists, the calling thread may allocate and lock although it is marked real-time: for the test's own code
/// inside a callback.
class OutsideRealTime
{
public:
    OutsideRealTime() noexcept { ++depth_; }
    ~OutsideRealTime() { --depth_; }
    OutsideRealTime(const OutsideRealTime&) = delete;
    OutsideRealTime& operator=(const OutsideRealTime&) = delete;

    static bool isCurrent() noexcept { return depth_ > 0; }

private:
    inline static thread_local int depth_ = 0;
};

} // namespace qmx::test
