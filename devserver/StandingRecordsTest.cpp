// Which deleted records of a chain can come back.
#include "devserver/StandingRecords.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace stowline::devserver {
namespace {

/// Records in the order of their versions, which are 1 and following.
StandingRecords standing(const std::vector<std::string>& names)
{
    StandingRecords records;
    std::int64_t version = 0;
    for (const std::string& name : names)
        records.take({name, ++version, name});
    return records;
}

TEST(StandingRecords, TakeWhatWasTakenOutOfTheirChain)
{
    const StandingRecords records = standing(
        {"00000002-begun", "00000003-begun", "00000002-finished", "00000004-begun", "readme"});
    EXPECT_TRUE(records.canTake({"00000001-begun", 0, ""}));
    EXPECT_TRUE(records.canTake({"00000001-finished", 0, ""}));
    EXPECT_TRUE(records.canTake({"00000003-finished", 3, ""}));
    EXPECT_TRUE(records.canTake({"00000004-finished", 9, ""}));
    EXPECT_TRUE(records.canTake({"00000005-begun", 9, ""}));
    EXPECT_TRUE(records.canTake({"00000002-begun", 1, "00000002-begun"}));
    EXPECT_TRUE(records.canTake({"another", 1, ""}));
    EXPECT_FALSE(records.canTake({"readme", 1, "other"}));
    EXPECT_FALSE(records.canTake({"00000001-forgotten", 9, ""}));
}

TEST(StandingRecords, AreNotMixedWithAChainThatWasBegunAnew)
{
    const StandingRecords records = standing({"00000003-begun", "00000004-begun"});
    EXPECT_FALSE(records.canTake({"00000003-begun", 0, ""}));    // another begun since
    EXPECT_FALSE(records.canTake({"00000007-finished", 0, ""})); // under a lower number
    EXPECT_FALSE(records.canTake({"00000002-begun", 9, ""}));    // begun anew after these
    EXPECT_FALSE(records.canTake({"00000004-begun", 9, ""}));
}

TEST(StandingRecords, OrderOfComingIsUnimportantForWhatBoundsOthers)
{
    // Against all pairs, with the same numbers each time.
    std::mt19937 chance(7); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same each time
    for (int round = 0; round < 200; ++round) {
        std::vector<ChainRecord> all;
        StandingRecords records;
        for (int count = 0; count < 12; ++count) {
            const std::string number = std::to_string(chance() % 9);
            const ChainRecord record{number + (chance() % 2 == 0 ? "-begun" : "-finished"),
                                     static_cast<std::int64_t>(chance() % 50), "one"};
            bool fits = true;
            for (const ChainRecord& other : all) {
                const int difference = other.name[0] - record.name[0];
                if ((other.name.ends_with("-begun") && difference <= 0 &&
                     other.version > record.version) ||
                    (record.name.ends_with("-begun") && difference >= 0 &&
                     other.version < record.version))
                    fits = false;
            }
            ASSERT_EQ(records.canTake(record), fits) << round << " " << record.name;
            records.take(record);
            all.push_back(record);
        }
    }
}

} // namespace
} // namespace stowline::devserver
