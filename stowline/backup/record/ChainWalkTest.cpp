// Whether an older record is what was stored: the digests that this machine and later records know.
#include "stowline/backup/record/ChainWalk.h"

#include "stowline/backup/record/RecordFault.h"

#include <gtest/gtest.h>

#include <vector>

namespace stowline::backup {
namespace {

/// Runs 1 to 9, each naming the one before.
class ChainWalk : public testing::Test {
protected:
    ChainWalk()
    {
        for (std::uint64_t run = 1; run <= 9; ++run)
            links_[run] = {digestOf(run), {run - 1, run > 1 ? digestOf(run - 1) : ""}};
    }

    static std::string digestOf(std::uint64_t run) { return "digest " + std::to_string(run); }

    [[nodiscard]] ChainFinding walk(std::uint64_t run)
    {
        read_.clear();
        return walkBackTo(run, {.known = known_,
                                .newest = links_.rbegin()->first,
                                .isThere = [this](std::uint64_t at) { return links_.contains(at); },
                                .read =
                                    [this](std::uint64_t at) {
                                        read_.push_back(at);
                                        if (damaged_ == at)
                                            throw RecordFault(RecordFault::Kind::damaged, "torn");
                                        return links_.at(at);
                                    }});
    }

    void expectUnproven(std::uint64_t run, const std::string& why)
    {
        const ChainFinding found = walk(run);
        EXPECT_EQ(found.trust, RecordTrust::unproven);
        EXPECT_NE(found.why.find(why), std::string::npos) << found.why;
    }

    void expectRefused(std::uint64_t run, const std::string& why)
    {
        try {
            const ChainFinding found = walk(run);
            ADD_FAILURE() << nameOf(found.trust);
        } catch (const RecordFault& fault) {
            EXPECT_EQ(fault.kind(), RecordFault::Kind::rolledBack);
            EXPECT_NE(std::string(fault.what()).find(why), std::string::npos) << fault.what();
        }
    }

    std::map<std::uint64_t, ChainLink> links_;
    std::map<std::uint64_t, std::string> known_;
    std::uint64_t damaged_ = 0;
    std::vector<std::uint64_t> read_;
};

TEST_F(ChainWalk, BelievesWhatThisMachineHasSeenWithoutReadingMore)
{
    known_ = {{3, digestOf(3)}, {9, digestOf(9)}};
    EXPECT_EQ(walk(3).trust, RecordTrust::seen);
    EXPECT_EQ(read_, std::vector<std::uint64_t>{3});
}

TEST_F(ChainWalk, RefusesAnotherRecordThanThisMachineHasSeen)
{
    known_ = {{3, "other"}};
    expectRefused(3, "run 3 on the service differs from the one that this machine has seen");
}

TEST_F(ChainWalk, GoesBackFromTheNearestLaterOneThatWasSeen)
{
    known_ = {{2, digestOf(2)}, {6, digestOf(6)}, {9, digestOf(9)}};
    EXPECT_EQ(walk(4).trust, RecordTrust::linked);
    EXPECT_EQ(read_, (std::vector<std::uint64_t>{6, 5, 4}));
}

TEST_F(ChainWalk, PassesOverWhatWasSeenAndIsForgotten)
{
    known_ = {{5, digestOf(5)}, {6, digestOf(6)}};
    links_.erase(5);
    links_[6].predecessor = {4, digestOf(4)}; // begun before 5 came to its end
    EXPECT_EQ(walk(4).trust, RecordTrust::linked);
}

TEST_F(ChainWalk, GoesBackFromTheNewestWhereNoneWasSeen)
{
    EXPECT_EQ(walk(7).trust, RecordTrust::linked);
    EXPECT_EQ(read_, (std::vector<std::uint64_t>{9, 8, 7}));
    EXPECT_EQ(walk(9).trust, RecordTrust::newest);
}

TEST_F(ChainWalk, RefusesAnotherRecordThanTheNextOneNames)
{
    links_[4].digest = "forged";
    expectRefused(4, "run 4 on the service differs from the one that run 5 names");
    known_ = {{9, digestOf(9)}};
    expectRefused(4, "run 4 on the service differs from the one that run 5 names");
}

TEST_F(ChainWalk, ProvesNothingThroughARecordThatIsGoneDamagedOrAnother)
{
    links_[5].digest = "forged";
    expectUnproven(3, "run 5, which lies between it and the later ones, differs from the one "
                      "that run 6 names");
    damaged_ = 6;
    expectUnproven(3, "run 6, which lies between it and the later ones, cannot be read");
    links_.erase(7);
    expectUnproven(3, "run 7, which lies between it and the later ones, is not there any more");
    links_[8].predecessor.digest.clear();
    expectUnproven(3, "run 8 could not read the record of run 7 before it");
}

TEST_F(ChainWalk, ProvesNoRunThatNobodyBuildsOn)
{
    links_[5].predecessor = {3, digestOf(3)}; // 4 ended while 5 went on
    expectUnproven(4, "no later run builds on it");
    EXPECT_EQ(walk(3).trust, RecordTrust::linked);
    links_.erase(6); // unfinished
    expectUnproven(6, "was not finished");
}

TEST_F(ChainWalk, EndsWithAChainThatGoesRound)
{
    links_[5].predecessor = {8, digestOf(8)};
    expectUnproven(3, "no later run builds on it");
}

TEST_F(ChainWalk, LeavesAServiceThatDoesNotAnswerToItsFault)
{
    const ChainView view{.known = known_,
                         .newest = 9,
                         .isThere = [](std::uint64_t) { return true; },
                         .read = [](std::uint64_t) -> ChainLink {
                             throw RecordFault(RecordFault::Kind::temporary, "silence");
                         }};
    EXPECT_THROW((void)walkBackTo(3, view), RecordFault);
}

} // namespace
} // namespace stowline::backup
