// backup --before and --after.
#include "tests/endtoend/BackedUp.h"

#include <gtest/gtest.h>

#include <csignal>

namespace stowline {
namespace {

namespace fs = std::filesystem;
using test::Words;

class BackupHooks : public testing::Test {
protected:
    void SetUp() override { account_.write({{"a", "1"}}); }

    /// A program that notes that it ran, with what it was told, and ends with a status.
    [[nodiscard]] std::string program(const std::string& name, const std::string& rest) const
    {
        const auto file = account_.command.home().write(
            name, "#!/bin/sh\necho \"" + name + " $STOWLINE_EXIT_STATUS\" >>" + notes().string() +
                      "\nenv >>" + (account_.command.home().path() / "seen").string() + "\n" +
                      rest + "\n");
        fs::permissions(file, fs::perms::owner_all);
        return "'" + file.string() + "'";
    }
    [[nodiscard]] fs::path notes() const { return account_.command.home().path() / "notes"; }
    [[nodiscard]] std::string noted() const { return platform::readFile(notes()).value_or(""); }

    test::BackedUp account_;
};

TEST_F(BackupHooks, StandAroundTheRun)
{
    const auto dump = account_.folder.path() / "dump";
    const auto result = account_.backup({"--before", program("before", "echo x >" + dump.string()),
                                         "--after", program("after", "")});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(noted(), "before \nafter 0\n");
    EXPECT_EQ(account_.stored().at("dump"), "x\n"); // the run saw what the first one made
    const auto seen = platform::readFile(account_.command.home().path() / "seen").value();
    EXPECT_EQ(seen.find(account_.password), std::string::npos);
}

TEST_F(BackupHooks, AFailureOfTheFirstEndsTheRunBeforeItBegins)
{
    const auto result =
        account_.backup({"--before", program("before", "exit 4"), "--after", program("after", "")});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.errors.find("Nothing was backed up: the command of --before failed with "
                                 "status 4 ("),
              std::string::npos)
        << result.errors;
    EXPECT_EQ(noted(), "before \nafter 1\n");
    EXPECT_TRUE(account_.stored().empty());
    EXPECT_EQ(account_.backup({"--before", "/nonexistent/x"}).status, 1);
    for (const auto& [line, fault] :
         {std::pair("echo 'open", "The command echo 'open has an unmatched quotation mark."),
          {"  ", "This command names no program."}}) {
        const auto malformed = account_.backup({"--before", line});
        EXPECT_EQ(malformed.status, 2);
        EXPECT_NE(malformed.errors.find(fault), std::string::npos) << malformed.errors;
    }
}

TEST_F(BackupHooks, AFailureOfTheSecondIsOneOfTheRun)
{
    const auto result = account_.backup({"--after", program("after", "exit 5")});
    EXPECT_EQ(result.status, 3);
    EXPECT_NE(test::field(result, "message")
                  .get<std::string>()
                  .find("The command of --after failed with status 5 ("),
              std::string::npos);
    EXPECT_EQ(account_.stored(), (test::Files{{"a", "1"}}));
}

TEST_F(BackupHooks, TheSecondRunsAfterARunThatFailedToo)
{
    account_.password = "wrong";
    EXPECT_EQ(account_.backup({"--after", program("after", "exit 5")}).status, 12);
    EXPECT_EQ(noted(), "after 12\n");
}

TEST_F(BackupHooks, AreLeftOutOfADryRun)
{
    EXPECT_EQ(account_
                  .backup({"--dry-run", "--before", program("before", "exit 1"), "--after",
                           program("after", "exit 1")})
                  .status,
              0);
    EXPECT_EQ(noted(), "");
}

TEST_F(BackupHooks, HaveALimit)
{
    const auto result = account_.backup({"--hook-time", "0.2", "--before", "sleep 600"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.errors.find("took longer than 0.2 seconds (--hook-time) and was ended"),
              std::string::npos)
        << result.errors;
    EXPECT_NE(account_.backup({"--hook-time", "1", "--before", "sleep 600"})
                  .errors.find("took longer than 1 second (--hook-time) and was ended"),
              std::string::npos);
}

TEST_F(BackupHooks, CtrlCEndsTheFirstAndTheSecondStillRuns)
{
    test::BackgroundProgram run(account_.backupRun(
        {"--before", program("before", "exec sleep 600"), "--after", program("after", "")}));
    while (noted().empty()) // another process's file
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    run.signal(SIGINT);
    const auto result = run.wait();
    EXPECT_EQ(result.status, 130) << result.errors;
    EXPECT_EQ(noted(), "before \nafter 130\n");
    EXPECT_TRUE(account_.stored().empty());
}

} // namespace
} // namespace stowline
