// Machines of one name: the runs of one are never taken for those of another.
#include "tests/endtoend/BackedUp.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <unistd.h>

namespace stowline {
namespace {

namespace fs = std::filesystem;
using test::BackedUp;
using test::field;
using test::Files;
using test::Words;

/// A program that gives a machine another identity.
class Machines : public testing::Test {
protected:
    /// As another machine: its identity is another one, and it has no state.
    [[nodiscard]] test::ProgramResult on(const std::string& machine, Words words) const
    {
        auto run = account_.command.run(std::move(words), account_.environment());
        const std::string id = std::string(32 - machine.size(), '0') + machine;
        const fs::path file = account_.command.home().path() / ("machine-id-" + machine);
        EXPECT_TRUE(platform::writeFileAtomically(file, id + "\n"));
        run.environment["XDG_STATE_HOME"] = account_.command.home().path() / ("state-" + machine);
        run.words.insert(run.words.begin(),
                         {"/usr/bin/unshare", "--mount", "/bin/sh", "-c",
                          "mount --bind " + file.string() + " /etc/machine-id && exec \"$@\"",
                          "sh"});
        return test::runProgram(run);
    }
    [[nodiscard]] test::ProgramResult backupOn(const std::string& machine, Words more = {}) const
    {
        Words words{"backup", account_.folder.path(), "--system", "iMac"};
        words.insert(words.end(), more.begin(), more.end());
        return on(machine, words);
    }
    [[nodiscard]] test::ProgramResult catOn(const std::string& machine, Words more = {}) const
    {
        Words words{"cat", account_.folder.path() / "a", "--machine", "iMac"};
        words.insert(words.end(), more.begin(), more.end());
        return on(machine, words);
    }

    const BackedUp account_;
};

TEST_F(Machines, OfOneNameAreNeverGuessed)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can give a program another machine's identity";
    account_.write({{"a", "of a"}});
    ASSERT_EQ(backupOn("a").status, 0);
    // The only one there is: taken, and said.
    const auto only = catOn("c");
    EXPECT_EQ(only.output, "of a") << only.errors;
    EXPECT_NE(only.errors.find("not of this user on this machine"), std::string::npos)
        << only.errors;
    account_.write({{"a", "of b"}});
    const auto second = backupOn("b", {"--adopt"});
    ASSERT_EQ(second.status, 0) << second.errors;
    EXPECT_EQ(catOn("a").output, "of a");
    EXPECT_EQ(catOn("b").output, "of b");
    const auto several = catOn("c");
    EXPECT_EQ(several.status, 2) << several.errors;
    EXPECT_EQ(several.output, "");
    EXPECT_NE(several.errors.find("--chain"), std::string::npos) << several.errors;
}

TEST_F(Machines, OfOneNameStopEachOtherUntilTheirBackupsAreAdopted)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can give a program another machine's identity";
    account_.write({{"a", "of a"}, {"same", "on both"}});
    ASSERT_EQ(backupOn("a").status, 0);
    const auto chainsFor = [&](const std::string& machine) {
        const auto runs = on(machine, {"runs", "--machine", "iMac", "--json"});
        EXPECT_EQ(runs.status, 0) << runs.errors;
        EXPECT_EQ(runs.errors.find("Also under this name"), std::string::npos) << runs.errors;
        EXPECT_EQ(test::jsonLines(runs.output).size(), 2U) << runs.output; // a run and the result
        return field(runs, "chain").get<std::string>();
    };
    const std::string chain = chainsFor("a");
    account_.write({{"new", "of b"}});
    const Files before = account_.stored();
    for (int attempt = 0; attempt < 2; ++attempt) {
        const auto refused = backupOn("b", {"--json"});
        EXPECT_EQ(refused.status, 1) << refused.errors;
        EXPECT_NE(refused.errors.find("holds backups of another machine under the name \"iMac\""),
                  std::string::npos)
            << refused.errors;
        EXPECT_NE(refused.errors.find("--adopt"), std::string::npos) << refused.errors;
        EXPECT_EQ(account_.stored(), before);
        EXPECT_EQ(chainsFor("c"), chain); // still the only one
    }
    EXPECT_EQ(on("a", {"runs", "--machine", "iMac", "--chain", chain}).status, 0);

    fs::remove(account_.folder.path() / "new");
    const auto adopted = backupOn("b", {"--adopt", "--json"});
    EXPECT_EQ(adopted.status, 0) << adopted.errors;
    EXPECT_EQ(field(adopted, "stored"), 0) << adopted.output;
    EXPECT_EQ(field(adopted, "unchanged"), 2) << adopted.output;
    EXPECT_EQ(account_.stored(), before);
}

} // namespace
} // namespace stowline
