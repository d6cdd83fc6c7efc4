// backup --self-test: what it proves, what it finds, and whom it tells.
#include "stowline/platform/files/LockFile.h"
#include "tests/endtoend/BackedUp.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>

namespace stowline {
namespace {

namespace fs = std::filesystem;
using test::BackedUp;
using test::field;
using test::Words;

class SelfTest : public testing::Test {
protected:
    SelfTest()
    {
        account_.write({{"a", "content that is long enough"}, {"b", "and some more of it"}});
    }

    [[nodiscard]] test::ProgramResult tested(Words more = {}) const
    {
        more.insert(more.end(), {"--self-test", "100%,1g"});
        return account_.backup(more);
    }

    /// Where the service keeps the newest version of a file.
    [[nodiscard]] fs::path contentOf(const std::string& name) const
    {
        devserver::Storage storage(account_.server.data());
        const auto page =
            storage
                .search({.userName = "ann", .folder = account_.folder.path(), .pageSize = 100},
                        name, "")
                .value();
        const auto versions = storage.versions("ann", page.items.at(0).id);
        return account_.server.data() / versions.at(0).serverFile.substr(1);
    }

    void damage(const std::string& name) const
    {
        std::fstream stream(contentOf(name), std::ios::in | std::ios::out | std::ios::binary);
        stream.seekp(12);
        stream << "damage";
    }

    [[nodiscard]] fs::path state() const
    {
        return account_.command.home().path() / ".local/state/stowline";
    }

    [[nodiscard]] bool isFolderThere() const
    {
        std::error_code none; // it may go while it is looked for
        fs::directory_iterator entry(state(), none);
        for (; !none && entry != fs::directory_iterator(); entry.increment(none)) {
            if (entry->path().filename().string().starts_with("stowline-self-test-"))
                return true;
        }
        return false;
    }

    [[nodiscard]] std::vector<nlohmann::json> runs() const
    {
        auto lines = test::jsonLines(account_.run({"runs", "--machine", "iMac", "--json"}).output);
        lines.pop_back();
        return lines;
    }

    /// A self-test that takes a minute, begun.
    void beginSlowTest(std::optional<test::BackgroundProgram>& program) const
    {
        account_.write({{"large", test::noise(1200000, 7)}});
        ASSERT_EQ(account_.backup().status, 0);
        program.emplace(account_.backupRun({"--self-test", "100%,1g", "--bwlimit", "20k"}));
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (!isFolderThere() && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(5)); // another process's folder
        ASSERT_TRUE(isFolderThere());
        ASSERT_TRUE(program->isRunning());
    }

    const test::TemporaryFolder tokens_;
    const BackedUp account_{{"--monitoring-tokens", tokens_.write("tokens", "token-1\n").string()}};
};

TEST_F(SelfTest, ProvesWhatAllRunsHold)
{
    ASSERT_EQ(account_.backup().status, 0);
    EXPECT_EQ(runs().at(0)["proven"], "") << "there was no self-test yet";
    account_.write({{"a", "other content now"}});
    const auto result = tested();
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "self_test"), "done");
    EXPECT_EQ(field(result, "self_test_tested"), 3) << result.output;
    EXPECT_EQ(field(result, "self_test_bytes"), 27 + 19 + 17);
    EXPECT_EQ(field(result, "self_test_runs"), 2);
    EXPECT_EQ(field(result, "proof_files"), 3);
    EXPECT_EQ(field(result, "proof_proven_files"), 3);
    EXPECT_FALSE(isFolderThere());
    const auto shown = runs();
    ASSERT_EQ(shown.size(), 2U);
    for (const auto& run : shown) {
        EXPECT_NE(run["proven"], "") << run;
        EXPECT_EQ(run["proof_files"], 2) << run;
        EXPECT_EQ(run["proof_proven_files"], 2) << run;
    }
    const auto people = account_.run({"runs", "--machine", "iMac"});
    EXPECT_NE(people.output.find("; proven 2"), std::string::npos) << people.output;
}

TEST_F(SelfTest, IsTestedAgainWithoutBeingAskedTwice)
{
    EXPECT_EQ(field(account_.backup(), "self_test"), "");
    ASSERT_EQ(tested().status, 0);
    const auto sample = account_.backup({"--self-test", "1%,1g"});
    EXPECT_EQ(field(sample, "self_test_tested"), 1) << sample.output;
    EXPECT_EQ(field(sample, "proof_proven_files"), 2);
    const auto sentence =
        account_.run({"backup", account_.folder.path(), "--system", "iMac", "--self-test", "1%"});
    EXPECT_NE(sentence.output.find("Self-test: 1 file ("), std::string::npos) << sentence.output;
    EXPECT_NE(sentence.output.find("Proven within 30 days: 2 files ("), std::string::npos);
}

TEST_F(SelfTest, EndsWithSevenForWhatIsNotWhatWasStored)
{
    ASSERT_EQ(account_.backup().status, 0);
    ASSERT_EQ(account_.backup().status, 0); // whose thirtieth is asked about
    const auto good = platform::readFile(state() / "last-good-run");
    damage("a");
    const auto result = tested();
    EXPECT_EQ(result.status, 7) << result.errors;
    EXPECT_EQ(field(result, "self_test"), "lost");
    EXPECT_EQ(field(result, "self_test_damaged"), 1) << result.output;
    EXPECT_EQ(field(result, "proof_lost_files"), 1);
    EXPECT_NE(result.errors.find("The self-test found 0 files missing and 1 damaged."),
              std::string::npos)
        << result.errors;
    bool isNamed = false;
    for (const auto& line : test::jsonLines(result.output))
        isNamed = isNamed || (line["type"] == "self_test" && line["state"] == "damaged" &&
                              line["path"] == (account_.folder.path() / "a").string());
    EXPECT_TRUE(isNamed) << result.output;
    EXPECT_EQ(platform::readFile(state() / "last-good-run"), good) << "this was none";
    for (const auto& run : runs())
        EXPECT_EQ(run["proven"], "") << run;
    // The next backup asks about all, and sends it again.
    EXPECT_EQ(field(account_.backup(), "stored"), 1);
    EXPECT_EQ(account_.run({"verify", "--read", "--machine", "iMac"}).status, 0);
}

TEST_F(SelfTest, ThatIsTooLongAgoIsAFaultForMonitoring)
{
    const auto doctor = [this](const std::string& span) {
        return account_.run({"doctor", "--alert-after", span});
    };
    ASSERT_EQ(account_.backup().status, 0);
    EXPECT_EQ(doctor("36h").status, 0) << "no self-test was asked for";
    ASSERT_EQ(tested().status, 0);
    EXPECT_EQ(doctor("36h").status, 0);
    EXPECT_TRUE(platform::writeFileAtomically(state() / "last-proof", "2020-01-01T00:00:00Z\n"));
    const auto late = doctor("36h");
    EXPECT_EQ(late.status, 9) << late.output;
    EXPECT_NE(late.output.find("last self-test that found everything in order: "),
              std::string::npos);
    EXPECT_EQ(tested({"--dry-run"}).status, 0);
    EXPECT_EQ(doctor("36h").status, 9) << "a dry run proves nothing";
    damage("a");
    EXPECT_EQ(tested().status, 7);
    EXPECT_EQ(doctor("36h").status, 9) << "nor does one that found a loss";
    EXPECT_EQ(doctor("3 days").status, 2);
}

TEST_F(SelfTest, TellsALossThatOnlyEarlierRunsHoldAndIsAGoodRun)
{
    account_.write({{"c", "small"}});
    ASSERT_EQ(account_.backup().status, 0);
    ASSERT_EQ(account_.backup().status, 0); // whose thirtieth is asked about
    damage("a");
    ASSERT_EQ(tested().status, 7);
    fs::remove(state() / "last-good-run");
    // All that this one may fetch is well.
    auto run = account_.backupRun({"--self-test", "100%,9", "--monitor"});
    run.environment.insert_or_assign("STOWLINE_MONITOR_TOKEN", "token-1");
    const auto result = test::runProgram(run);
    EXPECT_EQ(field(result, "self_test_tested"), 1) << result.output;
    EXPECT_EQ(field(result, "self_test_damaged"), 0);
    EXPECT_EQ(result.status, 0) << result.errors; // it has sent the file again
    EXPECT_EQ(field(result, "self_test"), "done");
    EXPECT_EQ(field(result, "proof_lost_files"), 1);
    EXPECT_EQ(field(result, "proof_newest_lost_files"), 0);
    const std::string words = "Earlier self-tests found 1 file to be missing or damaged, and none "
                              "has proven otherwise since; only earlier runs than the newest hold "
                              "it.";
    EXPECT_NE(result.errors.find(words), std::string::npos) << result.errors;
    EXPECT_TRUE(fs::exists(state() / "last-good-run"));
    EXPECT_EQ(account_.statusPage().find("BackupEndedWithErrors"), std::string::npos);
    const fs::path saved = account_.command.home().path() / "report.html";
    ASSERT_EQ(account_.run({"email", "--save", saved}).status, 0);
    const std::string html = platform::readFile(saved).value();
    EXPECT_NE(html.find(words), std::string::npos) << html;
}

TEST_F(SelfTest, ThatMayFetchNothingSaysSoWithoutFiguresOfNothing)
{
    const auto result = account_.run(
        {"backup", account_.folder.path(), "--system", "iMac", "--self-test", "100%,1"});
    EXPECT_EQ(result.status, 3);
    EXPECT_NE(result.errors.find("each file that is stored is larger than it may fetch"),
              std::string::npos)
        << result.errors;
    EXPECT_NE(result.output.find("Self-test: nothing was restored.\n"), std::string::npos)
        << result.output;
    EXPECT_NE(result.output.find("never tested: 2 files"), std::string::npos) << result.output;
    EXPECT_EQ(result.output.find("found to be what was stored"), std::string::npos);
}

TEST_F(SelfTest, ThatIsTooLongAgoIsToldByBackupReportEventAndRuns)
{
    const auto backup = [this](std::vector<std::string> more) {
        more.insert(more.end(), {"--alert-after", "2d", "--email", "a@b.c", "--monitor"});
        auto run = account_.backupRun(more);
        run.environment.insert_or_assign("STOWLINE_MONITOR_TOKEN", "token-1");
        return test::runProgram(run);
    };
    const auto listed = [this] {
        return account_.run({"runs", "--machine", "iMac", "--alert-after", "2d"});
    };
    ASSERT_EQ(backup({"--self-test", "100%"}).status, 0);
    EXPECT_EQ(listed().status, 0);
    EXPECT_TRUE(platform::writeFileAtomically(state() / "last-proof", "2020-01-01T00:00:00Z\n"));
    EXPECT_EQ(account_.statusPage().find("BackupEndedWithErrors"), std::string::npos);
    const auto late = backup({});
    EXPECT_EQ(late.status, 9);
    const std::string words = "Last self-test that found everything in order: ";
    EXPECT_NE(late.errors.find(words), std::string::npos) << late.errors;
    EXPECT_NE(account_.statusPage().find("BackupEndedWithErrors"), std::string::npos);
    const fs::path saved = account_.command.home().path() / "report.html";
    ASSERT_EQ(account_.run({"email", "--save", saved}).status, 0);
    const std::string html = platform::readFile(saved).value();
    EXPECT_NE(html.find(words), std::string::npos) << html;
    EXPECT_EQ(html.find("class=\"good\""), std::string::npos);
    const auto runs = listed();
    EXPECT_EQ(runs.status, 9) << runs.errors;
    EXPECT_NE(runs.errors.find(words), std::string::npos) << runs.errors;
    // What is worse comes first, and the lateness is told all the same.
    damage("a");
    const auto bad = backup({"--self-test", "100%"});
    EXPECT_EQ(bad.status, 7);
    EXPECT_NE(bad.errors.find(words), std::string::npos) << bad.errors;
}

TEST_F(SelfTest, IsNotAskedForWhereOnlyAGoodRunIsTooLongAgo)
{
    const auto failing = account_.run({"backup", "--system", "iMac", "--alert-after", "2d",
                                       "/nonexistent/at-all", account_.folder.path()});
    EXPECT_EQ(failing.status, 3);
    EXPECT_NE(failing.errors.find("No run of these paths without failures is known"),
              std::string::npos)
        << failing.errors;
    EXPECT_EQ(account_.run({"runs", "--machine", "iMac", "--alert-after", "2d"}).status, 9);
    ASSERT_EQ(account_.backup().status, 0);
    EXPECT_EQ(account_.run({"runs", "--machine", "iMac", "--alert-after", "2d"}).status, 0);
}

TEST_F(SelfTest, IsInTheReportAndTheEvent)
{
    const auto reported = [this] {
        auto run = account_.backupRun({"--self-test", "100%,1g", "--email", "a@b.c", "--monitor"});
        run.environment.insert_or_assign("STOWLINE_MONITOR_TOKEN", "token-1");
        return test::runProgram(run);
    };
    const auto result = reported();
    ASSERT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(account_.statusPage().find("BackupEndedWithErrors"), std::string::npos);
    EXPECT_NE(account_.statusPage().find("2 of 2 contents proven within 30 days then"),
              std::string::npos)
        << account_.statusPage();
    const fs::path saved = account_.command.home().path() / "report.html";
    ASSERT_EQ(account_.run({"email", "--save", saved}).status, 0);
    std::string html = platform::readFile(saved).value();
    EXPECT_NE(html.find("Self-test: 2 files (46 B)"), std::string::npos) << html;
    EXPECT_NE(html.find("class=\"good\""), std::string::npos);
    damage("b");
    EXPECT_EQ(reported().status, 7);
    ASSERT_EQ(account_.run({"email", "--save", saved}).status, 0);
    html = platform::readFile(saved).value();
    EXPECT_NE(html.find("The self-test found 1 file to differ from what was stored."),
              std::string::npos)
        << html;
    EXPECT_NE(html.find((account_.folder.path() / "b").string()), std::string::npos);
    EXPECT_EQ(html.find("class=\"good\""), std::string::npos);
    std::string subjects;
    for (const auto& mail : fs::directory_iterator(account_.server.data() / "mail"))
        subjects += platform::readFile(mail.path()).value_or("");
    EXPECT_NE(subjects.find(": the self-test found 1 file to differ from what was stored"),
              std::string::npos)
        << subjects;
    EXPECT_NE(account_.statusPage().find("BackupEndedWithErrors"), std::string::npos);
    EXPECT_NE(account_.statusPage().find("not well: 1 lost or different"), std::string::npos);
    EXPECT_NE(account_.statusPage().find("last well: <time"), std::string::npos);
}

TEST_F(SelfTest, OfAProfileIsToldAsItsProof)
{
    for (const char* profile : {"default", "docs"}) {
        auto run =
            account_.backupRun({"--self-test", "100%,1g", "--monitor", "--profile", profile});
        run.environment.insert_or_assign("STOWLINE_MONITOR_TOKEN", "token-1");
        const std::string before = account_.statusPage();
        const auto result = test::runProgram(run);
        ASSERT_EQ(result.status, 0) << result.errors;
        const std::string page = account_.statusPage();
        EXPECT_EQ(page.find("not told</span>"), std::string::npos) << page;
        EXPECT_EQ(before.find("contents proven within") == std::string::npos,
                  std::string(profile) == "default");
        EXPECT_EQ(page.find("another one of that name"), std::string::npos) << page;
        if (std::string(profile) == "default") {
            ASSERT_EQ(account_.backup({"--profile", "docs"}).status, 0);
            EXPECT_NE(account_.statusPage().find("not told</span>"), std::string::npos);
        }
    }
}

TEST_F(SelfTest, ThatCannotBeDoneIsToldAndProvesNothing)
{
    const auto nothing =
        account_.run({"backup", "/nonexistent", "--json", "--system", "iMac", "--self-test", "1%"});
    EXPECT_EQ(nothing.status, 4);
    EXPECT_EQ(field(nothing, "self_test"), "not-done");
    EXPECT_NE(nothing.errors.find("The self-test was not done"), std::string::npos);
    const auto bound = account_.backup({"--self-test", "100%,5"});
    EXPECT_EQ(bound.status, 3) << bound.errors;
    EXPECT_EQ(field(bound, "self_test"), "untested");
    EXPECT_EQ(field(bound, "proof_too_large_files"), 2);
    EXPECT_NE(bound.errors.find("The self-test tested nothing"), std::string::npos);
    const auto dry = tested({"--dry-run"});
    EXPECT_EQ(dry.status, 0);
    EXPECT_EQ(field(dry, "self_test"), "");
}

TEST_F(SelfTest, IsAKeyOfTheConfiguration)
{
    EXPECT_EQ(account_.backup({"--self-test", "lots"}).status, 2);
    account_.command.home().write(".config/stowline/config.toml",
                                  "[profile.work]\npaths = [\"" + account_.folder.path().string() +
                                      "\"]\nsystem = \"iMac\"\nself-test = \"100%,1g\"\n");
    const auto result = account_.run({"backup", "--profile", "work", "--json"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "self_test_tested"), 2) << result.output;
    account_.command.home().write(".config/stowline/config.toml",
                                  "[backup]\nself-test = \"1 percent\"\n");
    const auto check = account_.run({"config", "check"});
    EXPECT_NE(check.status, 0);
    EXPECT_NE((check.output + check.errors).find("as 1%,200M"), std::string::npos)
        << check.output << check.errors;
}

TEST_F(SelfTest, ObeysItsLimitAndStopsAtOnce)
{
    std::optional<test::BackgroundProgram> program;
    beginSlowTest(program);
    const auto before = std::chrono::steady_clock::now();
    program->signal(SIGINT);
    const auto result = program->wait();
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(15));
    EXPECT_EQ(result.status, 130) << result.errors;
    EXPECT_EQ(field(result, "self_test"), "interrupted");
    EXPECT_FALSE(isFolderThere());
}

TEST_F(SelfTest, IsNotBackedUpByARunBesideIt)
{
    ASSERT_EQ(account_.backup().status, 0);
    const fs::path tested =
        account_.folder.path() / "stowline-self-test-01234567-89ab-cdef-0123-456789abcdef";
    ASSERT_TRUE(platform::makePrivateFolder(tested));
    account_.write({{tested.filename().string() + "/restored", "of some run"}});
    const auto lock = platform::LockFile::take(state() / "self-test.lock");
    ASSERT_TRUE(lock);
    ASSERT_TRUE(platform::writeFileAtomically(state() / "self-test.folders",
                                              tested.string() + std::string(1, '\0')));
    const auto result = account_.backup();
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "stored"), 0) << result.output;
    EXPECT_TRUE(fs::exists(tested / "restored")) << "it is in use";
}

TEST_F(SelfTest, ThatWasKilledLeavesNothingBehindTheNextRun)
{
    std::optional<test::BackgroundProgram> program;
    beginSlowTest(program);
    program->signal(SIGKILL);
    (void)program->wait();
    EXPECT_TRUE(isFolderThere());
    EXPECT_EQ(account_.backup({"--dry-run"}).status, 0);
    EXPECT_TRUE(isFolderThere()) << "a dry run changes nothing";
    EXPECT_EQ(account_.backup().status, 0);
    EXPECT_FALSE(isFolderThere());
}

} // namespace
} // namespace stowline
