#include "stowline/logging/DDLog.h"

#include <gtest/gtest.h>

namespace stowline {
namespace {

struct Levelled {
    static inline std::int32_t level = 3;
    static std::int32_t ddLogLevel() { return level; }
    static void ddSetLogLevel(std::int32_t newLevel) { level = newLevel; }
};
struct Unlevelled {};

const DDLog::ClassRegistration<Levelled> levelled{"Levelled"};

TEST(ClassLevels, AreFoundByTypeAndByName)
{
    EXPECT_TRUE(DDLog::isRegisteredClass<Levelled>());
    EXPECT_EQ(DDLog::registeredClassNames(), std::vector<std::string>{"Levelled"});
    EXPECT_EQ(DDLog::registeredClasses(), std::vector<std::type_index>{typeid(Levelled)});
    EXPECT_EQ(DDLog::logLevelForClass<Levelled>(), 3);
    DDLog::setLogLevelForClass<Levelled>(7);
    EXPECT_EQ(DDLog::logLevelForClassWithName("Levelled"), 7);
    DDLog::setLogLevelForClassWithName(1, "Levelled");
    EXPECT_EQ(Levelled::level, 1);
}

TEST(ClassLevels, OfOtherClassesAreMinusOneAndCannotBeSet)
{
    EXPECT_FALSE(DDLog::isRegisteredClass<Unlevelled>());
    EXPECT_EQ(DDLog::logLevelForClass<Unlevelled>(), -1);
    EXPECT_EQ(DDLog::logLevelForClassWithName("Unlevelled"), -1);
    DDLog::setLogLevelForClass<Unlevelled>(5);
    DDLog::setLogLevelForClassWithName(5, "Unlevelled");
    EXPECT_EQ(DDLog::logLevelForClass<Unlevelled>(), -1);
}

TEST(ClassLevels, RegisteringAgainChangesNothing)
{
    DDLog::registerClass<Levelled>("Other");
    EXPECT_EQ(DDLog::registeredClassNames(), std::vector<std::string>{"Levelled"});
}

} // namespace
} // namespace stowline
