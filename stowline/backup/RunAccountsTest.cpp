#include "stowline/backup/RunAccounts.h"

#include <gtest/gtest.h>

#include <new>
#include <stdexcept>

namespace stowline::backup {
namespace {

class RunAccountsTest : public testing::Test {
protected:
    void end(ItemState state, bool changedWhileRead = false)
    {
        accounts_.done(
            {.path = "/a/b", .state = state, .cause = {}, .changedWhileRead = changedWhileRead});
    }

    BackupObserver observer_;
    RunAccounts accounts_{observer_};
};

TEST_F(RunAccountsTest, AreDoneWhenEveryItemEndedOnce)
{
    for (const ItemState state : {ItemState::stored, ItemState::unchanged, ItemState::recorded,
                                  ItemState::excluded, ItemState::wouldStore}) {
        accounts_.found();
        end(state);
    }
    const auto summary = accounts_.summary();
    EXPECT_EQ(summary.end, BackupEnd::done) << summary.sentence;
    EXPECT_EQ(summary.sentence, "");
    EXPECT_EQ(summary.found, 5U);
}

TEST(RunAccounts, LoseWhatAnObserverThrows)
{
    struct : BackupObserver {
        void itemDone(const ItemReport&) override { throw std::runtime_error("itemDone"); }
        void progress(const BackupProgress&) override { throw 1; } // NOLINT: anything may be thrown
        void note(const std::string&) override { throw std::bad_alloc(); }
    } throwing;
    RunAccounts accounts(throwing);
    accounts.foundAndDone({.path = "/a", .state = ItemState::stored, .cause = {}});
    accounts.note("a sentence");
    accounts.showProgress(0);
    EXPECT_EQ(accounts.summary().end, BackupEnd::done);
    accounts.problem("a problem");
    EXPECT_EQ(accounts.summary().sentence, "a problem");
}

TEST_F(RunAccountsTest, TellOfAnItemThatNeverEnded)
{
    accounts_.found();
    accounts_.found();
    end(ItemState::stored);
    const auto summary = accounts_.summary();
    EXPECT_EQ(summary.end, BackupEnd::failed);
    EXPECT_EQ(summary.sentence, "2 items were found, but 1 are accounted for.");
}

TEST_F(RunAccountsTest, TellOfAnItemThatEndedTwice)
{
    accounts_.found();
    end(ItemState::stored);
    end(ItemState::failed);
    const auto summary = accounts_.summary();
    EXPECT_EQ(summary.end, BackupEnd::failed);
    EXPECT_EQ(summary.sentence, "1 items were found, but 2 are accounted for.");
}

TEST_F(RunAccountsTest, TellOfAFailureAndOfAProblemThatIsNoItems)
{
    accounts_.found();
    end(ItemState::failed);
    EXPECT_EQ(accounts_.summary().end, BackupEnd::someFailed);
    EXPECT_EQ(accounts_.summary().failures.size(), 1U);

    RunAccounts others(observer_);
    others.problem("The service did not say.");
    EXPECT_EQ(others.summary().end, BackupEnd::someFailed);
    EXPECT_EQ(others.summary().sentence, "The service did not say.");
}

TEST_F(RunAccountsTest, TakeAChangeForAFailureUnlessItIsAllowed)
{
    AllowedChanges changes;
    ASSERT_TRUE(changes.add("log"));
    accounts_.allow(changes);
    accounts_.found();
    accounts_.done(
        {.path = "/var/log", .state = ItemState::stored, .cause = {}, .changedWhileRead = true});
    EXPECT_EQ(accounts_.summary().end, BackupEnd::done);
    accounts_.found();
    end(ItemState::stored, true);
    EXPECT_EQ(accounts_.summary().end, BackupEnd::someFailed);
    EXPECT_EQ(accounts_.summary().changedWhileRead, 2U);
}

} // namespace
} // namespace stowline::backup
