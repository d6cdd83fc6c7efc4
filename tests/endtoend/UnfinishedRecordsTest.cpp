// A run that takes long stores now and then what it has come to: when it never ends, that can be
// read.
#include "stowline/backup/BackupRun.h"
#include "stowline/platform/desktop/Bundle.h"
#include "stowline/service/WebServiceBroker.h"
#include "tests/endtoend/HeldAnswers.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace stowline {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using test::BackedUp;
using test::field;
using test::Files;
using test::HeldAnswers;
using test::noise;
using test::Words;

/// In a process of its own: the backup that the command would make, with records in a quick row.
[[noreturn]] void backUp(const BackedUp& account)
{
    platform::Bundle::useFolder(account.server.bundle());
    platform::Bundle::useExecutable(test::builtProgram("stowline"));
    const auto signedIn =
        WebServiceBroker::authenticateForUsername("ann", account.password, nullptr);
    backup::BackupRequest request;
    request.account = {"ann", account.password,
                       platform::findText(signedIn.value_or(Dictionary()), "backupServerName"),
                       "iMac"};
    request.identity = backup::identityOfThisUser();
    request.stateFolder = account.command.home().path() / ".local/state/stowline";
    request.paths = {account.folder.path().string()};
    request.jobs = 3;
    request.partBytes = 65536;
    request.betweenRecords = 300ms;
    backup::BackupObserver observer;
    (void)backup::runBackup(request, observer, StopRequest());
    ::_exit(0);
}

TEST(UnfinishedRecords, AreReadOnAnotherMachineWhenTheRunWasKilled)
{
    const BackedUp account;
    const Files files{{"a", "one"}, {"b", "two"}, {"big", noise(200000, 1)}};
    account.write(files);
    HeldAnswers answers(account);
    answers.hold(test::partsFrom(account, 65536, "big"));
    const pid_t child = ::fork();
    if (child == 0)
        backUp(account);
    const test::Command other(account.server.bundle()); // with a home of its own
    const auto readThere = [&](const char* name) {
        return other(Words{"cat", account.folder.path() / name, "--machine", "iMac", "--at", "1"},
                     account.environment());
    };
    const auto deadline = std::chrono::steady_clock::now() + 2min;
    const auto areBothThere = [&] {
        return readThere("a").status == 0 && readThere("b").status == 0;
    };
    while (!areBothThere() && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(50ms); // another process's record
    ::kill(child, SIGKILL);
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status)); // it had not come to its end
    answers.release();

    EXPECT_EQ(readThere("a").output, "one") << readThere("a").errors;
    EXPECT_EQ(readThere("b").output, "two") << readThere("b").errors;
    EXPECT_EQ(readThere("big").status, 4);
    const auto runs = other(Words{"runs", "--machine", "iMac", "--json"}, account.environment());
    EXPECT_EQ(test::jsonLines(runs.output).front().value("state", ""), "unfinished")
        << runs.output << runs.errors;

    const auto next = account.backup({"--part-size", "64k"});
    EXPECT_EQ(next.status, 0) << next.errors;
    EXPECT_EQ(field(next, "run"), 2);
    EXPECT_EQ(field(next, "stored"), 1) << next.output;
    EXPECT_EQ(account.stored(), files);
    EXPECT_EQ(account.run({"verify", "--machine", "iMac", "--read"}).status, 0);
}

} // namespace
} // namespace stowline
