#include "cli/shared/HumanText.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

namespace stowline::cli {
namespace {

TEST(LocalTimeText, TellsTheLocalTimeAndItsZone)
{
    ::setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    ::tzset();
    EXPECT_EQ(localTimeText("2026-01-31 23:59:59"), "2026-02-01 00:59:59 CET");
    EXPECT_EQ(localTimeText("2026-07-01 12:00:00"), "2026-07-01 14:00:00 CEST");
    EXPECT_EQ(localTimeText("2026-02-31 00:00:00"), "2026-02-31 00:00:00"); // is no day
    EXPECT_EQ(localTimeText("yesterday"), "yesterday");
    EXPECT_EQ(localTimeText(Date(std::chrono::milliseconds(1769903999999))),
              "2026-02-01 00:59:59 CET");
    EXPECT_EQ(localTimeText(Date(std::chrono::milliseconds(-1))), "1970-01-01 00:59:59 CET");
    EXPECT_EQ(localTimeText(""), "");
}

TEST(SizeText, HasUnits)
{
    EXPECT_EQ(sizeText("1536"), "1.5 kB");
    EXPECT_EQ(sizeText("7"), "7 B");
    EXPECT_EQ(sizeText(""), "");
    EXPECT_EQ(sizeText("-1"), "-1");
}

TEST(CountText, CountsInWords)
{
    EXPECT_EQ(countText(0, "file", "files"), "0 files");
    EXPECT_EQ(countText(1, "file", "files"), "1 file");
    EXPECT_EQ(countText(999, "file", "files"), "999 files");
    EXPECT_EQ(countText(1200, "file", "files"), "1,200 files");
    EXPECT_EQ(countText(1234567, "file", "files"), "1,234,567 files");
}

} // namespace
} // namespace stowline::cli
