// What the commands about a backup say when something stands in their way: the cause in its own
// sentence, as "stowline doctor" would say it, and the status that scripts go by.
#include "tests/endtoend/BackedUp.h"
#include "tests/endtoend/Relayed.h"
#include "tests/support/PseudoTerminal.h"
#include "tests/support/TestPaths.h"

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>

namespace stowline {
namespace {

namespace fs = std::filesystem;
using test::BackedUp;
using test::Environment;
using test::field;
using test::noise;
using test::Words;

/// A command, and the web method that it cannot do without.
struct Case {
    const char* method;
    Words words;
};

void PrintTo(const Case& one, std::ostream* out)
{
    *out << one.method;
}

class FailingMethod : public testing::TestWithParam<Case> {
protected:
    static test::ProgramResult run(const std::string& fault)
    {
        const BackedUp account({"--fault", std::string(GetParam().method) + ":*:" + fault});
        account.setRequestTimeout("1");
        Environment environment = account.environment();
        environment.emplace("STOWLINE_MONITOR_TOKEN", "token");
        account.write({{"a", "1"}});
        // A run for the reports to tell of.
        const auto state = account.command.home().path() / ".local/state/stowline";
        fs::create_directories(state);
        const bool needsNone = GetParam().words.front() == "backup";
        EXPECT_TRUE(needsNone || account.backup().status == 0);
        Words words = GetParam().words;
        if (words.front() == "backup")
            words.push_back(account.folder.path().string());
        return account.command(words, environment);
    }
};

TEST_P(FailingMethod, TellsOfAFault)
{
    const auto result = run("fault");
    EXPECT_EQ(result.status, 5) << result.errors;
    EXPECT_FALSE(says(result, "refused")) << result.errors;
    EXPECT_TRUE(says(result, "fault") || says(result, "The service could not handle the call."))
        << result.errors;
}

TEST_P(FailingMethod, TellsOfAnAnswerThatIsNone)
{
    const auto result = run("html");
    EXPECT_EQ(result.status, 5) << result.errors;
    EXPECT_TRUE(says(result, "is not the answer of a backup service")) << result.errors;
}

TEST_P(FailingMethod, TellsOfAConnectionThatBreaks)
{
    const auto result = run("reset");
    EXPECT_TRUE(result.status == 8 || result.status == 5) << result.errors;
    EXPECT_TRUE(says(result, "No connection to") || says(result, "connection")) << result.errors;
    EXPECT_FALSE(says(result, "refused")) << result.errors;
}

INSTANTIATE_TEST_SUITE_P(Of, FailingMethod,
                         testing::Values(Case{"GetPhyPath", {"backup", "--retry-time", "1"}},
                                         Case{"DeleteFilesInBulk",
                                              {"rm", "--version", "list", "--yes"}},
                                         Case{"sendEmail", {"email", "a@b.example"}},
                                         Case{"GetSettings", {"monitor", "settings"}},
                                         Case{"SendBackupSummaryReport", {"report"}},
                                         Case{"GetAccountInfo", {"account"}}),
                         [](const auto& test) { return std::string(test.param.method); });

TEST(BackupMessages, ASignInIsTriedAgainWhereTheServiceIsJustComingUp)
{
    const BackedUp account({"--fault", "Authenticate:1:reset", "--fault", "Authenticate:2:reset",
                            "--fault", "Authenticate:3:reset"});
    account.write({{"a", "1"}});
    const auto once = account.backup({"--retry-time", "0"});
    EXPECT_TRUE(says(once, "No connection to")) << once.errors;
    EXPECT_NE(once.status, 0);
    const auto again = account.backup();
    EXPECT_EQ(again.status, 0) << again.errors;
    EXPECT_EQ(again.errors, "");
}

TEST(BackupMessages, AServerThatCannotServeNowIsTriedAgain)
{
    const BackedUp account;
    account.write({{"a", "1"}});
    test::Relayed relayed(account);
    std::atomic<int> busy = 0;
    relayed.relay.setChange([&](const std::string& request, test::RelayedAnswer& answer) {
        if (request.starts_with("POST") && !test::headerOf(request, "X-Guid").empty() && busy++ < 6)
            answer = {.head = "HTTP/1.1 503 Service Unavailable\r\n", .body = ""};
    });
    const auto result = account.backup({"--retry-time", "60"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_GT(busy, 6);
    EXPECT_EQ(account.stored(), (test::Files{{"a", "1"}}));
    busy = -1000000;
    account.write({{"b", "2"}});
    const auto never = account.backup({"--retry-time", "1"});
    EXPECT_EQ(never.status, 5) << never.errors;
    EXPECT_TRUE(says(never, "503 Service Unavailable. It was tried until the time"))
        << never.errors;
}

TEST(BackupMessages, ASignInThatDripsEndsWithItsTime)
{
    const BackedUp account({"--fault", "Authenticate:*:drip"});
    account.write({{"a", "1"}});
    const auto start = std::chrono::steady_clock::now();
    const auto result = account.backup({"--retry-time", "2"});
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
    EXPECT_EQ(result.status, 5);
    EXPECT_TRUE(says(result, "The service did not answer the sign-in in time.")) << result.errors;
}

/// The command with few descriptors left to open.
test::ProgramResult withDescriptors(const BackedUp& account, int most, Words words)
{
    test::ProgramRun run = account.command.run(std::move(words), account.environment());
    run.words.insert(
        run.words.begin(),
        {"/bin/sh", "-c", "ulimit -n " + std::to_string(most) + "; exec \"$0\" \"$@\""});
    return test::runProgram(run);
}

TEST(BackupMessages, TooFewDescriptorsAreSaidToBe)
{
    const BackedUp account;
    account.write({{"a", noise(100000, 1)}, {"d/e/f/b", "2"}});
#ifdef __SANITIZE_ADDRESS__ // which opens pipes of its own to look at memory
    constexpr int fewest = 19;
#else
    constexpr int fewest = 4;
#endif
    for (int most = fewest; most <= 40; most += 3) {
        const auto result = withDescriptors(
            account, most,
            {"backup", account.folder.path(), "--system", "iMac", "--retry-time", "1"});
        for (const char* wrong :
             {"install", "Is the disk full", "disk is full", "Another backup", "refused"})
            EXPECT_FALSE(says(result, wrong)) << most << "\n" << result.errors;
        // With four the system's loader cannot even start the program, which it says itself.
        const bool isExplained = says(result, "Too many") || says(result, "ulimit -n") ||
                                 says(result, "while loading shared libraries");
        EXPECT_TRUE(result.status == 0 || isExplained) << most << "\n" << result.errors;
    }
}

TEST(BackupMessages, SixtyFourDescriptorsAreEnough)
{
    const BackedUp account;
    test::Files files;
    for (int i = 0; i < 40; ++i)
        files.emplace("a/b/c/d/e/f/g/h/i/j/k/l/m/n/o/p/q/r/s" + std::to_string(i) + "/f", "x");
    account.write(files);
    const auto result = withDescriptors(
        account, 64, {"backup", account.folder.path(), "--system", "iMac", "--jobs", "4"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(account.stored(), files);
}

TEST(BackupMessages, TheAccountIsATable)
{
    const BackedUp account;
    const auto result = account.run({"account"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_TRUE(says(result, "Account         ann\n")) << result.output;
    EXPECT_TRUE(says(result, "Space used      0 B\n")) << result.output;
    EXPECT_TRUE(says(result, "Quota           107.4 GB\n")) << result.output;
    EXPECT_FALSE(says(result, "used_kb") || says(result, "InKb"));
    EXPECT_EQ(field(account.run({"account", "--json"}), "used_kb"), 0);
}

TEST(BackupMessages, UnfinishedUploadsAreATable)
{
    const BackedUp account;
    account.write({{"big", noise(400000, 1)}});
    test::BackgroundProgram run(account.backupRun({"--part-size", "16k", "--bwlimit", "64k"}));
    account.awaitSent(16384);
    run.signal(SIGKILL);
    (void)run.wait();
    const auto result = account.run({"uploads", "list"});
    EXPECT_EQ(result.output.find("ID  "), 0U) << result.output;
    EXPECT_TRUE(says(result, "PATH\n")) << result.output;
    EXPECT_TRUE(says(result, "   400.0 kB  default ")) << result.output;
}

TEST(BackupMessages, UnfinishedUploadsThatCannotBeListedAreNotNone)
{
    const test::TemporaryFolder bundle;
    const test::Command stowline(bundle.path());
    const Words list{"uploads", "list"};
    EXPECT_EQ(stowline(list).status, 0);
    const auto state = stowline.home().path() / ".local/state/stowline";
    for (const char* place : {"uploads", "profiles"}) { // a file in the place of the folder
        const auto file = stowline.home().write(".local/state/stowline/" + std::string(place), "");
        for (const Words& words : {list, Words{"uploads", "abandon", "--all", "--yes"}}) {
            const auto result = stowline(words);
            EXPECT_EQ(result.status, 1) << place << result.output;
            EXPECT_TRUE(
                says(result, "The unfinished uploads cannot be determined: " + state.string()))
                << result.errors;
        }
        fs::remove(file);
    }
}

TEST(BackupMessages, OneIsNoPlural)
{
    const BackedUp account;
    account.write({{"a", "1"}});
    const auto result =
        account.run({"backup", (account.folder.path() / "a").string(), "--system", "iMac"});
    EXPECT_TRUE(says(result, "1 item in all")) << result.output;
    EXPECT_TRUE(says(result, "Stored 1 file (1 B).")) << result.output;
    EXPECT_FALSE(says(result, " 1 items") || says(result, " 1 files")) << result.output;
}

TEST(BackupMessages, TheRunHoldsWhatItsListingSays)
{
    const BackedUp account;
    account.write({{"a", "12345"}, {"d/b", "678"}, {"x.o", "9"}});
    const auto run = account.backup({"--exclude", "*.o"});
    const auto listed =
        test::jsonLines(account.run({"runs", "--json", "--machine", "iMac"}).output);
    ASSERT_GE(listed.size(), 2U);
    EXPECT_EQ(field(run, "record_items"), listed.front()["items"]);
    EXPECT_EQ(field(run, "record_bytes"), listed.front()["bytes"]);
    EXPECT_EQ(field(run, "bytes"), listed.front()["new_bytes"]);
    EXPECT_EQ(field(run, "record_bytes"), 8);
}

TEST(BackupMessages, TheHelpSaysWhatIsSentOfHolesAndOfWhatWasRenamed)
{
    const test::TemporaryFolder bundle;
    std::string help = test::Command(bundle.path())(Words{"backup", "--help"}).output;
    for (std::size_t at = help.find_first_of("\n "); at != std::string::npos;
         at = help.find_first_of("\n ", at + 1)) // as one line
        help.replace(at, help.find_first_not_of("\n ", at) - at, " ");
    EXPECT_NE(help.find("renamed or moved, alone or with its folder, is sent again"),
              std::string::npos);
    EXPECT_NE(help.find("holes of a sparse file are not read, but sent as zeros"),
              std::string::npos)
        << help;
}

TEST(BackupMessages, NothingIsColouredOnATerminalAndTheLineFitsIt)
{
    const BackedUp account;
    account.write({{"big", noise(200000, 1)}});
    auto run = account.backupRun({"--part-size", "16k", "--bwlimit", "64k"});
    std::erase(run.words, "--json");
    const test::Talk talk = test::talkOnTerminal(run, {});
    EXPECT_EQ(talk.status, 0) << talk.screen;
    EXPECT_NE(talk.screen.find("\x1b[K"), std::string::npos); // the line of progress
    for (std::size_t at = talk.screen.find("\x1b["); at != std::string::npos;
         at = talk.screen.find("\x1b[", at + 1))
        EXPECT_NE(talk.screen[talk.screen.find_first_not_of("0123456789;", at + 2)], 'm');
}

} // namespace
} // namespace stowline
