#include "stowline/platform/text/Numbers.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

namespace stowline::platform {
namespace {

TEST(WholeNumber, IsWhatTheWholeTextIs)
{
    EXPECT_EQ(wholeNumber<std::uint64_t>("0"), 0U);
    EXPECT_EQ(wholeNumber<std::uint64_t>("18446744073709551615"), 18446744073709551615U);
    EXPECT_EQ(wholeNumber<std::int64_t>("-9223372036854775808"),
              std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(wholeNumber<std::uint32_t>("fFfFfFfF", 16), 0xFFFFFFFFU);
    EXPECT_EQ(wholeNumber<std::uint32_t>(std::string_view("123").substr(0, 2)), 12U);
}

TEST(WholeNumber, IsAbsentForAnyOtherText)
{
    for (const char* text : {"", " 2", "2 ", "+2", "-2", "2.0", "0x2", "2a", "4294967296"})
        EXPECT_FALSE(wholeNumber<std::uint32_t>(text)) << text;
    for (const char* text : {"", "-", "--2", "- 2", "9223372036854775808"})
        EXPECT_FALSE(wholeNumber<std::int64_t>(text)) << text;
    for (const char* text : {"0x1", "1g", "100000000"})
        EXPECT_FALSE(wholeNumber<std::uint32_t>(text, 16)) << text;
}

TEST(RealNumber, IsWhatTheWholeTextIs)
{
    EXPECT_EQ(realNumber("2"), 2.0);
    EXPECT_EQ(realNumber("-0.5"), -0.5);
    EXPECT_EQ(realNumber("1e3"), 1000.0);
    EXPECT_EQ(realNumber("inf"), std::numeric_limits<double>::infinity());
}

TEST(RealNumber, IsAbsentForAnyOtherText)
{
    for (const char* text : {"", " 2", "2 ", "+2", "2%", "0x", "1,5", "1e999", "two"})
        EXPECT_FALSE(realNumber(text)) << text;
}

} // namespace
} // namespace stowline::platform
