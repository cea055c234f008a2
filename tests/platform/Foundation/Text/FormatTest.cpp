// SPDX-License-Identifier: MIT
#include "Foundation/Text/Format.h"

#include "support/DecimalComma.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

namespace
{

class Named : public qmx::Object
{
public:
    std::string description() const override { return "named"; }
};

} // namespace

TEST(Format, PrintsEachValueAtItsOwnWidth)
{
    EXPECT_EQ(qmx::format("%d %u %x %X", -1, -1, std::int8_t{-1}, std::uint64_t{1} << 63),
              "-1 4294967295 ff 8000000000000000");
    EXPECT_EQ(qmx::format("%qu %qi %lX %ld", std::numeric_limits<std::uint64_t>::max(),
                          std::numeric_limits<std::int64_t>::min(), 0x1Fu, 7u),
              "18446744073709551615 -9223372036854775808 1F 7");
    EXPECT_EQ(qmx::format("%.0fHz [%5.2f] %c%c", 44100.0, 1.005f, 'o', 107), "44100Hz [ 1.00] ok");
    EXPECT_EQ(qmx::format("<%-4.4s> <%4s> 100%%", "lpcmx", "ab"), "<lpcm> <  ab> 100%");
}

TEST(Format, PrintsAPointWhateverTheLocale)
{
    const qmx::test::DecimalComma comma;
    EXPECT_EQ(qmx::format("%f %.2f %g %@", 0.5, -1.005, 44100.5, "1,5"), "0.500000 -1.00 44100.5 1,5");
}

TEST(Format, PrintsObjectsAndAbsentOnes)
{
    EXPECT_EQ(
        qmx::format("%@ %@ %@", std::make_shared<Named>(), std::shared_ptr<Named>(), std::optional<std::string>()),
        "named (null) (null)");
    EXPECT_EQ(qmx::format("%@|%@", std::string("a\0b", 3), "text").size(), 8u) << "a zero byte stays in the text";
}

TEST(Format, SurvivesFormatsThatDoNotMatchTheirValues)
{
    EXPECT_EQ(qmx::format("%d %s"), "(?) (?)");
    EXPECT_EQ(qmx::format("%s %d %f %", 1, "text", 2), "(?) (?) (?) (?)");
    EXPECT_LE(qmx::format("%99999999999d", 1).size(), 4096u);
}
