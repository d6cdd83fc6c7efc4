// `restore --delete`: what the run did not hold goes, and nothing else.
#include "tests/endtoend/BackedUp.h"
#include "tests/support/MountNamespace.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <set>

namespace stowline {
namespace {

namespace fs = std::filesystem;
using test::BackedUp;
using test::field;
using test::Words;
using Names = std::set<std::string>;

class RestoreDelete : public testing::Test {
protected:
    void backUp(const Words& more = {}) const
    {
        account_.write({{"c/a", "1"}, {"c/sub/b", "2"}});
        EXPECT_EQ(account_.backup(more).status, 0);
    }

    [[nodiscard]] test::ProgramResult restore(const Words& more = {}) const
    {
        Words words{"restore",   account_.folder.path() / "c",
                    "--machine", "iMac",
                    "--to",      target_.path(),
                    "--json",    "--delete"};
        words.insert(words.end(), more.begin(), more.end());
        return account_.run(words);
    }

    /// Puts everything back, and things beside it that no run has seen.
    void restoreAndAdd(const std::vector<std::string>& others) const
    {
        EXPECT_EQ(restore({"--yes"}).status, 0);
        for (const std::string& other : others)
            target_.write(other, "other");
    }

    [[nodiscard]] Names names() const
    {
        Names found;
        for (const auto& entry : fs::recursive_directory_iterator(target_.path()))
            found.insert(entry.path().lexically_relative(target_.path()).string());
        return found;
    }

    const Names whole_{"c", "c/a", "c/sub", "c/sub/b"};
    const test::TemporaryFolder target_;
    const BackedUp account_;
};

TEST_F(RestoreDelete, TakesAwayWhatTheRunDidNotHold)
{
    backUp();
    restoreAndAdd({"c/new", "c/sub/newer", "c/tree/deep/er", "c/tree/x", "beside"});
    const test::TemporaryFolder outside;
    outside.write("kept", "kept");
    fs::create_directory_symlink(outside.path(), target_.path() / "c/link");
    fs::create_directory_symlink(outside.path(), target_.path() / "c/tree/link");
    const auto result = restore({"--yes"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "deleted"), 8) << result.output;
    Names left = whole_;
    left.insert("beside"); // nothing was put back into that folder but c
    EXPECT_EQ(names(), left);
    EXPECT_TRUE(fs::exists(outside.path() / "kept"));
    // The folders' own times were put back after that.
    const auto again = restore({"--yes"});
    EXPECT_EQ(field(again, "restored"), 0);
    EXPECT_EQ(field(again, "deleted"), 0);
}

TEST_F(RestoreDelete, AsksFirst)
{
    backUp();
    restoreAndAdd({"c/new"});
    const auto result = restore();
    EXPECT_EQ(result.status, 2);
    EXPECT_NE(result.errors.find("--yes"), std::string::npos) << result.errors;
    EXPECT_TRUE(fs::exists(target_.path() / "c/new"));
}

TEST_F(RestoreDelete, OnlySaysWhatItWouldDoWhenAsked)
{
    backUp();
    restoreAndAdd({"c/new", "c/tree/x"});
    const Names before = names();
    const auto result = restore({"--dry-run"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "would_delete"), 3) << result.output;
    EXPECT_EQ(field(result, "deleted"), 0);
    EXPECT_NE(result.output.find("/c/tree/x\",\"state\":\"would-delete\""), std::string::npos)
        << result.output;
    EXPECT_EQ(names(), before);
}

TEST_F(RestoreDelete, LeavesWhatTheRulesOfTheRunLeftOut)
{
    const test::TemporaryFolder patterns;
    const auto file = patterns.write("patterns", "*.log\n/c/only.here\n");
    backUp({"--exclude", "*.o", "--exclude", "build/", "--exclude-from", file.string()});
    restoreAndAdd({"c/x.o", "c/x.log", "c/only.here", "c/build/x", "c/sub/build/y", "c/sub/x.o.c",
                   "c/tree/x.o", "c/tree/x"});
    EXPECT_EQ(field(restore({"--yes"}), "deleted"), 2);
    Names left = whole_;
    left.insert({"c/x.o", "c/x.log", "c/only.here", "c/build", "c/build/x", "c/sub/build",
                 "c/sub/build/y", "c/tree", "c/tree/x.o"});
    EXPECT_EQ(names(), left);
}

TEST_F(RestoreDelete, IsRefusedWhereTheRunDoesNotKnow)
{
    account_.write({{"c/a", "1"}, {"c/sub/b", "2"}});
    const std::string missing = account_.folder.path() / "missing";
    EXPECT_EQ(account_.backup({missing}).status, 3);
    const auto failed = restore({"--yes"});
    EXPECT_EQ(failed.status, 1);
    EXPECT_NE(failed.errors.find("could not read or store everything"), std::string::npos)
        << failed.errors;
    EXPECT_EQ(account_.backup({"--skip-hidden"}).status, 0);
    const auto hidden = restore({"--yes"});
    EXPECT_EQ(hidden.status, 1);
    EXPECT_NE(hidden.errors.find("\"skip-hidden\""), std::string::npos) << hidden.errors;
    EXPECT_EQ(names(), Names());
}

TEST_F(RestoreDelete, IsRefusedTogetherWithPatterns)
{
    backUp();
    for (const char* option : {"--include", "--exclude"})
        EXPECT_EQ(restore({"--yes", option, "*.o"}).status, 2) << option;
}

TEST_F(RestoreDelete, LeavesWhatIsBesideTheFoldersThatWereBackedUp)
{
    account_.write({{"c/a", "1"}});
    EXPECT_EQ(account_.backup().status, 0);
    const fs::path folder = account_.folder.path().relative_path(); // below "/"
    const auto whole = [&] {
        return account_.run({"restore", "/", "--machine", "iMac", "--to", target_.path(), "--json",
                             "--delete", "--yes"});
    };
    EXPECT_EQ(whole().status, 0);
    const std::string above = folder.parent_path();
    target_.write("other", "other");
    target_.write(above + "/other", "other");
    target_.write(folder / "other", "other");
    const auto result = whole();
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "deleted"), 1) << result.output;
    EXPECT_TRUE(fs::exists(target_.path() / "other"));
    EXPECT_TRUE(fs::exists(target_.path() / above / "other"));
    EXPECT_FALSE(fs::exists(target_.path() / folder / "other"));
}

TEST_F(RestoreDelete, KnowsFoldersThatWereNamedByALinkOrFromTheirPlace)
{
    account_.write({{"c/a", "1"}});
    const auto link = account_.command.home().path() / "link";
    fs::create_directory_symlink(account_.folder.path() / "c", link);
    auto run = account_.command.run({"backup", "link", "--system", "iMac"}, account_.environment());
    run.words.insert(run.words.begin(), {"/usr/bin/env", "-C", account_.command.home().path()});
    ASSERT_EQ(test::runProgram(run).status, 0);
    restoreAndAdd({"c/new"});
    EXPECT_EQ(field(restore({"--yes"}), "deleted"), 1);
}

TEST_F(RestoreDelete, DeletesNothingWhileSomethingIsNotPutBack)
{
    backUp();
    restoreAndAdd({"c/new", "c/sub/newer"});
    for (const auto& entry : fs::recursive_directory_iterator(account_.server.data())) {
        if (entry.is_regular_file() && entry.file_size() == 1)
            fs::resize_file(entry.path(), 0); // the contents of a and b
    }
    fs::remove(target_.path() / "c/a");
    const auto result = restore({"--yes"});
    EXPECT_EQ(result.status, 7) << result.errors;
    EXPECT_EQ(field(result, "deleted"), 0);
    EXPECT_NE(result.errors.find("nothing was deleted"), std::string::npos) << result.errors;
    EXPECT_TRUE(fs::exists(target_.path() / "c/new"));
    EXPECT_TRUE(fs::exists(target_.path() / "c/sub/newer"));
}

TEST_F(RestoreDelete, LeavesTheStateOfBackups)
{
    const auto home = account_.command.home().path();
    account_.command.home().write("letters/one", "1");
    ASSERT_EQ(account_.run({"backup", home, "--system", "iMac"}).status, 0);
    account_.command.home().write("letters/two", "2");
    const auto result = account_.run(
        {"restore", home, "--machine", "iMac", "--in-place", "--json", "--delete", "--yes"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "deleted"), 1) << result.output;
    EXPECT_FALSE(fs::exists(home / "letters/two"));
    EXPECT_TRUE(fs::exists(home / ".local/state/stowline/index"));
}

TEST_F(RestoreDelete, LeavesWhatIsMounted)
{
    if (const auto why = test::enterMountNamespace())
        GTEST_SKIP() << *why;
    backUp();
    restoreAndAdd({"c/new"});
    const auto disk = test::Mount::memory(target_.path() / "c/tree/disk");
    target_.write("c/tree/disk/file", "precious");
    target_.write("c/tree/x", "other");
    const auto result = restore({"--yes"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "deleted"), 2) << result.output;
    EXPECT_TRUE(fs::exists(target_.path() / "c/tree/disk/file"));
    EXPECT_FALSE(fs::exists(target_.path() / "c/tree/x"));
}

TEST_F(RestoreDelete, LeavesAFolderOfTheSameFileSystemThatIsMounted)
{
    if (const auto why = test::enterMountNamespace())
        GTEST_SKIP() << *why;
    backUp();
    restoreAndAdd({"c/new"});
    target_.write("elsewhere/file", "precious");
    const auto again =
        test::Mount::again(target_.path() / "elsewhere", target_.path() / "c/tree/again");
    const auto result = restore({"--yes"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "deleted"), 1) << result.output;
    EXPECT_TRUE(fs::exists(target_.path() / "elsewhere/file"));
}

TEST_F(RestoreDelete, TakesAwayWhatABackedUpDiskDidNotHold)
{
    if (const auto why = test::enterMountNamespace())
        GTEST_SKIP() << *why;
    const auto disk = test::Mount::memory(account_.folder.path() / "c");
    backUp();
    ASSERT_EQ(account_.run({"backup", account_.folder.path() / "c", "--system", "iMac"}).status, 0);
    restoreAndAdd({"c/new", "c/sub/new"});
    EXPECT_EQ(field(restore({"--yes"}), "deleted"), 2);
}

} // namespace
} // namespace stowline
