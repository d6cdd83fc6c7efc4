#include "stowline/soap/TemplateExpansion.h"

#include <gtest/gtest.h>

namespace stowline::soap {
namespace {

TEST(ExpandTemplate, EscapesValuesWhenAsked)
{
    const SubstitutionMap map{{"<<USERNAME>>", "a&b<c>"}};
    EXPECT_EQ(expandTemplate("<<USERNAME>>", map, true), "a&amp;b&lt;c&gt;");
    EXPECT_EQ(expandTemplate("<<USERNAME>>", map, false), "a&b<c>");
}

TEST(ExpandTemplate, NeverEscapesTheTemplate)
{
    EXPECT_EQ(expandTemplate("<x>&<<A>></x>", {{"<<A>>", "<"}}, true), "<x>&&lt;</x>");
}

TEST(ExpandTemplate, ReplacesEveryOccurrence)
{
    EXPECT_EQ(expandTemplate("<<A>>-<<A>>", {{"<<A>>", "x"}}, true), "x-x");
}

TEST(ExpandTemplate, KeepsUnfilledPlaceholders)
{
    EXPECT_EQ(expandTemplate("<<A>><<B>>", {{"<<A>>", "1"}}, true), "1<<B>>");
}

TEST(ExpandTemplate, GivesDelimitersNoMeaning)
{
    EXPECT_EQ(expandTemplate("<<USERNAME>> USERNAME username", {{"USERNAME", "x"}}, true),
              "<<x>> x username");
}

TEST(ExpandTemplate, WritesOtherValuesAsText)
{
    EXPECT_EQ(expandTemplate("<<A>>", {{"<<A>>", 42}}, true), "42");
    EXPECT_EQ(expandTemplate("<<A>><<B>>", {{"<<A>>", true}, {"<<B>>", false}}, true), "10");
}

TEST(ExpandTemplate, WithoutValuesCopiesTheTemplate)
{
    EXPECT_EQ(expandTemplate("<<A>>", {}, true), "<<A>>");
    EXPECT_EQ(expandTemplate("<<A>>", {{"<<Z>>", "1"}}, true), "<<A>>");
    EXPECT_EQ(expandTemplate("", {{"<<A>>", "1"}}, true), "");
}

TEST(ExpandTemplate, AnEmptyKeyChangesNothing)
{
    EXPECT_EQ(expandTemplate("abc", {{"", "x"}}, true), "abc");
}

TEST(ExpandTemplate, EscapedValuesAreNeverTakenForPlaceholders)
{
    // Whichever of the two comes first, the inserted text is left alone.
    EXPECT_EQ(expandTemplate("<<A>><<B>>", {{"<<A>>", "<<B>>"}, {"<<B>>", "<<A>>"}}, true),
              "&lt;&lt;B&gt;&gt;&lt;&lt;A&gt;&gt;");
}

TEST(ExpandTemplate, MatchesExactlyWithoutNormalisation)
{
    EXPECT_EQ(expandTemplate("<<Ä>>", {{"<<A\xcc\x88>>", "x"}}, true), "<<Ä>>");
    EXPECT_EQ(expandTemplate("<<a>>", {{"<<A>>", "x"}}, true), "<<a>>");
}

TEST(ExpandTemplates, KeepsLengthAndOrder)
{
    const SubstitutionMap map{{"<<A>>", "1"}};
    EXPECT_EQ(expandTemplates(std::vector<std::string>{"<<A>>", "b", "<<A>><<A>>"}, map, true),
              (std::vector<std::string>{"1", "b", "11"}));
    EXPECT_EQ(expandTemplates(std::vector<std::string>{}, map, true), std::vector<std::string>{});
    EXPECT_FALSE(expandTemplates(std::nullopt, map, true));
}

} // namespace
} // namespace stowline::soap
