// Backing up while threads cannot be had and calls fail: a run that says it is done has stored all.
#include "devserver/Storage.h"
#include "stowline/backup/BackupRun.h"
#include "stowline/platform/files/Files.h"
#include "tests/injection/FailingInTurn.h"
#include "tests/injection/OpenedAccount.h"
#include "tests/support/TemporaryFolder.h"

#include <chrono>
#include <map>

namespace stowline::backup {
namespace {

using Files = std::map<std::string, std::string>;

/// Each turn stores a new content of one of a few files: as many connections are kept as before.
class BackingUp {
public:
    test::Path path()
    {
        return {[this] { run(); }, [this] { check(); },
                [this] {
                    write();
                    run();
                    EXPECT_EQ(summary_.end, BackupEnd::done) << summary_.sentence;
                    check();
                    write();
                }};
    }

private:
    void write()
    {
        ++turn_;
        files_["a"] = "of turn " + std::to_string(turn_);
        for (const auto& [name, content] : files_)
            folder_.write(name, content);
    }

    void run()
    {
        BackupRequest request;
        request.account = {"ann", "secret words", account_.host, "iMac"};
        request.identity = {"1A2B", "ann", "default"};
        request.stateFolder = state_.path() / "state";
        request.paths = {folder_.path().string()};
        request.jobs = 2;
        request.budgetPerStep = std::chrono::seconds(0);
        BackupObserver observer;
        summary_ = runBackup(request, observer, StopRequest());
    }

    void check() const
    {
        EXPECT_NE(summary_.end, BackupEnd::interrupted) << "nobody asked for that";
        if (summary_.end != BackupEnd::done) {
            EXPECT_NE(summary_.sentence + std::to_string(summary_.failed), "0")
                << "nothing is told";
            return;
        }
        EXPECT_EQ(summary_.failed, 0U);
        EXPECT_EQ(summary_.stored + summary_.unchanged, files_.size());
        EXPECT_NE(summary_.run, 0U);
        EXPECT_EQ(stored(), files_);
    }

    /// The newest version of each file, read from the service's disk.
    [[nodiscard]] Files stored() const
    {
        devserver::Storage storage(account_.server.data());
        Files files;
        const std::string top = folder_.path();
        const auto page =
            storage.search({.userName = "ann", .folder = top, .pageSize = 100}, "*", "").value();
        for (const auto& item : page.items) {
            const auto version = storage.versions("ann", item.id).at(0);
            files.emplace((item.folder + "/" + item.name).substr(top.size() + 1),
                          platform::readFile(account_.server.data() / version.serverFile.substr(1))
                              .value_or("(missing)"));
        }
        return files;
    }

    const test::OpenedAccount account_;
    const test::TemporaryFolder folder_;
    const test::TemporaryFolder state_;
    int turn_ = 0;
    Files files_{{"b", "2"}, {"d/c", "3"}};
    BackupSummary summary_;
};

class BackupCallFaults : public testing::TestWithParam<test::Failing> {};

TEST_P(BackupCallFaults, NeverEndAsDoneWithSomethingThatIsNotStored)
{
    BackingUp backingUp;
    test::failInTurn(GetParam(), backingUp.path());
}

INSTANTIATE_TEST_SUITE_P(Functions, BackupCallFaults,
                         testing::Values(test::Failing{"pthread_create"},
                                         test::Failing{"pthread_create", true},
                                         test::Failing{"pread"}, test::Failing{"fdatasync"}),
                         test::nameOf);

} // namespace
} // namespace stowline::backup
