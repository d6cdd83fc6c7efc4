// What a run must tell, because who is not told believes that all is well: disks that are not
// mounted, rules that match nothing, runs that meet.
#include "tests/endtoend/HeldAnswers.h"
#include "tests/support/MountNamespace.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>

namespace stowline {
namespace {

namespace fs = std::filesystem;
using test::BackedUp;
using test::field;
using test::Files;
using test::HeldAnswers;
using test::noise;
using test::Words;

/// A tree with a disk in it, which can be mounted and taken away.
class MissingDisk : public testing::Test {
protected:
    void SetUp() override
    {
        if (const auto reason = test::enterMountNamespace())
            GTEST_SKIP() << *reason;
        account_.emplace();
        account_->write({{"here", "1"}});
        fs::create_directory(place());
    }

    [[nodiscard]] fs::path place() const { return account_->folder.path() / "disk"; }

    /// A backup while a disk with two files is mounted.
    void backUpWithDisk()
    {
        const test::Mount disk = test::Mount::memory(place());
        account_->write({{"disk/a", "a"}, {"disk/below/b", "b"}});
        const auto result = account_->backup();
        ASSERT_EQ(result.status, 0) << result.errors;
    }

    std::optional<BackedUp> account_;
};

TEST_F(MissingDisk, BelowANamedFolderHasFailedAndWhatItHeldIsKept)
{
    backUpWithDisk();
    for (int night = 0; night < 2; ++night) { // it is not forgotten after the first
        const auto result = account_->backup();
        EXPECT_EQ(result.status, 3);
        EXPECT_TRUE(says(result, "No disk is mounted at " + place().string() +
                                     ", but one was when it was last backed up, and held 3 items."))
            << result.errors;
        EXPECT_EQ(field(result, "failed"), 1);
        EXPECT_EQ(field(result, "carried_forward"), 4) << result.output; // a, below, b, the place
    }
    const auto target = account_->command.home().path() / "back";
    const auto restored = account_->run({"restore", account_->folder.path().string(), "--machine",
                                         "iMac", "--to", target.string()});
    EXPECT_EQ(platform::readFile(target / account_->folder.path().filename() / "disk/below/b"), "b")
        << restored.errors;
    const test::Mount disk = test::Mount::memory(place());
    account_->write({{"disk/a", "a"}, {"disk/below/b", "b"}});
    EXPECT_EQ(account_->backup().status, 0); // it is back
}

TEST_F(MissingDisk, IsNoticedWhereSomethingWasWrittenIntoItsPlace)
{
    backUpWithDisk();
    account_->write({{"disk/stray", "s"}});
    for (int night = 0; night < 3; ++night) {
        const auto result = account_->backup();
        EXPECT_EQ(result.status, 3);
        EXPECT_TRUE(says(result, "No disk is mounted at ")) << result.errors;
        EXPECT_TRUE(says(result, "and held 3 items.")) << result.errors;
        EXPECT_EQ(field(result, "stored"), night == 0 ? 1 : 0); // the stray
    }
    EXPECT_EQ(account_->run({"cat", place() / "below/b", "--machine", "iMac"}).output, "b");
    EXPECT_EQ(account_->run({"cat", place() / "stray", "--machine", "iMac"}).output, "s");
    fs::remove(place() / "stray");
    EXPECT_EQ(account_->backup().status, 3);
    EXPECT_EQ(account_->run({"cat", place() / "below/b", "--machine", "iMac"}).output, "b");
    EXPECT_EQ(account_->run({"cat", place() / "stray", "--machine", "iMac"}).status, 4);
}

TEST_F(MissingDisk, IsNoticedWhereOnlyFoldersAndNewFilesHaveItsNames)
{
    backUpWithDisk();
    account_->write({{"disk/a", "another"}, {"disk/below/new", "n"}});
    for (int night = 0; night < 3; ++night) {
        const auto result = account_->backup();
        EXPECT_EQ(result.status, 3);
        EXPECT_TRUE(says(result, "No disk is mounted at ")) << result.errors;
        EXPECT_TRUE(says(result, "and held 3 items.")) << result.errors;
        EXPECT_TRUE(says(result, "another item stands in its place")) << result.errors;
        EXPECT_EQ(field(result, "carried_forward"), 4) << result.output; // a, below, b, the place
        if (night == 1)
            fs::remove_all(place() / "below");
        if (night == 1)
            fs::create_directory(place() / "below");
    }
    EXPECT_EQ(account_->run({"cat", place() / "a", "--machine", "iMac"}).output, "a");
    EXPECT_EQ(account_->run({"cat", place() / "below/b", "--machine", "iMac"}).output, "b");
    const test::Mount disk = test::Mount::memory(place());
    account_->write({{"disk/a", "a"}, {"disk/below/b", "b"}});
    EXPECT_EQ(account_->backup().status, 0); // it is back
}

TEST_F(MissingDisk, IsNoticedWhereALinkOrAFileStandsInItsPlace)
{
    backUpWithDisk();
    const test::TemporaryFolder elsewhere;
    elsewhere.write("other", "o");
    for (const bool isLink : {true, false}) {
        fs::remove(place());
        if (isLink)
            fs::create_directory_symlink(elsewhere.path(), place());
        else
            account_->write({{"disk", "a file"}});
        const auto result = account_->backup();
        EXPECT_EQ(result.status, 3);
        EXPECT_TRUE(says(result, "No disk is mounted at ")) << result.errors;
        EXPECT_TRUE(says(result, "and held 3 items")) << result.errors;
        EXPECT_EQ(account_->run({"cat", place() / "below/b", "--machine", "iMac"}).output, "b");
    }
    EXPECT_EQ(account_->backup({"--exclude", "/disk"}).status, 0); // the cure
    EXPECT_EQ(account_->backup().status, 0);
}

TEST_F(MissingDisk, IsNoneWhereAnEmptyOneGaveWay)
{
    {
        const test::Mount disk = test::Mount::memory(place());
        ASSERT_EQ(account_->backup().status, 0);
    }
    fs::remove(place());
    account_->write({{"disk", "a file"}});
    EXPECT_EQ(account_->backup().status, 0);
    EXPECT_EQ(account_->run({"cat", place(), "--machine", "iMac"}).output, "a file");
}

TEST_F(MissingDisk, IsNoticedAboveTheNamedPath)
{
    const auto named = place() / "below";
    const auto backUp = [&] { return account_->run({"backup", named, "--system", "iMac"}); };
    {
        const test::Mount disk = test::Mount::memory(place());
        account_->write({{"disk/below/b", "b"}, {"disk/below/c", "c"}});
        ASSERT_EQ(backUp().status, 0);
    }
    account_->write({{"disk/below/README", "mount it"}});
    for (int night = 0; night < 2; ++night) {
        const auto result = backUp();
        EXPECT_EQ(result.status, 3);
        EXPECT_TRUE(says(result, "No disk is mounted at " + place().string())) << result.errors;
        EXPECT_EQ(account_->run({"cat", named / "b", "--machine", "iMac"}).output, "b");
    }
    const test::Mount disk = test::Mount::memory(place());
    account_->write({{"disk/below/b", "b"}, {"disk/below/c", "c"}});
    EXPECT_EQ(backUp().status, 0);
}

TEST_F(MissingDisk, IsToldByWhatReadsTheRunAndNothingNewerGivesWay)
{
    backUpWithDisk();
    account_->write({{"disk/a", "newer"}});
    ASSERT_EQ(account_->backup().status, 3);
    const std::string told = "Run 2 could not look at, read or store 2 items.";
    EXPECT_TRUE(says(account_->run({"verify", "--machine", "iMac"}), told));
    for (const Words& reading : std::vector<Words>{
             {"verify", "--machine", "iMac"},
             {"ls", account_->folder.path(), "--system", "iMac", "--at", "2"},
             {"search", "a", "--system", "iMac", "--at", "2"},
             {"diff", "1", "2", "--machine", "iMac"},
             {"restore", place() / "below", "--machine", "iMac", "--in-place", "-n"}}) {
        Words json = reading;
        json.emplace_back("--json");
        const auto read = account_->run(json);
        EXPECT_EQ(read.status, 0) << read.errors;
        EXPECT_EQ(field(read, "run_failed"), 2) << read.output;
        EXPECT_EQ(field(read, "carried_forward"), 4) << read.output;
        EXPECT_TRUE(says(read, told)) << read.errors;
    }
    const auto compared = account_->run({"diff", "1", "2", "--machine", "iMac", "--json"});
    EXPECT_EQ(field(compared, "earlier_run_failed"), 0);
    EXPECT_EQ(field(compared, "earlier_carried_forward"), 0);
    const auto before = account_->run({"verify", "--machine", "iMac", "--at", "1", "--json"});
    EXPECT_EQ(field(before, "run_failed"), 0);
    EXPECT_EQ(field(before, "carried_forward"), 0);
    Words words{"restore", account_->folder.path(), "--machine", "iMac", "--in-place"};
    const auto result = account_->run(words);
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_TRUE(says(result, told)) << result.errors;
    EXPECT_TRUE(says(result, "the run could not look at it")) << result.errors;
    EXPECT_EQ(platform::readFile(place() / "a"), "newer");
    EXPECT_EQ(platform::readFile(place() / "below/b"), "b"); // nothing stood there
    words.insert(words.end(), {"--overwrite", "always"});
    EXPECT_EQ(account_->run(words).status, 0);
    EXPECT_EQ(platform::readFile(place() / "a"), "a");
}

TEST_F(MissingDisk, IsNoticedWhereAFolderOfTheSameFileSystemWasMounted)
{
    const test::TemporaryFolder elsewhere;
    elsewhere.write("a", "a");
    {
        const test::Mount folder = test::Mount::again(elsewhere.path(), place());
        ASSERT_EQ(account_->backup().status, 0);
    }
    const auto result = account_->backup();
    EXPECT_EQ(result.status, 3);
    EXPECT_TRUE(says(result, "No disk is mounted at ")) << result.errors;
    EXPECT_EQ(account_->run({"cat", place() / "a", "--machine", "iMac"}).output, "a");
}

TEST_F(MissingDisk, IsNoMissingDiskWhenItsContentHasMovedOrTheRulesLeaveItOut)
{
    backUpWithDisk();
    EXPECT_EQ(account_->backup({"--exclude", "/disk"}).status, 0);
    backUpWithDisk();
    account_->write({{"disk/a", "a"}, {"disk/below/b", "b"}});
    EXPECT_EQ(account_->backup().status, 0);
}

TEST_F(MissingDisk, WhosePlaceIsGoneTooIsTold)
{
    backUpWithDisk();
    fs::remove(place());
    const auto result = account_->backup();
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(says(result, place().string() + " is not there, but a disk was mounted at it"))
        << result.errors;
}

TEST(BackupTells, APatternThatMatchesNothing)
{
    const BackedUp account;
    account.write({{"a.txt", "1"}, {"b.o", "2"}});
    const auto result = account.backup(
        {"--include", "*.txt", "--include", "*.dcx", "--exclude", "*.o", "--exclude", "/no/such"});
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(says(result, "Nothing that was looked at matches the pattern \"*.dcx\"."));
    EXPECT_TRUE(says(result, "Nothing that was looked at matches the pattern \"/no/such\"."));
    EXPECT_FALSE(says(result, "the pattern \"*.txt\"")) << result.errors;
    EXPECT_FALSE(says(result, "the pattern \"*.o\"")) << result.errors;
}

TEST(BackupTells, APatternThatIsNoneIsAWrongCommandLine)
{
    const test::TemporaryFolder empty;
    const test::Command stowline(empty.path());
    const auto other = stowline.home().write("other", "*.o\n*.a\n");
    const auto rules = stowline.home().write("rules", "*.o\n/\n");
    for (const auto& [words, sentence] :
         {std::pair(Words{"--exclude", ""}, std::string("--exclude: The value is empty.")),
          std::pair(Words{"--include", "/"}, std::string("\"/\" is not a pattern.")),
          std::pair(Words{"--exclude-from", other.string(), "--exclude-from", rules.string()},
                    "Line 2 of " + rules.string() + " is not a pattern.")}) {
        Words all{"backup", empty.path().string(), "-u", "ann"};
        all.insert(all.end(), words.begin(), words.end());
        const auto result = stowline(all);
        EXPECT_EQ(result.status, 2) << result.errors;
        EXPECT_TRUE(says(result, sentence)) << result.errors;
    }
}

TEST(BackupTells, AnEmptyValueIsAWrongCommandLine)
{
    const test::TemporaryFolder empty;
    const test::Command stowline(empty.path());
    for (const Words& words : {Words{"backup", "", "-u", "ann"},
                               {"backup", empty.path(), "", "-u", "ann"},
                               {"backup", empty.path(), "--profile", "", "-u", "ann"},
                               {"restore", "", "--in-place", "-u", "ann"},
                               {"restore", "/", "--to", "", "-u", "ann"},
                               {"restore", "/", "--in-place", "--at", "", "-u", "ann"},
                               {"verify", "--at", "", "-u", "ann"},
                               {"checksum", ""}}) {
        const auto result = stowline(words);
        EXPECT_EQ(result.status, 2) << words.front() << result.errors;
        EXPECT_TRUE(says(result, "The value is empty. Please give one, or leave the option out."))
            << result.errors;
    }
}

TEST(BackupTells, StandardInputIsStoredAloneAndBelowItsFolder)
{
    const test::TemporaryFolder folder;
    const test::Command stowline(folder.path());
    for (const Words& more : {Words{folder.path()}, {"--files-from", "/dev/null"}}) {
        Words words{"backup", "--stdin", "x", "-u", "ann"};
        words.insert(words.end(), more.begin(), more.end());
        const auto result = stowline(words);
        EXPECT_EQ(result.status, 2) << result.errors;
        EXPECT_TRUE(says(result, "--stdin stores standard input alone")) << result.errors;
    }
    for (const char* name : {".", "..", "a/..", "a/../..", "../a", "/etc/passwd", "a/", "/"}) {
        const auto result = stowline(Words{"backup", "--stdin", name, "-u", "ann"});
        EXPECT_EQ(result.status, 2) << name << result.errors;
        EXPECT_TRUE(says(result, "cannot be the name of --stdin.")) << name << result.errors;
    }
}

TEST(BackupTells, AListOfPathsThatIsEmptyIsToldOf)
{
    const BackedUp account;
    account.write({{"a", "1"}});
    const auto alone = account.run({"backup", "--system", "iMac", "--files-from", "/dev/null"});
    EXPECT_EQ(alone.status, 2);
    EXPECT_TRUE(says(alone, "no list of --files-from names a path")) << alone.errors;
    const auto beside = account.backup({"--files-from", "/dev/null"});
    EXPECT_EQ(beside.status, 0);
    EXPECT_TRUE(says(beside, "/dev/null (--files-from) names nothing.")) << beside.errors;
}

TEST(BackupTells, WhatStandardInputWasStoredAsIsListed)
{
    const BackedUp account;
    for (const char* name : {"a/b", "flat"}) {
        auto run = account.command.run({"backup", "--stdin", name, "--system", "iMac"},
                                       account.environment(), "text");
        ASSERT_EQ(test::runProgram(run).status, 0);
    }
    const auto listed = [&](const char* path) {
        const auto result = account.run({"ls", path, "--system", "iMac", "--at", "2", "--json"});
        EXPECT_EQ(result.status, 0) << result.errors;
        std::string names;
        for (const auto& line : test::jsonLines(result.output))
            names += line.contains("path") ? line["path"].get<std::string>() + "\n" : "";
        return names;
    };
    EXPECT_EQ(listed("/"), "/stdin\n");
    EXPECT_EQ(listed("/stdin"), "/stdin/a\n/stdin/flat\n");
    EXPECT_EQ(listed("/stdin/a"), "/stdin/a/b\n");
    EXPECT_EQ(account.run({"ls", "/other", "--system", "iMac", "--at", "2"}).status, 4);
}

TEST(BackupTells, NumbersThatAreNoneAreAWrongCommandLine)
{
    const test::TemporaryFolder empty;
    const test::Command stowline(empty.path());
    for (const Words& more : {Words{"--bwlimit", "-5"},
                              {"--bwlimit", "99999999999999999999"},
                              {"--bwlimit", "k"},
                              {"--part-size", "-5"},
                              {"--retry-time", "nan"},
                              {"--retry-time", "-nan"},
                              {"--jobs", "nan"},
                              {"--keep-last=-1"},
                              {"--keep-daily=-18446744073709551615"},
                              {"--keep-weekly", "99999999999999999999"},
                              {"--keep-monthly", "1.5"}}) {
        Words words{"backup", empty.path(), "-u", "ann"};
        words.insert(words.end(), more.begin(), more.end());
        EXPECT_EQ(stowline(words).status, 2) << more.back();
    }
    for (const char* size : {"500k", "64 KiB", "4mb", "100000"})
        EXPECT_NE(
            stowline(Words{"restore", "/", "--to", "x", "-u", "ann", "--bwlimit", size}).status, 2)
            << size;
}

TEST(BackupTells, TheRuleThatLeftAnItemOut)
{
    const BackedUp account;
    account.write({{"a", "1"}, {"skip.o", "2"}, {".h", "3"}});
    const auto result = account.run({"-v", "backup", account.folder.path(), "--system", "iMac",
                                     "--exclude", "*.o", "--skip-hidden"});
    const std::string folder = account.folder.path().string();
    EXPECT_TRUE(says(result, "excluded     " + folder + "/skip.o (pattern *.o)\n"))
        << result.output;
    EXPECT_TRUE(says(result, "excluded     " + folder + "/.h (hidden)\n")) << result.output;
}

TEST(BackupTells, AReaderThatClosedStandardOutput)
{
    const test::TemporaryFolder bundle;
    const test::Command stowline(bundle.path());
    test::ProgramRun run = stowline.run({"paths", bundle.path().string()});
    run.words.insert(run.words.begin(), {"/usr/bin/python3", "-c", R"py(
import os, signal, subprocess, sys
reader, writer = os.pipe()
os.close(reader)
signal.signal(signal.SIGPIPE, signal.SIG_IGN)
sys.exit(subprocess.run(sys.argv[1:], stdout=writer, restore_signals=False).returncode)
)py"});
    const auto result = test::runProgram(run);
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(says(result, "cannot be written to standard output: whoever reads it has closed "
                             "it."))
        << result.errors;
    EXPECT_FALSE(says(result, "disk"));
}

TEST(BackupTells, ThatThereIsNothingToGoOnWith)
{
    const BackedUp account;
    const auto result = account.run({"uploads", "resume", "--json", "--system", "iMac"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_TRUE(says(result, "There is nothing to go on with."));
    EXPECT_EQ(field(result, "run"), 0);
    devserver::Storage storage(account.server.data());
    EXPECT_TRUE(
        storage.search({.userName = "ann", .pageSize = 9}, "begun", "").value().items.empty());
}

TEST(BackupTells, ThatAFolderInThePlaceOfTheIndexIsSetAside)
{
    const BackedUp account;
    account.write({{"a", "1"}});
    ASSERT_EQ(account.backup().status, 0);
    const fs::path index = account.command.home().path() / ".local/state/stowline/index";
    fs::path file;
    for (const auto& entry : fs::directory_iterator(index))
        file = entry.path().extension() == ".db" ? entry.path() : file;
    for (int again = 0; again < 2; ++again) { // one that was set aside before gives way
        fs::remove_all(file);
        fs::create_directory(file);
        const auto result = account.backup();
        EXPECT_EQ(result.status, 0) << result.errors;
        EXPECT_TRUE(says(result, "The index of earlier runs is damaged; it is rebuilt."));
        EXPECT_TRUE(fs::is_directory(file.string() + ".unusable"));
        EXPECT_TRUE(fs::is_regular_file(file));
    }
}

// ---- runs that meet ----

TEST(TwoRuns, OfTwoProfilesWorkSideBySide)
{
    const BackedUp account;
    account.write({{"big", noise(400000, 1)}});
    HeldAnswers answers(account);
    answers.hold(test::partsFrom(account, 16384));
    test::BackgroundProgram first(account.backupRun({"--part-size", "16k"}));
    ASSERT_TRUE(answers.await()) << first.wait().errors;
    const auto second = account.backup({"--profile", "night"});
    EXPECT_EQ(second.status, 0) << second.errors;
    EXPECT_EQ(field(second, "stored"), 1);
    EXPECT_EQ(field(second, "run"), 1); // of a chain of its own
    EXPECT_TRUE(first.isRunning());
    answers.release();
    EXPECT_EQ(first.wait().status, 0);
    EXPECT_TRUE(account.journal().entries().empty());
}

TEST(TwoRuns, OfOneProfileAreToldWhichAndLeaveItAlone)
{
    const BackedUp account;
    account.write({{"big", noise(400000, 1)}});
    HeldAnswers answers(account);
    answers.hold(test::partsFrom(account, 0));
    test::BackgroundProgram first(account.backupRun({"--profile", "night"}));
    ASSERT_TRUE(answers.await()) << first.wait().errors;
    EXPECT_TRUE(says(account.run({"uploads", "list"}), "/big"));
    const auto second = account.backup({"--profile", "night"});
    EXPECT_EQ(second.status, 11);
    EXPECT_TRUE(says(second, "Another backup of this user with the profile \"night\" is running."))
        << second.errors;
    EXPECT_EQ(account.run({"uploads", "abandon", "--all", "--yes"}).status, 11);
    answers.release();
    EXPECT_EQ(first.wait().status, 0);
}

TEST(TwoRuns, ThatBeganAtOneMomentStoreOneRecordAndTell)
{
    // The first part that the first run sends, its note that it begins, gets no answer until the
    // other one has ended.
    const BackedUp account;
    account.write({{"big", noise(300000, 1)}});
    HeldAnswers answers(account);
    answers.hold(test::callsOf("/UploadFilePart"));
    test::BackgroundProgram first(account.backupRun());
    ASSERT_TRUE(answers.await()) << first.wait().errors;
    // The same machine, user and profile, with another state folder.
    const test::TemporaryFolder otherState;
    test::ProgramRun twin = account.backupRun();
    twin.environment["XDG_STATE_HOME"] = otherState.path().string();
    const auto whole = test::runProgram(twin);
    answers.release();
    const auto told = first.wait();
    // The one that ends first is recorded; the other does not overwrite it, and is told.
    EXPECT_EQ(whole.status, 0) << whole.errors;
    EXPECT_EQ(field(whole, "run"), 1);
    EXPECT_EQ(told.status, 3) << told.errors;
    EXPECT_TRUE(says(told, "Another run of this machine, user and profile began at the same "
                           "moment"))
        << told.errors;
    EXPECT_EQ(field(told, "run"), 0);
    const auto runs = account.run({"runs", "--json", "--machine", "iMac"});
    EXPECT_NE(runs.output.find("\"state\":\"finished\""), std::string::npos) << runs.output;
    EXPECT_EQ(account.run({"verify", "--machine", "iMac", "--read"}).status, 0);
}

TEST(RunRecords, ForgetWhatVanishedWithAFullRecord)
{
    const BackedUp account;
    Files files;
    for (int i = 0; i < 40; ++i)
        files.emplace("d" + std::to_string(i) + "/f", "x");
    account.write(files);
    ASSERT_EQ(account.backup().status, 0);
    fs::remove_all(account.folder.path() / "d0");
    files.erase("d0/f");
    for (auto& [name, content] : files)
        content = "another content";
    account.write(files);
    ASSERT_EQ(account.backup().status, 0); // a difference larger than half of a full record: full
    const fs::path index = account.command.home().path() / ".local/state/stowline/index";
    for (const auto& entry : fs::directory_iterator(index)) {
        if (entry.path().extension() != ".db")
            continue;
        const SQLite::Database database(entry.path().string());
        EXPECT_EQ(
            SQLite::Statement(database, "SELECT 1 FROM items WHERE kind IS NULL").executeStep(),
            false);
    }
}

TEST(BackupTells, AFolderOfARunIsShownWithASlashAndALinkWithItsTarget)
{
    const BackedUp account;
    account.write({{"d/e", "1"}, {"f", "2"}});
    std::filesystem::create_symlink("f", account.folder.path() / "l");
    ASSERT_EQ(account.run({"backup", account.folder.path(), "--system", "iMac"}).status, 0);
    const auto ended = [&](const std::string& folder, const std::string& end) {
        const auto result = account.run({"ls", folder, "--system", "iMac", "--at", "1"});
        EXPECT_EQ(result.status, 0) << result.errors;
        return result.output.find(end + "\n") != std::string::npos;
    };
    const std::string folder = account.folder.path();
    EXPECT_TRUE(ended(folder, " d/"));
    EXPECT_TRUE(ended(folder, " f"));
    EXPECT_TRUE(ended(folder, " l -> f"));
    EXPECT_FALSE(ended(folder, " f/"));
    EXPECT_FALSE(ended("/", "//"));
}

} // namespace
} // namespace stowline
