#include "stowline/backup/forget/AccountRecords.h"

#include "stowline/backup/record/MemoryPlaceTest.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

namespace {

using namespace stowline;
using namespace stowline::backup;

const std::string kOwn = "1A.ann.default";
const std::string kOther = "2B.bob.default";
const std::string kThird = "2B.bob.photos";
constexpr std::int64_t kDay = 86400;
constexpr std::int64_t kNow = 1'800'000'000;

/// Which run keeps others from deleting, among chains that are made record by record.
class RunThatHolds : public testing::Test {
protected:
    using Chains = std::vector<AccountRecords::Chain>;

    /// @param name as "00000001-begun"; its bytes are never read
    /// @param stored days before now; absent: the service does not tell
    void put(const std::string& system, const std::string& chain, const std::string& name,
             std::optional<std::int64_t> stored = 0)
    {
        places[system].stored[chain][name] = "";
        if (stored)
            places[system].moments[{chain, name}] = kNow - *stored * kDay;
    }

    /// "" or "iMac 1A.ann.default 3"
    [[nodiscard]] std::string holding()
    {
        Chains chains;
        for (auto& [system, place] : places) {
            for (const std::string& chain : place.chains())
                chains.push_back({system, RecordChain::openNamed(place, chain, folder.path())});
        }
        const RecordChain* own = nullptr;
        for (const auto& [system, chain] : chains) {
            if (system == "iMac" && chain.name() == kOwn)
                own = &chain;
        }
        const auto run = runThatHolds(
            chains, *own, {.over = over, .isGivenUp = [this](const OpenRun& open) {
                               return givenUp.contains(open.chain + "/" + std::to_string(open.run));
                           }});
        return run ? run->systemName + " " + run->chain + " " + std::to_string(run->run) : "";
    }

    test::TemporaryFolder folder;
    std::map<std::string, MemoryPlace> places;
    std::set<std::uint64_t> over;
    std::set<std::string> givenUp;
};

TEST_F(RunThatHolds, IsNoneWhereAllHaveEnded)
{
    put("iMac", kOwn, "00000001-begun");
    put("iMac", kOwn, "00000001-finished");
    put("laptop", kOther, "00000001-begun");
    put("laptop", kOther, "00000001-unfinished-01");
    put("laptop", kOther, "00000001-finished");
    EXPECT_EQ(holding(), "");
}

TEST_F(RunThatHolds, IsOneOfTheOwnChainThatIsOverUntilALaterOneHasEnded)
{
    over = {2};
    put("iMac", kOwn, "00000001-finished");
    put("iMac", kOwn, "00000002-begun", 1);
    put("iMac", kThird, "00000001-finished");
    EXPECT_EQ(holding(), "iMac 1A.ann.default 2");
    put("iMac", kOwn, "00000003-finished");
    EXPECT_EQ(holding(), "");
    put("iMac", kOwn, "00000004-begun");
    EXPECT_EQ(holding(), "iMac 1A.ann.default 4");
}

TEST_F(RunThatHolds, IsOneOfTheOwnChainThatMayGoOnElsewhereForAWeek)
{
    put("iMac", kOwn, "00000001-finished", 30);
    put("iMac", kOwn, "00000002-begun", 30);
    put("iMac", kOwn, "00000003-finished", 29);
    EXPECT_EQ(holding(), "iMac 1A.ann.default 2") << "its record may be on its way";
    put("iMac", kOwn, "00000004-finished", 23);
    EXPECT_EQ(holding(), "iMac 1A.ann.default 2") << "seven days";
    put("iMac", kOwn, "00000005-finished", 22);
    EXPECT_EQ(holding(), "") << "eight days";
    put("iMac", kOwn, "00000002-unfinished-01", 24);
    EXPECT_EQ(holding(), "iMac 1A.ann.default 2") << "it gave a sign later";
    over = {2};
    EXPECT_EQ(holding(), "");
    over = {3};
    put("laptop", kOwn, "00000002-finished", 22);
    put("laptop", kOwn, "00000001-begun", 23);
    EXPECT_EQ(holding(), "iMac 1A.ann.default 2");
}

TEST_F(RunThatHolds, IsOneOfAnotherChainUntilALaterOneHasEndedAndAWeekHasGoneBy)
{
    put("iMac", kOwn, "00000001-finished", 24);
    put("laptop", kOther, "00000001-begun", 30);
    put("laptop", kOther, "00000002-finished", 30);
    EXPECT_EQ(holding(), "laptop 2B.bob.default 1") << "six days by the account's last record";
    put("iMac", kOwn, "00000002-finished", 22);
    EXPECT_EQ(holding(), "") << "eight days, and its profile is used no more";
    put("laptop", kOther, "00000001-unfinished-01", 28);
    EXPECT_EQ(holding(), "laptop 2B.bob.default 1") << "it gave a sign later";
}

TEST_F(RunThatHolds, IsOneWithoutALaterEndUntilItIsGivenUp)
{
    put("iMac", kOwn, "00000001-finished");
    put("laptop", kOther, "00000001-begun", 300);
    put("laptop", kThird, "00000001-finished", 0);
    EXPECT_EQ(holding(), "laptop 2B.bob.default 1") << "however long ago";
    givenUp = {kOther + "/2", kThird + "/1"};
    EXPECT_EQ(holding(), "laptop 2B.bob.default 1");
    givenUp = {kOther + "/1"};
    EXPECT_EQ(holding(), "");
    put("laptop", kOther, "00000001-unfinished-01", 6);
    EXPECT_EQ(holding(), "laptop 2B.bob.default 1") << "it gave a sign this week";
    givenUp = {kOwn + "/2"};
    put("laptop", kOther, "00000001-finished");
    put("iMac", kOwn, "00000002-begun", 300);
    EXPECT_EQ(holding(), "iMac 1A.ann.default 2") << "that only has to be run again";
}

TEST_F(RunThatHolds, IsLetGoByTheMachineThatHasTakenItsPlace)
{
    put("iMac", kOwn, "00000001-finished");
    put("iMac", "OLD.ann.default", "00000007-begun", 30);
    EXPECT_EQ(holding(), "") << "this machine goes by its name, with its user and profile";
    put("laptop", "OLD.bob.default", "00000007-begun", 30);
    EXPECT_EQ(holding(), "laptop OLD.bob.default 7");
    put("laptop", kThird, "00000001-finished", 0);
    EXPECT_EQ(holding(), "laptop OLD.bob.default 7") << "another profile";
    put("laptop", kOther, "00000001-finished", 31);
    EXPECT_EQ(holding(), "laptop OLD.bob.default 7") << "that ended before";
    put("laptop", kOther, "00000002-finished", 29);
    EXPECT_EQ(holding(), "");
}

TEST_F(RunThatHolds, IsNotLetGoByAnotherMachinesRunsOrByAForgottenOne)
{
    put("iMac", kOwn, "00000001-finished");
    put("laptop", kOther, "00000001-begun", 30);
    put("iMac", kOwn, "00000002-finished", 0);
    EXPECT_EQ(holding(), "laptop 2B.bob.default 1");
    put("laptop", kOther, "00000002-finished", 0);
    put("laptop", kOther, "00000002-forgotten", 0);
    EXPECT_EQ(holding(), "laptop 2B.bob.default 1");
}

TEST_F(RunThatHolds, IsNotLetGoWhereTheServiceDoesNotTellWhen)
{
    put("iMac", kOwn, "00000001-finished");
    put("iMac", kOther, "00000001-begun", std::nullopt);
    put("iMac", kOther, "00000002-finished", 0);
    EXPECT_EQ(holding(), "iMac 2B.bob.default 1");
    put("iMac", kOther, "00000001-begun", 30);
    EXPECT_EQ(holding(), "");
    put("iMac", kOther, "00000003-begun", 30);
    put("iMac", kOther, "00000003-forgotten", 0);
    EXPECT_EQ(holding(), "") << "a forgotten run holds nothing";
}

} // namespace
