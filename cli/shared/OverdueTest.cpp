#include "cli/shared/Overdue.h"

#include <gtest/gtest.h>

namespace stowline::cli {
namespace {

using std::chrono::days;
using std::chrono::seconds;

const Date kNow{seconds(1'700'000'000)};

TEST(Overdue, IsWhatIsLongerAgoThanItShouldBe)
{
    LastSuccesses last{.goodRun = kNow - days(3), .selfTest = std::nullopt, .proof = std::nullopt};
    EXPECT_TRUE(overdue(last, days(3), kNow).empty());
    const auto late = overdue(last, days(3), kNow + seconds(1));
    ASSERT_EQ(late.size(), 1U);
    EXPECT_NE(late[0].find("; there should be one within 3 days"), std::string::npos) << late[0];
    last.goodRun.reset();
    EXPECT_EQ(overdue(last, days(3), kNow).size(), 1U) << "none was ever good";
    last.isOfPaths = true;
    EXPECT_TRUE(overdue(last, days(3), kNow).at(0).starts_with("no run of these paths without "));
}

TEST(Overdue, IsWhatAWrongClockDatedInTheFuture)
{
    LastSuccesses last{
        .goodRun = kNow + days(1), .selfTest = kNow - days(9), .proof = kNow + days(1)};
    EXPECT_TRUE(overdue(last, days(3), kNow).empty()) << "clocks differ";
    last.goodRun = kNow + days(1) + seconds(1);
    const auto late = overdue(last, days(3), kNow);
    ASSERT_EQ(late.size(), 1U);
    EXPECT_NE(late[0].find("(the clock was wrong then, or is now)"), std::string::npos) << late[0];
    last.proof = last.goodRun;
    EXPECT_EQ(overdue(last, days(3), kNow).size(), 2U);
}

TEST(Overdue, IsAProofOnlyWhereSelfTestsAreAskedFor)
{
    LastSuccesses last{.goodRun = kNow, .selfTest = std::nullopt, .proof = std::nullopt};
    EXPECT_TRUE(overdue(last, days(3), kNow).empty());
    last.selfTest = kNow - days(3);
    EXPECT_TRUE(overdue(last, days(3), kNow).empty()) << "the first one is not that old";
    EXPECT_EQ(overdue(last, days(3) - seconds(1), kNow).size(), 1U);
    last.proof = kNow - days(2);
    EXPECT_TRUE(overdue(last, days(3), kNow).empty());
    EXPECT_EQ(overdue(last, days(1), kNow).size(), 1U);
    last.goodRun = kNow - days(2);
    EXPECT_EQ(overdue(last, days(1), kNow).size(), 2U);
}

} // namespace
} // namespace stowline::cli
