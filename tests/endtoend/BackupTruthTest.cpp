// What a backup says of itself is true: everything that is found is accounted for, and a success is
// one.
#include "tests/endtoend/HeldAnswers.h"
#include "tests/support/MountNamespace.h"

#include <gtest/gtest.h>

#include <csignal>
#include <fcntl.h>
#include <set>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

namespace stowline {
namespace {

using test::BackedUp;
using test::field;
using test::Files;
using test::HeldAnswers;
using test::noise;
using test::Words;

/// Whether the numbers of a result add up to what was found.
testing::AssertionResult addsUp(const test::ProgramResult& result)
{
    const auto number = [&result](const char* name) { return field(result, name).get<unsigned>(); };
    const unsigned ended = number("stored") + number("unchanged") + number("recorded") +
                           number("excluded") + number("failed");
    if (ended == number("found"))
        return testing::AssertionSuccess();
    return testing::AssertionFailure() << result.output;
}

TEST(BackupTruth, AnOptionsListSwallowsNoWordAfterIt)
{
    const BackedUp account;
    account.write({{"A/1", "1"}, {"A/x.o", "o"}, {"B/2", "2"}, {"B/y.tmp", "t"}});
    const auto result =
        account.run({"backup", "--json", "--system", "iMac", "--exclude", "*.o", "--exclude",
                     "*.tmp", account.folder.path() / "A", account.folder.path() / "B"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(account.stored(), (Files{{"A/1", "1"}, {"B/2", "2"}}));
    EXPECT_EQ(field(result, "excluded"), 2);
    EXPECT_TRUE(addsUp(result));
}

TEST(BackupTruth, PatternsAndPathsComeFromFilesToo)
{
    const BackedUp account;
    account.write({{"A/1", "1"}, {"A/x.o", "o"}, {"B/2", "2"}});
    const auto patterns = account.command.home().write("patterns", "# what is made\n*.o\n");
    const auto list =
        account.command.home().write("list", (account.folder.path() / "A").string() + "\n" +
                                                 (account.folder.path() / "B").string() + "\n");
    const auto result = account.run(
        {"backup", "--json", "--system", "iMac", "--exclude-from", patterns, "--files-from", list});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(account.stored(), (Files{{"A/1", "1"}, {"B/2", "2"}}));
}

TEST(BackupTruth, PathsComeFromStandardInputToo)
{
    const BackedUp account;
    account.write({{"A/1", "1"}, {"B/2", "2"}, {"C/3", "3"}});
    const std::string folder = account.folder.path();
    const auto result = test::runProgram(
        account.command.run({"backup", "--json", "--system", "iMac", "--files-from", "-"},
                            account.environment(), folder + "/A\n" + folder + "/B\n"));
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(account.stored(), (Files{{"A/1", "1"}, {"B/2", "2"}}));
}

TEST(BackupTruth, WhatCannotBeLookedAtHasFailed)
{
    const BackedUp account;
    account.write({{"closed/1", "1"}, {"closed/2", "2"}, {"open", "3"}});
    ASSERT_EQ(::chmod((account.folder.path() / "closed").c_str(), 0444), 0);
    auto run = account.backupRun();
    if (::geteuid() == 0) // whom modes do not bind but for these words
        run.words.insert(run.words.begin(),
                         {"/usr/bin/setpriv", "--bounding-set", "-dac_override,-dac_read_search"});
    const auto result = test::runProgram(run);
    ::chmod((account.folder.path() / "closed").c_str(), 0755);
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(field(result, "failed"), 2) << result.output;
    EXPECT_NE(result.errors.find("/closed/1"), std::string::npos) << result.errors;
    EXPECT_TRUE(addsUp(result));
}

TEST(BackupTruth, OfManyFailuresTwentyAreToldAndAllAreInAFile)
{
    const BackedUp account;
    for (int i = 10; i < 35; ++i) {
        account.write({{"closed" + std::to_string(i), "1"}});
        ASSERT_EQ(::chmod((account.folder.path() / ("closed" + std::to_string(i))).c_str(), 0), 0);
    }
    auto run = account.backupRun();
    if (::geteuid() == 0) // whom modes do not bind but for these words
        run.words.insert(run.words.begin(),
                         {"/usr/bin/setpriv", "--bounding-set", "-dac_override,-dac_read_search"});
    const auto result = test::runProgram(run);
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(field(result, "failed"), 25) << result.output;
    const auto file = account.command.home().path() / ".local/state/stowline/last-failures.txt";
    EXPECT_NE(result.errors.find("… and 5 more: all of them are in " + file.string() + "."),
              std::string::npos)
        << result.errors;
    const auto namesIn = [&](const std::string& text) {
        std::set<std::string> names;
        const std::string start = account.folder.path().string() + "/closed";
        for (auto at = text.find(start); at != std::string::npos; at = text.find(start, at + 1))
            names.insert(text.substr(at + start.size(), 2));
        return names.size();
    };
    EXPECT_EQ(namesIn(result.errors), 20U) << result.errors;
    const std::string list = platform::readFile(file).value_or("");
    EXPECT_EQ(namesIn(list), 25U) << list;
    EXPECT_EQ(std::ranges::count(list, '\n'), 25);
    struct stat status {};
    ASSERT_EQ(::stat(file.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600U);
}

TEST(BackupTruth, DatesOfAnyCenturyAreGivenBack)
{
    const BackedUp account;
    account.write({{"far", "in the year 2400"}, {"early", "in the year 1910"}});
    const auto setDate = [&](const char* name, std::int64_t seconds) {
        const timespec both[2] = {{seconds, 5}, {seconds, 5}};
        ASSERT_EQ(::utimensat(AT_FDCWD, (account.folder.path() / name).c_str(), both, 0), 0);
    };
    const auto dateAt = [](const std::filesystem::path& file) {
        struct stat found {};
        EXPECT_EQ(::stat(file.c_str(), &found), 0) << file;
        return std::pair(found.st_mtim.tv_sec, found.st_mtim.tv_nsec);
    };
    setDate("far", 13'569'465'600);
    setDate("early", -1'893'456'000);
    ASSERT_EQ(account.backup().status, 0);
    const auto target = account.command.home().path() / "back";
    const auto restored =
        account.run({"restore", account.folder.path(), "--machine", "iMac", "--to", target});
    EXPECT_EQ(restored.status, 0) << restored.errors;
    for (const char* name : {"far", "early"})
        EXPECT_EQ(dateAt(target / account.folder.path().filename() / name),
                  dateAt(account.folder.path() / name));
    const auto again = account.backup();
    EXPECT_EQ(field(again, "unchanged"), 2) << again.output;
}

TEST(BackupTruth, AFileTooLargeForTheLimitIsToldAndNothingDies)
{
    const BackedUp account;
    account.write({{"large", noise(200'000, 1)}, {"small", "s"}});
    ASSERT_EQ(account.backup().status, 0);
    auto run = account.command.run({"restore", account.folder.path(), "--json", "--machine", "iMac",
                                    "--to", account.command.home().path() / "back"},
                                   account.environment());
    run.words.insert(run.words.begin(), {"/usr/bin/prlimit", "--fsize=100000"});
    const auto result = test::runProgram(run);
    EXPECT_EQ(result.status, 3) << result.errors;
    EXPECT_NE(result.errors.find("/large"), std::string::npos) << result.errors;
    EXPECT_EQ(field(result, "failed"), 1) << result.output;
    EXPECT_EQ(platform::readFile(account.command.home().path() / "back" /
                                 account.folder.path().filename() / "small"),
              "s");
}

TEST(BackupTruth, PathsOfAnyLengthAreStored)
{
    const BackedUp account;
    const std::string name(200, 'n');
    int folder = ::open(account.folder.path().c_str(), O_RDONLY | O_DIRECTORY);
    for (int depth = 0; depth < 30; ++depth) { // 6,000 bytes of path
        ASSERT_EQ(::mkdirat(folder, name.c_str(), 0700), 0);
        const int next = ::openat(folder, name.c_str(), O_RDONLY | O_DIRECTORY);
        ::close(folder);
        folder = next;
    }
    const int file = ::openat(folder, "deep", O_CREAT | O_WRONLY, 0600);
    ASSERT_EQ(::write(file, "content", 7), 7);
    ::close(file);
    ::close(folder);
    const auto result = account.backup();
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "stored"), 1);
    EXPECT_TRUE(addsUp(result));
    const Files stored = account.stored();
    ASSERT_EQ(stored.size(), 1U);
    EXPECT_EQ(stored.begin()->first.size(), 30 * (name.size() + 1) + sizeof "deep" - 1);
    EXPECT_EQ(stored.begin()->second, "content");
}

TEST(BackupTruth, AFileIsOpenedInTheFolderInWhichItWasFound)
{
    const BackedUp account;
    const test::TemporaryFolder outside;
    outside.write("b", "from outside");
    account.write({{"d/a", noise(200000, 1)}, {"d/b", "from inside!"}});
    HeldAnswers answers(account);
    answers.hold(test::partsFrom(account, 65536, "d/a"));
    test::BackgroundProgram run(account.backupRun({"--part-size", "64k", "--jobs", "1"}));
    ASSERT_TRUE(answers.await()) << run.wait().errors; // b was found with a, and waits for it
    const auto folder = account.folder.path() / "d";
    std::filesystem::rename(folder, account.folder.path() / "moved");
    std::filesystem::create_directory_symlink(outside.path(), folder);
    answers.release();
    const auto result = run.wait();
    EXPECT_TRUE(addsUp(result));
    const Files stored = account.stored();
    ASSERT_TRUE(stored.contains("d/b")) << result.output << result.errors;
    EXPECT_EQ(stored.at("d/b"), "from inside!");
}

TEST(BackupTruth, ANamedLinkIsFollowed)
{
    const BackedUp account;
    account.write({{"real/1", "1"}});
    ASSERT_EQ(::symlink("real", (account.folder.path() / "link").c_str()), 0);
    const auto result =
        account.run({"backup", "--json", "--system", "iMac", account.folder.path() / "link"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(account.stored(), (Files{{"real/1", "1"}}));
    EXPECT_EQ(field(result, "recorded"), 2) << result.output; // the link, and the folder it names
}

TEST(BackupTruth, ANamedPipeIsRecorded)
{
    const BackedUp account;
    const auto pipe = account.folder.path() / "pipe";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    const auto result = account.run({"backup", "--json", "--system", "iMac", pipe});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "recorded"), 1);
}

TEST(BackupTruth, ARewriteOfTheSameSizeWithinTheSameSecondIsStored)
{
    const BackedUp account;
    account.write({{"a", "first"}});
    EXPECT_EQ(account.backup().status, 0);
    account.write({{"a", "again"}});
    EXPECT_EQ(field(account.backup(), "stored"), 1);
    EXPECT_EQ(account.stored(), (Files{{"a", "again"}}));
}

TEST(BackupTruth, WhatIsReadAndTheSameIsNotSent)
{
    const BackedUp account;
    account.write({{"a", "same"}});
    EXPECT_EQ(account.backup().status, 0);
    account.write({{"a", "same"}}); // another stamp
    const auto result = account.backup();
    EXPECT_EQ(field(result, "stored"), 0) << result.output;
    EXPECT_EQ(field(result, "unchanged"), 1);
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

TEST(BackupTruth, AFileReplacedDuringAnInterruptionIsNoMixture)
{
    const BackedUp account;
    const auto file = account.folder.path() / "big";
    account.write({{"big", noise(10 * 65536, 1)}});
    const auto time = std::filesystem::last_write_time(file);
    HeldAnswers answers(account);
    cutOff(account, answers, 3 * 65536);
    account.write({{"big", noise(10 * 65536, 2)}}); // the same size, the same inode
    std::filesystem::last_write_time(file, time);
    EXPECT_EQ(account.backup().status, 0);
    EXPECT_EQ(account.stored(), (Files{{"big", noise(10 * 65536, 2)}}));
    EXPECT_TRUE(account.journal().entries().empty());
}

TEST(BackupTruth, AFileThatHoldsMoreThanItsSizeSaysIsStoredWhole)
{
    const BackedUp account;
    const auto result = account.run({"backup", "/proc/version", "--system", "iMac", "--json"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "stored"), 1);
    const auto content = account.run({"cat", "/proc/version", "--machine", "iMac"});
    EXPECT_EQ(content.output, platform::readFile("/proc/version").value());
}

TEST(BackupTruth, AnUploadOfOneAccountNeverGoesIntoAnother)
{
    const BackedUp account;
    account.write({{"big", noise(10 * 65536, 1)}});
    HeldAnswers answers(account);
    cutOff(account, answers, 3 * 65536);
    const test::Environment bob{{"STOWLINE_USERNAME", "bob"}, {"STOWLINE_PASSWORD", "b"}};
    ASSERT_EQ(account.command(Words{"signup", "--email", "b@b.c"}, bob).status, 0);
    const auto result =
        account.command(Words{"uploads", "resume", "--json", "--system", "iMac"}, bob);
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "found"), 0);
    devserver::Storage storage(account.server.data());
    EXPECT_TRUE(
        storage.search({.userName = "bob", .pageSize = 9}, "big", "").value().items.empty());
    EXPECT_EQ(account.journal().entries().size(), 1U); // ann's, still there
}

TEST(BackupTruth, AListingThatFailsMakesNothingNew)
{
    const BackedUp account({"--fault", "GetAccountFilesAndFolders:*:fault"});
    account.write({{"a", "1"}});
    const auto result = account.backup({"--retry-time", "1"});
    EXPECT_NE(result.status, 0);
    EXPECT_TRUE(account.stored().empty());
}

/// The calls of one backup, sorted.
std::vector<std::string> callsOfABackup(const BackedUp& account)
{
    const test::Relayed relayed(account);
    const auto result = account.backup();
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "stored"), 0) << result.output;
    std::vector<std::string> calls;
    for (const std::string& request : relayed.relay.requests())
        calls.push_back(test::Relayed::callOf(request));
    std::ranges::sort(calls);
    return calls;
}

TEST(BackupTruth, ASecondRunListsNoFolder)
{
    const auto callsFor = [](int folders) {
        const BackedUp account;
        Files files;
        for (int i = 0; i < folders; ++i)
            files.emplace("folder" + std::to_string(i) + "/file", "content");
        account.write(files);
        EXPECT_EQ(account.backup().status, 0);
        // However fast this goes, the second run has every file to read, and its record is a full
        // one; when that begins the stamps are settled.
        for (const auto& [name, content] : files)
            std::filesystem::last_write_time(account.folder.path() / name,
                                             std::filesystem::file_time_type::clock::now());
        std::this_thread::sleep_for(std::chrono::milliseconds(2100));
        EXPECT_EQ(field(account.backup(), "unchanged"), folders);
        return callsOfABackup(account);
    };
    const auto calls = callsFor(25); // of which one version is asked for
    EXPECT_EQ(calls, callsFor(1));
    EXPECT_EQ(std::ranges::count(calls, "Authenticate"), 1);
    EXPECT_EQ(std::ranges::count(calls, "GetPhyPath"), 1);
    EXPECT_EQ(std::ranges::count(calls, "getMetaDataAboutFilesToRecover"), 1);
    EXPECT_EQ(std::ranges::count(calls, "/UploadFilePart"), 2); // its note and its record
}

TEST(BackupTruth, AnIndexThatIsLostIsMadeAnewFromTheRecord)
{
    const BackedUp account;
    account.write({{"a", "1"}, {"b", "2"}});
    ASSERT_EQ(account.backup().status, 0);
    std::filesystem::remove_all(account.command.home().path() / ".local/state/stowline/index");
    const auto result = account.backup();
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "stored"), 0) << result.output;
    EXPECT_EQ(field(result, "unchanged"), 2);
    EXPECT_NE(result.errors.find("is rebuilt"), std::string::npos) << result.errors;
}

TEST(BackupTruth, ANamedFolderThatBecameEmptyHasFailed)
{
    const BackedUp account;
    account.write({{"disk/a", "1"}, {"disk/b", "2"}});
    const std::string disk = account.folder.path() / "disk";
    const Words words{"backup", "--json", "--system", "iMac", disk};
    ASSERT_EQ(account.run(words).status, 0);
    std::filesystem::remove_all(disk);
    std::filesystem::create_directory(disk); // a mount point without its disk
    const auto result = account.run(words);
    EXPECT_EQ(result.status, 3);
    EXPECT_NE(result.errors.find("is empty, but held 2 items"), std::string::npos) << result.errors;
    EXPECT_GE(field(result, "carried_forward").get<int>(), 2);
    EXPECT_TRUE(addsUp(result));
}

TEST(BackupTruth, AScheduledLaunchIsNoPath)
{
    const BackedUp account;
    account.write({{"a", "1"}});
    const auto result = account.run(
        {"backup", "scheduled_launch", account.folder.path(), "--json", "--system", "iMac"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "stored"), 1);
}

TEST(BackupTruth, ADryRunNamesWhatItWouldDoAndStoresNothing)
{
    const BackedUp account;
    account.write({{"a", "1"}});
    const auto result = account.run(
        {"backup", account.folder.path(), "--system", "iMac", "--dry-run", "--no-progress"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_NE(result.output.find("would-store"), std::string::npos) << result.output;
    EXPECT_NE(result.output.find("/a"), std::string::npos);
    EXPECT_EQ(result.output.find("Stored"), std::string::npos);
    EXPECT_TRUE(account.stored().empty());
}

TEST(BackupTruth, VerboseNamesEachItemWithItsState)
{
    const BackedUp account;
    account.write({{"a", "1"}, {"skip.o", "2"}});
    const auto result = account.run(
        {"-v", "backup", account.folder.path(), "--system", "iMac", "--exclude", "*.o"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_NE(result.output.find("stored       " + (account.folder.path() / "a").string()),
              std::string::npos)
        << result.output;
    EXPECT_NE(result.output.find("excluded"), std::string::npos);
    EXPECT_EQ(result.errors, "") << "the log is not shown";
}

TEST(BackupTruth, StandardInputIsStoredUnderAName)
{
    const BackedUp account;
    auto run = account.command.run({"backup", "--json", "--system", "iMac", "--stdin", "dump.sql"},
                                   account.environment(), "rows");
    const auto result = test::runProgram(run);
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "stored"), 1);
    devserver::Storage storage(account.server.data());
    const auto page = storage.search({.userName = "ann", .pageSize = 9}, "dump.sql", "").value();
    ASSERT_EQ(page.items.size(), 1U);
    EXPECT_EQ(page.items[0].folder, "/stdin");
}

TEST(BackupTruth, StandardInputThatCannotBeBufferedKeepsWhatWasStoredAndSaysFromWhen)
{
    const BackedUp account;
    const auto store = [&account](const std::string& text, bool hasRoom) {
        auto run =
            account.command.run({"backup", "--json", "--system", "iMac", "--stdin", "dump.sql"},
                                account.environment(), text);
        if (!hasRoom)
            run.words.insert(run.words.begin(),
                             {"/bin/sh", "-c", "trap '' XFSZ; ulimit -f 2000; exec \"$0\" \"$@\""});
        return test::runProgram(run);
    };
    ASSERT_EQ(store("rows", true).status, 0);
    const auto failed = store(noise(3000000, 1), false);
    EXPECT_EQ(failed.status, 3) << failed.errors;
    EXPECT_EQ(field(failed, "failed"), 1) << failed.output;
    EXPECT_EQ(field(failed, "carried_forward"), 1) << failed.output;
    EXPECT_TRUE(says(failed, "Standard input cannot be buffered for sending: File too large."))
        << failed.errors;
    const auto listed = account.run({"ls", "/stdin", "--at", "2", "--system", "iMac", "--json"});
    EXPECT_NE(listed.output.find("\"stale\":true"), std::string::npos) << listed.output;
}

TEST(BackupTruth, AServiceThatTakesNoPartWithoutATicketGetsOne)
{
    const BackedUp account({"--require-ticket", "--ticket-seconds", "1"});
    const Files files{{"a", "1"}, {"b/c", noise(200000, 1)}};
    account.write(files);
    const auto result = account.backup({"--part-size", "16k", "--bwlimit", "60k"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "stored"), 2);
    EXPECT_EQ(account.stored(), files);
}

TEST(BackupTruth, AFileOfTheNameThatAScheduledLaunchPassesIsStored)
{
    const BackedUp account;
    account.write({{"scheduled_launch", "a file"}});
    auto run = account.command.run({"backup", "--json", "--system", "iMac", "scheduled_launch"},
                                   account.environment());
    run.words.insert(run.words.begin(),
                     {"/bin/sh", "-c", "cd \"$0\" && exec \"$@\"", account.folder.path()});
    const auto result = test::runProgram(run);
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(account.stored(), (Files{{"scheduled_launch", "a file"}}));
}

TEST(BackupTruth, APatternOfAllowedChangesThatIsNoneStopsTheRun)
{
    const BackedUp account;
    account.write({{"a", "1"}});
    const auto result = account.backup({"--allow-changing", "/"});
    EXPECT_EQ(result.status, 2) << result.errors;
    EXPECT_TRUE(says(result, "\"/\" is not a pattern.")) << result.errors;
    EXPECT_TRUE(account.stored().empty());
}

TEST(BackupTruth, FileSystemsThatAreLeftOutAreTold)
{
    if (const auto reason = test::enterMountNamespace())
        GTEST_SKIP() << *reason;
    const BackedUp account;
    account.write({{"a", "1"}, {"disk/under", "2"}, {"state/under", "3"}});
    const std::string disk = account.folder.path() / "disk";
    const std::string state = account.folder.path() / "state";
    const auto mount = test::Mount::memory(disk);
    ASSERT_EQ(::mount("proc", state.c_str(), "proc", 0, nullptr), 0);
    const auto result = account.backup({"--one-file-system"});
    ::umount2(state.c_str(), MNT_DETACH);
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_TRUE(says(result, "only shows the state of the system: " + state + ". "))
        << result.errors;
    EXPECT_TRUE(says(result, "other file systems are mounted there: " + disk + "."))
        << result.errors;
    EXPECT_NE(result.output.find("\"type\":\"note\""), std::string::npos) << result.output;
}

TEST(BackupTruth, AFileThatNeverRestsIsStoredFromACopy)
{
    const BackedUp account;
    account.write({{"log", noise(200000, 1)}});
    const auto file = account.folder.path() / "log";
    HeldAnswers answers(account);
    answers.hold(test::partsFrom(account, 32768));
    test::BackgroundProgram run(account.backupRun({"--part-size", "32k"}));
    ASSERT_TRUE(answers.await()) << run.wait().errors;
    std::ofstream(file, std::ios::app) << "more";
    answers.release();
    const auto result = run.wait();
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "changed_while_read"), 0);
    EXPECT_EQ(account.stored(), (Files{{"log", noise(200000, 1) + "more"}}));
    EXPECT_TRUE(account.journal().entries().empty());
}

TEST(BackupTruth, WhatVanishedFromTheServiceIsSentAgain)
{
    const BackedUp account;
    account.write({{"a", "1"}});
    ASSERT_EQ(account.backup().status, 0);
    {
        devserver::Storage storage(account.server.data());
        const auto page = storage.search({.userName = "ann", .pageSize = 9}, "a", "").value();
        const auto versions = storage.versions("ann", page.items.at(0).id);
        ASSERT_TRUE(storage.deleteVersion("ann", versions.at(0).listId));
    }
    const auto result = account.backup(); // one file: a thirtieth is all of it
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "stored"), 1) << result.output << result.errors;
    EXPECT_EQ(account.stored(), (Files{{"a", "1"}}));
}

/// Every file below a folder with its content.
Files filesBelow(const std::filesystem::path& folder)
{
    Files files;
    for (const auto& item : std::filesystem::recursive_directory_iterator(folder)) {
        if (item.is_regular_file())
            files.emplace(std::filesystem::relative(item.path(), folder),
                          platform::readFile(item.path()).value());
    }
    return files;
}

TEST(BackupTruth, WhatAKilledRunHadStoredLeavesNoEntryAndCanBeGivenBack)
{
    const BackedUp account;
    const Files files{{"a", "small"}, {"b", ""}, {"big", noise(400000, 1)}};
    account.write(files);
    HeldAnswers answers(account);
    answers.hold(test::partsFrom(account, 64U << 10, "big"));
    test::BackgroundProgram run(account.backupRun({"--part-size", "16k", "--jobs", "3"}));
    ASSERT_TRUE(answers.await()) << run.wait().errors;
    // Whether the index says of the small ones that they are registered is the kill's luck.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(2);
    while (account.stored().size() < 2 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(5)); // another process's database
    run.signal(SIGKILL);
    EXPECT_EQ(run.wait().status, 1000 + SIGKILL);
    answers.release();
    const auto result = account.backup();
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_TRUE(account.journal().entries().empty());
    const auto target = account.command.home().path() / "back";
    const auto restored = account.run(
        {"restore", account.folder.path().string(), "--machine", "iMac", "--to", target.string()});
    EXPECT_EQ(restored.status, 0) << restored.errors;
    EXPECT_EQ(filesBelow(target / account.folder.path().filename()), files);
}

} // namespace
} // namespace stowline
