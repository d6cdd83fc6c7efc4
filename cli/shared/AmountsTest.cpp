#include "cli/shared/Amounts.h"

#include <gtest/gtest.h>

namespace stowline::cli {
namespace {

using std::chrono::seconds;

TEST(ParseSelfTestAmount, TakesAShareAndABound)
{
    const auto amount = parseSelfTestAmount("1%,200M");
    ASSERT_TRUE(amount);
    EXPECT_DOUBLE_EQ(amount->share, 0.01);
    EXPECT_EQ(amount->mostBytes, 200ULL << 20);
    EXPECT_DOUBLE_EQ(parseSelfTestAmount("3.4%,1g")->share, 0.034);
    EXPECT_EQ(parseSelfTestAmount("100%,1.5k")->mostBytes, 1536U);
    EXPECT_EQ(parseSelfTestAmount("5%")->mostBytes, static_cast<std::uint64_t>(INT64_MAX));
}

TEST(ParseSelfTestAmount, TakesNothingElse)
{
    for (const char* text : {"", "1", "%", "0%,1M", "101%,1M", "-1%,1M", "nan%,1M", "1%,", "1%,0",
                             "1%,M", "1%,-5", "1%,1x", "1%,1M,2", "200M,1%", "1%, 1M"}) {
        EXPECT_FALSE(parseSelfTestAmount(text)) << text;
        EXPECT_NE(faultInSelfTestAmount(text), "") << text;
    }
    EXPECT_EQ(faultInSelfTestAmount("1%,200M"), "");
}

TEST(ParseSpan, TakesHoursDaysAndWeeks)
{
    EXPECT_EQ(parseSpan("36h"), seconds(36 * 3600));
    EXPECT_EQ(parseSpan("3d"), seconds(3 * 86400));
    EXPECT_EQ(parseSpan("2W"), seconds(14 * 86400));
    EXPECT_EQ(parseSpan("3"), seconds(3 * 86400)) << "a number alone is days";
    EXPECT_EQ(parseSpan("36500d"), seconds(36500LL * 86400));
}

TEST(ParseSpan, TakesNothingElse)
{
    for (const char* text : {"", "0", "0h", "h", "-3d", "1.5d", "3m", "3days", "36501d", "3 d"}) {
        EXPECT_FALSE(parseSpan(text)) << text;
        EXPECT_NE(faultInSpan(text), "") << text;
    }
    EXPECT_EQ(faultInSpan("3d"), "");
}

TEST(SpanText, CountsInDaysOrHours)
{
    EXPECT_EQ(spanText(seconds(86400)), "1 day");
    EXPECT_EQ(spanText(seconds(36 * 3600)), "36 hours");
    EXPECT_EQ(spanText(seconds(5 * 86400 + 4000)), "5 days");
}

} // namespace
} // namespace stowline::cli
