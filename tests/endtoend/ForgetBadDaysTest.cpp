// Bad days of forgetting: a service that is full, one that keeps nothing back, records of others
// that cannot be read, clocks that are wrong, runs that begin in the middle.
#include "stowline/util/Base64.h"
#include "tests/endtoend/HeldAnswers.h"
#include "tests/endtoend/Kept.h"
#include "tests/endtoend/OtherClock.h"
#include "tests/endtoend/Records.h"
#include "tests/support/MountNamespace.h"

#include <gtest/gtest.h>

#include <atomic>
#include <fstream>

namespace stowline {
namespace {

namespace fs = std::filesystem;
using test::field;
using test::Files;
using test::Kept;
using test::noise;
using test::says;
using test::Words;

Words forgettingAllButTheNewest(const Words& more = {})
{
    Words words{"forget", "--system", "iMac", "--json", "--keep-last", "1", "--yes"};
    words.insert(words.end(), more.begin(), more.end());
    return words;
}

/// Writes until nothing more goes onto a disk; gone with this object.
class FilledDisk {
public:
    explicit FilledDisk(const fs::path& folder) : file_(folder / "filler")
    {
        for (const std::size_t piece : {65536U, 512U, 1U}) {
            std::ofstream out(file_, std::ios::binary | std::ios::app);
            while (out << std::string(piece, 'x') << std::flush) {
            }
        }
    }
    ~FilledDisk() { fs::remove(file_); }
    FilledDisk(const FilledDisk&) = delete;
    FilledDisk& operator=(const FilledDisk&) = delete;

private:
    const fs::path file_;
};

TEST(ForgetBadDays, AServiceWithAFullDiskLosesNothingAndGoesOnOnceThereIsRoom)
{
    if (const auto reason = test::enterMountNamespace())
        GTEST_SKIP() << *reason;
    const test::TemporaryFolder disk;
    const test::Mount mount = test::Mount::memory(disk.path() / "full", "size=8m");
    Kept account({"--deletion-pause", "0", "--grace-days", "0"}, disk.path() / "full");
    account.runWith({{"a", noise(5000, 1)}});
    account.runWith({{"a", noise(5000, 2)}});
    account.runWith({{"a", noise(5000, 3)}});
    const auto versions = account.versions();
    {
        const FilledDisk filled(disk.path() / "full");
        const auto full = account.run(forgettingAllButTheNewest({"--retry-time", "1"}));
        EXPECT_TRUE(full.status == 5 || full.status == 6) << full.status << full.errors;
        EXPECT_EQ(account.versions(), versions);
        // Nor does a backup say that it is stored, or forget anything for it.
        account.write({{"a", noise(700000, 4)}});
        const auto backup = account.backup({"--keep-last", "1", "--retry-time", "1"});
        EXPECT_NE(backup.status, 0) << backup.errors;
        EXPECT_EQ(field(backup, "forgotten_runs"), 0);
        EXPECT_EQ(account.versions(), versions);
    }
    account.write({{"a", noise(5000, 3)}});
    account.expectAllWhole({1, 2, 3});
    const auto next = account.backup({"--keep-last", "1"});
    EXPECT_EQ(next.status, 0) << next.errors;
    EXPECT_EQ(field(next, "forgetting"), "done") << next.errors;
    EXPECT_EQ(field(next, "kept_runs"), 1);
    EXPECT_EQ(account.versions().size(), 1U);
}

TEST(ForgetBadDays, ARunThatBeginsInTheMiddleEndsItBeforeMuchMoreIsDeleted)
{
    Kept account({"--deletion-pause", "0", "--grace-days", "0"});
    Files files;
    for (unsigned i = 0; i < 100; ++i)
        files["f" + std::to_string(i)] = noise(100, i);
    account.runWith(files);
    for (unsigned i = 0; i < 100; ++i)
        files["f" + std::to_string(i)] = noise(100, 1000 + i);
    account.runWith(files);
    ASSERT_EQ(account.versions().size(), 200U);
    {
        test::HeldAnswers service(account);
        std::atomic<int> deletions = 0;
        service.hold([&deletions](const std::string& request) {
            return test::Relayed::callOf(request) == "DeleteFilesInBulk" && ++deletions == 25;
        });
        test::BackgroundProgram forget(
            account.command.run(forgettingAllButTheNewest(), account.environment()));
        ASSERT_TRUE(service.await());
        const auto other = account.backup({"--profile", "other"});
        EXPECT_EQ(other.status, 0) << other.errors;
        EXPECT_EQ(field(other, "stored"), 100) << "it believes no listing meanwhile";
        service.release();
        const auto result = forget.wait();
        EXPECT_EQ(result.status, 5) << result.errors;
        EXPECT_TRUE(says(result, "The records of the account changed meanwhile")) << result.errors;
    }
    EXPECT_GE(account.versions().size(), 300U - 40U) << "it looks again each twenty deletions";
    EXPECT_EQ(account.run({"verify", "--read", "--profile", "other", "--machine", "iMac"}).status,
              0);
    EXPECT_EQ(account.run(forgettingAllButTheNewest()).status, 0);
    EXPECT_EQ(account.versions().size(), 200U) << "of two profiles";
    EXPECT_EQ(account.run({"verify", "--read", "--profile", "other", "--machine", "iMac"}).status,
              0);
}

/// Chooses what is sent of the record that a run ends with, after the note that it begins.
test::HeldAnswers::Choice partsOfTheLastRecord()
{
    return [count = 0](const std::string& request) mutable {
        if (test::Relayed::callOf(request) != "/UploadFilePart")
            return false;
        const auto path =
            Base64::dataWithBase64EncodedString(test::headerOf(request, "X-FileName"));
        return std::string(path.begin(), path.end()).ends_with("/record.part") && ++count == 2;
    };
}

TEST(ForgetBadDays, ARunFromAnotherStateFolderWhoseRecordIsOnItsWayLosesNothing)
{
    Kept account({"--deletion-pause", "0", "--grace-days", "0"});
    const Files before{{"a", noise(5000, 1)}, {"b", noise(5000, 2)}};
    account.runWith(before);
    const auto elsewhere = [&account](const Words& more) {
        test::ProgramRun run = account.backupRun(more);
        run.environment["XDG_STATE_HOME"] = account.command.home().path() / "elsewhere";
        return test::runProgram(run);
    };
    ASSERT_EQ(elsewhere({}).status, 0);
    {
        test::HeldAnswers service(account);
        service.hold(partsOfTheLastRecord());
        test::BackgroundProgram slow(account.backupRun());
        ASSERT_TRUE(service.await());
        ASSERT_TRUE(account.records().contains("00000003-begun"));
        ASSERT_FALSE(account.records().contains("00000003-finished"));
        account.write({{"a", noise(5000, 3)}});
        const auto other = elsewhere({"--keep-last", "1"});
        EXPECT_EQ(other.status, 0) << other.errors;
        EXPECT_EQ(field(other, "run"), 4);
        EXPECT_EQ(field(other, "forgetting"), "later") << other.errors;
        EXPECT_EQ(field(other, "deleted_versions"), 0);
        service.release();
        const auto result = slow.wait();
        EXPECT_EQ(result.status, 0) << result.errors;
    }
    account.held[3] = before;
    account.held[4] = {{"a", noise(5000, 3)}, {"b", noise(5000, 2)}};
    EXPECT_EQ(account.restored(3), account.held[3]);
    EXPECT_EQ(account.restored(4), account.held[4]);
    const auto last = elsewhere({"--keep-last", "1"});
    EXPECT_EQ(field(last, "forgetting"), "done") << last.errors;
    EXPECT_EQ(account.runs(), std::vector<int>{5});
}

TEST(ForgetBadDays, ARecordOfAnotherMachineThatCannotBeReadKeepsEverything)
{
    Kept account({"--deletion-pause", "0", "--grace-days", "0"});
    account.runWith({{"a", "1"}});
    account.runWith({{"a", "2"}});
    ASSERT_EQ(account.run({"backup", account.folder.path().string(), "--system", "laptop"}).status,
              0);
    test::damageRecord(account, "00000001-finished", "laptop");
    const auto versions = account.versions();
    const auto result = account.run(forgettingAllButTheNewest());
    EXPECT_EQ(result.status, 7) << result.errors;
    EXPECT_TRUE(says(result, " under the name laptop, and nobody knows what it needs"))
        << result.errors;
    EXPECT_EQ(account.versions(), versions);
    account.expectAllWhole({1, 2});
    const auto backup = account.backup({"--keep-last", "1"});
    EXPECT_EQ(backup.status, 0) << backup.errors;
    EXPECT_EQ(field(backup, "forgetting"), "failed");
    EXPECT_EQ(account.versions(), versions);
}

TEST(ForgetBadDays, WhereNobodySaysWhetherThereAreDaysOfGraceNothingIsSaidOfThem)
{
    Kept account({"--deletion-pause", "0"});
    account.runWith({{"a", "1"}});
    account.runWith({{"a", "2"}});
    account.removeFromSettings({"GetDeletedFiles", "UndeleteFiles"});
    const auto result = account.run(forgettingAllButTheNewest());
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "deleted_versions"), 1);
    EXPECT_FALSE(says(result, "undelete")) << result.errors;
    EXPECT_FALSE(says(result, "keeps")) << result.errors;
    const auto backup = account.backup({"--keep-last", "1"});
    EXPECT_EQ(field(backup, "forgotten_runs"), 1) << backup.errors;
    EXPECT_FALSE(says(backup, "undelete")) << backup.errors;
}

TEST(ForgetBadDays, ABackupWhoseClockIsAYearAheadForgetsNothingThatTheServicesDaysKeep)
{
    if (const auto why = test::whyNoOtherClock(); !why.empty())
        GTEST_SKIP() << why;
    Kept account({"--deletion-pause", "0", "--grace-days", "0"});
    test::threeRunsOfThreeDays(account);
    const auto backup = [&](const std::string& shift) {
        const auto run = account.backupRun({"--keep-daily", "3", "--keep-monthly", "2"});
        return shift.empty() ? test::runProgram(run) : test::runWithClock(run, shift);
    };
    // Runs 3 and 4 are of one day, whatever this machine takes it for.
    const auto ahead = backup("+1y");
    EXPECT_EQ(ahead.status, 0) << ahead.errors;
    EXPECT_EQ(field(ahead, "forgetting"), "done") << ahead.errors;
    EXPECT_EQ(account.runs(), (std::vector<int>{1, 2, 3, 4})) << "to the machine they are of two";
    EXPECT_EQ(account.restored(1), (Files{{"a", "1"}}));
    const auto right = backup("");
    EXPECT_EQ(right.status, 0) << right.errors;
    EXPECT_EQ(account.runs(), (std::vector<int>{1, 2, 4, 5}));
}

TEST(ForgetBadDays, NoBackupForgetsByItselfWhatAServiceSaysThatItStoredAtOnce)
{
    if (const auto why = test::whyNoOtherClock(); !why.empty())
        GTEST_SKIP() << why;
    Kept account({"--deletion-pause", "0", "--grace-days", "0"});
    for (const char* shift : {"-3d", "-2d", "-1d"}) {
        account.write({{"a", shift}});
        const auto result = test::runWithClock(account.backupRun(), shift);
        EXPECT_EQ(result.status, 0) << result.errors;
    }
    account.write({{"a", "now"}});
    const auto result = account.backup({"--keep-daily", "3"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "forgetting"), "done") << result.errors;
    EXPECT_EQ(account.runs(), (std::vector<int>{2, 3, 4})) << "by the days of the runs themselves";
    EXPECT_EQ(account.restored(2), (Files{{"a", "-2d"}}));
}

} // namespace
} // namespace stowline
