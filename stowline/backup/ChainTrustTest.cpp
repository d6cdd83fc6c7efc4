// An older run is read only as it was stored, as far as this machine and later records know it.
#include "stowline/backup/RunState.h"
#include "stowline/backup/StoredTreeTest.h"
#include "stowline/backup/VerifyRun.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace stowline::backup {
namespace {

namespace fs = std::filesystem;

/// Three runs, of which the second and the third add a file.
class ChainTrust : public testing::Test {
protected:
    ChainTrust()
    {
        for (const char* name : {"a", "b", "c"}) {
            stored_.machine.write(std::string("tree/") + name, name);
            stored_.run();
        }
    }

    void forgeFirst()
    {
        stored_.putRecord("00000001-finished", stored_.forgedFirst(ItemIndex::temporary()));
    }

    void damageSecond() { stored_.putRecord("00000002-finished", "no record"); }

    /// From now on this machine knows the records that it read from the service.
    void see(std::uint64_t run)
    {
        const auto end = stored_.restore([run](RestoreRequest& request) {
            request.choice.run = run;
            request.isDryRun = true;
        });
        stored_.choice.stateFolder = stored_.work.path() / "state";
        RunState::take(*stored_.choice.stateFolder, "default")
            .openIndex(uploadOwner(stored_.choice.account, *stored_.choice.identity), false, false)
            .noteKnownRecord({run, end.origin.digest});
    }

    RestoreSummary restore(std::uint64_t run, bool deletesOthers = false)
    {
        return stored_.restore([&](RestoreRequest& request) {
            request.choice.run = run;
            request.deletesOthers = deletesOthers;
        });
    }

    void expectRefused(const RestoreSummary& summary, const std::string& why) const
    {
        EXPECT_EQ(summary.end, ReadEnd::rolledBack) << summary.sentence;
        EXPECT_NE(summary.sentence.find(why), std::string::npos) << summary.sentence;
        EXPECT_TRUE(fs::is_empty(stored_.target.path()));
    }

    Stored stored_;
};

TEST_F(ChainTrust, TellsWhetherLaterRecordsNameTheOneThatWasRead)
{
    EXPECT_EQ(restore(3).origin.trust, RecordTrust::newest);
    const auto older = restore(1);
    EXPECT_EQ(older.end, ReadEnd::done) << older.sentence;
    EXPECT_EQ(older.origin.trust, RecordTrust::linked);
    see(1);
    EXPECT_EQ(restore(1).origin.trust, RecordTrust::seen);
}

TEST_F(ChainTrust, RefusesARunThatTheNextOneDoesNotName)
{
    forgeFirst();
    const std::string why = "The record of run 1 on the service differs from the one that run "
                            "2 names";
    expectRefused(restore(1), why);
    VerifyObserver observer;
    VerifyRequest request{.choice = stored_.choice};
    request.choice.run = 1;
    EXPECT_EQ(runVerify(request, observer, stored_.stop).end, ReadEnd::rolledBack);
}

TEST_F(ChainTrust, RefusesARunThatIsNotTheOneThatThisMachineHasSeen)
{
    see(1);
    damageSecond(); // nor does the next one help
    forgeFirst();
    expectRefused(restore(1), "differs from the one that this machine has seen");
}

TEST_F(ChainTrust, ReadsARunThatNothingProvesAndSaysSoButDeletesNothingByIt)
{
    damageSecond();
    const auto refused = restore(1, true);
    EXPECT_EQ(refused.end, ReadEnd::failed);
    EXPECT_NE(refused.sentence.find("run 1 is the one that was stored, so "
                                    "nothing can be deleted by it"),
              std::string::npos)
        << refused.sentence;
    EXPECT_TRUE(fs::is_empty(stored_.target.path()));
    const auto summary = restore(1);
    EXPECT_EQ(summary.end, ReadEnd::done) << summary.sentence;
    EXPECT_EQ(summary.origin.trust, RecordTrust::unproven);
    EXPECT_TRUE(std::ranges::any_of(summary.origin.notes, [](const std::string& note) {
        return note.find("of run 2, which lies between it and the later ones, cannot be read") !=
               std::string::npos;
    }));
}

} // namespace
} // namespace stowline::backup
