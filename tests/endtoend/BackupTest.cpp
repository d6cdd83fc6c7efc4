// The main job: a folder tree on its way to the service, through every process there is.
#include "stowline/platform/files/LockFile.h"
#include "stowline/service/RemoteName.h"
#include "tests/endtoend/HeldAnswers.h"
#include "tests/endtoend/Records.h"
#include "tests/support/PseudoTerminal.h"

#include "tests/support/TestPaths.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace stowline {
namespace {

using test::BackedUp;
using test::field;
using test::Files;
using test::HeldAnswers;
using test::noise;
using test::Words;

TEST(Backup, StoresATreeAndThenOnlyWhatChanged)
{
    const BackedUp account;
    Files files{{"a.txt", "hello"},
                {"empty", ""},
                {"deep/er/big", noise(3000000, 1)},
                {".hidden", "h"},
                {"Photos.photoslibrary/one", "1"}};
    account.write(files);
    ASSERT_EQ(::symlink("a.txt", (account.folder.path() / "link").c_str()), 0);
    ASSERT_EQ(::mkfifo((account.folder.path() / "pipe").c_str(), 0600), 0);
    const auto first = account.backup({"--part-size", "1m"});
    EXPECT_EQ(first.status, 0) << first.errors;
    EXPECT_EQ(field(first, "stored"), 5);
    EXPECT_EQ(field(first, "parts"), 6);
    EXPECT_EQ(field(first, "recorded"), 6); // four folders, a link, a pipe
    EXPECT_EQ(field(first, "found"), 11);
    EXPECT_EQ(account.stored(), files);
    EXPECT_TRUE(account.journal().entries().empty());

    files["a.txt"] = "hello again";
    account.write({{"a.txt", files["a.txt"]}});
    const auto second = account.backup();
    EXPECT_EQ(field(second, "stored"), 1) << second.errors;
    EXPECT_EQ(field(second, "unchanged"), 4);
    EXPECT_EQ(account.stored(), files);
}

TEST(Backup, RulesChooseWhatIsTaken)
{
    const BackedUp account;
    account.write({{"a.txt", "1"},
                   {"b.log", "2"},
                   {"c.txt", "3"},
                   {".h.txt", "4"},
                   {"cache/d.txt", "5"},
                   {"keep/cache.txt", "6"}});
    const auto result = account.backup(
        {"--include", "*.txt", "--exclude", "cache", "--exclude", "/c.txt", "--skip-hidden"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(account.stored(), (Files{{"a.txt", "1"}, {"keep/cache.txt", "6"}}));
}

TEST(Backup, ADryRunChangesNothing)
{
    const BackedUp account;
    account.write({{"a.txt", "1"}});
    const auto result = account.backup({"--dry-run"});
    EXPECT_EQ(result.status, 0);
    EXPECT_NE(result.output.find("\"would-store\""), std::string::npos);
    EXPECT_EQ(account.stored(), Files());
}

TEST(Backup, ARewriteOfTheSameSizeWhoseTimeWasPutBackIsStored)
{
    const BackedUp account;
    account.write({{"a.txt", "old"}});
    const auto file = account.folder.path() / "a.txt";
    EXPECT_EQ(account.backup().status, 0);
    const auto time = std::filesystem::last_write_time(file);
    std::ofstream(file, std::ios::binary | std::ios::in) << "new"; // the same size
    std::filesystem::last_write_time(file, time);
    const auto result = account.backup();
    EXPECT_EQ(field(result, "stored"), 1) << result.errors;
    EXPECT_EQ(account.stored(), (Files{{"a.txt", "new"}}));
}

TEST(Backup, RegistersWithEitherWebMethod)
{
    const BackedUp account;
    account.write({{"a.txt", "1"}});
    const auto result = account.backup({"--register-with", "ProtectFile"});
    EXPECT_EQ(result.status, 0) << result.errors;
    const auto found = account.run({"search", "a.txt", "--json"});
    EXPECT_NE(found.output.find("a.txt"), std::string::npos);
}

TEST(Backup, NamesOfEveryByteComeBackAsTheyWere)
{
    const BackedUp account;
    Files files;
    for (int byte = 1; byte < 256; ++byte) {
        const std::string name = "x" + std::string(1, static_cast<char>(byte)) + "y";
        if (byte != '/')
            files.emplace(name, "byte " + std::to_string(byte));
    }
    files.emplace(std::string(255, 'n'), "long");
    files.emplace("\xd7\xa9\xd7\x9c\xd7\x95\xd7\x9d", "right to left");
    files.emplace("=b64=abc", "looks encoded");
    files.emplace("\xff\xfe/\x01", "in an odd folder");
    account.write(files);
    const auto result = account.backup({"--jobs", "8"});
    EXPECT_EQ(result.status, 0) << result.errors;
    Files stored;
    for (const auto& [name, content] : account.stored())
        stored.emplace(localPath(name), content);
    EXPECT_EQ(stored, files);
    const auto again = account.backup();
    EXPECT_EQ(field(again, "unchanged"), files.size()) << again.errors;
    // What is shown is JSON in UTF-8 for all of them.
    const auto listing = account.run({"search", "*", "--json", "--system", "iMac"});
    EXPECT_EQ(test::jsonLines(listing.output).size(), files.size() + 1);
}

/// Ends a run without warning when so many bytes of a file are confirmed and the answer to the part
/// after them is on its way.
void cutOff(const BackedUp& account, HeldAnswers& answers, std::uint64_t bytes)
{
    answers.hold(test::partsFrom(account, bytes));
    test::BackgroundProgram run(account.backupRun({"--part-size", "64k"}));
    ASSERT_TRUE(answers.await()) << run.wait().errors;
    run.signal(SIGKILL);
    EXPECT_EQ(run.wait().status, 1000 + SIGKILL);
    answers.release();
}

TEST(Backup, ResumesWithoutSendingAStoredPartAgain)
{
    const BackedUp account;
    account.write({{"big", noise(10 * 65536, 2)}});
    HeldAnswers answers(account);
    cutOff(account, answers, 5 * 65536);
    const auto listed = account.run({"uploads", "list", "--json"});
    const auto sent = test::jsonLines(listed.output).at(0)["sent"].get<unsigned>();
    EXPECT_EQ(sent, 5U * 65536);
    const auto result = account.backup({"--part-size", "64k"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "resumed"), 1);
    EXPECT_EQ(field(result, "parts"), 4); // the sixth has arrived, but was not confirmed
    EXPECT_EQ(account.stored(), (Files{{"big", noise(10 * 65536, 2)}}));
    EXPECT_EQ(test::jsonLines(account.run({"uploads", "list", "--json"}).output).size(), 1U);
}

/// What a kill leaves that came after the service had registered a file.
class KilledAfterRegistering : public testing::TestWithParam<const char*> {};

TEST_P(KilledAfterRegistering, LeavesNoSecondVersion)
{
    namespace fs = std::filesystem;
    const std::string what = GetParam();
    const BackedUp account;
    account.write({{"big", noise(10 * 65536, 2)}});
    HeldAnswers answers(account);
    cutOff(account, answers, 5 * 65536);
    const fs::path state = account.command.home().path() / ".local/state/stowline";
    const test::TemporaryFolder aside;
    const auto copy = [](const fs::path& from, const fs::path& to) {
        fs::remove_all(to);
        fs::copy(from, to, fs::copy_options::recursive);
    };
    for (const char* folder : {"uploads", "index"})
        copy(state / folder, aside.path() / folder);
    ASSERT_EQ(account.backup({"--part-size", "64k"}).status, 0);
    ASSERT_TRUE(account.journal().entries().empty());

    copy(aside.path() / "uploads", state / "uploads");
    ASSERT_EQ(account.journal().entries().size(), 1U);
    if (what != "Journal")
        copy(aside.path() / "index", state / "index");
    if (what == "JournalIndexAndRecord")
        test::hideRecord(account, "00000002-finished");
    const auto result = account.backup({"--part-size", "64k"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "parts"), 0) << result.output;
    EXPECT_TRUE(account.journal().entries().empty());
    devserver::Storage storage(account.server.data());
    const auto page = storage.search({.userName = "ann", .pageSize = 9}, "big", "").value();
    ASSERT_EQ(page.items.size(), 1U);
    EXPECT_EQ(storage.versions("ann", page.items[0].id).size(), 1U);
    EXPECT_EQ(account.stored(), (Files{{"big", noise(10 * 65536, 2)}}));
    EXPECT_EQ(account.run({"verify", "--machine", "iMac", "--read"}).status, 0);
}

INSTANTIATE_TEST_SUITE_P(WithTheOld, KilledAfterRegistering,
                         testing::Values("Journal", "JournalAndIndex", "JournalIndexAndRecord"),
                         [](const auto& test) { return std::string(test.param); });

TEST(Backup, UploadsResumeAndAbandon)
{
    const BackedUp account;
    account.write({{"big", noise(200000, 3)}});
    HeldAnswers answers(account);
    cutOff(account, answers, 65536);
    EXPECT_EQ(account.run({"uploads", "abandon", "--all"}).status, 2); // nobody to ask
    EXPECT_EQ(account.run({"uploads", "abandon", "nothing", "--yes"}).status, 4);
    // What keeps it from being forgotten is told as what it is.
    const auto state = account.command.home().path() / ".local/state/stowline";
    std::filesystem::permissions(state, std::filesystem::perms::others_write,
                                 std::filesystem::perm_options::add);
    const auto refused = account.run({"uploads", "abandon", "--all", "--yes"});
    std::filesystem::permissions(state, std::filesystem::perms::others_write,
                                 std::filesystem::perm_options::remove);
    EXPECT_EQ(refused.status, 1);
    EXPECT_NE(refused.errors.find("other users may write into it"), std::string::npos)
        << refused.errors;
    const auto abandoned = account.run({"uploads", "abandon", "--all", "--yes"});
    EXPECT_EQ(abandoned.status, 0);
    EXPECT_NE(abandoned.errors.find("What was sent of them stays on the service until it discards "
                                    "it."),
              std::string::npos)
        << abandoned.errors;
    EXPECT_TRUE(account.journal().entries().empty());
    cutOff(account, answers, 2 * 65536); // the service still holds the first part
    const auto result =
        account.run({"uploads", "resume", "--json", "--part-size", "64k", "--system", "iMac"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "stored"), 1);
    EXPECT_EQ(account.stored(), (Files{{"big", noise(200000, 3)}}));
}

TEST(Backup, FilesThatChangeMeanwhileAreSentAnew)
{
    const BackedUp account;
    const auto file = account.folder.path() / "growing";
    account.write({{"growing", noise(98304, 4)}});
    HeldAnswers answers(account);
    answers.hold(test::partsFrom(account, 32768));
    test::BackgroundProgram run(account.backupRun({"--part-size", "32k"}));
    ASSERT_TRUE(answers.await()) << run.wait().errors;
    std::ofstream(file, std::ios::app) << "more";
    answers.release();
    const auto result = run.wait();
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(account.stored(), (Files{{"growing", noise(98304, 4) + "more"}}));
    EXPECT_TRUE(account.journal().entries().empty());
}

TEST(Backup, ReplacedFilesAreSentAnewAndDeletedOnesToldOf)
{
    const BackedUp account;
    account.write({{"a", noise(98304, 5)}, {"b", noise(98304, 6)}});
    HeldAnswers answers(account);
    answers.hold(test::partsFrom(account, 32768));
    test::BackgroundProgram run(account.backupRun({"--part-size", "32k", "--jobs", "1"}));
    ASSERT_TRUE(answers.await()) << run.wait().errors;
    std::filesystem::remove(account.folder.path() / "a");
    account.write({{"new b", noise(98304, 7)}});
    std::filesystem::rename(account.folder.path() / "new b", account.folder.path() / "b");
    answers.release();
    const auto result = run.wait();
    EXPECT_EQ(result.status, 3);
    EXPECT_NE(result.errors.find("/a is not stored: it is not there any more."), std::string::npos)
        << result.errors;
    EXPECT_EQ(account.stored(), (Files{{"b", noise(98304, 7)}}));
}

TEST(Backup, MissingAndUnreadableThingsEndInTheirStatus)
{
    const BackedUp account;
    account.write({{"a", "1"}});
    const auto missing = account.run({"backup", "/nowhere/at/all", "--json"});
    EXPECT_EQ(missing.status, 4);
    EXPECT_NE(missing.errors.find("Nothing was found at /nowhere/at/all."), std::string::npos);
    const auto some = account.run({"backup", "/nowhere", account.folder.path().string(), "--json"});
    EXPECT_EQ(some.status, 3);
    EXPECT_EQ(field(some, "stored"), 1);
}

TEST(Backup, OneAtATime)
{
    const BackedUp account;
    const auto state = account.command.home().path() / ".local/state/stowline";
    std::filesystem::create_directories(state);
    const auto lock = platform::LockFile::take(state / "backup.lock");
    ASSERT_TRUE(lock);
    const auto result = account.backup();
    EXPECT_EQ(result.status, 11);
    EXPECT_NE(
        result.errors.find("Another backup of this user with the profile \"default\" is running."),
        std::string::npos);
}

TEST(Backup, AnInterruptionLeavesEverythingToBeGoneOnWith)
{
    const BackedUp account;
    account.write({{"big", noise(400000, 8)}});
    HeldAnswers answers(account);
    answers.hold(test::partsFrom(account, 32768));
    test::BackgroundProgram run(account.backupRun({"--part-size", "32k"}));
    ASSERT_TRUE(answers.await()) << run.wait().errors;
    run.signal(SIGINT);
    const auto result = run.wait();
    answers.release();
    EXPECT_EQ(result.status, 130);
    EXPECT_NE(result.errors.find("Interrupted. 0 files were stored; the same command goes on where "
                                 "this one stopped."),
              std::string::npos)
        << result.errors;
    EXPECT_EQ(field(result, "status"), "interrupted");
    const auto second = account.backup();
    EXPECT_EQ(field(second, "resumed"), 1) << second.errors;
    EXPECT_EQ(account.stored(), (Files{{"big", noise(400000, 8)}}));
}

TEST(Backup, PasswordsOfEveryPrintableCharacter)
{
    BackedUp account;
    account.password.clear();
    for (char c = ' '; c <= '~'; ++c)
        account.password += c;
    const test::Environment environment{{"STOWLINE_USERNAME", "printable"},
                                        {"STOWLINE_PASSWORD", account.password}};
    ASSERT_EQ(account.command(Words{"signup", "--email", "a@b.c"}, environment).status, 0);
    account.write({{"a", "1"}});
    const auto result = account.command(
        Words{"backup", account.folder.path().string(), "--system", "iMac"}, environment);
    EXPECT_EQ(result.status, 0) << result.errors;
}

TEST(Backup, TheJournalIsForNobodyElse)
{
    const BackedUp account;
    account.write({{"big", noise(400000, 8)}});
    HeldAnswers answers(account);
    cutOff(account, answers, 65536);
    const auto folder = account.command.home().path() / ".local/state/stowline/uploads";
    struct stat status = {};
    ASSERT_EQ(::stat(folder.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0700U);
    for (const auto& file : std::filesystem::directory_iterator(folder)) {
        ASSERT_EQ(::stat(file.path().c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777, 0600U);
    }
}

TEST(Backup, NeedsNoHomeInItsEnvironment)
{
    const BackedUp account;
    account.write({{"a", "1"}});
    auto run = account.backupRun();
    const auto home = account.command.home().path();
    run.environment["XDG_CONFIG_HOME"] = home / "configuration";
    run.environment["XDG_STATE_HOME"] = home / "state";
    // As a service manager may start it; the account of the system still has a home folder.
    run.words.insert(run.words.begin(), {"/usr/bin/env", "-u", "HOME"});
    const auto result = test::runProgram(run);
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(account.stored(), (Files{{"a", "1"}}));
    EXPECT_TRUE(std::filesystem::exists(home / "state/stowline"));
}

TEST(Backup, TellsAPersonHowFarItIs)
{
    const BackedUp account;
    account.write({{"big", noise(100000, 9)}});
    auto run = account.backupRun({"--bwlimit", "100k", "--part-size", "32k"});
    std::erase(run.words, "--json");
    const auto talk = test::talkOnTerminal(run, "\x01never", "");
    EXPECT_EQ(talk.status, 0) << talk.screen;
    EXPECT_NE(talk.screen.find("% "), std::string::npos) << talk.screen;
    EXPECT_NE(talk.screen.find("Stored 1 file (100.0 kB)."), std::string::npos) << talk.screen;
}

TEST(Backup, SparseFilesOfFiveGibibytes)
{
    if (!std::getenv("STOWLINE_LONG_TESTS"))
        GTEST_SKIP() << "Sends 5 GiB; scripts/test --long runs it.";
    const BackedUp account;
    account.write({{"sparse", "begins"}});
    const auto file = account.folder.path() / "sparse";
    constexpr std::uint64_t size = (std::uint64_t{5} << 30) + 7;
    std::filesystem::resize_file(file, size);
    std::ofstream(file, std::ios::in | std::ios::out | std::ios::ate) << "ends";
    const auto result = account.backup({"--part-size", "64m"});
    EXPECT_EQ(result.status, 0) << result.errors;
    devserver::Storage storage(account.server.data());
    const auto page = storage.search({.userName = "ann", .pageSize = 2}, "sparse", "").value();
    const auto versions = storage.versions("ann", page.items.at(0).id);
    EXPECT_EQ(versions.at(0).size, size + 4);
    const auto sum = account.run({"checksum", file.string()});
    EXPECT_EQ(sum.output.substr(0, 8), fmt::format("{:08x}", versions.at(0).checksum));
}

TEST(Samples, BackupBacksUpAFolderAndSaysWhatFailed)
{
    const BackedUp account;
    account.write({{"a", "1"}, {"d/b", "2"}});
    const test::TemporaryFolder state;
    const auto sample = [&](const std::string& folder) {
        return test::runProgram(
            {{test::builtProgram("sample-backup"), account.server.bundle().string(), "ann",
              (state.path() / "state").string(), folder},
             {{"STOWLINE_PASSWORD", account.password}}});
    };
    const std::string folder = account.folder.path().string();
    const auto first = sample(folder);
    EXPECT_EQ(first.status, 0) << first.errors;
    EXPECT_NE(first.output.find("stored " + folder + "/d/b\n"), std::string::npos) << first.output;
    EXPECT_NE(first.output.find("found 4, stored 2, unchanged 0, failed 0."), std::string::npos);
    const auto second = sample(folder + "/no such");
    EXPECT_EQ(second.status, 1);
    EXPECT_EQ(second.errors, "Nothing was found at " + folder + "/no such.\n");
}

} // namespace
} // namespace stowline
