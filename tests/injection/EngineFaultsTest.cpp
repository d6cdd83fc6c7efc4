// The engine's operations where there is no memory: each ends, and says that it did not succeed.
// None comes as far as the service, for the program has no settings.
#include "stowline/backup/BackupRun.h"
#include "stowline/backup/ForgetRun.h"
#include "stowline/backup/RestoreRun.h"
#include "stowline/backup/RunHistory.h"
#include "stowline/backup/SelfTestRun.h"
#include "stowline/backup/UnfinishedUploads.h"
#include "stowline/backup/VerifyRun.h"
#include "tests/injection/FailingInTurn.h"
#include "tests/support/TemporaryFolder.h"

#include <functional>
#include <string_view>

namespace stowline::backup {
namespace {

class EngineFaults : public testing::TestWithParam<test::Failing> {
protected:
    EngineFaults()
    {
        choice_.account = {"ann", "secret", "127.0.0.1", "iMac"};
        choice_.identity = ChainIdentity{"1A2B", "ann", "default"};
        choice_.stateFolder = folder_.path() / "state";
        choice_.budgetPerStep = {};
    }

    /// @param operation returns whether it said that it succeeded
    void failInTurn(const std::function<bool()>& operation) const
    {
        bool hasSucceeded = false;
        test::failInTurn(GetParam(),
                         {[&] { hasSucceeded = operation(); }, [&] { EXPECT_FALSE(hasSucceeded); },
                          [&] { EXPECT_FALSE(operation()); }});
    }

    const test::TemporaryFolder folder_;
    const StopRequest stop_;
    RunChoice choice_;
};

TEST_P(EngineFaults, EndABackup)
{
    const BackupRequest request{.account = choice_.account,
                                .stateFolder = folder_.path() / "state",
                                .paths = {folder_.path().string()},
                                .budgetPerStep = {}};
    BackupObserver observer;
    failInTurn([&] { return runBackup(request, observer, stop_).end == BackupEnd::done; });
}

TEST_P(EngineFaults, EndARestore)
{
    const RestoreRequest request{
        .choice = choice_, .paths = {"/home"}, .target = folder_.path() / "target"};
    RestoreObserver observer;
    failInTurn([&] { return runRestore(request, observer, stop_).end == ReadEnd::done; });
}

TEST_P(EngineFaults, EndReadingAFile)
{
    failInTurn([&] {
        const auto take = [](std::string_view) { return true; };
        return readStoredFile(choice_, "/home/a", take, stop_).end == ReadEnd::done;
    });
}

TEST_P(EngineFaults, EndAVerification)
{
    const VerifyRequest request{.choice = choice_};
    VerifyObserver observer;
    failInTurn([&] { return runVerify(request, observer, stop_).end == ReadEnd::done; });
}

TEST_P(EngineFaults, EndASelfTest)
{
    const SelfTestRequest request{.choice = choice_};
    SelfTestObserver observer;
    failInTurn([&] { return runSelfTest(request, observer, stop_).end == ReadEnd::done; });
}

TEST_P(EngineFaults, EndAListOfRuns)
{
    const std::function<void(const RunEntry&)> take = [](const RunEntry&) {};
    failInTurn([&] { return listRuns(choice_, take, stop_).end == ReadEnd::done; });
}

TEST_P(EngineFaults, EndASearch)
{
    const TakeItem take = [](const StoredItem&, const ItemSight&) { return true; };
    failInTurn([&] {
        return forEachFileNamed(choice_, "/home", "letter", take, stop_).end == ReadEnd::done;
    });
}

TEST_P(EngineFaults, EndForgetting)
{
    ForgetRequest request;
    request.account = choice_.account;
    request.stateFolder = folder_.path() / "state";
    request.budgetPerStep = {};
    struct : ForgetObserver {
        bool mayForget(const ForgetPlan&) override { return true; }
    } observer;
    failInTurn([&] { return runForget(request, observer, stop_).end == ForgetEnd::done; });
}

TEST_P(EngineFaults, EndAListOfUnfinishedUploads)
{
    const auto state = folder_.path() / "state";
    folder_.write("state", "not a folder");
    std::string fault;
    failInTurn([&] { return unfinishedUploads(state, fault).has_value(); });
}

INSTANTIATE_TEST_SUITE_P(Functions, EngineFaults, testing::ValuesIn(test::bothWays({"new"})),
                         test::nameOf);

} // namespace
} // namespace stowline::backup
