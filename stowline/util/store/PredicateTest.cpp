// Which objects meet a condition.
#include "stowline/util/store/ManagedObjectContextTest.h"

#include <cmath>
#include <limits>

namespace stowline {
namespace {

TEST_F(ObjectStoreTest, ComparesWithEveryRelation)
{
    add("a", 1);
    add("b", 2);
    add("c", 3);
    add("none");
    const auto met = [&](Relation relation) {
        return names(Predicate::comparing("size", relation, 2));
    };
    EXPECT_EQ(met(Relation::equal), Names{"b"});
    EXPECT_EQ(met(Relation::notEqual), (Names{"a", "c", "none"}));
    EXPECT_EQ(met(Relation::less), Names{"a"});
    EXPECT_EQ(met(Relation::lessOrEqual), (Names{"a", "b"}));
    EXPECT_EQ(met(Relation::greater), Names{"c"});
    EXPECT_EQ(met(Relation::greaterOrEqual), (Names{"b", "c"}));
    EXPECT_EQ(names(Predicate::isNull("size")), Names{"none"});
}

TEST_F(ObjectStoreTest, ComparesDatesBooleansNumbersAndData)
{
    auto object = add("x");
    object->setValue("changed", day(2));
    object->setValue("isHidden", false);
    object->setValue("ratio", 2.5);
    object->setValue("digest", Data{1, 2});
    EXPECT_EQ(names(Predicate::comparing("changed", Relation::greater, day(1))), Names{"x"});
    EXPECT_EQ(names(Predicate::comparing("changed", Relation::greater, day(2))), Names{});
    EXPECT_EQ(names(Predicate::comparing("isHidden", Relation::equal, false)), Names{"x"});
    EXPECT_EQ(names(Predicate::comparing("ratio", Relation::less, 3)), Names{"x"});
    EXPECT_EQ(names(Predicate::comparing("digest", Relation::equal, Data{1, 2})), Names{"x"});
}

TEST_F(ObjectStoreTest, JoinsAndNegatesConditions)
{
    add("a", 1);
    add("b", 2);
    add("none");
    const auto a = Predicate::comparing("name", Relation::equal, "a");
    const auto large = Predicate::comparing("size", Relation::greater, 1);
    EXPECT_EQ(names(Predicate::anyOf({a, large})), (Names{"a", "b"}));
    EXPECT_EQ(names(Predicate::allOf({a, large})), Names{});
    EXPECT_EQ(names(Predicate::negationOf(large)), (Names{"a", "none"}));
    EXPECT_EQ(names(Predicate::negationOf(Predicate::anyOf({a, large}))), Names{"none"});
    EXPECT_EQ(names(Predicate::allOf({})), (Names{"a", "b", "none"}));
    EXPECT_EQ(names(Predicate::anyOf({})), Names{});
}

TEST_F(ObjectStoreTest, JoinsThousandsOfConditions)
{
    add("a", 4999);
    std::vector<Predicate> conditions;
    for (int i = 0; i < 5000; ++i)
        conditions.push_back(Predicate::comparing("size", Relation::equal, i));
    EXPECT_EQ(names(Predicate::anyOf(std::move(conditions))), Names{"a"});
}

TEST_F(ObjectStoreTest, FindsOneOfSeveralValues)
{
    add("a", 1);
    add("b", 2);
    add("none");
    EXPECT_EQ(names(Predicate::in("size", {1, 2, 7})), (Names{"a", "b"}));
    EXPECT_EQ(names(Predicate::in("size", {})), Names{});
    EXPECT_EQ(names(Predicate::negationOf(Predicate::in("size", {1}))), (Names{"b", "none"}));
    Array many;
    for (int i = 0; i < 30000; ++i)
        many.emplace_back(i);
    EXPECT_EQ(names(Predicate::in("size", many)), (Names{"a", "b"}));
}

TEST_F(ObjectStoreTest, FindsTextByItsBeginning)
{
    for (const char* name : {"ab", "abc", "abd", "ac", "Ab", "", "b", "\xf4\x8f\xbf\xbfx"})
        add(name);
    EXPECT_EQ(names(Predicate::beginsWith("name", "ab")), (Names{"ab", "abc", "abd"}));
    EXPECT_EQ(names(Predicate::beginsWith("name", "")).size(), 8U);
    EXPECT_EQ(names(Predicate::beginsWith("name", "\xf4\x8f\xbf\xbf")).size(), 1U);
    EXPECT_EQ(names(Predicate::beginsWith("name", "%")), Names{});
}

TEST_F(ObjectStoreTest, FindsTextWithinText)
{
    for (const char* name : {"a letter", "better", "LETTER", "x"})
        add(name);
    EXPECT_EQ(names(Predicate::contains("name", "ett")), (Names{"a letter", "better"}));
    EXPECT_EQ(names(Predicate::contains("name", "%")), Names{});
}

TEST_F(ObjectStoreTest, FindsTextByItsForm)
{
    for (const char* name : {"a.txt", "ab.txt", "a.TXT", "[a].txt", "a*b", "ü.txt", "a\\b"})
        add(name);
    EXPECT_EQ(names(Predicate::like("name", "?.txt")), (Names{"a.txt", "ü.txt"}));
    EXPECT_EQ(names(Predicate::like("name", "a*")),
              (Names{"a*b", "a.TXT", "a.txt", "a\\b", "ab.txt"}));
    EXPECT_EQ(names(Predicate::like("name", "[a]*")), Names{"[a].txt"});
    EXPECT_EQ(names(Predicate::like("name", "a\\*b")), Names{"a*b"});
    EXPECT_EQ(names(Predicate::like("name", "a\\\\b")), Names{"a\\b"});
    EXPECT_EQ(names(Predicate::like("name", "")), Names{});
    EXPECT_EQ(names(Predicate::like("name", "*")).size(), 7U);
    EXPECT_EQ(names(Predicate::like("name", "*.t*t")),
              (Names{"[a].txt", "a.txt", "ab.txt", "ü.txt"}));
    EXPECT_EQ(names(Predicate::like("name", "a??b")), Names{});
    EXPECT_EQ(names(Predicate::like("name", "a.txt\\")), Names{});
}

TEST_F(ObjectStoreTest, TheFormOfATextGoesOnAfterANul)
{
    using namespace std::string_literals;
    for (const std::string& name : {"a"s, "a\0b"s, "a\0c"s})
        add(name);
    EXPECT_EQ(names(Predicate::like("name", "a")), Names{"a"});
    EXPECT_EQ(names(Predicate::like("name", "a?b")), Names{"a\0b"s});
    EXPECT_EQ(names(Predicate::like("name", "a\0b"s)), Names{"a\0b"s});
    EXPECT_EQ(names(Predicate::like("name", "a*")).size(), 3U);
    EXPECT_EQ(names(Predicate::contains("name", "\0c"s)), Names{"a\0c"s});
}

TEST_F(ObjectStoreTest, ValuesAreNeverTakenForSql)
{
    const std::string evil = "x'; DROP TABLE File; --";
    add(evil);
    add("\" OR 1=1 --");
    EXPECT_EQ(names(Predicate::comparing("name", Relation::equal, evil)), Names{evil});
    EXPECT_EQ(names(Predicate::contains("name", "' OR '1'='1")), Names{});
    EXPECT_EQ(names(Predicate::in("name", {"x') OR (1=1"})), Names{});
    EXPECT_EQ(fetch({}).size(), 2U);
}

} // namespace
} // namespace stowline
