// `restore --delete`: what a run left out, could not look at or had on another disk stays.
#include "tests/endtoend/BackedUp.h"
#include "tests/endtoend/OddFileSystem.h"
#include "tests/support/MountNamespace.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <set>
#include <sys/mount.h>
#include <sys/stat.h>

namespace stowline {
namespace {

namespace fs = std::filesystem;
using test::BackedUp;
using test::field;
using test::Words;
using Names = std::set<std::string>;

class RestoreDeleteRules : public testing::Test {
protected:
    /// A backup by one whom modes keep away from files, which they do not from root.
    void backUp(Words paths, const Words& rules = {}, int status = 0) const
    {
        Words words{"backup", "--system", "iMac"};
        for (const std::string& path : paths)
            words.push_back(place(path));
        words.insert(words.end(), rules.begin(), rules.end());
        auto run = account_.command.run(words, account_.environment());
        run.words.insert(run.words.begin(),
                         {"/usr/bin/setpriv", "--bounding-set", "-dac_override,-dac_read_search"});
        const auto result = test::runProgram(run);
        EXPECT_EQ(result.status, status) << result.errors;
    }

    [[nodiscard]] std::string place(const std::string& name) const
    {
        return account_.folder.path() / name;
    }

    [[nodiscard]] test::ProgramResult prune(const Words& more = {}) const
    {
        Words words{"restore", place("c"), "--machine", "iMac", "--delete", "--yes", "--json"};
        words.insert(words.end(), more.begin(), more.end());
        if (std::ranges::find(more, "--to") == more.end())
            words.insert(words.end(), {"--to", target_.path()});
        return account_.run(words);
    }

    /// Puts the folder back, then these beside it, and deletes. @return of these, what is gone
    [[nodiscard]] Names gone(const Names& others) const
    {
        EXPECT_EQ(prune().status, 0);
        for (const std::string& name : others)
            target_.write("c/" + name, "other");
        const auto result = prune();
        EXPECT_EQ(result.status, 0) << result.errors;
        Names gone;
        for (const std::string& name : others) {
            if (!fs::exists(target_.path() / "c" / name))
                gone.insert(name);
        }
        return gone;
    }

    void expectRefusal(const std::string& sentence) const
    {
        const auto result = prune();
        EXPECT_EQ(result.status, 1) << result.errors;
        EXPECT_NE(result.errors.find(sentence), std::string::npos) << result.errors;
        EXPECT_TRUE(fs::is_empty(target_.path())) << "something was put back first";
    }

    const test::TemporaryFolder target_;
    const BackedUp account_;
};

TEST_F(RestoreDeleteRules, KeepWhatPatternsLeaveOut)
{
    account_.write({{"c/a", "1"}, {"c/sub/b", "2"}});
    const test::TemporaryFolder patterns;
    const auto file = patterns.write("patterns", "*.log\n/only.here\n!keep.o\n");
    backUp({"c"}, {"--exclude", "*.o", "--exclude", "build/", "--exclude-from", file.string()});
    EXPECT_EQ(gone({"x.o", "x.log", "only.here", "sub/only.here", "build/x", "sub/build/y",
                    "keep.o", "sub/x.o.c", "tree/x.o", "tree/x", "whole/x"}),
              (Names{"sub/only.here", "keep.o", "sub/x.o.c", "tree/x", "whole/x"}));
    EXPECT_FALSE(fs::exists(target_.path() / "c/whole"));
}

TEST_F(RestoreDeleteRules, KeepWhatNoIncludePatternTakes)
{
    account_.write({{"c/a.txt", "1"}, {"c/sub/b.txt", "2"}});
    backUp({"c"}, {"--include", "*.txt", "--include", "/all"});
    EXPECT_EQ(gone({"x.c", "x.txt", "sub/x.c", "sub/x.txt", "all/x.c", "new/x.c", "new/x.txt"}),
              (Names{"x.txt", "sub/x.txt", "all/x.c", "new/x.txt"}));
}

TEST_F(RestoreDeleteRules, KeepWhatIsHidden)
{
    account_.write({{"c/a", "1"}, {"c/.hidden", "listed\n"}, {"c/listed/x", "2"}, {"c/.x/y", "3"}});
    backUp({"c"}, {"--skip-hidden"});
    EXPECT_EQ(gone({".x/y", ".new", "listed/x", "new/.x", "new/y", ".hidden"}), (Names{"new/y"}));
    target_.write("c/.hidden", "also\n");
    EXPECT_EQ(gone({"also", "other"}), (Names{"other"}));
}

TEST_F(RestoreDeleteRules, KeepCaches)
{
    const std::string tag = "Signature: 8a477f597d28d172789f06886806bc55";
    account_.write({{"c/a", "1"}, {"c/old/CACHEDIR.TAG", tag}, {"c/old/x", "2"}, {"c/sub/b", "3"}});
    backUp({"c"}, {"--exclude-caches"});
    ASSERT_EQ(prune().status, 0);
    target_.write("c/new/CACHEDIR.TAG", tag);
    target_.write("c/sub/CACHEDIR.TAG", tag); // is a cache since
    EXPECT_EQ(gone({"old/x", "new/x", "sub/x", "other/CACHEDIR.TAG"}),
              (Names{"other/CACHEDIR.TAG"}));
}

TEST_F(RestoreDeleteRules, KeepTheRestOfAFolderOfWhichOnlyAPartWasNamed)
{
    account_.write({{"c/a", "1"}, {"c/build/x", "2"}, {"c/build/keep/y", "3"}});
    backUp({"c", "c/build/keep"}, {"--exclude", "build"});
    EXPECT_EQ(gone({"build/x", "build/new", "build/keep/new", "new"}),
              (Names{"build/keep/new", "new"}));
}

TEST_F(RestoreDeleteRules, KeepTheRestWhenAPartOfItIsNamedOnlyLater)
{
    account_.write({{"c/a", "1"}, {"c/build/x", "2"}, {"c/build/keep/y", "3"}});
    backUp({"c"}, {"--exclude", "build"});
    backUp({"c/build/keep"});
    EXPECT_EQ(gone({"build/x", "build/new", "build/keep/new", "new"}), (Names{"build/keep/new"}))
        << "the rest was looked at by the run before";
}

TEST_F(RestoreDeleteRules, KeepTheRestOfAHiddenFolderInWhichSomethingIsNamedLater)
{
    account_.write({{"c/a", "1"}, {"c/.hidden", "listed\n"}, {"c/listed/keep/y", "2"}});
    backUp({"c"}, {"--skip-hidden"});
    backUp({"c/listed/keep"});
    EXPECT_EQ(gone({"listed/x", "listed/keep/new"}), (Names{"listed/keep/new"}));
}

TEST_F(RestoreDeleteRules, KeepWhatWasOnAnotherDisk)
{
    if (const auto why = test::enterMountNamespace())
        GTEST_SKIP() << *why;
    account_.write({{"c/a", "1"}});
    {
        const auto disk = test::Mount::memory(place("c/disk"));
        account_.write({{"c/disk/x", "2"}, {"c/disk/keep/y", "3"}});
        backUp({"c"}, {"--one-file-system"});
    } // it is not mounted any more
    EXPECT_EQ(gone({"disk/x", "new"}), (Names{"new"}));
    {
        const auto disk = test::Mount::memory(place("c/disk"));
        account_.write({{"c/disk/x", "2"}, {"c/disk/keep/y", "3"}});
        backUp({"c/disk/keep"}); // on the way to which the disk is described
    }
    EXPECT_EQ(gone({"disk/x", "disk/keep/new", "new"}), (Names{"disk/keep/new"}));
}

TEST_F(RestoreDeleteRules, KeepWhatShowedTheStateOfTheSystem)
{
    if (const auto why = test::enterMountNamespace())
        GTEST_SKIP() << *why;
    account_.write({{"c/a", "1"}});
    fs::create_directories(place("c/proc"));
    ASSERT_EQ(::mount("proc", place("c/proc").c_str(), "proc", 0, nullptr), 0);
    backUp({"c"});
    ASSERT_EQ(::umount2(place("c/proc").c_str(), MNT_DETACH), 0);
    EXPECT_EQ(gone({"proc/x", "new"}), (Names{"new"}));
}

TEST_F(RestoreDeleteRules, KeepWhatCouldNotBeLookedAt)
{
    account_.write({{"c/a", "1"}, {"c/closed/x", "2"}, {"c/file", "3"}});
    ASSERT_EQ(::chmod(place("c/closed").c_str(), 0), 0);
    ASSERT_EQ(::chmod(place("c/file").c_str(), 0), 0);
    backUp({"c"}, {}, 3);
    EXPECT_EQ(gone({"closed/x", "closed/new", "file", "new"}), (Names{"new"}));
    // A folder that may be entered but not listed, of which something is named later.
    ASSERT_EQ(::chmod(place("c/closed").c_str(), 0100), 0);
    backUp({"c/closed/x"});
    EXPECT_EQ(prune().status, 1) << "a file alone was named";
    ASSERT_EQ(::chmod(place("c/closed").c_str(), 0700), 0);
    ASSERT_EQ(::chmod(place("c/file").c_str(), 0600), 0);
    backUp({"c"});
    EXPECT_EQ(gone({"closed/y", "new"}), (Names{"closed/y", "new"}));
}

TEST_F(RestoreDeleteRules, RefuseWhatIsOnlyKnownFromAnEarlierRun)
{
    account_.write({{"c/a", "1"}, {"c/closed/x", "2"}, {"c/file", "3"}});
    backUp({"c"});
    account_.write({{"c/file", "newer"}});
    ASSERT_EQ(::chmod(place("c/file").c_str(), 0), 0);
    backUp({"c"}, {}, 3);
    EXPECT_EQ(gone({"closed/new", "new"}), (Names{"closed/new", "new"}))
        << "a file is not a folder";
    fs::remove_all(target_.path() / "c");
    ASSERT_EQ(::chmod(place("c/closed").c_str(), 0), 0);
    backUp({"c"}, {}, 3);
    expectRefusal("Run 3 holds " + place("c/closed") +
                  " only as an earlier run saw it, so it "
                  "cannot tell what is to be deleted there.");
    // A part of it that is named says nothing of the rest.
    ASSERT_EQ(::chmod(place("c/closed").c_str(), 0100), 0);
    backUp({"c/closed/x"});
    expectRefusal("Run 4 holds " + place("c/closed") + " only as an earlier run saw it");
    EXPECT_EQ(prune({"--exclude", "/closed"}).status, 1) << "the run was not told to look at c";
    EXPECT_EQ(prune({"--exclude", "/closed", "--at", "3"}).status, 0);
    ASSERT_EQ(::chmod(place("c/closed").c_str(), 0700), 0);
    ASSERT_EQ(::chmod(place("c/file").c_str(), 0600), 0);
    backUp({"c"});
    EXPECT_EQ(gone({"closed/new"}), (Names{"closed/new"}));
}

TEST_F(RestoreDeleteRules, RefuseAFolderOfWhichOnlyFilesWereNamed)
{
    account_.write({{"c/a", "1"}, {"c/b", "2"}});
    backUp({"c/a"});
    expectRefusal("Run 1 does not say which folders it looked at");
    account_.write({{"d/x", "3"}});
    backUp({"d"});
    expectRefusal("Run 2 was not told to back up " + place("c"));
}

TEST_F(RestoreDeleteRules, RefuseRulesThatAreNotInTheRecord)
{
    account_.write({{"c/a", "1"}});
    const test::TemporaryFolder patterns;
    std::string lines;
    for (int i = 0; i < 3000; ++i)
        lines += "pattern" + std::to_string(i) + "\n";
    backUp({"c"}, {"--exclude-from", patterns.write("patterns", lines).string()});
    expectRefusal("The rules of run 1 in " + place("c") + " are too long to be in its record");
}

TEST_F(RestoreDeleteRules, RefuseTheMountPointOfADiskThatIsNotThere)
{
    if (const auto why = test::enterMountNamespace())
        GTEST_SKIP() << *why;
    const Words inPlace{"restore",    place("c"), "--machine", "iMac",
                        "--in-place", "--delete", "--yes",     "--json"};
    {
        const auto disk = test::Mount::memory(place("c"));
        account_.write({{"c/a", "1"}, {"c/sub/b", "2"}});
        backUp({"c"});
        account_.write({{"c/new", "other"}});
        const auto result = account_.run(inPlace);
        EXPECT_EQ(result.status, 0) << result.errors;
        EXPECT_EQ(field(result, "deleted"), 1) << result.output;
    }
    account_.write({{"c/behind", "precious"}});
    const auto result = account_.run(inPlace);
    EXPECT_EQ(result.status, 1) << result.errors;
    EXPECT_NE(result.errors.find("No disk is mounted at " + place("c")), std::string::npos)
        << result.errors;
    EXPECT_TRUE(fs::exists(place("c/behind")));
    // By another name of the very same place, too.
    Words aside = inPlace;
    aside[4] = "--to=" + account_.folder.path().string();
    EXPECT_EQ(account_.run(aside).status, 1);
    EXPECT_TRUE(fs::exists(place("c/behind")));
    EXPECT_EQ(gone({"sub/new"}), (Names{"sub/new"})) << "elsewhere";
}

TEST_F(RestoreDeleteRules, DeleteNothingThroughAMountInTheTarget)
{
    if (const auto why = test::enterMountNamespace())
        GTEST_SKIP() << *why;
    account_.write({{"c/a", "1"}, {"c/sub/b", "2"}});
    backUp({"c"});
    ASSERT_EQ(prune().status, 0);
    target_.write("elsewhere/file", "precious");
    target_.write("c/file", "other");
    const auto disk = test::Mount::memory(target_.path() / "c/tree/disk");
    const auto again =
        test::Mount::again(target_.path() / "elsewhere", target_.path() / "c/tree/again");
    const auto held = test::Mount::again(target_.path() / "elsewhere", target_.path() / "c/sub");
    ASSERT_EQ(::mount((target_.path() / "elsewhere/file").c_str(),
                      (target_.path() / "c/file").c_str(), nullptr, MS_BIND, nullptr),
              0);
    target_.write("c/tree/disk/file", "precious");
    target_.write("c/tree/x", "other");
    const auto result = prune();
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "deleted"), 1) << result.output;
    EXPECT_NE(result.errors.find("another file system is mounted there"), std::string::npos)
        << result.errors;
    EXPECT_FALSE(fs::exists(target_.path() / "c/tree/x"));
    EXPECT_TRUE(fs::exists(target_.path() / "c/tree/disk/file"));
    EXPECT_EQ(platform::readFile(target_.path() / "elsewhere/file"), "precious");
    (void)::umount2((target_.path() / "c/file").c_str(), MNT_DETACH);
}

TEST_F(RestoreDeleteRules, NeverDeleteWhatTheTargetShowsUnderAnotherName)
{
    if (const auto why = test::enterMountNamespace())
        GTEST_SKIP() << *why;
    account_.write({{"c/File", "1"}, {"c/Folder/a", "2"}, {"c/sub/b", "3"}, {"c/Left/x", "4"}});
    backUp({"c"}, {"--exclude", "Left"});
    const fs::path blind = target_.path() / "blind";
    const test::OddFileSystem disk(blind, {"case-blind"});
    if (!disk.isMounted())
        GTEST_SKIP() << test::kNoOddFileSystem;
    fs::create_directories(disk.behind() / "c/FOLDER");
    fs::create_directories(disk.behind() / "c/LEFT");
    fs::create_directories(disk.behind() / "c/sub");
    const test::TemporaryFolder work;
    for (const char* name : {"c/FILE", "c/FOLDER/A", "c/LEFT/x", "c/sub/new"})
        fs::copy_file(work.write("other", "other"), disk.behind() / name,
                      fs::copy_options::overwrite_existing);
    const auto result = prune({"--to", blind});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(platform::readFile(blind / "c/File"), "1");
    EXPECT_EQ(platform::readFile(blind / "c/Folder/a"), "2");
    EXPECT_TRUE(fs::exists(blind / "c/Left/x"));
    EXPECT_FALSE(fs::exists(blind / "c/sub/new"));
    EXPECT_EQ(field(result, "deleted"), 1) << result.output;
}

} // namespace
} // namespace stowline
