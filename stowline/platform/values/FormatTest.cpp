#include "stowline/platform/values/Format.h"

#include <gtest/gtest.h>

namespace stowline::platform {
namespace {

TEST(Format, FillsObjectsAndTexts)
{
    EXPECT_EQ(formatText("%@/service", "node7"), "node7/service");
    EXPECT_EQ(formatText("%@ %@", Value(Array{1}), std::string("x")), "(1) x");
    EXPECT_EQ(formatText("[%s]", "c"), "[c]");
}

TEST(Format, PrintsAbsentObjectsAsNull)
{
    EXPECT_EQ(formatText("Mac/%@", std::optional<std::string>()), "Mac/(null)");
    EXPECT_EQ(formatText("%@", static_cast<const Value*>(nullptr)), "(null)");
    EXPECT_EQ(formatText("%@", static_cast<const char*>(nullptr)), "(null)");
    EXPECT_EQ(formatText("%@", std::nullopt), "(null)");
}

TEST(Format, KnowsEveryWholeNumberSpecifier)
{
    EXPECT_EQ(formatText("%d %i", -5, 7), "-5 7");
    EXPECT_EQ(formatText("%u", -1), "4294967295");
    EXPECT_EQ(formatText("%d", 4294967295U), "-1");
    EXPECT_EQ(formatText("%ld %qi", -5000000000LL, -5000000000LL), "-5000000000 -5000000000");
    EXPECT_EQ(formatText("%lu %qu %llu", ~0ULL, ~0ULL, ~0ULL),
              "18446744073709551615 18446744073709551615 18446744073709551615");
    EXPECT_EQ(formatText("%x %X %lx", 255, 255, 0xABCDEF0123ULL), "ff FF abcdef0123");
}

TEST(Format, KnowsCharactersFractionsAndPercent)
{
    EXPECT_EQ(formatText("%c%c", 'A', 0x00E9), "Aé");
    EXPECT_EQ(formatText("%f %.2f", 1.5, 2.0 / 3), "1.500000 0.67");
    EXPECT_EQ(formatText("100%%"), "100%");
}

TEST(Format, PadsToAWidth)
{
    EXPECT_EQ(formatText("%08x", 0xAB), "000000ab");
    EXPECT_EQ(formatText("%5d|%-5d|%05d", 42, 42, -42), "   42|42   |-0042");
    EXPECT_EQ(formatText("%4@", "a"), "   a");
}

TEST(Format, CopiesSpecifiersWithoutArgument)
{
    EXPECT_EQ(formatText("%@ and %@", "one"), "one and %@");
    EXPECT_EQ(formatText("%d"), "%d");
}

TEST(Format, CopiesWhatItDoesNotKnow)
{
    EXPECT_EQ(formatText("%n %p %", 1), "%n %p %");
    EXPECT_EQ(formatText("50% off"), "50% off");
    EXPECT_EQ(formatText("%*d %1$@", 5), "%*d %1$@");
}

TEST(Format, BoundsTheWidthOfAHostileFormat)
{
    EXPECT_LE(formatText("%99999999999d", 1).size(), 4096U);
    EXPECT_LE(formatText("%.99999999999f", 1.0).size(), 512U);
}

TEST(Format, ConvertsArgumentsOfAnotherKind)
{
    EXPECT_EQ(formatText("%d", "12 apples"), "12");
    EXPECT_EQ(formatText("%@", 12), "12");
    EXPECT_EQ(formatText("%d", Value(9)), "9");
    EXPECT_EQ(formatText("%d", 1e300), "0");
    EXPECT_EQ(formatText("%f", 3), "3.000000");
}

TEST(Format, IgnoresArgumentsLeftOver)
{
    EXPECT_EQ(formatText("x", 1, 2), "x");
}

TEST(Format, CountsTheArgumentsItAsksFor)
{
    EXPECT_EQ(formatArgumentCount("%@/%d/%%/%n"), 2U);
    EXPECT_EQ(formatArgumentCount(""), 0U);
}

} // namespace
} // namespace stowline::platform
