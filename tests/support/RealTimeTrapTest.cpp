// SPDX-License-Identifier: MIT
#include "Foundation/RealTime.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <memory>
#include <mutex>

namespace
{

template <class Work> void inRealTime(Work work)
{
    const qmx::RealTimeScope scope;
    work();
}

} // namespace

TEST(RealTimeTrapDeathTest, AbortsWhereARealTimeThreadMustNotGo)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    void* volatile block = malloc(16);
    std::mutex mutex;
    EXPECT_DEATH(inRealTime([&] { block = malloc(16); }), "malloc was called on a real-time thread");
    EXPECT_DEATH(inRealTime([&] { block = operator new(16); }), "malloc was called");
    EXPECT_DEATH(inRealTime([&] { block = operator new (64, std::align_val_t{64}); }), "aligned_alloc was called");
    EXPECT_DEATH(inRealTime([&] { free(block); }), "free was called");
    EXPECT_DEATH(inRealTime([&] { const std::scoped_lock lock(mutex); }), "pthread_mutex_lock was called");
    EXPECT_DEATH(inRealTime([&] { block = fopen("/dev/null", "r"); }), "was called on a real-time thread");
    EXPECT_DEATH(inRealTime([&] { close(open("/dev/null", O_RDONLY)); }), "open was called");
    free(block);
}
