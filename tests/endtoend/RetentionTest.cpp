// Runs that a backup forgets by the rules of its profile, and what suspends that.
#include "stowline/platform/files/Files.h"
#include "tests/endtoend/Kept.h"
#include "tests/endtoend/Records.h"
#include "tests/support/PseudoTerminal.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <thread>

namespace stowline {
namespace {

namespace fs = std::filesystem;
using test::field;
using test::Files;
using test::Kept;
using test::noise;
using test::ProgramResult;
using test::says;
using test::Words;

constexpr const char* kToken = "token-4711";
/// What few of the items of a folder are: more stay than go, with those above it.
constexpr int kManyFiles = 60;

/// An account whose service takes a token, and a backup that keeps some runs and tells of itself.
class Retained : public Kept {
public:
    explicit Retained(const Words& more = {}) : Kept(arguments(more)) {}

    [[nodiscard]] ProgramResult keepRun(const std::string& last, Words more = {}) const
    {
        more.insert(more.end(), {"--keep-last", last, "--email", "ann@b.example", "--monitor"});
        auto run = backupRun(more);
        run.environment.insert_or_assign("STOWLINE_MONITOR_TOKEN", kToken);
        return test::runProgram(run);
    }

    /// The report of the last backup.
    [[nodiscard]] std::string report() const
    {
        const fs::path saved = command.home().path() / "report.html";
        EXPECT_EQ(run({"email", "--save", saved}).status, 0);
        return platform::readFile(saved).value_or("");
    }

    /// The subjects of all e-mails.
    [[nodiscard]] std::string mails() const
    {
        std::string text;
        for (const auto& mail : fs::directory_iterator(server.data() / "mail"))
            text += platform::readFile(mail.path()).value_or("");
        return text;
    }

    [[nodiscard]] bool pageShows(const std::string& words) const
    {
        return statusPage().find(words) != std::string::npos;
    }

    [[nodiscard]] fs::path state() const { return command.home().path() / ".local/state/stowline"; }

private:
    [[nodiscard]] static Words arguments(const Words& more)
    {
        static const test::TemporaryFolder tokens;
        Words words{"--deletion-pause", "0", "--monitoring-tokens",
                    tokens.write("tokens", std::string(kToken) + "\n").string()};
        words.insert(words.end(), more.begin(), more.end());
        return words;
    }
};

/// So many files, of which those from a number on are there.
Files filesFrom(int first)
{
    Files files;
    for (int i = first; i < kManyFiles; ++i)
        files["f" + std::to_string(i)] = "content " + std::to_string(i);
    return files;
}

TEST(Retention, ForgetsByTheRulesAfterAGoodRunAndSaysWhat)
{
    Retained account({"--grace-days", "0"});
    account.write({{"a", noise(100000, 1)}, {"same", "s"}});
    const auto first = account.keepRun("2");
    EXPECT_EQ(first.status, 0) << first.errors;
    EXPECT_EQ(field(first, "forgetting"), "done");
    EXPECT_EQ(field(first, "forgotten_runs"), 0);
    EXPECT_TRUE(field(first, "used_before").is_null()) << "nothing was changed";
    account.write({{"a", noise(100000, 2)}});
    ASSERT_EQ(account.keepRun("2").status, 0);
    account.write({{"a", noise(100000, 3)}});
    const auto third = account.keepRun("2");
    EXPECT_EQ(third.status, 0) << third.errors;
    EXPECT_EQ(field(third, "forgetting"), "done");
    EXPECT_EQ(field(third, "forgotten_runs"), 1);
    EXPECT_EQ(field(third, "kept_runs"), 2);
    EXPECT_EQ(field(third, "deleted_versions"), 1);
    EXPECT_EQ(field(third, "deleted_bytes"), 100000);
    EXPECT_GE(field(third, "used_before").get<std::uint64_t>() -
                  field(third, "used_after").get<std::uint64_t>(),
              90000U);
    EXPECT_EQ(account.runs(), (std::vector<int>{2, 3}));
    EXPECT_EQ(account.restored(2), (Files{{"a", noise(100000, 2)}, {"same", "s"}}));
    EXPECT_EQ(account.restored(3), (Files{{"a", noise(100000, 3)}, {"same", "s"}}));
    EXPECT_EQ(account.versions().size(), 3U);
    const std::string html = account.report();
    EXPECT_NE(html.find("Forgot 1 run, kept 2 runs; deleted 1 version, 100.0 kB."),
              std::string::npos)
        << html;
    EXPECT_NE(html.find("The service says that the account used "), std::string::npos) << html;
    EXPECT_NE(html.find("class=\"good\""), std::string::npos);
    EXPECT_TRUE(account.pageShows("ForgettingEnded"));
    EXPECT_FALSE(account.pageShows("WithErrors"));
    // For people.
    account.write({{"a", noise(100000, 4)}});
    const auto told = account.run(
        {"backup", account.folder.path().string(), "--system", "iMac", "--keep-daily", "1"});
    EXPECT_EQ(told.status, 0) << told.errors;
    EXPECT_TRUE(says(told, "Forgot 2 runs, kept 1 run; deleted 2 versions, 200.0 kB."))
        << told.output;
    EXPECT_TRUE(says(told, "The service keeps nothing of what is deleted")) << told.errors;
    EXPECT_EQ(account.runs(), std::vector<int>{4});
}

TEST(Retention, StandsInTheProfileOfTheConfiguration)
{
    Retained account;
    const fs::path file = account.command.home().path() / ".config/stowline/config.toml";
    const std::string text = "[profile.docs]\n"
                             "paths = [\"" +
                             account.folder.path().string() +
                             "\"]\n"
                             "keep-last = 1\n";
    fs::create_directories(file.parent_path());
    ASSERT_TRUE(platform::writeFileAtomically(file, text));
    EXPECT_EQ(account.command(Words{"config", "check"}).status, 0);
    account.write({{"a", "1"}});
    const Words docs{"backup", "--system", "iMac", "--profile", "docs", "--json"};
    ASSERT_EQ(account.run(docs).status, 0);
    ASSERT_EQ(account.backup().status, 0);
    account.write({{"a", "2"}});
    const auto second = account.run(docs);
    EXPECT_EQ(second.status, 0) << second.errors;
    EXPECT_EQ(field(second, "forgotten_runs"), 1);
    // What has no such rule is not asked.
    const auto other = account.backup();
    EXPECT_EQ(other.status, 0) << other.errors;
    EXPECT_EQ(field(other, "forgetting"), "");
    EXPECT_EQ(account.runs(), (std::vector<int>{1, 2}));
    const auto never = account.backup({"--keep-last", "0"});
    EXPECT_EQ(field(never, "forgetting"), "") << "no rule at all";
    EXPECT_EQ(account.runs(), (std::vector<int>{1, 2, 3}));
    ASSERT_TRUE(
        platform::writeFileAtomically(file, text + "keep-dayly = 2\nkeep-weekly = \"x\"\n"));
    const auto wrong = account.command(Words{"config", "check"});
    EXPECT_EQ(wrong.status, 10);
    EXPECT_TRUE(says(wrong, ":4:1: \"keep-dayly\" is not an option of \"stowline backup\" that a "
                            "profile can set. Did you mean \"keep-daily\"?"))
        << wrong.output;
    EXPECT_TRUE(
        says(wrong, ":5:1: \"keep-weekly\": This must be a whole number of 0 or more, not \"x\"."))
        << wrong.output;
}

TEST(Retention, FollowsNoRunInWhichAnythingFailed)
{
    Retained account;
    account.write({{"a", "1"}});
    ASSERT_EQ(account.keepRun("1").status, 0);
    const auto failing = account.keepRun("1", {"/nonexistent/at-all"});
    EXPECT_EQ(failing.status, 3);
    EXPECT_EQ(field(failing, "forgetting"), "not-done");
    EXPECT_TRUE(says(failing, "No runs were forgotten, for not all went well")) << failing.errors;
    EXPECT_EQ(account.runs(), (std::vector<int>{1, 2}));
    EXPECT_EQ(account.keepRun("1", {"-n"}).status, 0);
    EXPECT_EQ(account.runs(), (std::vector<int>{1, 2}));
    // Nor one whose self-test finds that something is lost: an earlier run may have it.
    for (const auto& entry : fs::recursive_directory_iterator(account.server.data() / "vol1")) {
        if (entry.is_regular_file() && entry.file_size() == 1)
            std::ofstream(entry.path(), std::ios::binary) << "x";
    }
    const auto lost = account.keepRun("1", {"--self-test", "100%"});
    EXPECT_EQ(lost.status, 7) << lost.errors;
    EXPECT_EQ(field(lost, "forgetting"), "not-done");
    EXPECT_EQ(account.runs(), (std::vector<int>{1, 2, 3}));
}

TEST(Retention, ThatFailsLeavesAGoodBackupGoodAndIsTold)
{
    Retained account;
    account.write({{"a", "1"}});
    ASSERT_EQ(account.keepRun("1").status, 0);
    account.removeFromSettings({"DeleteFilesInBulk"});
    const auto result = account.keepRun("1", {"--alert-after", "1d"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "forgetting"), "failed");
    EXPECT_TRUE(says(result, "No runs were forgotten: Deleting is not configured"))
        << result.errors;
    EXPECT_NE(field(result, "message").get<std::string>().find("Deleting is not configured"),
              std::string::npos);
    EXPECT_EQ(account.runs(), (std::vector<int>{1, 2}));
    const std::string html = account.report();
    EXPECT_NE(html.find("<strong>Everything that was found is backed up; runs could not be "
                        "forgotten.</strong>"),
              std::string::npos)
        << html;
    EXPECT_NE(html.find("Deleting is not configured"), std::string::npos) << html;
    EXPECT_EQ(html.find("class=\"good\""), std::string::npos);
    EXPECT_EQ(html.find("class=\"bad\""), std::string::npos);
    EXPECT_NE(account.mails().find(": runs could not be forgotten"), std::string::npos);
    EXPECT_FALSE(account.pageShows("BackupEndedWithErrors"));
    EXPECT_TRUE(account.pageShows("ForgettingEndedWithErrors"));
}

TEST(Retention, WithAProviderThatGivesNothingBackIsSaidToBeImpossible)
{
    Retained account;
    account.removeFromSettings({"GetRestoreTicket", "DownloadFilePart"});
    for (int run = 1; run <= 3; ++run) {
        account.write({{"a", std::to_string(run)}});
        const auto result = account.keepRun("1");
        EXPECT_EQ(result.status, 0) << result.errors;
        EXPECT_EQ(field(result, "forgetting"), "failed") << result.errors;
        EXPECT_TRUE(says(result, "No runs were forgotten: ")) << result.errors;
        EXPECT_FALSE(says(result, "gone")) << result.errors;
        EXPECT_EQ(field(result, "stored"), 1) << "and each run is one";
    }
}

TEST(Retention, GivesWayToARunThatHasBegunElsewhereAndGoesOnAfterTheNext)
{
    Retained account({"--grace-days", "0"});
    account.write({{"a", "1"}});
    ASSERT_EQ(account.keepRun("1").status, 0);
    const Words laptop{"backup", account.folder.path().string(), "--system", "laptop"};
    ASSERT_EQ(account.command(laptop, account.elsewhere()).status, 0);
    ASSERT_EQ(account.command(laptop, account.elsewhere()).status, 0);
    test::hideRecord(account, "00000002-finished", "laptop", "default");
    account.write({{"a", "2"}});
    const auto held = account.keepRun("1");
    EXPECT_EQ(held.status, 0) << held.errors;
    EXPECT_EQ(field(held, "forgetting"), "later");
    EXPECT_TRUE(says(held, "No runs were forgotten: Run 2 of ")) << held.errors;
    EXPECT_EQ(account.runs(), (std::vector<int>{1, 2}));
    EXPECT_NE(account.report().find("class=\"good\""), std::string::npos);
    EXPECT_TRUE(account.pageShows("ForgettingPutOff"));
    test::hideRecord(account, "00000002-begun", "laptop", "default");
    EXPECT_EQ(field(account.keepRun("1"), "forgotten_runs"), 2);
    EXPECT_EQ(account.runs(), std::vector<int>{3});
}

TEST(Retention, IsSuspendedByARunThatFindsMoreThanThirtyPercentGoneUntilAPersonConfirms)
{
    Retained account({"--grace-days", "0"});
    account.runWith(filesFrom(0));
    account.runWith(filesFrom(kManyFiles / 2));
    ASSERT_EQ(account.runs(), (std::vector<int>{1, 2}));
    const std::string found = "Run 2 found 30 items gone or emptied, of the ";
    // In each later run, and where this machine has lost what it knew.
    for (int run = 3; run <= 4; ++run) {
        fs::remove_all(account.state());
        const auto later = account.keepRun("1");
        EXPECT_EQ(later.status, 0) << later.errors;
        EXPECT_EQ(field(later, "run"), run);
        EXPECT_EQ(field(later, "forgetting"), "suspended");
        EXPECT_EQ(field(later, "forgotten_runs"), 0);
        EXPECT_TRUE(says(later, found)) << later.errors;
        EXPECT_TRUE(says(later, "\"stowline forget --confirm-gone\"")) << later.errors;
        const std::string html = account.report();
        EXPECT_NE(html.find(found), std::string::npos) << html;
        EXPECT_NE(html.find("<strong>Everything that was found is backed up; forgetting of runs is "
                            "suspended.</strong>"),
                  std::string::npos)
            << html;
    }
    EXPECT_NE(account.mails().find(": forgetting of runs is suspended"), std::string::npos);
    EXPECT_TRUE(account.pageShows("ForgettingSuspended, failures counted: 30."));
    EXPECT_FALSE(account.pageShows("BackupEndedWithErrors"));
    // A timer of one's own is no person.
    const Words forget{"forget", "--system", "iMac", "--json", "--keep-last", "2", "--yes"};
    const auto unattended = account.run(forget);
    EXPECT_EQ(unattended.status, 1) << unattended.errors;
    EXPECT_TRUE(says(unattended, found)) << unattended.errors;
    EXPECT_TRUE(says(unattended, "Nothing is forgotten until a person confirms it."))
        << unattended.errors;
    EXPECT_EQ(account.runs(), (std::vector<int>{1, 2, 3, 4}));
    // Nothing is confirmed by asking what would be.
    const auto would =
        account.run({"forget", "--system", "iMac", "--confirm-gone", "-n", "--json"});
    EXPECT_EQ(would.status, 0) << would.errors;
    EXPECT_EQ(field(would, "unconfirmed"), 1);
    EXPECT_EQ(account.run(forget).status, 1);
    const auto confirmed = account.run({"forget", "--system", "iMac", "--confirm-gone", "--json"});
    EXPECT_EQ(confirmed.status, 0) << confirmed.errors;
    EXPECT_TRUE(says(confirmed, found)) << confirmed.errors;
    EXPECT_EQ(field(confirmed, "confirmed"), 1);
    EXPECT_EQ(account.runs(), (std::vector<int>{1, 2, 3, 4})) << "no rule was given";
    const auto good = account.keepRun("2");
    EXPECT_EQ(good.status, 0) << good.errors;
    EXPECT_EQ(field(good, "forgetting"), "done");
    EXPECT_EQ(field(good, "forgotten_runs"), 3);
    EXPECT_EQ(account.runs(), (std::vector<int>{4, 5}));
    // The confirmation was of what was found then. It stands in the records by now.
    fs::remove_all(account.state());
    EXPECT_EQ(field(account.keepRun("2"), "forgetting"), "done");
    account.runWith(filesFrom(kManyFiles - 5));
    EXPECT_EQ(field(account.keepRun("2"), "forgetting"), "suspended");
}

TEST(Retention, IsSuspendedByTheVeryRunThatFindsItGoneAndNotByWhatIsLess)
{
    Retained account;
    account.runWith(filesFrom(0));
    for (int i = 0; i < 15; ++i)
        fs::remove(account.folder.path() / ("f" + std::to_string(i)));
    const auto fewer = account.keepRun("1");
    EXPECT_EQ(field(fewer, "forgetting"), "done") << fewer.errors;
    EXPECT_FALSE(says(fewer, "emptied, of the ")) << fewer.errors;
    for (int i = 15; i < 40; ++i)
        fs::remove(account.folder.path() / ("f" + std::to_string(i)));
    const auto many = account.keepRun("1");
    EXPECT_EQ(many.status, 0);
    EXPECT_EQ(field(many, "forgetting"), "suspended");
    EXPECT_TRUE(says(many, "Run 3 found 25 items gone or emptied, of the ")) << many.errors;
    EXPECT_EQ(account.runs(), (std::vector<int>{2, 3}));
    // Of another profile nothing is said.
    ASSERT_EQ(account.backup({"--profile", "other"}).status, 0);
    EXPECT_EQ(field(account.backup({"--profile", "other", "--keep-last", "1"}), "forgetting"),
              "done");
    // What is left out from now on is gone from later runs as well.
    EXPECT_EQ(account.run({"forget", "--system", "iMac", "--confirm-gone"}).status, 0);
    EXPECT_EQ(field(account.keepRun("1"), "forgetting"), "done");
    EXPECT_EQ(field(account.keepRun("1", {"--exclude", "f*"}), "forgetting"), "suspended");
}

TEST(Retention, APersonWhoIsAskedConfirmsByTheAnswer)
{
    Kept account({"--deletion-pause", "0"});
    account.runWith(filesFrom(0));
    account.runWith(filesFrom(30));
    const auto run = account.command.run({"forget", "--system", "iMac", "--keep-last", "1"},
                                         account.environment());
    const auto no = test::talkOnTerminal(run, "[y/N] ", "n\n");
    EXPECT_EQ(no.status, 1) << no.screen;
    EXPECT_NE(no.screen.find("Run 2 found 30 items gone"), std::string::npos) << no.screen;
    EXPECT_EQ(account.run({"forget", "--system", "iMac", "--keep-last", "1", "--yes"}).status, 1);
    const auto yes = test::talkOnTerminal(run, "[y/N] ", "y\n");
    EXPECT_EQ(yes.status, 0) << yes.screen;
    EXPECT_EQ(account.runs(), std::vector<int>{2});
    EXPECT_EQ(field(account.backup({"--keep-last", "1"}), "forgotten_runs"), 1);
}

TEST(Retention, IsSuspendedWhereTheContentsAreGoneAndTheNamesAreThere)
{
    const std::vector<std::function<void(const fs::path&)>> mishaps{
        [](const fs::path& file) { fs::resize_file(file, 0); },
        [](const fs::path& file) {
            fs::remove(file);
            fs::create_directory(file);
        },
        [](const fs::path& file) {
            fs::remove(file);
            fs::create_symlink("/dev/null", file);
        }};
    for (const auto& mishap : mishaps) {
        Kept account({"--deletion-pause", "0"});
        account.runWith(filesFrom(0));
        account.runWith(filesFrom(0));
        const auto versions = account.versions();
        for (const auto& [name, content] : filesFrom(kManyFiles / 2))
            mishap(account.folder.path() / name);
        const auto next = account.backup({"--keep-last", "1"});
        EXPECT_EQ(next.status, 0) << next.errors;
        EXPECT_EQ(field(next, "forgetting"), "suspended") << next.errors;
        EXPECT_TRUE(says(next, "Run 3 found 30 items gone or emptied, of the ")) << next.errors;
        for (const std::int64_t version : versions)
            EXPECT_TRUE(account.versions().contains(version));
    }
}

TEST(Retention, IsConfirmedOnlyWhereTheNextRunSeesIt)
{
    Retained account;
    account.runWith(filesFrom(0));
    account.runWith(filesFrom(kManyFiles / 2));
    const test::Environment elsewhere = account.elsewhere();
    const Words confirm{"forget", "--system", "iMac", "--confirm-gone", "--json"};
    for (const char* dry : {"-n", ""}) {
        Words words = confirm;
        if (*dry != '\0')
            words.emplace_back(dry);
        const auto refused = account.command(words, elsewhere);
        EXPECT_EQ(refused.status, 1) << refused.errors;
        EXPECT_TRUE(says(refused, "That cannot be confirmed from here: run 2, the newest"))
            << refused.errors;
        EXPECT_FALSE(says(refused, "That is confirmed.")) << refused.errors;
        EXPECT_FALSE(says(refused, "That would be confirmed.")) << refused.errors;
    }
    EXPECT_EQ(field(account.keepRun("1"), "forgetting"), "suspended");
    // An answer is one of this once, and said to be no more.
    const auto yes = test::talkOnTerminal(
        account.command.run({"forget", "--system", "iMac", "--keep-last", "2"}, elsewhere),
        "[y/N] ", "y\n");
    EXPECT_EQ(yes.status, 0) << yes.screen;
    EXPECT_NE(yes.screen.find("Nothing is forgotten by itself until a person confirms it."),
              std::string::npos)
        << yes.screen;
    EXPECT_EQ(yes.screen.find("That is confirmed."), std::string::npos) << yes.screen;
    EXPECT_EQ(account.runs(), (std::vector<int>{2, 3}));
    EXPECT_EQ(field(account.keepRun("1"), "forgetting"), "suspended");
    EXPECT_EQ(account.run(confirm).status, 0);
    EXPECT_EQ(field(account.keepRun("1"), "forgetting"), "done");
}

TEST(Retention, IsSuspendedWhereTheRecordBeforeCannotBeRead)
{
    Kept account({"--deletion-pause", "0"});
    account.runWith(filesFrom(0));
    account.runWith(filesFrom(0));
    test::damageRecord(account, "00000002-finished");
    const auto next = account.backup({"--keep-last", "1"});
    EXPECT_EQ(next.status, 0) << next.errors;
    EXPECT_EQ(field(next, "forgetting"), "suspended") << next.errors;
    EXPECT_TRUE(says(next, "Run 3 could not tell what was gone")) << next.errors;
    ASSERT_EQ(account.run({"forget", "--system", "iMac", "--confirm-gone"}).status, 0);
    const auto unreadable = account.backup({"--keep-last", "1"});
    EXPECT_EQ(unreadable.status, 0) << unreadable.errors;
    EXPECT_EQ(field(unreadable, "forgetting"), "failed");
    EXPECT_TRUE(says(unreadable, "nothing is forgotten as long as it cannot be read"))
        << unreadable.errors;
}

/// How many kills: some, or, in the long form of the tests, two hundred.
int killCount()
{
    return std::getenv("STOWLINE_LONG_TESTS") != nullptr ? 200 : 6;
}

TEST(Retention, ABackupKilledAtAnyMomentForgetsNothingThatAKeptRunNeedsAndGoesOn)
{
    Kept account({"--deletion-pause", "0", "--grace-days", "0"});
    account.manyRuns(4);
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(account.backup({"--keep-last", "2"}).status, 0);
    const auto whole = std::chrono::steady_clock::now() - start;
    const int kills = killCount();
    int unfinished = 0;
    for (int kill = 0; kill < kills; ++kill) {
        account.manyRuns(2);
        const int newest = account.held.rbegin()->first;
        {
            test::BackgroundProgram program(account.backupRun({"--keep-last", "2"}));
            std::this_thread::sleep_for(whole * kill / kills); // each at another moment
            if (program.isRunning()) {
                ++unfinished;
                program.signal(SIGKILL);
            }
            (void)program.wait();
        }
        EXPECT_EQ(account.restored(newest), account.held.at(newest)) << "kill " << kill;
        for (const int run : account.runs()) { // whatever is offered is whole
            if (account.held.contains(run)) {
                EXPECT_EQ(account.restored(run), account.held.at(run)) << "kill " << kill;
            }
        }
    }
    EXPECT_GT(unfinished, kills / 3);
    const auto last = account.backup({"--keep-last", "1"});
    EXPECT_EQ(last.status, 0) << last.errors;
    EXPECT_EQ(field(last, "forgetting"), "done") << last.errors;
    EXPECT_EQ(field(last, "kept_runs"), 1) << "those that were cut off are no finished ones";
    EXPECT_EQ(account.versions().size(), account.held.rbegin()->second.size())
        << "nothing is left over";
}

TEST(Retention, TwoMachinesOfOneAccountThatForgetAndBackUpAtOnceLoseNothing)
{
    Kept one({"--deletion-pause", "0", "--grace-days", "0"});
    const test::TemporaryFolder otherHome;
    const test::TemporaryFolder otherFolder;
    constexpr int rounds = 5;
    std::vector<std::string> faults;
    const auto otherRun = [&](Words words) {
        auto run = one.command.run(std::move(words), one.environment());
        run.environment.insert_or_assign("HOME", otherHome.path().string());
        return test::runProgram(run);
    };
    std::thread other([&] {
        for (int round = 1; round <= rounds; ++round) {
            otherFolder.write("changing", noise(30000, 100U + static_cast<unsigned>(round)));
            otherFolder.write("new" + std::to_string(round), noise(3000, 7));
            const auto result = otherRun({"backup", otherFolder.path().string(), "--system",
                                          "other", "--json", "--keep-last", "2"});
            if (result.status != 0)
                faults.push_back(result.errors);
        }
    });
    for (int round = 1; round <= rounds; ++round) {
        one.write({{"changing", noise(30000, static_cast<unsigned>(round))},
                   {"new" + std::to_string(round), noise(3000, 7)}});
        const auto result = one.backup({"--keep-last", "2"});
        EXPECT_EQ(result.status, 0) << result.errors;
    }
    other.join();
    EXPECT_TRUE(faults.empty()) << faults.front();
    // Once nobody else is at it, the rules hold for both.
    EXPECT_EQ(field(one.backup({"--keep-last", "2"}), "forgetting"), "done");
    const auto last = otherRun(
        {"backup", otherFolder.path().string(), "--system", "other", "--json", "--keep-last", "2"});
    EXPECT_EQ(field(last, "forgetting"), "done") << last.errors;
    EXPECT_EQ(one.runs().size(), 2U);
    for (const char* machine : {"iMac", "other"}) {
        const auto listed = one.run({"runs", "--machine", machine, "--json"});
        for (const auto& line : test::jsonLines(listed.output)) {
            if (line["type"] != "run")
                continue;
            const std::string at = std::to_string(line.value("run", 0));
            const Words verify{"verify", "--read", "--machine", machine, "--at", at};
            const auto read = std::string(machine) == "iMac" ? one.run(verify) : otherRun(verify);
            EXPECT_EQ(read.status, 0) << machine << " " << at << read.errors;
        }
    }
}

} // namespace
} // namespace stowline
