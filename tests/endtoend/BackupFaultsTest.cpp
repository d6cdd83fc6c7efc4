// Bad days: a service that fails in every way there is, at any step, and must lose nothing.
#include "tests/endtoend/BackedUp.h"
#include "tests/support/MountNamespace.h"
#include "tests/support/NetworkNamespace.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <random>
#include <set>
#include <thread>

namespace stowline {
namespace {

using test::BackedUp;
using test::field;
using test::Files;
using test::noise;

class FaultyService : public testing::TestWithParam<const char*> {};

/// A fault on the way is got over, and the file is stored once.
TEST_P(FaultyService, IsGotOver)
{
    const std::string fault = GetParam();
    const BackedUp account({"--fault", fault});
    const Files files{{"big", noise(150000, 1)}};
    account.write(files);
    account.setRequestTimeout("0.5");
    const auto result = account.backup({"--part-size", "64k"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(account.stored(), files);
    devserver::Storage storage(account.server.data());
    const auto page = storage.search({.userName = "ann", .pageSize = 9}, "big", "").value();
    EXPECT_EQ(page.items.at(0).versions, 1);
}

// The first part and the first registration are those of the note that a run begins.
INSTANTIATE_TEST_SUITE_P(OnceEach, FaultyService,
                         testing::Values("UploadFilePart:2:fault", "UploadFilePart:3:500",
                                         "UploadFilePart:3:html", "UploadFilePart:3:cut",
                                         "UploadFilePart:3:stall", "UploadFilePart:3:reset",
                                         "UploadFilePart:3:garbage", "UploadFilePart:3:lost",
                                         "UploadFilePart:4:lost", "protect2:2:fault",
                                         "protect2:2:500", "protect2:2:html", "protect2:2:cut",
                                         "protect2:2:reset", "protect2:2:garbage",
                                         "protect2:2:lost", "GetAccountFilesAndFolders:1:fault",
                                         "PreparePackagedFilesForProtection:1:fault"),
                         [](const auto& test) {
                             std::string name = test.param;
                             std::ranges::replace(name, ':', '_');
                             return name;
                         });

TEST(BackupFaults, AServiceThatNeverTakesAPartIsARefusal)
{
    const BackedUp account({"--fault", "UploadFilePart:*:500"});
    account.write({{"a", "1"}, {"empty", ""}});
    const auto result = account.backup();
    EXPECT_EQ(result.status, 6);
    EXPECT_NE(result.errors.find("the service does not take it. Is the account full?"),
              std::string::npos)
        << result.errors;
    EXPECT_EQ(account.stored(), Files());
}

TEST(BackupFaults, TriesEndWithTheirTime)
{
    const BackedUp account({"--fault", "UploadFilePart:*:reset"});
    account.write({{"a", "1"}});
    const auto result = account.backup({"--retry-time", "1"});
    EXPECT_EQ(result.status, 5);
    EXPECT_NE(result.errors.find("It was tried until the time for it was used up."),
              std::string::npos)
        << result.errors;
}

TEST(BackupFaults, AServiceThatLiesIsNotBelieved)
{
    const BackedUp account({"--fault", "UploadFilePart:2:lie"});
    account.write({{"a", "1"}});
    const auto result = account.backup();
    EXPECT_EQ(result.status, 3);
    EXPECT_NE(result.errors.find("says that it holds more bytes of it than it has"),
              std::string::npos)
        << result.errors;
    EXPECT_EQ(account.backup().status, 0); // the next run puts it right
    EXPECT_EQ(account.stored(), (Files{{"a", "1"}}));
}

TEST(BackupFaults, ARegistrationThatIsAlwaysRefused)
{
    const BackedUp account({"--fault", "protect2:*:html"});
    account.write({{"a", "1"}});
    const auto result = account.backup({"--retry-time", "1"});
    EXPECT_NE(result.status, 0);
    EXPECT_EQ(account.stored(), Files());
}

TEST(BackupFaults, AnUnreachableServiceIsSaidToBe)
{
    BackedUp account;
    account.write({{"a", "1"}});
    account.server.process().signal(SIGKILL);
    (void)account.server.process().wait();
    const auto result = account.backup();
    EXPECT_EQ(result.status, 8);
    EXPECT_EQ(test::jsonLines(result.output).size(), 1U);
}

TEST(BackupFaults, AWrongPasswordIsRefused)
{
    BackedUp account;
    account.password = "wrong";
    EXPECT_EQ(account.backup().status, 12);
}

TEST(BackupFaults, TheServiceMayDieInTheMiddle)
{
    BackedUp account;
    Files files;
    for (unsigned i = 0; i < 12; ++i)
        files.emplace("f" + std::to_string(i), noise(60000, i));
    account.write(files);
    test::BackgroundProgram run(
        account.backupRun({"--part-size", "16k", "--bwlimit", "200k", "--jobs", "3"}));
    account.awaitSent(1); // the sign-in is not tried again, so it is not disturbed
    for (int i = 0; i < 3; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100 + 100 * i)); // at any moment
        account.server.killAndRestart();
    }
    const auto result = run.wait();
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(account.stored(), files);
}

TEST(BackupFaults, TheNetworkMayVanishInTheMiddle)
{
    if (const auto reason = test::enterNetworkNamespace())
        GTEST_SKIP() << *reason;
    test::ip("link set lo up"); // of the namespace
    const BackedUp account;
    const Files files{{"big", noise(150000, 1)}};
    account.write(files);
    account.setRequestTimeout("1");
    test::BackgroundProgram run(account.backupRun({"--part-size", "16k", "--bwlimit", "64k"}));
    account.awaitSent(1);
    test::ip("link set lo down");
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    test::ip("link set lo up");
    const auto result = run.wait();
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(account.stored(), files);
}

TEST(BackupFaults, AFullDiskOfTheServiceLosesNothing)
{
    if (const auto reason = test::enterMountNamespace())
        GTEST_SKIP() << *reason;
    const test::TemporaryFolder disk;
    const test::Mount mount = test::Mount::memory(disk.path() / "full", "size=3m");
    const BackedUp account({}, disk.path() / "full");
    account.write({{"a", noise(100000, 1)}, {"much", noise(6000000, 2)}, {"z", noise(1000, 3)}});
    const auto result = account.backup({"--part-size", "1m", "--retry-time", "1", "--jobs", "1"});
    EXPECT_EQ(result.status, 3);
    EXPECT_NE(result.errors.find("/much is not stored"), std::string::npos) << result.errors;
    EXPECT_EQ(account.run({"signin"}).status, 0);
}

constexpr int kRoundsTogether = 5;

/// A folder of files for each round.
Files filesOf(int round)
{
    Files files;
    for (unsigned i = 0; i < 5; ++i)
        files.emplace("r" + std::to_string(round) + "/f" + std::to_string(i),
                      noise(i * 17000, static_cast<unsigned>(round) * 10 + i));
    return files;
}

/// A backup of the folders of some rounds.
test::ProgramRun backupOf(const BackedUp& account, int first, int last)
{
    test::Words words{"backup", "--json", "--system", "iMac", "--part-size", "16k"};
    for (int round = first; round <= last; ++round)
        words.push_back((account.folder.path() / ("r" + std::to_string(round))).string());
    return account.command.run(std::move(words), account.environment());
}

/// What a run must not leave behind, on both sides.
struct Leftovers {
    std::size_t entries = 0;   ///< of the journal
    std::size_t temporary = 0; ///< files in the state folder that no page names
    std::size_t orphans = 0;   ///< of content on the service's disk that nothing refers to
    /// Begun and never registered, of files: gone on with by now. (Those of records have no file
    /// that could be gone on with; the service drops them after its days.)
    std::size_t unregistered = 0;
};

Leftovers leftoversOf(const BackedUp& account)
{
    namespace fs = std::filesystem;
    Leftovers left{.entries = account.journal().entries().size()};
    const fs::path state = account.command.home().path() / ".local/state/stowline";
    const std::set<std::string> known{"backup.lock", "last-run.plist", "last-run-of-profile.plist",
                                      "last-good-run"};
    for (const auto& file : fs::recursive_directory_iterator(state)) {
        const bool isIndex = file.path().parent_path() == state / "index" &&
                             file.path().extension().string().starts_with(".db");
        const bool isRunsBegun = file.path().parent_path() == state / "runs-begun";
        if (file.is_regular_file() && !isIndex && !isRunsBegun &&
            !known.contains(file.path().filename()))
            ++left.temporary;
    }
    const SQLite::Database database((account.server.data() / "files.sqlite").string());
    std::set<std::string> referred;
    for (const char* query :
         {"SELECT server_file FROM versions", "SELECT server_file FROM uploads"}) {
        SQLite::Statement rows(database, query);
        while (rows.executeStep())
            referred.insert(fs::path(rows.getColumn(0).getString()).filename());
    }
    for (const auto& file : fs::recursive_directory_iterator(account.server.data() / "vol1"))
        left.orphans += file.is_regular_file() && !referred.contains(file.path().filename());
    SQLite::Statement begun(database, "SELECT count(*) FROM uploads WHERE server_file NOT IN"
                                      " (SELECT server_file FROM versions)"
                                      " AND CAST(file_name AS TEXT) NOT LIKE '%/record.part'");
    (void)begun.executeStep();
    left.unregistered = static_cast<std::size_t>(begun.getColumn(0).getInt64());
    return left;
}

/// How many files the service holds more than one version of.
std::size_t itemsWithSeveralVersions(const BackedUp& account)
{
    devserver::Storage storage(account.server.data());
    const auto page =
        storage
            .search(
                {.userName = "ann", .folder = account.folder.path().string(), .pageSize = 1000000},
                "*", "")
            .value();
    return static_cast<std::size_t>(
        std::ranges::count_if(page.items, [](const auto& item) { return item.versions != 1; }));
}

/// Kills the command at random moments; a run that is left alone must make all of it whole.
void killAndResume(int kills, unsigned seed)
{
    const BackedUp account;
    std::mt19937 random(seed);
    // How long an undisturbed run takes, so that the moments spread over all of it.
    account.write(filesOf(0));
    Files all = filesOf(0);
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(test::runProgram(backupOf(account, 0, 0)).status, 0);
    const std::chrono::duration<double> whole = std::chrono::steady_clock::now() - start;
    int ended = 0;
    int unreadable = 0;
    int resumed = 0;
    Leftovers last;
    for (int round = 1; round <= kills; ++round) {
        account.write(filesOf(round));
        all.merge(filesOf(round));
        test::BackgroundProgram run(backupOf(account, round, round));
        std::this_thread::sleep_for(whole * std::uniform_real_distribution<>(0, 1)(random));
        run.signal(SIGKILL);
        ended += run.wait().status == 1000 + SIGKILL ? 0 : 1;
        // Whatever the moment, the chain of records can be read.
        const auto read = account.run({"verify", "--machine", "iMac"});
        unreadable += read.status == 0 ? 0 : 1;
        EXPECT_EQ(read.status, 0) << read.errors;
        if (round % kRoundsTogether != 0)
            continue; // several cut-off runs one after another
        const auto result = test::runProgram(backupOf(account, round - kRoundsTogether + 1, round));
        ASSERT_EQ(result.status, 0) << result.errors;
        ASSERT_TRUE(account.stored() == all) << "after " << round;
        resumed += field(result, "resumed").get<int>();
        const Leftovers left = leftoversOf(account);
        EXPECT_EQ(left.entries, 0U) << "after " << round;
        EXPECT_EQ(left.temporary, 0U) << "after " << round;
        EXPECT_EQ(left.orphans, 0U) << "after " << round;
        EXPECT_EQ(left.unregistered, 0U) << "after " << round;
        last = left;
    }
    const auto checked = account.run({"verify", "--machine", "iMac", "--read"});
    EXPECT_EQ(checked.status, 0) << checked.errors;
    EXPECT_EQ(itemsWithSeveralVersions(account), 0U);
    EXPECT_LT(ended, kills) << "no run was hit";
    std::printf("%d kills over runs of %.2f s: %d came after the end, %d files gone on with, %zu "
                "stored byte for byte; %d chains unreadable; left: %zu entries, %zu temporary "
                "files, %zu orphans, %zu uploads never registered\n",
                kills, whole.count(), ended, resumed, all.size(), unreadable, last.entries,
                last.temporary, last.orphans, last.unregistered);
}

TEST(BackupFaults, KilledRunsAreMadeWholeByTheNext)
{
    killAndResume(10, 1);
}

TEST(BackupFaults, TwoHundredKilledRunsAreMadeWhole)
{
    if (!std::getenv("STOWLINE_LONG_TESTS"))
        GTEST_SKIP() << "Takes minutes; scripts/test --long runs it.";
    killAndResume(200, 2);
}

} // namespace
} // namespace stowline
