#include "stowline/platform/values/Value.h"

#include <gtest/gtest.h>

namespace stowline::platform {
namespace {

TEST(Value, TextOfNumbersIsDecimal)
{
    EXPECT_EQ(Value(42).text(), "42");
    EXPECT_EQ(Value(-7).text(), "-7");
    EXPECT_EQ(Value(18446744073709551615ULL).text(), "18446744073709551615");
    EXPECT_EQ(Value(1.5).text(), "1.5");
}

TEST(Value, TextOfBooleansIsOneOrZero)
{
    EXPECT_EQ(Value(true).text(), "1");
    EXPECT_EQ(Value(false).text(), "0");
}

TEST(Value, TextOfDataNeverShowsTheBytes)
{
    EXPECT_EQ(Value(Data{'s', 'e', 'c'}).text(), "<3 bytes>");
}

TEST(Value, TextOfContainersListsTheirEntries)
{
    EXPECT_EQ(Value(Array{1, "b"}).text(), "(1, b)");
    EXPECT_EQ(Value(Dictionary{{"k", "v"}}).text(), "{k = v; }");
}

TEST(Value, TextOfDatesIsUniversalTime)
{
    EXPECT_EQ(Value(Date(std::chrono::seconds(0))).text(), "1970-01-01 00:00:00 +0000");
}

TEST(Value, SignedAndUnsignedOfOneNumberAreEqual)
{
    EXPECT_EQ(Value(1), Value(1U));
    EXPECT_FALSE(Value(-1) == Value(18446744073709551615ULL));
    EXPECT_FALSE(Value("1") == Value(1));
}

TEST(Value, CountIsThatOfContainersOnly)
{
    EXPECT_EQ(Value(Array{1, 2}).count(), 2U);
    EXPECT_EQ(Value(Dictionary{}).count(), 0U);
    EXPECT_FALSE(Value("text").count());
}

TEST(Value, ChangingACopyLeavesTheOriginalAlone)
{
    const Value original = Dictionary{{"list", Array{1}}};
    Value copy = original;
    copy.dictionary()->insert_or_assign("more", 2);
    copy.dictionary()->at("list").array()->push_back(3);
    EXPECT_EQ(original, Value(Dictionary{{"list", Array{1}}}));
    EXPECT_EQ(copy, Value(Dictionary{{"list", Array{1, 3}}, {"more", 2}}));
    EXPECT_EQ(copy.string(), nullptr);
    EXPECT_EQ(Value("x").array(), nullptr);
}

TEST(Value, FindTextIsEmptyForAMissingKey)
{
    const Dictionary entries{{"n", 5}};
    EXPECT_EQ(findText(entries, "n"), "5");
    EXPECT_EQ(findText(entries, "m"), "");
}

TEST(KeyPath, StepsThroughDictionaries)
{
    const Value root = Dictionary{{"a", Dictionary{{"b", "x"}}}};
    EXPECT_EQ(valueAtKeyPath(root, "a.b"), Value("x"));
    EXPECT_EQ(valueAtKeyPath(root, ""), root);
    EXPECT_FALSE(valueAtKeyPath(root, "a.c"));
    EXPECT_FALSE(valueAtKeyPath(root, "a.b.c"));
}

TEST(KeyPath, CollectsOverArrays)
{
    const auto system = [](const char* name) { return Dictionary{{"SystemName", name}}; };
    const Value two =
        Dictionary{{"systems", Dictionary{{"SystemInfo", Array{system("a"), system("b")}}}}};
    EXPECT_EQ(valueAtKeyPath(two, "systems.SystemInfo.SystemName"), Value(Array{"a", "b"}));
    const Value one = Dictionary{{"systems", Dictionary{{"SystemInfo", system("a")}}}};
    EXPECT_EQ(valueAtKeyPath(one, "systems.SystemInfo.SystemName"), Value("a"));
}

TEST(KeyPath, LeavesOutElementsWithoutTheKey)
{
    const Value root = Array{Dictionary{{"k", 1}}, Dictionary{}, "text"};
    EXPECT_EQ(valueAtKeyPath(root, "k"), Value(Array{1}));
    EXPECT_EQ(valueAtKeyPath(Array{}, "k"), Value(Array{}));
}

} // namespace
} // namespace stowline::platform
