// A service that shows an older state than this machine has seen is not believed, by what reads and
// by what stores.
#include "tests/endtoend/Records.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace stowline {
namespace {

namespace fs = std::filesystem;
using test::BackedUp;
using test::field;
using test::Files;
using test::Words;

class RolledBack : public testing::Test {
protected:
    RolledBack()
    {
        account_.write({{"a", "first"}});
        EXPECT_EQ(account_.backup().status, 0);
        account_.write({{"a", "second"}});
        const auto second = account_.backup();
        EXPECT_EQ(second.status, 0);
        digest_ = field(second, "record");
        test::hideRecord(account_, "00000002-finished");
    }

    [[nodiscard]] test::ProgramResult restore(Words more = {}) const
    {
        Words words{"restore", account_.folder.path(), "--machine", "iMac", "--to", target()};
        words.insert(words.end(), more.begin(), more.end());
        return account_.run(words);
    }
    [[nodiscard]] std::string target() const { return account_.command.home().path() / "back"; }

    const BackedUp account_;
    std::string digest_;
};

TEST_F(RolledBack, NothingIsRestoredOrVerifiedAsIfItWereTheNewest)
{
    for (const auto& result :
         {restore(), account_.run({"verify", "--machine", "iMac"}),
          account_.run({"cat", account_.folder.path() / "a", "--machine", "iMac"})}) {
        EXPECT_EQ(result.status, 7) << result.output;
        EXPECT_NE(result.errors.find("no later run than 1, but this machine has seen run 2"),
                  std::string::npos)
            << result.errors;
        EXPECT_EQ(result.output, "");
    }
    EXPECT_FALSE(fs::exists(target()));
}

TEST_F(RolledBack, RunsAreListedAndTheLossIsTold)
{
    const auto result = account_.run({"runs", "--machine", "iMac", "--json"});
    EXPECT_EQ(result.status, 7);
    EXPECT_EQ(test::jsonLines(result.output).at(0).value("run", 0), 1);
    EXPECT_NE(result.errors.find("has seen run 2"), std::string::npos) << result.errors;
}

TEST_F(RolledBack, ARunThatIsNamedComesBackWithAWarning)
{
    const auto result = restore({"--at", "1", "--json"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_NE(result.errors.find("has seen run 2"), std::string::npos) << result.errors;
    EXPECT_EQ(platform::readFile(fs::path(target()) / account_.folder.path().filename() / "a"),
              "first");
}

TEST_F(RolledBack, AMachineThatNeverSawItCannotKnow)
{
    fs::remove_all(account_.command.home().path() / ".local/state/stowline");
    EXPECT_EQ(restore().status, 0);
    EXPECT_FALSE(fs::exists(account_.command.home().path() / ".local/state/stowline/index"));
}

/// The names of the records that the service holds.
std::vector<std::string> recordsOf(const BackedUp& account)
{
    devserver::Storage storage(account.server.data());
    const auto page =
        storage
            .search({.userName = "ann", .folder = "/=stowline=/records", .pageSize = 100}, "*", "")
            .value();
    std::vector<std::string> names;
    for (const auto& item : page.items)
        names.push_back(item.name + " " + std::to_string(item.versions));
    std::ranges::sort(names);
    return names;
}

TEST_F(RolledBack, NothingIsBuiltOnItUntilTheUserSaysSo)
{
    account_.write({{"b", "new"}});
    const auto before = recordsOf(account_);
    const auto refused = account_.backup();
    EXPECT_EQ(refused.status, 7) << refused.errors;
    EXPECT_NE(refused.errors.find("has seen run 2"), std::string::npos) << refused.errors;
    EXPECT_EQ(field(refused, "stored"), 0);
    EXPECT_EQ(recordsOf(account_), before);
    EXPECT_FALSE(account_.stored().contains("b"));

    const auto told = account_.backup({"--rebuild-index"});
    EXPECT_EQ(told.status, 0) << told.errors;
    const auto plain = account_.backup();
    EXPECT_EQ(plain.status, 0) << plain.errors;
    EXPECT_EQ(restore().status, 0);
    const fs::path back = fs::path(target()) / account_.folder.path().filename();
    EXPECT_EQ(platform::readFile(back / "a"), "second");
    EXPECT_EQ(platform::readFile(back / "b"), "new");
}

} // namespace
} // namespace stowline
