// What `restore` puts back when patterns say what: by the rules of `backup`.
#include "tests/endtoend/BackedUp.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <sys/stat.h>
#include <sys/xattr.h>

namespace stowline {
namespace {

namespace fs = std::filesystem;
using test::BackedUp;
using test::field;
using test::Words;
using Names = std::set<std::string>;

class RestoreRules : public testing::Test {
protected:
    RestoreRules()
    {
        account_.write({{"c/a.o", "1"},
                        {"c/b.c", "2"},
                        {"c/k.tmp", "3"},
                        {"c/sub/x.o", "4"},
                        {"c/sub/deep/z.o", "5"}});
        fs::create_directory(account_.folder.path() / "c/empty");
        EXPECT_EQ(account_.backup().status, 0);
    }

    [[nodiscard]] test::ProgramResult restore(const fs::path& target, const Words& more) const
    {
        Words words{"restore", account_.folder.path() / "c", "--machine", "iMac", "--to", target,
                    "--json"};
        words.insert(words.end(), more.begin(), more.end());
        return account_.run(words);
    }

    /// Everything that a restore by these words puts back, below its folder.
    [[nodiscard]] Names restored(const Words& more) const
    {
        const test::TemporaryFolder target;
        const auto result = restore(target.path(), more);
        EXPECT_EQ(result.status, 0) << result.errors;
        EXPECT_EQ(result.errors.find("Nothing that was looked at"), std::string::npos)
            << result.errors;
        Names names;
        for (const auto& entry : fs::recursive_directory_iterator(target.path()))
            names.insert(entry.path().lexically_relative(target.path() / "c").string());
        EXPECT_EQ(field(result, "restored"), names.size()) << result.output;
        names.erase(".");
        // A dry run into a folder that is not there finds the same.
        auto dryWords = more;
        dryWords.push_back("--dry-run");
        EXPECT_EQ(field(restore(target.path() / "new", dryWords), "would_restore"),
                  names.size() + 1);
        return names;
    }

    const BackedUp account_;
};

TEST_F(RestoreRules, LeaveOutWhatTheyWouldLeaveOutOfABackup)
{
    EXPECT_EQ(restored({"--exclude", "sub/"}), Names({"a.o", "b.c", "k.tmp", "empty"}));
    EXPECT_EQ(restored({"--exclude", "**/z.o"}),
              Names({"a.o", "b.c", "k.tmp", "empty", "sub", "sub/deep", "sub/x.o"}));
    EXPECT_EQ(restored({"--exclude", "./a.o", "--exclude", "/sub"}),
              Names({"b.c", "k.tmp", "empty"}));
    EXPECT_EQ(restored({"--exclude", "sub/*.o", "--exclude", "[ab].*"}),
              Names({"k.tmp", "empty", "sub", "sub/deep", "sub/deep/z.o"}));
}

TEST_F(RestoreRules, TakeFilesAndWholeFoldersAndMakeOnlyFoldersThatLeadToThem)
{
    EXPECT_EQ(restored({"--include", "**/z.o"}), Names({"sub", "sub/deep", "sub/deep/z.o"}));
    const Names sub{"sub", "sub/deep", "sub/deep/z.o", "sub/x.o"};
    EXPECT_EQ(restored({"--include", "sub/"}), sub);
    EXPECT_EQ(restored({"--include", "sub"}), sub);
    EXPECT_EQ(restored({"--include", "/sub/deep"}), Names({"sub", "sub/deep", "sub/deep/z.o"}));
    EXPECT_EQ(restored({"--include", "*.c"}), Names({"b.c"}));
    EXPECT_EQ(restored({"--include", "*.o", "--exclude", "deep"}),
              Names({"a.o", "sub", "sub/x.o"}));
    EXPECT_EQ(restored({"--include", "empty"}), Names({"empty"}));
}

TEST_F(RestoreRules, PatternsThatMatchNothingAreToldInTheWordsOfABackup)
{
    const std::string words = "Nothing that was looked at matches the pattern \"*.nomatch\".";
    EXPECT_NE(account_.backup({"--exclude", "*.nomatch"}).errors.find(words), std::string::npos);
    const test::TemporaryFolder target;
    const auto some = restore(target.path(), {"--include", "*.nomatch", "--include", "*.c"});
    EXPECT_EQ(some.status, 0) << some.errors;
    EXPECT_NE(some.errors.find(words), std::string::npos) << some.errors;
    EXPECT_EQ(some.errors.find("\"*.c\""), std::string::npos) << some.errors;
    const auto spared = restore(target.path(), {"--exclude", "*.nomatch"});
    EXPECT_EQ(spared.status, 0) << spared.errors;
    EXPECT_NE(spared.errors.find(words), std::string::npos) << spared.errors;
}

TEST_F(RestoreRules, ThatLeaveNothingMakeNothingAndAreNoSuccess)
{
    const test::TemporaryFolder target;
    // From the folder that was named, not from the one above it.
    for (const char* pattern : {"*.nomatch", "c/a.o", "c"}) {
        const auto result = restore(target.path() / "new", {"--include", pattern});
        EXPECT_EQ(result.status, 4) << result.errors;
        EXPECT_NE(result.errors.find("matches the pattern \"" + std::string(pattern) + "\"."),
                  std::string::npos)
            << result.errors;
        EXPECT_NE(result.errors.find("The patterns leave nothing to restore."), std::string::npos)
            << result.errors;
        EXPECT_FALSE(fs::exists(target.path() / "new/c"));
    }
}

TEST_F(RestoreRules, WhatIsNoPatternIsAUsageError)
{
    const auto result = restore(account_.folder.path() / "to", {"--exclude", "/"});
    EXPECT_EQ(result.status, 2) << result.errors;
    EXPECT_NE(result.errors.find("\"/\" is not a pattern."), std::string::npos) << result.errors;
}

TEST_F(RestoreRules, InPlaceSpareWhatTheUserWantsSpared)
{
    account_.write({{"c/sub/x.o", "newer work"}});
    const auto result = account_.run({"restore", account_.folder.path() / "c", "--machine", "iMac",
                                      "--in-place", "--exclude", "sub/"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(platform::readFile(account_.folder.path() / "c/sub/x.o"), "newer work");
}

/// A dry run of a restore in place, the real one after it, and that both count the same.
class DryRun : public testing::Test {
protected:
    [[nodiscard]] test::ProgramResult restore(Words more) const
    {
        Words words{"restore", folder(), "--machine", "iMac", "--in-place"};
        words.insert(words.end(), more.begin(), more.end());
        return account_.run(words);
    }

    void expectTheSame(Words more = {}) const
    {
        more.emplace_back("--json");
        Words dryWords = more;
        dryWords.emplace_back("-n");
        const auto dry = restore(dryWords);
        const auto real = restore(more);
        EXPECT_EQ(dry.status, real.status) << dry.errors << real.errors;
        EXPECT_EQ(field(dry, "would_restore"), field(real, "restored"))
            << dry.output << real.output;
        for (const char* count : {"found", "unchanged", "skipped", "failed"})
            EXPECT_EQ(field(dry, count), field(real, count)) << count << dry.output << real.output;
        EXPECT_EQ(field(dry, "restored"), 0);
    }

    [[nodiscard]] fs::path folder() const { return account_.folder.path() / "dm"; }

    const BackedUp account_;
};

TEST_F(DryRun, SeesAModeThatIsOtherAndSaysWould)
{
    account_.write({{"dm/f", "1"}, {"dm/g", "2"}});
    ASSERT_EQ(account_.backup().status, 0);
    expectTheSame();
    ASSERT_EQ(chmod((folder() / "f").c_str(), 04777), 0);
    const auto dry = restore({"-n"});
    EXPECT_EQ(dry.status, 0) << dry.errors;
    EXPECT_EQ(dry.output, "would restore " + (folder() / "f").string() + "\n");
    EXPECT_NE(dry.errors.find(": 1 would be restored, 2 unchanged"), std::string::npos)
        << dry.errors;
    expectTheSame();
    struct stat status {};
    ASSERT_EQ(stat((folder() / "f").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0644U);
}

TEST_F(DryRun, CountsWhatTheRealRunDoesToEveryKindOfChange)
{
    account_.write({{"dm/mode", "1"},
                    {"dm/time/file", "2"},
                    {"dm/attribute/file", "3"},
                    {"dm/content/file", "4"},
                    {"dm/gone/file", "5"},
                    {"dm/linked/deep/file", "6"},
                    {"dm/shadowed/file", "7"},
                    {"dm/names/first", "8"},
                    {"dm/names/left", "9"},
                    {"dm/asItWas/file", "10"}});
    fs::create_hard_link(folder() / "names/first", folder() / "names/second");
    fs::create_hard_link(folder() / "names/left", folder() / "names/right");
    fs::create_symlink("target", folder() / "link");
    fs::create_symlink("target", folder() / "changedLink");
    ASSERT_EQ(mkfifo((folder() / "pipe").c_str(), 0600), 0);
    ASSERT_EQ(account_.backup().status, 0);
    const auto change = [this] {
        (void)chmod((folder() / "mode").c_str(), 0600);
        (void)chmod((folder() / "pipe").c_str(), 0640);
        fs::last_write_time(folder() / "time/file", fs::file_time_type::clock::now());
        (void)setxattr((folder() / "attribute/file").c_str(), "user.extra", "1", 1, 0);
        account_.write({{"dm/content/file", "other"}});
        fs::remove_all(folder() / "gone");
        fs::remove_all(folder() / "linked");
        fs::create_directory_symlink("asItWas", folder() / "linked");
        fs::remove_all(folder() / "shadowed/file");
        fs::create_directory(folder() / "shadowed/file");
        fs::remove(folder() / "names/first");
        account_.write({{"dm/names/first", "parted"}});
        fs::remove(folder() / "changedLink");
        fs::create_symlink("elsewhere", folder() / "changedLink");
    };
    for (const char* overwrite : {"if-changed", "always", "if-newer", "never"}) {
        SCOPED_TRACE(overwrite);
        change();
        expectTheSame({"--overwrite", overwrite});
    }
    fs::remove(folder() / "shadowed/file");
    expectTheSame();
    expectTheSame(); // all is right
}

} // namespace
} // namespace stowline
