// What is known of a folder whose backup was cut off: nothing is taken out, and nobody takes it for
// whole until a run has come to its end.
#include "tests/endtoend/BackedUp.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>

namespace stowline {
namespace {

namespace fs = std::filesystem;
using test::BackedUp;
using test::field;
using test::Words;

class CutOffRuns : public testing::Test {
protected:
    [[nodiscard]] std::string place(const std::string& name) const
    {
        return account_.folder.path() / name;
    }

    [[nodiscard]] test::ProgramRun backUp(const std::string& name, const Words& more = {}) const
    {
        Words words{"backup", place(name), "--system", "iMac", "--json"};
        words.insert(words.end(), more.begin(), more.end());
        return account_.command.run(words, account_.environment());
    }

    /// Backs up a folder that holds a large file, and stops the run while that is sent.
    void cutOff(const std::string& name, int signal) const
    {
        test::BackgroundProgram run(
            backUp(name, {"--jobs", "1", "--part-size", "64k", "--bwlimit", "200k"}));
        account_.awaitSent(65536);
        run.signal(signal);
        EXPECT_NE(run.wait().status, 0);
    }

    [[nodiscard]] test::ProgramResult restored(const std::string& name) const
    {
        const fs::path target = account_.command.home().path() / "restored";
        fs::remove_all(target);
        return account_.run(
            {"restore", place(name), "--to", target.string(), "--machine", "iMac", "--json"});
    }

    [[nodiscard]] bool isRestored(const std::string& name) const
    {
        return fs::exists(account_.command.home().path() / "restored" / name);
    }

    void expectCutOff(const test::ProgramResult& result, const std::string& name) const
    {
        EXPECT_EQ(field(result, "cut_off"), 1) << result.output;
        EXPECT_TRUE(says(result, "A backup of " + place(name) + " was cut off")) << result.errors;
    }

    BackedUp account_;
    const std::string large_ = test::noise(2U << 20, 7);
};

TEST_F(CutOffRuns, AreToldOfByLaterRunsOfOtherPathsUntilOneIsWhole)
{
    for (const int signal : {SIGTERM, SIGKILL}) {
        account_.write({{"docs/a", "1"},
                        {"docs/large", large_ + std::to_string(signal)},
                        {"docs/z/late", "2"},
                        {"pics/x", "3"}});
        cutOff("docs", signal);
        const auto other = test::runProgram(backUp("pics"));
        EXPECT_EQ(other.status, 0);
        EXPECT_TRUE(says(other, place("docs") + " was cut off")) << other.errors;
        expectCutOff(restored("docs"), "docs");
        EXPECT_FALSE(isRestored("docs/large"));
        expectCutOff(account_.run({"verify", "--machine", "iMac", "--json"}), "docs");
        // The record itself knows, for a machine that has nothing else.
        fs::remove_all(account_.command.home().path() / ".local/state/stowline/index");
        EXPECT_TRUE(says(test::runProgram(backUp("pics")), place("docs") + " was cut off"));

        const auto whole = test::runProgram(backUp("docs"));
        EXPECT_EQ(whole.status, 0);
        EXPECT_FALSE(says(whole, "was cut off")) << whole.errors;
        const auto read = restored("docs");
        EXPECT_EQ(field(read, "cut_off"), 0);
        EXPECT_TRUE(isRestored("docs/large"));
        EXPECT_TRUE(isRestored("docs/z/late"));
        fs::remove(place("docs/large"));
        EXPECT_EQ(test::runProgram(backUp("docs")).status, 0);
    }
}

TEST_F(CutOffRuns, TakeNothingOut)
{
    account_.write({{"docs/a/moved", large_}, {"docs/a/kept", "1"}, {"pics/x", "3"}});
    ASSERT_EQ(test::runProgram(backUp("docs")).status, 0);
    fs::create_directory(place("docs/zz"));
    fs::rename(place("docs/a/moved"), place("docs/zz/moved"));
    cutOff("docs", SIGTERM);
    ASSERT_EQ(test::runProgram(backUp("pics")).status, 0);
    const auto read = restored("docs");
    expectCutOff(read, "docs");
    EXPECT_TRUE(isRestored("docs/a/moved")) << read.output;
    EXPECT_FALSE(isRestored("docs/zz/moved"));
    ASSERT_EQ(test::runProgram(backUp("docs")).status, 0);
    (void)restored("docs");
    EXPECT_FALSE(isRestored("docs/a/moved"));
    EXPECT_TRUE(isRestored("docs/zz/moved"));
}

TEST_F(CutOffRuns, AreNotMadeWholeByResumingTheirUploads)
{
    account_.write({{"docs/large", large_}, {"docs/z/late", "2"}});
    cutOff("docs", SIGTERM);
    const auto resumed = account_.run({"uploads", "resume", "--system", "iMac", "--json"});
    EXPECT_EQ(resumed.status, 0) << resumed.errors;
    EXPECT_TRUE(says(resumed, place("docs") + " was cut off")) << resumed.errors;
    const auto read = restored("docs");
    expectCutOff(read, "docs");
    EXPECT_TRUE(isRestored("docs/large"));
    EXPECT_FALSE(isRestored("docs/z/late"));
}

TEST_F(CutOffRuns, AreMadeWholeByARunOfTheFolderAbove)
{
    account_.write({{"docs/in/large", large_}, {"docs/in/z", "2"}});
    cutOff("docs/in", SIGTERM);
    ASSERT_EQ(test::runProgram(backUp("docs", {"--exclude", "nothing"})).status, 0);
    EXPECT_EQ(field(restored("docs"), "cut_off"), 0);
}

TEST_F(CutOffRuns, ADryRunAfterOneLeavesItsNote)
{
    account_.write({{"docs/large", large_}, {"docs/z", "2"}, {"pics/x", "3"}});
    cutOff("docs", SIGTERM);
    EXPECT_EQ(test::runProgram(backUp("docs", {"--dry-run"})).status, 0);
    EXPECT_TRUE(says(test::runProgram(backUp("pics")), place("docs") + " was cut off"));
}

} // namespace
} // namespace stowline
