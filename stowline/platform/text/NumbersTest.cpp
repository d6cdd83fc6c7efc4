#include "stowline/platform/text/Numbers.h"

#include <gtest/gtest.h>

#include <limits>

namespace stowline::platform {
namespace {

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
