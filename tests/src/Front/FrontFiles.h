// SPDX-License-Identifier: MIT
// Shared by the tests of the front's files: a disk in memory, on which nothing may be left over.
#pragma once

#include "platform/AudioToolbox/ExtAudioFileHelpers.h"
#include "support/CapturedFailures.h"
#include "support/WatchedDisk.h"

#include <gmock/gmock.h>

namespace qmx::test
{

/// Expects progress that rises from 0 to exactly 1.
inline void expectWhole(const std::vector<float>& progress)
{
    ASSERT_GE(progress.size(), 2U);
    EXPECT_EQ(progress.front(), 0.0F);
    EXPECT_EQ(progress.back(), 1.0F);
    EXPECT_TRUE(std::ranges::is_sorted(progress));
}

class FrontFiles : public testing::Test
{
protected:
    /// Expects an error with this status and text, and that no hidden file is left.
    template <class Result> void expectError(const Result& result, OSStatus status, const std::string& text)
    {
        ASSERT_FALSE(result) << text;
        EXPECT_EQ(result.error().status(), status) << result.error().text();
        EXPECT_EQ(result.error().text(), text);
        EXPECT_FALSE(disk.isAnyLeft());
    }

    WatchedDisk disk;
    CapturedFailures failures;
};

} // namespace qmx::test
