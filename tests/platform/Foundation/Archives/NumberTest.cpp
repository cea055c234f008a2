// SPDX-License-Identifier: MIT
#include "Foundation/Archives/Number.h"

#include <gtest/gtest.h>

#include <limits>

TEST(Number, ReadersCutToTheLowBitsAndNeverFail)
{
    const auto pattern = qmx::Number::withUnsignedLongLong(0xFFFFFFFF00000002);
    EXPECT_EQ(pattern->intValue(), 2);
    EXPECT_EQ(pattern->longLongValue(), -4294967294);
    EXPECT_EQ(qmx::Number::withInt(-1)->unsignedLongLongValue(), ~UInt64{0});
    EXPECT_EQ(qmx::Number::withDouble(-1e300)->longLongValue(), std::numeric_limits<SInt64>::min());
    EXPECT_EQ(qmx::Number::withDouble(1e300)->unsignedLongLongValue(), ~UInt64{0});
    EXPECT_EQ(qmx::Number::withFloat(std::numeric_limits<float>::quiet_NaN())->intValue(), 0);
    EXPECT_TRUE(qmx::Number::withBool(true)->isEqual(qmx::Number::withDouble(1).get()));
    EXPECT_FALSE(qmx::Number::withLongLong(-1)->isEqual(qmx::Number::withUnsignedLongLong(~UInt64{0}).get()));
    EXPECT_EQ(qmx::Number::withFloat(0.1f)->description(), "0.1");
    EXPECT_EQ(qmx::Number::withUnsignedLongLong(~UInt64{0})->description(), "18446744073709551615");
}
