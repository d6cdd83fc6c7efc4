// Programs that are started without standard streams, or with some that take nothing.
#include "stowline/platform/files/Files.h"
#include "tests/endtoend/Command.h"
#include "tests/support/DevServerProcess.h"
#include "tests/support/TestPaths.h"

#include <gtest/gtest.h>

#include <unistd.h>

namespace stowline {
namespace {

namespace fs = std::filesystem;
using test::Environment;
using test::Words;

/// Runs a command of `stowline` under a shell that redirects its streams first.
test::ProgramResult redirected(const test::Command& stowline, Words words,
                               const std::string& redirections, Environment environment = {})
{
    test::ProgramRun run = stowline.run(std::move(words), std::move(environment));
    run.words.insert(run.words.begin(), {"/bin/sh", "-c", "exec \"$0\" \"$@\" " + redirections});
    return test::runProgram(run);
}

class BackupWithoutStreams : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(stowline_(Words{"signup", "-u", "ann", "--email", "a@b.c"}, password_).status, 0);
        files_.write("a", "one");
        files_.write("b", "two");
    }

    test::ProgramResult backUp(const std::string& redirections)
    {
        return redirected(stowline_,
                          {"-v", "--json", "backup", "-u", "ann", files_.path().string()},
                          redirections, password_);
    }

    std::size_t stored()
    {
        const auto listed = stowline_(
            Words{"--json", "search", "-u", "ann", "--in", files_.path().string(), "*"}, password_);
        std::size_t files = 0;
        for (const auto& line : test::jsonLines(listed.output))
            files += line["type"] == "file" ? 1 : 0;
        return files;
    }

    /// Everything that the command left in its state folder, one after the other.
    std::string stateOfAll()
    {
        std::string all;
        for (const auto& entry : fs::recursive_directory_iterator(stowline_.home().path())) {
            if (entry.is_regular_file())
                all += platform::readFile(entry.path()).value_or("");
        }
        return all;
    }

    const Environment password_{{"STOWLINE_PASSWORD", "pw"}};
    test::DevServerProcess server_;
    test::Command stowline_{server_.bundle()};
    test::TemporaryFolder files_;
};

TEST_F(BackupWithoutStreams, AClosedStreamIsNoFileThatIsOpenedLater)
{
    for (const std::string closed : {"<&-", ">&-", "2>&-", "<&- >&- 2>&-"}) {
        const auto run = backUp(closed);
        const bool hasResults = closed.find(">&-") == std::string::npos || closed == "2>&-";
        EXPECT_EQ(run.status, hasResults ? 0 : 1) << closed << run.errors;
        EXPECT_EQ(run.output.empty(), !hasResults) << closed;
        const std::string kept = stateOfAll();
        EXPECT_EQ(kept.find("\"v\":1"), std::string::npos) << closed;
        EXPECT_EQ(kept.find("WebServiceBroker"), std::string::npos) << closed;
    }
    EXPECT_EQ(stored(), 2U);
}

TEST_F(BackupWithoutStreams, AFullStandardErrorStopsNothing)
{
    const auto run = redirected(stowline_,
                                {"--json", "backup", "-u", "ann", (files_.path() / "gone").string(),
                                 files_.path().string()},
                                "2>/dev/full", password_);
    EXPECT_EQ(run.status, 3);
    EXPECT_EQ(test::jsonLines(run.output).back()["stored"], 2);
    EXPECT_EQ(stored(), 2U);
}

TEST(StandardStreams, EveryCommandSurvivesAStandardErrorThatTakesNothing)
{
    const test::DevServerProcess server;
    const test::Command stowline(server.bundle());
    const Environment password{{"STOWLINE_PASSWORD", "pw"}};
    const std::vector<std::pair<Words, int>> commands{
        {{"signup", "-u", "ann", "--email", "a@b.c"}, 0},
        {{"signup", "-u", "ann", "--email", "a@b.c"}, 6},
        {{"signin", "-u", "nobody"}, 12},
        {{"ls", "-u", "ann", "/nowhere"}, 4},
        {{"rm", "-u", "ann", "/nowhere"}, 4},
        {{"checksum", "/nowhere"}, 4},
        {{"copy", "/nowhere", "/there"}, 4},
        {{"paths", "/nowhere"}, 4},
        {{"bakcup"}, 2},
        {{"settings", "check", "/nowhere"}, 4},
        {{"settings", "check"}, 0}};
    for (const auto& [words, status] : commands) {
        EXPECT_EQ(redirected(stowline, words, "2>/dev/full", password).status, status)
            << words.front();
        EXPECT_EQ(redirected(stowline, words, "2>&-", password).status,
                  words.front() == "signup" ? 6 : status)
            << words.front();
    }
}

TEST(StandardStreams, TheServiceRunsWithoutThem)
{
    const test::TemporaryFolder folder;
    const std::string portFile = (folder.path() / "port").string();
    test::BackgroundProgram server(
        {{"/bin/sh", "-c", "exec \"$0\" --data \"$1\" --port-file \"$2\" <&- >&- 2>&-",
          test::builtProgram("stowline-devserver"), (folder.path() / "data").string(), portFile}});
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!fs::exists(portFile) && server.isRunning() &&
           std::chrono::steady_clock::now() < deadline)
        ::usleep(1000);
    ASSERT_TRUE(server.isRunning());
    EXPECT_TRUE(fs::exists(portFile));
    server.signal(15);
    EXPECT_EQ(server.wait().status, 0);
}

} // namespace
} // namespace stowline
