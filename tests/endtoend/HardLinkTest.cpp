// The names of a hard-linked file are backed up together and part from each other: each is given
// back with what it had when it was looked at last.
#include "tests/endtoend/BackedUp.h"

#include <gtest/gtest.h>

#include <filesystem>

#include <sys/stat.h>

namespace stowline {
namespace {

namespace fs = std::filesystem;
using test::BackedUp;
using test::field;
using test::Words;

/// One file with a name in each of three folders, which are backed up together.
class HardLinks : public testing::Test {
protected:
    HardLinks()
    {
        account_.write({{"A/f", "original"}, {"B/other", "b"}, {"C/other", "c"}});
        fs::create_hard_link(path("A/f"), path("B/f"));
        fs::create_hard_link(path("A/f"), path("C/f"));
        EXPECT_EQ(backUp({"A", "B", "C"}).status, 0);
    }

    [[nodiscard]] fs::path path(const std::string& name) const
    {
        return account_.folder.path() / name;
    }

    test::ProgramResult backUp(const Words& names, const Words& more = {})
    {
        Words words{"backup", "--json", "--system", "iMac"};
        for (const std::string& name : names)
            words.push_back(path(name));
        words.insert(words.end(), more.begin(), more.end());
        return account_.run(words);
    }

    /// As editors save.
    void replace(const std::string& name, const std::string& content)
    {
        account_.write({{"new", content}});
        fs::rename(path("new"), path(name));
    }

    std::string stored(const std::string& name)
    {
        const auto result = account_.run({"cat", path(name), "--machine", "iMac"});
        EXPECT_EQ(result.status, 0) << name << ": " << result.errors;
        return result.output;
    }

    /// Restores everything.
    fs::path restored()
    {
        const auto target = account_.command.home().path() / "back";
        const auto result =
            account_.run({"restore", account_.folder.path(), "--machine", "iMac", "--to", target});
        EXPECT_EQ(result.status, 0) << result.errors;
        return target / account_.folder.path().filename();
    }

    const BackedUp account_;
};

TEST_F(HardLinks, WhoseFirstNameIsReplacedKeepTheirContent)
{
    replace("A/f", "replaced by another");
    ASSERT_EQ(backUp({"A"}).status, 0);
    EXPECT_EQ(stored("A/f"), "replaced by another");
    EXPECT_EQ(stored("B/f"), "original");
    ASSERT_EQ(backUp({"A"}, {"--trust-nothing"}).status, 0); // asks about all versions
    EXPECT_EQ(account_.run({"verify", "--machine", "iMac"}).status, 0);
    EXPECT_EQ(stored("B/f"), "original");
    const fs::path back = restored();
    EXPECT_EQ(platform::readFile(back / "A/f"), "replaced by another");
    EXPECT_EQ(platform::readFile(back / "B/f"), "original");
    EXPECT_TRUE(fs::equivalent(back / "B/f", back / "C/f"));
    EXPECT_FALSE(fs::equivalent(back / "A/f", back / "B/f"));
}

TEST_F(HardLinks, WhoseFirstNameIsRemovedKeepTheirContent)
{
    account_.write({{"A/another", "a"}});
    fs::remove(path("A/f"));
    ASSERT_EQ(backUp({"A"}).status, 0);
    EXPECT_EQ(stored("B/f"), "original");
    EXPECT_EQ(stored("C/f"), "original");
    const fs::path back = restored();
    EXPECT_FALSE(fs::exists(back / "A/f"));
    EXPECT_TRUE(fs::equivalent(back / "B/f", back / "C/f"));
}

TEST_F(HardLinks, WhoseFirstNameIsLeftOutKeepTheirContent)
{
    ASSERT_EQ(backUp({"A"}, {"--exclude", "f"}).status, 0);
    EXPECT_EQ(stored("B/f"), "original");
    EXPECT_EQ(stored("C/f"), "original");
}

TEST_F(HardLinks, WhoseFirstNamesFolderIsReplacedKeepTheirContent)
{
    fs::remove_all(path("A"));
    account_.write({{"A", "a file"}});
    ASSERT_EQ(backUp({"A"}).status, 0);
    EXPECT_EQ(stored("B/f"), "original");
}

TEST_F(HardLinks, ThatCouldNotBeLookedAtStayAsTheyWere)
{
    replace("A/f", "replaced by another");
    ASSERT_EQ(::chmod(path("B").c_str(), 0), 0);
    Words words{"backup", account_.folder.path(), "--json", "--system", "iMac"};
    auto run = account_.command.run(words, account_.environment());
    if (::geteuid() == 0)
        run.words.insert(run.words.begin(),
                         {"/usr/bin/setpriv", "--bounding-set", "-dac_override,-dac_read_search"});
    const auto result = test::runProgram(run);
    ASSERT_EQ(::chmod(path("B").c_str(), 0700), 0);
    EXPECT_EQ(result.status, 3) << result.output;
    EXPECT_EQ(stored("A/f"), "replaced by another");
    EXPECT_EQ(stored("B/f"), "original");
    EXPECT_EQ(stored("C/f"), "original");
}

TEST_F(HardLinks, WhoseContentTheServiceLostHaveWhatIsSentAgain)
{
    {
        devserver::Storage storage(account_.server.data());
        const auto page =
            storage.search({.userName = "ann", .folder = path("A"), .pageSize = 9}, "f", "");
        const auto versions = storage.versions("ann", page.value().items.at(0).id);
        ASSERT_TRUE(storage.deleteVersion("ann", versions.at(0).listId));
    }
    const auto result = backUp({"A"}, {"--trust-nothing"});
    ASSERT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "stored"), 1) << result.output;
    for (const char* name : {"A/f", "B/f", "C/f"})
        EXPECT_EQ(stored(name), "original") << name;
}

TEST_F(HardLinks, ThatAreWrittenToStayOne)
{
    account_.write({{"A/f", "written in place"}}); // the file keeps its inode
    ASSERT_EQ(backUp({"A", "B", "C"}).status, 0);
    for (const char* name : {"A/f", "B/f", "C/f"})
        EXPECT_EQ(stored(name), "written in place") << name;
    const fs::path back = restored();
    EXPECT_TRUE(fs::equivalent(back / "A/f", back / "B/f"));
    EXPECT_TRUE(fs::equivalent(back / "A/f", back / "C/f"));
    const auto again = backUp({"A", "B", "C"});
    EXPECT_EQ(field(again, "stored"), 0) << again.output;
}

TEST_F(HardLinks, ThatPartedAreOneAgainWhenTheyAre)
{
    replace("A/f", "replaced by another");
    ASSERT_EQ(backUp({"A"}).status, 0);
    fs::remove(path("B/f"));
    fs::create_hard_link(path("A/f"), path("B/f"));
    ASSERT_EQ(backUp({"A", "B", "C"}).status, 0);
    EXPECT_EQ(stored("B/f"), "replaced by another");
    EXPECT_EQ(stored("C/f"), "original");
    const fs::path back = restored();
    EXPECT_TRUE(fs::equivalent(back / "A/f", back / "B/f"));
    EXPECT_FALSE(fs::equivalent(back / "A/f", back / "C/f"));
}

TEST_F(HardLinks, AreOneFileAgainThoughTheyLieBelowDifferentNamedPaths)
{
    int round = 0;
    for (const Words& names : {Words{"A", "B", "C"}, Words{"C", "B", "A"}, Words{"B", "C"}}) {
        const auto target = account_.command.home().path() / std::to_string(++round);
        Words words{"restore"};
        for (const std::string& name : names)
            words.push_back(path(name));
        words.insert(words.end(), {"--json", "--machine", "iMac", "--to", target});
        const auto result = account_.run(words);
        ASSERT_EQ(result.status, 0) << result.errors;
        for (const std::string& name : names) {
            const fs::path one = target / name / "f";
            EXPECT_TRUE(fs::equivalent(one, target / names.front() / "f")) << round << name;
            EXPECT_EQ(fs::hard_link_count(one), names.size()) << round << name;
            EXPECT_EQ(platform::readFile(one), "original");
        }
        const auto again = account_.run(words);
        EXPECT_EQ(field(again, "unchanged"), field(again, "found")) << round << again.output;
        words.emplace_back("--dry-run");
        EXPECT_EQ(field(account_.run(words), "would_restore"), 0) << round;
    }
}

TEST_F(HardLinks, AreOneFileAgainInPlaceThoughTheyLieBelowDifferentNamedPaths)
{
    fs::remove(path("A/f"));
    fs::remove(path("C/f"));
    const auto result =
        account_.run({"restore", path("C"), path("A"), "--machine", "iMac", "--in-place"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_TRUE(fs::equivalent(path("A/f"), path("C/f")));
    EXPECT_EQ(fs::hard_link_count(path("B/f")), 1U); // which was not to be touched
}

} // namespace
} // namespace stowline
