// `restore --delete`: what the run did not hold goes, and nothing else.
#include "tests/endtoend/BackedUp.h"
#include "tests/support/PseudoTerminal.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <set>
#include <sys/stat.h>

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
        const auto result = account_.backup(more);
        EXPECT_EQ(result.status, 0) << result.errors;
    }

    [[nodiscard]] Words words(const Words& more) const
    {
        Words words{
            "restore", account_.folder.path() / "c", "--machine", "iMac", "--to", target_.path(),
            "--delete"};
        words.insert(words.end(), more.begin(), more.end());
        return words;
    }

    [[nodiscard]] test::ProgramResult restore(const Words& more = {}) const
    {
        return account_.run(words(more));
    }

    /// Deletes without a question.
    [[nodiscard]] test::ProgramResult prune(Words more = {}) const
    {
        more.insert(more.end(), {"--yes", "--json"});
        return restore(more);
    }

    /// Puts everything back, and things beside it that no run has seen.
    void restoreAndAdd(const std::vector<std::string>& others) const
    {
        const auto result = prune();
        EXPECT_EQ(result.status, 0) << result.errors;
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

    [[nodiscard]] bool stands(const std::string& name) const
    {
        return fs::exists(fs::symlink_status(target_.path() / name));
    }

    const Names whole_{"c", "c/a", "c/sub", "c/sub/b"};
    const test::TemporaryFolder target_;
    const BackedUp account_;
};

TEST_F(RestoreDelete, TakesAwayWhatTheRunDidNotHold)
{
    backUp();
    restoreAndAdd({"c/new", "c/sub/newer", "c/tree/deep/er", "c/tree/x", "beside", "c.old/x"});
    const test::TemporaryFolder outside;
    outside.write("kept", "kept");
    fs::create_directory_symlink(outside.path(), target_.path() / "c/link");
    fs::create_directory_symlink(outside.path(), target_.path() / "c/tree/link");
    fs::create_hard_link(outside.path() / "kept", target_.path() / "c/another name of it");
    fs::create_hard_link(target_.path() / "c/a", target_.path() / "c/another name of a");
    const auto result = prune();
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "deleted"), 10) << result.output;
    EXPECT_EQ(field(result, "not_deleted"), 0) << result.output;
    Names left = whole_;
    left.insert({"beside", "c.old", "c.old/x"}); // nothing was put back into that folder but c
    EXPECT_EQ(names(), left);
    EXPECT_EQ(platform::readFile(outside.path() / "kept"), "kept");
    EXPECT_EQ(platform::readFile(target_.path() / "c/a"), "1");
    // The folders' own times were put back after that.
    const auto again = prune();
    EXPECT_EQ(field(again, "restored"), 0) << again.output;
    EXPECT_EQ(field(again, "deleted"), 0);
    EXPECT_EQ(fs::last_write_time(target_.path() / "c"),
              fs::last_write_time(account_.folder.path() / "c"));
}

TEST_F(RestoreDelete, NamesWhatItDeletesWhereItStood)
{
    backUp();
    restoreAndAdd({"c/tree/x"});
    const auto result = prune();
    const auto lines = test::jsonLines(result.output);
    Names told;
    for (const auto& line : lines) {
        if (line.value("state", "") == "deleted")
            told.insert(line.value("path", ""));
    }
    EXPECT_EQ(told, (Names{target_.path() / "c/tree", target_.path() / "c/tree/x"}));
    restoreAndAdd({"c/one"});
    const auto silent = restore({"--yes"});
    EXPECT_TRUE(says(silent, "1 item that was not in the run was deleted.")) << silent.errors;
    EXPECT_EQ(silent.output.find("c/one"), std::string::npos) << silent.output;
    restoreAndAdd({"c/one"});
    const auto detailed = restore({"--yes", "-v"});
    EXPECT_NE(detailed.output.find("deleted " + (target_.path() / "c/one").string()),
              std::string::npos)
        << detailed.output;
}

TEST_F(RestoreDelete, SaysThatThereIsNothingToDelete)
{
    backUp();
    const auto result = restore({"--yes"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_TRUE(says(result, "There was nothing to delete.")) << result.errors;
}

TEST_F(RestoreDelete, WantsAnAnswerWhereThereIsNobodyToAsk)
{
    backUp();
    const auto result = restore();
    EXPECT_EQ(result.status, 2);
    EXPECT_TRUE(says(result, "--yes")) << result.errors;
    EXPECT_EQ(names(), Names()) << "before anything is put back";
}

TEST_F(RestoreDelete, AsksOnATerminalOnceAllIsPutBack)
{
    backUp();
    restoreAndAdd({"c/new", "c/newer"});
    fs::remove(target_.path() / "c/a");
    const auto run = account_.command.run(words({}), account_.environment());
    const std::string question = "Everything is put back. Delete 2 items from " +
                                 target_.path().string() + " that were not in the run (" +
                                 (target_.path() / "c/new").string() + ", " +
                                 (target_.path() / "c/newer").string() + ")? [y/N] ";
    const auto refused = test::talkOnTerminal(run, question, "n\n");
    EXPECT_EQ(refused.status, 1) << refused.screen;
    EXPECT_NE(refused.screen.find("Everything is put back, but nothing was deleted."),
              std::string::npos)
        << refused.screen;
    EXPECT_TRUE(stands("c/a"));
    EXPECT_TRUE(stands("c/new"));
    const auto interrupted = test::talkOnTerminal(run, question, "\x03");
    EXPECT_EQ(interrupted.status, 130) << interrupted.screen;
    EXPECT_TRUE(stands("c/new"));
    const auto granted = test::talkOnTerminal(run, question, "y\n");
    EXPECT_EQ(granted.status, 0) << granted.screen;
    EXPECT_EQ(names(), whole_);
    const auto unasked = test::talkOnTerminal(run, {});
    EXPECT_EQ(unasked.status, 0) << unasked.screen;
    EXPECT_EQ(unasked.screen.find("[y/N]"), std::string::npos) << unasked.screen;
}

TEST_F(RestoreDelete, OnlySaysWhatItWouldDoWhenAsked)
{
    backUp();
    restoreAndAdd({"c/new", "c/tree/x"});
    const Names before = names();
    const auto result = restore({"--dry-run", "--json"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "would_delete"), 3) << result.output;
    EXPECT_EQ(field(result, "deleted"), 0);
    EXPECT_NE(result.output.find("/c/tree/x\",\"state\":\"would-delete\""), std::string::npos)
        << result.output;
    const auto number = restore({"--dry-run"});
    EXPECT_TRUE(says(number, "3 items that were not in the run would be deleted."))
        << number.errors;
    EXPECT_NE(number.output.find("would delete " + (target_.path() / "c/tree/x").string()),
              std::string::npos)
        << number.output;
    EXPECT_EQ(names(), before);
    fs::remove_all(target_.path() / "c");
    EXPECT_EQ(field(restore({"--dry-run", "--json"}), "would_delete"), 0) << "nothing is there";
    EXPECT_EQ(names(), Names());
}

TEST_F(RestoreDelete, PutsBackTheModesOfFoldersThatItOpensForThat)
{
    account_.write({{"c/a", "1"}, {"c/sub/b", "2"}});
    ASSERT_EQ(::chmod((account_.folder.path() / "c/sub").c_str(), 0500), 0);
    EXPECT_EQ(account_.backup().status, 0);
    restoreAndAdd({"c/sub/new"});
    auto run = account_.command.run(words({"--yes"}), account_.environment());
    run.words.insert(run.words.begin(),
                     {"/usr/bin/setpriv", "--bounding-set", "-dac_override,-dac_read_search"});
    const auto result = test::runProgram(run);
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(names(), whole_);
    EXPECT_EQ(fs::status(target_.path() / "c/sub").permissions(), fs::perms(0500));
}

TEST_F(RestoreDelete, TakesAwayThisUsersOwnFoldersThoughTheyAreClosed)
{
    backUp();
    restoreAndAdd({"c/closed/in/x", "c/dark/in/x", "c/kept/x"});
    for (const char* name : {"c/closed/in", "c/closed", "c/kept"})
        ASSERT_EQ(::chmod((target_.path() / name).c_str(), 0500), 0);
    for (const char* name : {"c/dark/in", "c/dark"})
        ASSERT_EQ(::chmod((target_.path() / name).c_str(), 0), 0);
    const auto asUser = [this](const Words& more) {
        auto run = account_.command.run(words(more), account_.environment());
        run.words.insert(run.words.begin(),
                         {"/usr/bin/setpriv", "--bounding-set", "-dac_override,-dac_read_search"});
        return test::runProgram(run);
    };
    const auto mode = [this](const char* name) {
        return fs::status(target_.path() / name).permissions();
    };
    const auto looked = asUser({"-n", "--json"});
    EXPECT_EQ(mode("c/dark"), fs::perms(0)) << "a dry run changes nothing";
    const auto partly = asUser({"--yes", "--json", "--exclude", "x"});
    EXPECT_EQ(partly.status, 0) << partly.errors;
    EXPECT_EQ(mode("c/dark"), fs::perms(0)) << "what stays has its mode again";
    EXPECT_EQ(mode("c/closed/in"), fs::perms(0500));
    const auto result = asUser({"--yes", "--json"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "deleted"), 8) << result.output;
    EXPECT_EQ(names(), whole_);
}

TEST_F(RestoreDelete, TellsWhatThisUserMayNotDelete)
{
    backUp();
    restoreAndAdd({"c/new", "c/closed/x"});
    ASSERT_EQ(::chown((target_.path() / "c/closed").c_str(), 1, 1), 0);
    auto run = account_.command.run(words({"--yes", "--json"}), account_.environment());
    run.words.insert(run.words.begin(),
                     {"/usr/bin/setpriv", "--bounding-set", "-dac_override,-dac_read_search"});
    const auto result = test::runProgram(run);
    EXPECT_EQ(result.status, 3) << result.errors;
    EXPECT_EQ(field(result, "deleted"), 1) << result.output;
    EXPECT_EQ(field(result, "not_deleted"), 2) << result.output; // the folder is not empty then
    EXPECT_TRUE(says(result, (target_.path() / "c/closed/x").string() +
                                 " was not in the run and cannot be deleted: Permission denied."))
        << result.errors;
    EXPECT_TRUE(stands("c/closed/x"));
}

TEST_F(RestoreDelete, GoesOnWhereAKillHasLeftIt)
{
    backUp();
    EXPECT_EQ(prune().status, 0);
    constexpr int many = 20000;
    for (int i = 0; i < many; ++i)
        target_.write("c/tree/" + std::to_string(i), "");
    test::BackgroundProgram program(
        account_.command.run(words({"--yes", "--json"}), account_.environment()));
    while (stands("c/tree/0") && program.isRunning()) { // deleted sooner or later
    }
    program.signal(SIGKILL);
    (void)program.wait();
    EXPECT_EQ(platform::readFile(target_.path() / "c/a"), "1");
    EXPECT_EQ(platform::readFile(target_.path() / "c/sub/b"), "2");
    const auto result = prune();
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(names(), whole_);
    EXPECT_EQ(field(prune(), "restored"), 0);
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
    const auto result = prune();
    EXPECT_EQ(result.status, 7) << result.errors;
    EXPECT_EQ(field(result, "deleted"), 0);
    EXPECT_TRUE(says(result, "so nothing is deleted")) << result.errors;
    EXPECT_TRUE(stands("c/new"));
    EXPECT_TRUE(stands("c/sub/newer"));
}

TEST_F(RestoreDelete, DeletesNothingWhereAFolderStandsInTheWayOfAFile)
{
    backUp();
    target_.write("c/a/precious", "precious");
    target_.write("c/new", "other");
    const auto result = prune();
    EXPECT_EQ(result.status, 3) << result.errors;
    EXPECT_EQ(field(result, "deleted"), 0);
    EXPECT_TRUE(stands("c/a/precious"));
    EXPECT_TRUE(stands("c/new"));
}

TEST_F(RestoreDelete, DeletesNothingWhenAPathIsNotInTheRun)
{
    backUp();
    restoreAndAdd({"c/new"});
    const auto result = prune({account_.folder.path() / "missing"});
    EXPECT_EQ(result.status, 3) << result.errors;
    EXPECT_TRUE(stands("c/new"));
}

TEST_F(RestoreDelete, LeavesWhatThePatternsGivenLeaveOut)
{
    backUp();
    restoreAndAdd({"c/x.o", "c/x.c", "c/tree/y.o", "c/tree/y.c", "c/only/y.c"});
    EXPECT_EQ(field(prune({"--exclude", "*.o"}), "deleted"), 4);
    Names left = whole_;
    left.insert({"c/x.o", "c/tree", "c/tree/y.o"});
    EXPECT_EQ(names(), left);
    target_.write("c/sub/z.c", "other");
    target_.write("c/sub/z.o", "other");
    // Nothing of the run goes into c/sub then: it is not a folder that is put back.
    EXPECT_EQ(field(prune({"--include", "a", "--include", "*.o"}), "deleted"), 2);
    EXPECT_TRUE(stands("c/tree")) << "no pattern takes the folder";
    EXPECT_TRUE(stands("c/sub/z.o"));
    EXPECT_FALSE(stands("c/x.o"));
    const auto told = restore({"--yes", "--include", "b"});
    EXPECT_TRUE(says(told, "the patterns given leave them out")) << told.errors;
    EXPECT_TRUE(stands("c/sub/z.o"));
}

TEST_F(RestoreDelete, DeletesInTheFoldersThatAreNamedAlone)
{
    backUp();
    restoreAndAdd({"c/new", "c/sub/newer"});
    Words only{"restore",   account_.folder.path() / "c/sub",
               "--machine", "iMac",
               "--to",      target_.path() / "c",
               "--delete",  "--yes",
               "--json"};
    EXPECT_EQ(field(account_.run(only), "deleted"), 1);
    EXPECT_TRUE(stands("c/new"));
    only[1] = account_.folder.path() / "c/a"; // a file: there is nothing below it
    EXPECT_EQ(field(account_.run(only), "deleted"), 0);
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
    const auto first = whole();
    EXPECT_EQ(first.status, 0) << first.errors;
    const std::string above = folder.parent_path();
    target_.write("other", "other");
    target_.write(above + "/other", "other");
    target_.write(folder / "other", "other");
    const auto result = whole();
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "deleted"), 1) << result.output;
    EXPECT_TRUE(says(result, "the run did not look there")) << result.errors;
    EXPECT_TRUE(stands("other"));
    EXPECT_TRUE(stands(above + "/other"));
    EXPECT_FALSE(stands(folder / "other"));
}

TEST_F(RestoreDelete, PutsNothingIntoAnotherPathByALink)
{
    account_.write({{"c/a", "1"}, {"e/x/y", "2"}});
    EXPECT_EQ(account_.backup().status, 0);
    const fs::path& top = account_.folder.path();
    fs::remove_all(top / "e");
    fs::create_directory_symlink(top / "c", top / "e"); // e/x goes into c by it
    account_.write({{"c/new", "other"}});
    const auto result = account_.run({"restore", top / "c", top / "e/x", "--machine", "iMac",
                                      "--in-place", "--delete", "--yes", "--json"});
    EXPECT_EQ(result.status, 1) << result.errors;
    EXPECT_TRUE(says(result, "is reached through a link now")) << result.errors;
    EXPECT_TRUE(fs::exists(top / "c/new"));
    EXPECT_FALSE(fs::exists(top / "c/x")) << "nothing was put back first";
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
    EXPECT_EQ(field(prune(), "deleted"), 1);
}

TEST_F(RestoreDelete, LeavesTheStateOfBackupsOfAnyUser)
{
    const auto& home = account_.command.home();
    home.write("letters/one", "1");
    // Of another user, and part of the backup: as it was when that one had no index yet.
    home.write("bob/state/backup.lock", "");
    home.write("bob/state/spool/x", "");
    ASSERT_EQ(account_.run({"backup", home.path(), "--system", "iMac"}).status, 0);
    home.write("letters/two", "2");
    home.write("bob/state/index/i.db", "index");
    home.write("bob/other", "other");
    home.write("carl/state/backup.lock", "");
    home.write("carl/state/spool/x", "");
    const auto result = account_.run(
        {"restore", home.path(), "--machine", "iMac", "--in-place", "--json", "--delete", "--yes"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "deleted"), 2) << result.output;
    EXPECT_FALSE(fs::exists(home.path() / "letters/two"));
    EXPECT_FALSE(fs::exists(home.path() / "bob/other"));
    EXPECT_TRUE(fs::exists(home.path() / "bob/state/index/i.db"));
    EXPECT_TRUE(fs::exists(home.path() / "carl/state/spool/x"));
    EXPECT_TRUE(fs::exists(home.path() / ".local/state/stowline/index"));
    EXPECT_TRUE(says(result, "backups keep their state there")) << result.errors;
}

TEST_F(RestoreDelete, DeletesNothingInPlaceByTheRunsOfAnotherThatNobodyNamed)
{
    backUp();
    account_.write({{"c/new", "other"}});
    const std::string chain = field(account_.run({"runs", "--machine", "iMac", "--json"}), "chain");
    ASSERT_FALSE(chain.empty());
    const fs::path id = account_.command.home().path() / "machine-id";
    ASSERT_TRUE(platform::writeFileAtomically(id, std::string(32, 'b') + "\n"));
    const auto restoreElsewhere = [&](const Words& more) {
        Words words{"restore",    account_.folder.path() / "c",
                    "--machine",  "iMac",
                    "--in-place", "--delete",
                    "--yes",      "--json"};
        words.insert(words.end(), more.begin(), more.end());
        auto run = account_.command.run(words, account_.environment());
        run.environment["XDG_STATE_HOME"] = account_.command.home().path() / "other-state";
        run.words.insert(run.words.begin(),
                         {"/usr/bin/unshare", "--mount", "/bin/sh", "-c",
                          "mount --bind " + id.string() + " /etc/machine-id && exec \"$@\"", "sh"});
        return test::runProgram(run);
    };
    const auto refused = restoreElsewhere({});
    EXPECT_EQ(refused.status, 1) << refused.errors;
    EXPECT_TRUE(says(refused, "not of this user on this machine")) << refused.errors;
    EXPECT_TRUE(fs::exists(account_.folder.path() / "c/new"));
    const auto named = restoreElsewhere({"--chain", chain});
    EXPECT_EQ(named.status, 0) << named.errors;
    EXPECT_FALSE(fs::exists(account_.folder.path() / "c/new"));
}

TEST_F(RestoreDelete, TakesNothingFromAFolderThatTheRunWasNotToldToBackUp)
{
    backUp();
    account_.write({{"c/new", "since the first run"}, {"other/o", "o"}});
    const auto second =
        account_.run({"backup", "--system", "iMac", account_.folder.path() / "other"});
    ASSERT_EQ(second.status, 0) << second.errors;
    const auto refused = account_.run({"restore", account_.folder.path() / "c", "--machine", "iMac",
                                       "--in-place", "--delete", "--yes"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_TRUE(says(refused, "Run 2 was not told to back up ")) << refused.errors;
    EXPECT_TRUE(fs::exists(account_.folder.path() / "c/new"));
}

TEST_F(RestoreDelete, GoesThroughNoLinkToWhereThingsWere)
{
    account_.write({{"x/p/f", "1"}, {"other/p/precious", "of another tree"}});
    EXPECT_EQ(account_.backup().status, 0);
    const fs::path folder = account_.folder.path();
    fs::rename(folder / "x", folder / "old");
    fs::create_symlink("other", folder / "x");
    const auto refused = account_.run(
        {"restore", folder / "x/p", "--machine", "iMac", "--in-place", "--delete", "--yes"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_TRUE(says(refused, "is reached through a link now")) << refused.errors;
    EXPECT_TRUE(fs::exists(folder / "other/p/precious"));
    EXPECT_FALSE(fs::exists(folder / "other/p/f")) << "nothing was put back either";
}

TEST_F(RestoreDelete, TakesNothingWhereSomethingWasLeftAsItIs)
{
    backUp();
    restoreAndAdd({"c/extra"});
    target_.write("c/a", "what stands there");
    for (const char* rule : {"never", "if-newer"}) {
        const auto result = prune({"--overwrite", rule});
        EXPECT_EQ(result.status, 3) << result.errors;
        EXPECT_TRUE(says(result, "so nothing is deleted")) << result.errors;
        EXPECT_FALSE(says(result, "nothing to delete")) << result.errors;
        EXPECT_TRUE(stands("c/extra"));
    }
}

TEST_F(RestoreDelete, TakesAwayWhereNothingHadToBeReplaced)
{
    backUp();
    for (const char* rule : {"never", "if-newer"}) {
        restoreAndAdd({"c/extra"});
        const auto result = prune({"--overwrite", rule});
        EXPECT_EQ(result.status, 0) << result.errors;
        EXPECT_EQ(field(result, "deleted"), 1) << result.output;
        EXPECT_EQ(names(), whole_);
    }
}

TEST_F(RestoreDelete, TakesNothingThatChangedWhileTheQuestionStood)
{
    backUp();
    restoreAndAdd({"c/extra", "c/other"});
    // Who answers changes a file first, which keeps its number.
    const fs::path changed = target_.path() / "c/extra";
    const auto run = account_.command.run(words({}), account_.environment());
    const auto change = [&] { std::ofstream(changed, std::ios::app) << "hours of work"; };
    const std::vector<test::Exchange> exchanges{
        {.prompt = "[y/N] ", .answer = "y\n", .meanwhile = change}};
    const auto talk = test::talkOnTerminal(run, exchanges);
    EXPECT_EQ(talk.status, 3) << talk.screen;
    EXPECT_NE(talk.screen.find("it has changed since"), std::string::npos) << talk.screen;
    EXPECT_TRUE(stands("c/extra"));
    EXPECT_FALSE(stands("c/other"));
}

} // namespace
} // namespace stowline
