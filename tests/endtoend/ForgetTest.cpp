// Forgetting runs, through the command and against the real service.
#include "stowline/platform/files/Files.h"
#include "tests/endtoend/Kept.h"
#include "tests/endtoend/OtherClock.h"
#include "tests/endtoend/Records.h"
#include "tests/support/PseudoTerminal.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>

namespace stowline {
namespace {

namespace fs = std::filesystem;
using test::BackedUp;
using test::field;
using test::Files;
using test::jsonLines;
using test::Kept;
using test::noise;
using test::Words;

Words forgetting(Words rules, Words more = {"--yes"})
{
    Words words{"forget", "--system", "iMac", "--json"};
    words.insert(words.end(), rules.begin(), rules.end());
    words.insert(words.end(), more.begin(), more.end());
    return words;
}

TEST(Forget, LeavesEveryKeptRunAsItWasAndGivesItsSpaceBack)
{
    Kept account({"--deletion-pause", "0", "--grace-days", "0"});
    account.runWith({{"a", noise(100000, 1)}, {"same", "s"}});
    account.runWith({{"a", noise(100000, 2)}, {"same", "s"}});
    account.runWith({{"a", noise(100000, 3)}, {"same", "s"}, {"b", "bb"}});
    const std::uint64_t before = account.usedBytes();
    const auto result = account.run(forgetting({"--keep-last", "1"}));
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "forgotten"), 2);
    EXPECT_EQ(field(result, "kept"), 1);
    EXPECT_EQ(field(result, "deleted_versions"), 2);
    EXPECT_EQ(field(result, "bytes"), 200000);
    EXPECT_EQ(field(result, "left"), 0);
    const std::uint64_t after = account.usedBytes();
    EXPECT_GE(before - after, 200000 - 4096U) << "records are small";
    // In whole kilobytes, and by the service's word.
    EXPECT_GE(field(result, "used_before").get<std::uint64_t>() -
                  field(result, "used_after").get<std::uint64_t>(),
              190000U);
    EXPECT_NE(result.errors.find("The service keeps nothing of what is deleted"), std::string::npos)
        << result.errors;
    account.expectAllWhole({3});
    EXPECT_EQ(account.run({"verify", "--read", "--machine", "iMac"}).status, 0);
    const auto next = account.backup();
    EXPECT_EQ(next.status, 0) << next.errors;
    EXPECT_EQ(field(next, "stored"), 0);
    EXPECT_EQ(field(next, "run"), 4);
}

TEST(Forget, KeepsWhatTheRulesKeepOverManyRunsAndFullRecords)
{
    Kept account({"--deletion-pause", "0", "--grace-days", "0"});
    account.manyRuns(9);
    ASSERT_EQ(account.run(forgetting({"--keep-last", "6"})).status, 0);
    account.expectAllWhole({4, 5, 6, 7, 8, 9});
    account.manyRuns(2);
    ASSERT_EQ(account.run(forgetting({"--keep-last", "3"})).status, 0);
    account.expectAllWhole({9, 10, 11});
    // All runs are of one day, one week and one month.
    const auto result = account.run(
        forgetting({"--keep-daily", "7", "--keep-weekly", "4", "--keep-monthly", "12"}));
    EXPECT_EQ(result.status, 0) << result.errors;
    account.expectAllWhole({11});
    // Nothing is left of what no kept run needs.
    const auto again = account.run(forgetting({"--keep-last", "1"}));
    EXPECT_EQ(again.status, 0) << again.errors;
    EXPECT_NE(again.errors.find("There is nothing to forget"), std::string::npos) << again.errors;
    EXPECT_EQ(account.versions().size(), account.held.at(11).size());
}

TEST(Forget, ADryRunSaysWhatAndHowMuchAndChangesNothing)
{
    Kept account({"--deletion-pause", "0"});
    account.runWith({{"a", noise(5000, 1)}});
    account.runWith({{"a", noise(5000, 2)}});
    const auto records = account.records();
    const auto versions = account.versions();
    const auto result = account.run(forgetting({"--keep-last", "1"}, {"-n"}));
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "would_forget"), 1);
    EXPECT_EQ(field(result, "would_delete"), 1);
    EXPECT_EQ(field(result, "bytes"), 5000);
    const auto lines = jsonLines(result.output);
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0].value("run", 0), 1);
    EXPECT_EQ(lines[0].value("state", ""), "would-forget");
    EXPECT_EQ(account.records(), records);
    EXPECT_EQ(account.versions(), versions);
    account.expectAllWhole({1, 2});
}

TEST(Forget, AsksAndTakesNoForNo)
{
    Kept account({"--deletion-pause", "0"});
    account.runWith({{"a", "one"}});
    account.runWith({{"a", "two"}});
    const auto noRule = account.run({"forget", "--system", "iMac"});
    EXPECT_EQ(noRule.status, 2);
    EXPECT_NE(noRule.errors.find("this command does not read them"), std::string::npos)
        << noRule.errors;
    EXPECT_EQ(account.run({"forget", "--system", "iMac", "--keep-last", "0", "--yes"}).status, 2);
    const auto nobody = account.run(forgetting({"--keep-last", "1"}, {}));
    EXPECT_EQ(nobody.status, 2);
    EXPECT_NE(nobody.errors.find("nobody to ask"), std::string::npos) << nobody.errors;
    const std::string question =
        "Forget 1 run (1) and delete what only it holds (1 version, 3 B)? [y/N] ";
    const auto run = account.command.run({"forget", "--system", "iMac", "--keep-last", "1"},
                                         account.environment());
    const auto no = test::talkOnTerminal(run, "[y/N] ", "n\n");
    EXPECT_EQ(no.status, 1) << no.screen;
    EXPECT_NE(no.screen.find(question), std::string::npos) << no.screen;
    EXPECT_NE(no.screen.find("Nothing was forgotten."), std::string::npos) << no.screen;
    account.expectAllWhole({1, 2});
    const auto yes = test::talkOnTerminal(run, "[y/N] ", "y\n");
    EXPECT_EQ(yes.status, 0) << yes.screen;
    account.expectAllWhole({2});
}

TEST(Forget, WhatIsForgottenIsNoRunForAnybodyAndSaidToBeForgotten)
{
    Kept account({"--deletion-pause", "0", "--grace-days", "0"});
    account.manyRuns(5);
    ASSERT_EQ(account.run(forgetting({"--keep-last", "2"})).status, 0);
    const bool isLink = account.records().contains("00000003-forgotten");
    const std::string folder = account.folder.path().string();
    for (const Words& words : {Words{"ls", folder, "--system", "iMac", "--at", "3"},
                               Words{"restore", folder, "--machine", "iMac", "--at", "3", "--to",
                                     account.command.home().path() / "x"},
                               Words{"verify", "--machine", "iMac", "--at", "3"},
                               Words{"diff", "3", "5", "--machine", "iMac"}}) {
        const auto result = account.run(words);
        EXPECT_EQ(result.status, 4) << words[0] << result.output;
        EXPECT_NE(result.errors.find(isLink ? "Run 3 is forgotten" : "run 3 was not found"),
                  std::string::npos)
            << result.errors;
    }
    const auto tested = account.backup({"--self-test", "100%,1G"});
    EXPECT_EQ(tested.status, 0) << tested.errors;
    EXPECT_EQ(field(tested, "self_test"), "done");
    EXPECT_EQ(field(tested, "self_test_missing"), 0);
}

/// Sixty files; run 3 is a difference that builds on run 2, and holds another "f1".
Files makeDifference(Kept& account)
{
    Files files;
    for (int i = 0; i < 60; ++i)
        files["f" + std::to_string(i)] = noise(300, static_cast<unsigned>(i));
    account.runWith(files);
    std::this_thread::sleep_for(std::chrono::milliseconds(2200)); // until the stamps are settled
    account.runWith(files);
    files["f1"] = "changed";
    account.runWith(files);
    return files;
}

TEST(Forget, ARecordThatOthersRestOnStaysAndIsTold)
{
    Kept account({"--deletion-pause", "0", "--grace-days", "0"});
    Files files = makeDifference(account);
    const auto would = account.run(forgetting({"--keep-last", "1"}, {"-n"}));
    EXPECT_EQ(field(would, "links"), 1);
    const auto result = account.run(forgetting({"--keep-last", "1"}));
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "links"), 1);
    EXPECT_EQ(field(result, "removed_records"), 1);
    EXPECT_EQ(field(result, "deleted_versions"), 1);
    EXPECT_FALSE(account.records().contains("00000001-finished"));
    EXPECT_TRUE(account.records().contains("00000002-finished"));
    EXPECT_TRUE(account.records().contains("00000002-forgotten"));
    EXPECT_EQ(account.statusPage().find("forgotten"), std::string::npos)
        << "the page shows the newest run, not the latest note";
    const auto runs = account.run({"runs", "--machine", "iMac"});
    EXPECT_NE(runs.errors.find("Run 2 is forgotten"), std::string::npos) << runs.errors;
    const auto older = account.run({"restore", account.folder.path().string(), "--at", "2",
                                    "--machine", "iMac", "--to", "/nonexistent"});
    EXPECT_EQ(older.status, 4) << older.errors;
    EXPECT_NE(older.errors.find("Run 2 is forgotten"), std::string::npos) << older.errors;
    account.expectAllWhole({3});
    const auto again = account.run(forgetting({"--keep-last", "1"}));
    EXPECT_EQ(again.status, 0);
    EXPECT_NE(again.errors.find("There is nothing to forget"), std::string::npos) << again.errors;
    // A machine that has seen nothing: the records that the newest names are all there.
    fs::remove_all(account.command.home().path() / ".local/state/stowline");
    account.expectAllWhole({3});
    std::this_thread::sleep_for(std::chrono::milliseconds(2200));
    files["f2"] = "changed";
    account.runWith(files);
    EXPECT_FALSE(account.records().contains("00000004-forgotten"));
    fs::remove_all(account.command.home().path() / ".local/state/stowline");
    account.expectAllWhole({3, 4});
    const auto linked = account.run({"verify", "--at", "3", "--machine", "iMac", "--json"});
    EXPECT_EQ(field(linked, "trust"), "linked") << linked.errors;
}

TEST(Forget, AKeptRunBehindForgottenOnesIsProvenByTheirRecords)
{
    Kept account({"--deletion-pause", "0", "--grace-days", "0"});
    for (int run = 1; run <= 4; ++run)
        account.runWith({{"a", std::to_string(run)}});
    test::setStoredBefore(account, "00000001-finished", "2026-01-01 12:00:00", "iMac", "default");
    const auto result = account.run(forgetting({"--keep-daily", "2"}));
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "forgotten"), 2);
    fs::remove_all(account.command.home().path() / ".local/state/stowline");
    account.expectAllWhole({1, 4});
    const auto linked = account.run({"verify", "--at", "1", "--machine", "iMac", "--json"});
    EXPECT_EQ(field(linked, "trust"), "linked") << linked.errors;
}

TEST(Forget, UndeletingBringsRunsBack)
{
    Kept account({"--deletion-pause", "0"});
    account.manyRuns(6);
    const auto result = account.run(forgetting({"--keep-last", "2"}));
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_GT(field(result, "deleted_versions"), 0);
    EXPECT_NE(
        result.errors.find("\"stowline undelete\" brings it back; its space is freed after that"),
        std::string::npos)
        << result.errors;
    account.expectAllWhole({5, 6});
    // A part alone brings no run back: the next forgetting deletes it again.
    const auto back = account.run({"undelete", "--system", "iMac"});
    EXPECT_EQ(back.status, 0) << back.errors;
    EXPECT_NE(back.errors.find("the next good run by these rules forgets them again"),
              std::string::npos)
        << back.errors;
    account.expectAllWhole({1, 2, 3, 4, 5, 6});
    EXPECT_EQ(account.run(forgetting({"--keep-last", "1"})).status, 0);
    account.expectAllWhole({6});
    EXPECT_EQ(account.run({"undelete", "--system", "iMac"}).status, 0);
    account.expectAllWhole({1, 2, 3, 4, 5, 6});
    account.manyRuns(1);
    account.expectAllWhole({1, 2, 3, 4, 5, 6, 7});
}

TEST(Forget, WhatAnotherChainHoldsStays)
{
    Kept account({"--deletion-pause", "0", "--grace-days", "0"});
    account.runWith({{"a", noise(5000, 1)}, {"b", noise(5000, 2)}});
    // The first run of another profile takes over what the service's listing shows.
    const auto other = account.backup({"--profile", "other"});
    ASSERT_EQ(other.status, 0) << other.errors;
    ASSERT_EQ(field(other, "stored"), 0);
    account.runWith({{"a", noise(5000, 3)}});
    const auto result = account.run(forgetting({"--keep-last", "1"}));
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "deleted_versions"), 0);
    EXPECT_EQ(account.run({"verify", "--read", "--profile", "other", "--machine", "iMac"}).status,
              0);
    EXPECT_EQ(account.runs(), std::vector<int>{2});
}

TEST(Forget, ARunThatBeginsAfterwardsDoesNotBelieveListings)
{
    Kept account({"--deletion-pause", "0", "--grace-days", "0"});
    (void)makeDifference(account);
    ASSERT_EQ(account.run(forgetting({"--keep-last", "1"})).status, 0);
    ASSERT_TRUE(account.records().contains("00000002-forgotten"));
    const auto other = account.backup({"--profile", "other"});
    EXPECT_EQ(other.status, 0) << other.errors;
    EXPECT_EQ(field(other, "stored"), 60);
    EXPECT_NE(other.errors.find("Runs were forgotten under this machine's name"), std::string::npos)
        << other.errors;
}

TEST(Forget, ARunThatHasBegunHoldsEverything)
{
    Kept account({"--deletion-pause", "0", "--grace-days", "0"});
    account.runWith({{"a", "1"}});
    account.runWith({{"a", "2"}});
    for (const Words& who : {Words{"--profile", "other"}, Words{"--system", "laptop"}}) {
        Words words{"backup", account.folder.path().string(), "--system", "iMac"};
        if (who[0] == "--system")
            words = {"backup", account.folder.path().string()};
        words.insert(words.end(), who.begin(), who.end());
        ASSERT_EQ(account.command(words, account.elsewhere()).status, 0);
        words.emplace_back("--rebuild-index"); // from what is there by then
        test::hideRecord(account, "00000001-finished", who[0] == "--system" ? "laptop" : "iMac",
                         who[0] == "--system" ? "default" : "other");
        const auto versions = account.versions();
        const auto held = account.run(forgetting({"--keep-last", "1"}));
        EXPECT_EQ(held.status, 5) << held.errors;
        EXPECT_NE(held.errors.find("has begun and not ended"), std::string::npos) << held.errors;
        EXPECT_EQ(account.versions(), versions);
        account.expectAllWhole({1, 2});
        // Once another run of it has come to its end, and a week has gone by.
        ASSERT_EQ(account.command(words, account.elsewhere()).status, 0);
        EXPECT_EQ(account.run(forgetting({"--keep-last", "1"})).status, 5);
        test::setStoredBefore(account, "00000001-begun", "2020-01-01 00:00:00",
                              who[0] == "--system" ? "laptop" : "iMac",
                              who[0] == "--system" ? "default" : "other");
        const auto dry = account.run(forgetting({"--keep-last", "1"}, {"-n"}));
        EXPECT_EQ(dry.status, 0) << dry.errors;
    }
    EXPECT_EQ(account.run(forgetting({"--keep-last", "1"})).status, 0);
    account.expectAllWhole({2});
}

TEST(Forget, AMachineThatDiedIsGivenUpByAPersonAWeekAfterItsLastSign)
{
    Kept account({"--deletion-pause", "0", "--grace-days", "0"});
    account.runWith({{"a", "1"}});
    account.runWith({{"a", "2"}});
    const Words laptop{"backup", account.folder.path().string(), "--system", "laptop"};
    ASSERT_EQ(account.command(laptop, account.elsewhere()).status, 0);
    test::hideRecord(account, "00000001-finished", "laptop", "default");
    const auto held = account.run(forgetting({"--keep-last", "1"}));
    EXPECT_EQ(held.status, 5) << held.errors;
    const std::string option = "stowline forget --given-up ";
    const auto at = held.errors.find(option);
    ASSERT_NE(at, std::string::npos) << held.errors;
    const auto from = at + option.size();
    const std::string run = held.errors.substr(from, held.errors.find('"', from) - from);
    ASSERT_TRUE(run.ends_with(".default/1")) << run;
    const Words word{"forget", "--system", "iMac", "--json", "--given-up", run};
    const auto soon = account.run(word);
    EXPECT_EQ(soon.status, 5) << soon.errors;
    EXPECT_NE(soon.errors.find("cannot be given up"), std::string::npos) << soon.errors;
    EXPECT_EQ(account.run({"forget", "--system", "iMac", "--given-up", run + "0"}).status, 4);
    test::setStoredBefore(account, "00000001-begun", "2020-01-01 00:00:00", "laptop", "default");
    EXPECT_EQ(account.run(forgetting({"--keep-last", "1"})).status, 5) << "nobody has said it";
    Words dry = word;
    dry.emplace_back("-n");
    EXPECT_EQ(field(account.run(dry), "given_up"), 0);
    EXPECT_EQ(account.run(forgetting({"--keep-last", "1"})).status, 5);
    const auto said = account.run(word);
    EXPECT_EQ(said.status, 0) << said.errors;
    EXPECT_EQ(field(said, "given_up"), 1);
    EXPECT_NE(said.errors.find("1 run is given up"), std::string::npos) << said.errors;
    account.expectAllWhole({1, 2});
    // Of every profile of this machine. One that gives a sign again is not gone.
    const auto other = account.backup({"--profile", "other", "--keep-last", "1"});
    EXPECT_EQ(field(other, "forgetting"), "done") << other.errors;
    test::setStoredBefore(account, "00000001-begun", "2020-01-02 00:00:00", "laptop", "default");
    EXPECT_EQ(account.run(forgetting({"--keep-last", "1"})).status, 5);
    EXPECT_EQ(account.run(word).status, 0);
    EXPECT_EQ(account.run(forgetting({"--keep-last", "1"})).status, 0);
    account.expectAllWhole({2});
}

TEST(Forget, ARunOfItsOwnThatWasCutOffHoldsUntilTheNextHasEnded)
{
    Kept account({"--deletion-pause", "0", "--grace-days", "0"});
    account.runWith({{"a", "1"}});
    account.runWith({{"a", "2"}});
    account.write({{"large", noise(1U << 20, 1)}});
    {
        test::BackgroundProgram backup(
            account.backupRun({"--part-size", "64k", "--bwlimit", "400k", "--jobs", "1"}));
        account.awaitSent(65536);
        backup.signal(SIGKILL);
        (void)backup.wait();
    }
    ASSERT_TRUE(account.records().contains("00000003-begun"));
    const auto held = account.run(forgetting({"--keep-last", "1"}));
    EXPECT_EQ(held.status, 5) << held.errors;
    EXPECT_NE(held.errors.find("Please run the backup again to its end"), std::string::npos)
        << held.errors;
    ASSERT_EQ(account.backup().status, 0);
    const auto result = account.run(forgetting({"--keep-last", "1"}));
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(account.restored(4), (Files{{"a", "2"}, {"large", noise(1U << 20, 1)}}));
}

TEST(Forget, ARunOfItsOwnFromALostStateFolderHoldsForAWeek)
{
    Kept account({"--deletion-pause", "0", "--grace-days", "0"});
    account.runWith({{"a", "1"}});
    account.runWith({{"a", "2"}});
    account.runWith({{"a", "3"}});
    test::hideRecord(account, "00000003-finished", "iMac", "default");
    fs::remove_all(account.command.home().path() / ".local/state/stowline");
    account.held.erase(3);
    account.runWith({{"a", "4"}});
    const auto held = account.run(forgetting({"--keep-last", "1"}));
    EXPECT_EQ(held.status, 5) << held.errors;
    EXPECT_NE(held.errors.find("a week after its last sign"), std::string::npos) << held.errors;
    for (const int run : {1, 2, 4})
        EXPECT_EQ(account.restored(run), account.held.at(run));
    test::setStoredBefore(account, "00000003-begun", "2020-01-01 00:00:00", "iMac", "default");
    const auto result = account.run(forgetting({"--keep-last", "1"}));
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "forgotten"), 2);
    EXPECT_EQ(account.restored(4), account.held.at(4));
}

TEST(Forget, ARecordThatCannotBeReadKeepsEverything)
{
    for (const char* name : {"00000001-finished", "00000002-finished", "00000003-finished"}) {
        Kept account({"--deletion-pause", "0", "--grace-days", "0"});
        account.runWith({{"a", "1"}});
        account.runWith({{"a", "2"}});
        account.runWith({{"a", "3"}});
        test::damageRecord(account, name);
        const auto versions = account.versions();
        const auto records = account.records();
        const auto result = account.run(forgetting({"--keep-last", "2"}));
        EXPECT_EQ(result.status, 7) << name << result.errors;
        EXPECT_EQ(account.versions(), versions);
        EXPECT_EQ(account.records(), records);
    }
}

TEST(Forget, WhatIsLostOrDamagedGoesToo)
{
    Kept account({"--deletion-pause", "0", "--grace-days", "0"});
    account.runWith({{"a", noise(5000, 1)}, {"b", noise(6000, 2)}});
    account.runWith({{"a", "2"}, {"b", "2"}});
    std::size_t spoilt = 0;
    for (const auto& entry : fs::recursive_directory_iterator(account.server.data() / "vol1")) {
        if (!entry.is_regular_file() || entry.file_size() < 5000)
            continue;
        ++spoilt;
        if (entry.file_size() == 5000)
            fs::remove(entry.path());
        else
            std::ofstream(entry.path(), std::ios::binary) << noise(6000, 3);
    }
    ASSERT_EQ(spoilt, 2U);
    const auto result = account.run(forgetting({"--keep-last", "1"}));
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "deleted_versions"), 2);
    EXPECT_EQ(field(result, "left"), 0);
    account.expectAllWhole({2});
}

TEST(Forget, AServiceThatShowsAnOlderStateIsNotBelieved)
{
    Kept account({"--deletion-pause", "0", "--grace-days", "0"});
    account.runWith({{"a", "1"}});
    account.runWith({{"a", "2"}});
    account.runWith({{"a", "3"}});
    test::hideRecord(account, "00000003-finished", "iMac", "default");
    test::hideRecord(account, "00000003-begun", "iMac", "default");
    const auto versions = account.versions();
    const auto result = account.run(forgetting({"--keep-last", "1"}));
    EXPECT_EQ(result.status, 7) << result.errors;
    EXPECT_EQ(account.versions(), versions);
}

TEST(Forget, RunsOfAnotherProfileThatAreNotShownMayNeedAnything)
{
    for (const bool isAllHidden : {true, false}) {
        Kept account({"--deletion-pause", "0", "--grace-days", "0"});
        account.runWith({{"a", noise(5000, 1)}});
        ASSERT_EQ(account.backup({"--profile", "other"}).status, 0);
        ASSERT_EQ(account.backup({"--profile", "other"}).status, 0);
        account.runWith({{"a", noise(5000, 2)}});
        for (const std::string name : {"00000002-finished", "00000002-begun"})
            test::hideRecord(account, name, "iMac", "other");
        if (isAllHidden) {
            for (const std::string name : {"00000001-finished", "00000001-begun"})
                test::hideRecord(account, name, "iMac", "other");
        }
        const auto versions = account.versions();
        const auto result = account.run(forgetting({"--keep-last", "1"}));
        EXPECT_EQ(result.status, 7) << result.errors;
        EXPECT_NE(result.errors.find("This machine has seen run 2 of "), std::string::npos)
            << result.errors;
        const auto backup = account.backup({"--keep-last", "1"});
        EXPECT_EQ(backup.status, 0) << backup.errors;
        EXPECT_EQ(field(backup, "forgetting"), "failed") << backup.errors;
        EXPECT_EQ(account.versions(), versions);
        // What the message says.
        ASSERT_EQ(account.backup({"--profile", "other", "--rebuild-index"}).status, 0);
        EXPECT_EQ(account.run(forgetting({"--keep-last", "1"})).status, 0);
        EXPECT_EQ(
            account.run({"verify", "--read", "--profile", "other", "--machine", "iMac"}).status, 0);
    }
}

TEST(Forget, DaysAreThoseOfTheServicesClock)
{
    Kept account({"--deletion-pause", "0", "--grace-days", "0"});
    for (int run = 1; run <= 4; ++run)
        account.runWith({{"a", std::to_string(run)}});
    // The machine's own clock says that all runs are of one day.
    test::setStoredBefore(account, "00000001-finished", "2026-01-01 12:00:00", "iMac", "default");
    test::setStoredBefore(account, "00000002-finished", "2026-01-02 12:00:00", "iMac", "default");
    test::setStoredBefore(account, "00000003-finished", "2026-01-02 13:00:00", "iMac", "default");
    auto result = account.run(forgetting({"--keep-daily", "2"}, {"-n"}));
    EXPECT_EQ(field(result, "would_forget"), 2) << result.errors; // 1 and 2
    EXPECT_EQ(jsonLines(result.output).at(1).value("stored", ""), "2026-01-02T12:00:00Z");
    // A service that does not tell when.
    test::setStoredBefore(account, "00000002-finished", "some day", "iMac", "default");
    result = account.run(forgetting({"--keep-daily", "1"}));
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_NE(result.errors.find("The service does not say when it stored 1 run"),
              std::string::npos)
        << result.errors;
    account.expectAllWhole({2, 4});
}

/// Forgetting with another clock of this machine.
test::ProgramResult forgetWithClock(const BackedUp& account, const std::string& shift,
                                    const Words& rules, const Words& more)
{
    return test::runWithClock(account.command.run(forgetting(rules, more), account.environment()),
                              shift);
}

TEST(Forget, AMachineWhoseClockIsAYearAheadForgetsNothingByIt)
{
    if (const auto why = test::whyNoOtherClock(); !why.empty())
        GTEST_SKIP() << why;
    Kept account({"--deletion-pause", "0", "--grace-days", "0"});
    test::threeRunsOfThreeDays(account);
    const Words rules{"--keep-daily", "2", "--keep-monthly", "2"};
    for (const char* shift : {"+1y", "-1y"}) {
        const auto result = forgetWithClock(account, shift, rules, {"-n"});
        EXPECT_EQ(result.status, 0) << result.errors;
        EXPECT_EQ(field(result, "would_forget"), 1) << shift << result.output;
        EXPECT_EQ(jsonLines(result.output).at(0).value("run", 0), 1);
    }
    // A run of another profile that was cut off just now is not a week old by any clock but this.
    ASSERT_EQ(account.backup({"--profile", "other"}).status, 0);
    ASSERT_EQ(account.backup({"--profile", "other"}).status, 0);
    test::hideRecord(account, "00000001-finished", "iMac", "other");
    const auto result = forgetWithClock(account, "+1y", rules, {"--yes"});
    EXPECT_EQ(result.status, 5) << result.errors;
    account.expectAllWhole({1, 2, 3});
}

TEST(Forget, AProviderWithoutDeletionIsSaidToHaveNone)
{
    Kept account({"--deletion-pause", "0"});
    account.runWith({{"a", "1"}});
    account.runWith({{"a", "2"}});
    account.removeFromSettings({"DeleteFilesInBulk"});
    const auto records = account.records();
    const auto result = account.run(forgetting({"--keep-last", "1"}));
    EXPECT_EQ(result.status, 10) << result.errors;
    EXPECT_NE(result.errors.find("DeleteFilesInBulk"), std::string::npos) << result.errors;
    EXPECT_EQ(account.records(), records);
}

TEST(Forget, ABackupOfTheProfileKeepsItAway)
{
    Kept account({"--deletion-pause", "0"});
    account.runWith({{"a", "1"}});
    account.runWith({{"a", "2"}});
    const fs::path file = account.command.home().path() / ".local/state/stowline/backup.lock";
    test::BackgroundProgram holder(
        {{"/usr/bin/flock", file.string(), "/bin/sh", "-c", "echo held; read line"}});
    ASSERT_EQ(holder.readLine(), "held");
    const auto result = account.run(forgetting({"--keep-last", "1"}));
    EXPECT_EQ(result.status, 11) << result.errors;
    account.expectAllWhole({1, 2});
    holder.closeInput();
}

/// Lets the service hold a note that a run of the machine's only chain is forgotten.
void putNote(const BackedUp& account, const std::string& name)
{
    devserver::Storage storage(account.server.data());
    const std::string folder =
        test::recordIn(storage, "00000001-finished", "iMac", "default").folder;
    const devserver::UploadPlace place{"ann", storage.uploadPath("ann", 99, "n"), "note"};
    (void)storage.registerFile(
        {.place = place, .systemName = "iMac", .folder = folder, .name = name});
    ASSERT_TRUE(storage.held(place)->isRegistered);
}

TEST(Forget, ABackupWhoseFoundationIsForgottenMeanwhileHasNoRecord)
{
    Kept account({"--deletion-pause", "0"});
    account.runWith({{"a", "1"}});
    account.runWith({{"a", "2"}});
    account.write({{"large", noise(1U << 20, 1)}});
    test::BackgroundProgram backup(
        account.backupRun({"--part-size", "64k", "--bwlimit", "400k", "--jobs", "1"}));
    account.awaitSent(65536);
    putNote(account, "00000002-forgotten");
    const auto result = backup.wait();
    EXPECT_EQ(result.status, 3) << result.errors;
    EXPECT_NE(
        result.errors.find("Run 2, which this one builds on, has been forgotten since it began."),
        std::string::npos)
        << result.errors;
    EXPECT_FALSE(account.records().contains("00000003-finished"));
    // The next one begins with what is kept.
    const auto next = account.backup();
    EXPECT_EQ(next.status, 0) << next.errors;
    EXPECT_EQ(field(next, "run"), 4);
    EXPECT_EQ(account.restored(4), (Files{{"a", "2"}, {"large", noise(1U << 20, 1)}}));
    EXPECT_EQ(account.restored(1), (Files{{"a", "1"}}));
}

TEST(Forget, WhateverChangesTheRecordsMeanwhileEndsIt)
{
    Kept account({"--deletion-pause", "0", "--grace-days", "0"});
    account.runWith({{"a", "1"}});
    account.runWith({{"a", "2"}});
    const auto versions = account.versions();
    const auto run = account.command.run({"forget", "--system", "iMac", "--keep-last", "1"},
                                         account.environment());
    const auto held =
        test::talkOnTerminal(run, {{.prompt = "[y/N] ", .answer = "y\n", .meanwhile = [&] {
                                        const auto other = account.backup({"--profile", "other"});
                                        EXPECT_EQ(other.status, 0) << other.errors;
                                    }}});
    EXPECT_EQ(held.status, 5) << held.screen;
    EXPECT_NE(held.screen.find("The records of the account changed meanwhile"), std::string::npos)
        << held.screen;
    EXPECT_EQ(account.versions(), versions);
    EXPECT_EQ(account.runs(), std::vector<int>{2}) << "run 1 is marked already";
    // What the other run took over is its own from now on.
    EXPECT_EQ(account.run(forgetting({"--keep-last", "1"})).status, 0);
    account.expectAllWhole({2});
    EXPECT_EQ(account.run({"verify", "--read", "--profile", "other", "--machine", "iMac"}).status,
              0);
}

/// How many kills: some, or, in the long form of the tests, two hundred.
int killCount()
{
    return std::getenv("STOWLINE_LONG_TESTS") != nullptr ? 200 : 6;
}

TEST(Forget, KilledAtAnyMomentLosesNothingThatAKeptRunNeedsAndGoesOn)
{
    Kept account({"--deletion-pause", "0", "--grace-days", "0"});
    account.manyRuns(6);
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(account.run(forgetting({"--keep-last", "3"})).status, 0);
    const auto whole = std::chrono::steady_clock::now() - start;
    int unfinished = 0;
    const int kills = killCount();
    for (int kill = 0; kill < kills; ++kill) {
        account.manyRuns(2);
        const int newest = account.held.rbegin()->first;
        {
            Words words = forgetting({"--keep-last", "3"});
            test::BackgroundProgram program(account.command.run(words, account.environment()));
            std::this_thread::sleep_for(whole * kill / kills); // each at another moment
            if (program.isRunning()) {
                ++unfinished;
                program.signal(SIGKILL);
            }
            (void)program.wait();
        }
        for (const int run : {newest - 2, newest - 1, newest})
            EXPECT_EQ(account.restored(run), account.held.at(run)) << "kill " << kill;
        const auto listed = account.runs(); // whatever is offered is whole
        for (const int run : listed)
            EXPECT_EQ(account.restored(run), account.held.at(run)) << "kill " << kill;
        if (kill % 3 == 0)
            continue; // the next one meets what several kills left
        const auto next = account.run(forgetting({"--keep-last", "3"}));
        EXPECT_EQ(next.status, 0) << next.errors;
        account.expectAllWhole({newest - 2, newest - 1, newest});
    }
    EXPECT_GT(unfinished, kills / 3);
    EXPECT_EQ(account.run(forgetting({"--keep-last", "1"})).status, 0);
    const int newest = account.held.rbegin()->first;
    account.expectAllWhole({newest});
    EXPECT_EQ(account.versions().size(), account.held.at(newest).size()) << "nothing is left over";
    const fs::path spool = account.command.home().path() / ".local/state/stowline/spool";
    EXPECT_TRUE(fs::is_empty(spool)) << "no temporary file stays";
}

} // namespace
} // namespace stowline
