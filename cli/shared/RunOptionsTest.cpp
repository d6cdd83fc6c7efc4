#include "cli/shared/RunOptions.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

namespace stowline::cli {
namespace {

/// The second of a moment that people wrote, in a zone with summer time; -1 for what is not one.
std::int64_t secondIn(const std::string& text)
{
    ::setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    ::tzset();
    const auto parsed = parseRunOrMoment(text);
    const auto* moment = parsed ? std::get_if<backup::Timestamp>(&*parsed) : nullptr;
    return moment ? moment->seconds : -1;
}

TEST(RunOrMoment, IsANumberOrATime)
{
    EXPECT_EQ(std::get<std::uint64_t>(parseRunOrMoment("12").value()), 12U);
    EXPECT_FALSE(parseRunOrMoment("0"));
    constexpr std::int64_t second = 1769880615; // 2026-01-31 18:30:15 CET
    EXPECT_EQ(secondIn("2026-01-31 18:30:15"), second);
    EXPECT_EQ(secondIn("2026-01-31T18:30:15"), second);
    EXPECT_EQ(secondIn("2026-01-31T17:30:15Z"), second);
    EXPECT_EQ(secondIn("2026-01-31 18:30"), second + 44) << "to the end of the minute";
    EXPECT_EQ(secondIn("2026-01-31"), second + 5 * 3600 + 29 * 60 + 44) << "to the end of the day";
    for (const char* wrong : {"", "last", "2026-02-30", "2026-01-31 25:00", "2026-01-31 18:30:15Z"})
        EXPECT_EQ(secondIn(wrong), -1) << wrong;
}

TEST(RunOrMoment, IsATimeAsItIsShown)
{
    EXPECT_EQ(secondIn("2026-01-31 18:30:15 CET"), 1769880615);
    EXPECT_EQ(secondIn("2026-01-31 17:30:15 UTC"), 1769880615);
    EXPECT_EQ(secondIn("2026-10-25 02:30:00 CET") - secondIn("2026-10-25 02:30:00 CEST"), 3600)
        << "the hour that there is twice";
    for (const char* wrong : {"2026-01-31 18:30:15 CEST", "2026-01-31 18:30:15 PST",
                              "2026-01-31 18:30:15 ", "2026-01-31 18:30 CET"})
        EXPECT_EQ(secondIn(wrong), -1) << wrong;
}

} // namespace
} // namespace stowline::cli
