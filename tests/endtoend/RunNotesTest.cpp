// What a record knows besides its items: what could never be read, what was left out, what was
// looked at; and that later runs and what reads them know it too.
#include "tests/endtoend/BackedUp.h"
#include "tests/support/MountNamespace.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

namespace stowline {
namespace {

namespace fs = std::filesystem;
using test::BackedUp;
using test::field;
using test::Words;

class RunNotes : public testing::Test {
protected:
    /// A backup by one whom modes keep away from files, which they do not from root.
    [[nodiscard]] test::ProgramResult backUp(const std::string& folder,
                                             const Words& more = {}) const
    {
        Words words{"backup", place(folder), "--system", "iMac", "--json"};
        words.insert(words.end(), more.begin(), more.end());
        auto run = account_.command.run(words, account_.environment());
        run.words.insert(run.words.begin(),
                         {"/usr/bin/setpriv", "--bounding-set", "-dac_override,-dac_read_search"});
        return test::runProgram(run);
    }

    [[nodiscard]] std::string place(const std::string& name) const
    {
        return account_.folder.path() / name;
    }

    void close(const std::string& name) const { ASSERT_EQ(::chmod(place(name).c_str(), 0), 0); }

    [[nodiscard]] test::ProgramResult verify() const
    {
        return account_.run({"verify", "--machine", "iMac", "--json"});
    }

    [[nodiscard]] test::ProgramResult list(const std::string& name, const std::string& run) const
    {
        return account_.run({"ls", place(name), "--system", "iMac", "--at", run, "--json"});
    }

    BackedUp account_;
};

TEST_F(RunNotes, KeepAHoleInOnePathThroughRunsOfAnother)
{
    account_.write({{"a/open", "1"}, {"a/closed", "2"}, {"b/x", "3"}});
    close("a/closed");
    EXPECT_EQ(backUp("a").status, 3);
    for (int run = 2; run < 4; ++run) {
        EXPECT_EQ(backUp("b").status, 0);
        const auto read = verify();
        EXPECT_EQ(read.status, 0) << read.errors;
        EXPECT_EQ(field(read, "run"), run);
        EXPECT_EQ(field(read, "run_failed"), 0);
        EXPECT_EQ(field(read, "never_stored"), 1) << read.output;
        EXPECT_TRUE(says(read, place("a/closed"))) << read.errors;
    }
    const auto asked = list("a/closed", "3");
    EXPECT_EQ(asked.status, 4);
    EXPECT_TRUE(says(asked, "could not be read")) << asked.errors;
    // Also after the index was lost: the records know it.
    fs::remove_all(account_.command.home().path() / ".local/state/stowline");
    EXPECT_EQ(backUp("b").status, 0);
    EXPECT_EQ(field(verify(), "never_stored"), 1);
    ASSERT_EQ(::chmod(place("a/closed").c_str(), 0600), 0);
    EXPECT_EQ(backUp("a").status, 0);
    const auto whole = verify();
    EXPECT_EQ(field(whole, "never_stored"), 0) << whole.output;
    EXPECT_FALSE(says(whole, place("a/closed"))) << whole.errors;
}

TEST_F(RunNotes, OfWhatIsGoneOrLeftOutAreNoHoles)
{
    account_.write({{"a/gone", "1"}, {"a/out", "2"}, {"a/sub/in", "3"}, {"b/x", "4"}});
    for (const char* name : {"a/gone", "a/out", "a/sub"})
        close(name);
    EXPECT_EQ(backUp("a").status, 3);
    EXPECT_EQ(field(verify(), "never_stored"), 3);
    fs::remove(place("a/gone"));
    fs::remove_all(place("a/sub"));
    EXPECT_EQ(backUp("a", {"--exclude", "out"}).status, 0);
    EXPECT_EQ(field(verify(), "never_stored"), 0);
    EXPECT_EQ(backUp("a", {place("misspelt")}).status, 3); // where there was never anything
    EXPECT_EQ(field(verify(), "never_stored"), 1);         // the one that is not excluded any more
}

TEST_F(RunNotes, OfAnEarlierStateStayThroughRunsOfAnotherPath)
{
    account_.write({{"a/file", "1"}, {"b/x", "2"}});
    EXPECT_EQ(backUp("a").status, 0);
    account_.write({{"a/file", "newer"}});
    close("a/file");
    EXPECT_EQ(backUp("a").status, 3);
    EXPECT_EQ(backUp("b").status, 0);
    const auto read = verify();
    EXPECT_EQ(field(read, "run_failed"), 0);
    EXPECT_EQ(field(read, "carried_forward"), 1) << read.output;
    EXPECT_TRUE(says(read, "as an earlier run saw them")) << read.errors;
}

TEST_F(RunNotes, SayWhichFoldersWereLeftOut)
{
    account_.write({{"a/x", "1"}, {"a/x.o", "2"}, {"a/build/y", "3"}, {"a/.hidden/z", "4"}});
    EXPECT_EQ(backUp("a", {"--exclude", "build", "--exclude", "*.o", "--skip-hidden"}).status, 0);
    const auto read = list("a", "1");
    EXPECT_EQ(field(read, "left_out"), 2) << read.output; // folders once, not what is in them
    const auto below = list("a/build/y", "1");
    EXPECT_EQ(below.status, 4);
    EXPECT_TRUE(says(below, place("a/build") + " was left out: pattern build.")) << below.errors;
    EXPECT_TRUE(says(list("a/.hidden", "1"), "It was left out: hidden.")) << "hidden";
    EXPECT_EQ(backUp("a").status, 0);
    EXPECT_EQ(field(verify(), "left_out"), 0);
    EXPECT_EQ(list("a/build/y", "2").status, 0);
}

TEST_F(RunNotes, TellPeopleWhatARunLeftOutOfThePathsAskedFor)
{
    account_.write({{"a/x", "1"}, {"b/y", "2"}});
    for (int i = 1; i < 6; ++i)
        account_.write({{"a/build" + std::to_string(i) + "/x", "3"}});
    const std::string all = "Run 1 left out " + place("a/build1") + " (pattern build*), " +
                            place("a/build2") + " (pattern build*), " + place("a/build3") +
                            " (pattern build*) and 2 other places.";
    const std::string patterns = "Of " + place("a") +
                                 " run 1 holds only what these patterns let through: exclude "
                                 "build*, exclude *.o.";
    EXPECT_EQ(backUp("a", {"--exclude", "build*", "--exclude", "*.o"}).status, 0);
    EXPECT_EQ(backUp("b").status, 0);
    const test::TemporaryFolder target;
    const auto restore = [&](const std::string& name) {
        return account_.run(
            {"restore", place(name), "--machine", "iMac", "--at", "1", "--to", target.path()});
    };
    const auto checked = account_.run({"verify", "--machine", "iMac", "--at", "1"});
    for (const auto& told : {restore("a"), restore("a/x"), checked})
        EXPECT_TRUE(says(told, patterns)) << told.errors;
    for (const auto& told : {restore("a"), checked})
        EXPECT_TRUE(says(told, all)) << told.errors;
    EXPECT_FALSE(says(restore("a/x"), "left out")) << "below a/x nothing was";
    const auto later = account_.run({"verify", "--machine", "iMac"});
    EXPECT_TRUE(says(later, "Run 2 left out " + place("a/build1"))) << later.errors;
    const auto other =
        account_.run({"restore", place("b"), "--machine", "iMac", "--to", target.path()});
    EXPECT_EQ(other.status, 0) << other.errors;
    EXPECT_FALSE(says(other, "left out")) << other.errors;
    EXPECT_FALSE(says(other, "let through")) << other.errors;
}

TEST_F(RunNotes, LetNoDifferenceSayGoneOfWhatWasLeftOut)
{
    account_.write({{"a/x", "1"}, {"a/x.o", "2"}, {"a/build/y", "3"}, {"a/gone", "4"}});
    EXPECT_EQ(backUp("a").status, 0);
    fs::remove(place("a/gone"));
    EXPECT_EQ(backUp("a", {"--exclude", "build", "--exclude", "*.o"}).status, 0);
    const auto told = account_.run({"diff", "1", "2", "--machine", "iMac", "--json"});
    EXPECT_EQ(told.status, 0) << told.errors;
    EXPECT_EQ(field(told, "went"), 1) << told.output;
    EXPECT_EQ(field(told, "excluded"), 3) << told.output;
    for (const auto& line : test::jsonLines(told.output)) {
        const std::string path = line.value("path", "");
        if (path.ends_with(".o") || path.find("/build") != std::string::npos) {
            EXPECT_EQ(line.value("change", ""), "excluded") << path;
        }
    }
    EXPECT_TRUE(says(told, "3 items of run 1 are left out of run 2 by its rules; whether they are "
                           "gone is not known."))
        << told.errors;
    const auto plain = account_.run({"diff", "1", "2", "--machine", "iMac"});
    EXPECT_TRUE(says(plain, "excluded    " + place("a/build/y"))) << plain.output;
    const auto back = account_.run({"diff", "2", "1", "--machine", "iMac", "--json"});
    EXPECT_EQ(field(back, "excluded"), 0) << back.output;
    EXPECT_EQ(field(back, "came"), 1) << back.output;
    EXPECT_EQ(field(back, "included"), 3) << back.output;
}

TEST_F(RunNotes, AreNotDrownedByTheOtherProfilesOfAMachine)
{
    account_.write({{"a/x", "1"}});
    EXPECT_EQ(backUp("a").status, 0);
    for (const char* profile : {"p1", "p2", "p3"})
        EXPECT_EQ(backUp("a", {"--profile", profile}).status, 0);
    EXPECT_TRUE(says(verify(), "profile p3) (--chain reads them).")) << verify().errors;
    for (const char* profile : {"p4", "p5"})
        EXPECT_EQ(backUp("a", {"--profile", profile}).status, 0);
    const auto read = verify();
    EXPECT_TRUE(says(read, "profile p3) and 2 others (--chain reads them).")) << read.errors;
    EXPECT_FALSE(says(read, "p4")) << read.errors;
    const auto runs = account_.run({"runs", "--machine", "iMac"});
    for (const char* profile : {"p1", "p3", "p5"})
        EXPECT_TRUE(says(runs, std::string(".") + profile + "\n")) << runs.errors;
}

TEST_F(RunNotes, ADryRunSaysWhatCannotBeRead)
{
    account_.write({{"a/open", "1"}, {"a/closed", "2"}});
    close("a/closed");
    const auto dry = backUp("a", {"--dry-run"});
    EXPECT_EQ(dry.status, 3) << dry.output;
    EXPECT_EQ(field(dry, "would_store"), 1) << dry.output;
    EXPECT_EQ(field(dry, "failed"), 1) << dry.output;
    EXPECT_TRUE(
        says(dry, place("a/closed") + " is not stored: it cannot be read: Permission denied."))
        << dry.errors;
    EXPECT_EQ(backUp("a").status, 3);
}

TEST_F(RunNotes, SayWhatWasMountedAndLeftOut)
{
    if (const auto why = test::enterMountNamespace())
        GTEST_SKIP() << *why;
    account_.write({{"a/x", "1"}});
    const auto disk = test::Mount::memory(place("a/disk"));
    account_.write({{"a/disk/y", "2"}});
    EXPECT_EQ(backUp("a", {"--one-file-system"}).status, 0);
    EXPECT_EQ(field(verify(), "left_out"), 1);
    EXPECT_TRUE(says(list("a/disk", "1"), "It was left out: on another file system."));
}

TEST_F(RunNotes, TellOfAFolderAboveANamedPathThatARuleLeavesOut)
{
    account_.write({{"a/x", "1"}, {"a/sub/y", "2"}, {"a/sub/named/z", "3"}});
    EXPECT_EQ(backUp("a").status, 0);
    for (int night = 0; night < 2; ++night) {
        const auto result = backUp("a", {place("a/sub/named"), "--exclude", "sub"});
        EXPECT_EQ(result.status, 0) << result.errors;
        EXPECT_EQ(field(result, "excluded"), 1) << result.output;
        // a, a/x, a/sub (excluded), a/sub/named, a/sub/named/z
        EXPECT_EQ(field(result, "found"), 5) << result.output;
        EXPECT_EQ(field(result, "stored"), 0) << result.output;
        EXPECT_TRUE(says(result, place("a/sub") + "\",\"state\":\"excluded\"")) << result.output;
    }
    EXPECT_EQ(list("a/sub/named/z", "3").status, 0);
    EXPECT_EQ(list("a/sub/y", "3").status, 4); // no more than what is named
    EXPECT_EQ(field(list("a", "3"), "left_out"), 1);
    EXPECT_EQ(backUp("a").status, 0);
    EXPECT_EQ(field(list("a/sub/y", "4"), "left_out"), 0);
}

TEST_F(RunNotes, ADryRunSaysWhatWouldBeSentAgain)
{
    account_.write({{"a/x", "1"}, {"a/y", "2"}});
    EXPECT_EQ(backUp("a").status, 0);
    EXPECT_EQ(account_.run({"rm", place("a"), "--system", "iMac", "--yes"}).status, 0);
    for (int time = 0; time < 2; ++time) { // nothing is changed by asking
        const auto dry = backUp("a", {"--dry-run"});
        EXPECT_EQ(dry.status, 0) << dry.errors;
        EXPECT_EQ(field(dry, "would_store"), 2) << dry.output;
        EXPECT_TRUE(says(dry, place("a/x") + "\",\"state\":\"would-store\"")) << dry.output;
    }
    EXPECT_EQ(field(backUp("a"), "stored"), 2);
    EXPECT_EQ(field(backUp("a", {"--dry-run"}), "would_store"), 0);
}

TEST_F(RunNotes, PatternsThatNoRecordCouldHoldAreRefusedAtOnce)
{
    account_.write({{"a/x", "1"}});
    std::string lines;
    while (lines.size() < (18U << 20))
        lines += "some/pattern/that/is/long/enough/" + std::to_string(lines.size()) + "\n";
    const auto file = account_.command.home().write("patterns", lines);
    const auto result = backUp("a", {"--exclude-from", file.string()});
    EXPECT_EQ(result.status, 2);
    EXPECT_TRUE(says(result, "The patterns come to 18")) << result.errors;
    const auto half =
        account_.command.home().write("half", lines.substr(0, lines.rfind('\n', 900000)));
    EXPECT_EQ(backUp("a", {"--exclude-from", half.string()}).status, 0);
    EXPECT_EQ(verify().status, 0);
}

/// Two folders that are backed up by turns.
class OtherPaths : public testing::Test {
protected:
    OtherPaths()
    {
        account_.write({{"a/x", "1"}, {"a/o.tmp", "1"}, {"b/y", "1"}});
        backUp("a", {"--exclude", "*.tmp"});
        account_.write({{"a/x", "two"}, {"a/z", "new"}});
        backUp("b");
        backUp("a");
    }

    void backUp(const std::string& name, const Words& more = {}) const
    {
        Words words{"backup", place(name), "--system", "iMac"};
        words.insert(words.end(), more.begin(), more.end());
        const auto result = account_.run(words);
        EXPECT_EQ(result.status, 0) << result.errors;
    }

    [[nodiscard]] std::string place(const std::string& name) const
    {
        return (account_.folder.path() / name).string();
    }

    [[nodiscard]] test::ProgramResult run(Words words) const
    {
        words.insert(words.end(), {"--machine", "iMac", "--json"});
        return account_.run(words);
    }

    [[nodiscard]] std::map<std::string, std::string> changes(const char* from, const char* to) const
    {
        std::map<std::string, std::string> changes;
        for (const auto& line : test::jsonLines(run({"diff", from, to}).output)) {
            const fs::path path = line.value("path", "");
            const std::string change = line.value("change", "");
            if (line.value("type", "") == "difference" && change != "metadata")
                changes[path.lexically_relative(account_.folder.path()).string()] = change;
        }
        return changes;
    }

    const BackedUp account_;
};

TEST_F(OtherPaths, AreListedAndPutBackWithTheRunThatSawThem)
{
    const auto listed = account_.run({"ls", place("a"), "--at", "2", "--system", "iMac", "--json"});
    EXPECT_EQ(listed.status, 0) << listed.errors;
    for (const auto& line : test::jsonLines(listed.output)) {
        if (line.value("type", "") == "item") {
            EXPECT_EQ(line.value("seen_run", 0), 1) << line;
            EXPECT_FALSE(line.value("seen", "").empty());
        }
    }
    const std::string sentence =
        "Run 2 was not told to back up " + place("a") + ", and holds it as run 1 of ";
    EXPECT_TRUE(says(listed, sentence)) << listed.errors;
    const auto people = account_.run({"ls", place("a"), "--at", "2", "--system", "iMac"});
    EXPECT_NE(people.output.find("x (as run 1 saw it)"), std::string::npos) << people.output;
    const test::TemporaryFolder target;
    const auto restored =
        run({"restore", place("a"), place("b"), "--at", "2", "--to", target.path().string()});
    EXPECT_TRUE(says(restored, sentence)) << restored.errors;
    EXPECT_EQ(field(restored, "seen_earlier"), 2) << restored.output; // the folder and x
    EXPECT_EQ(platform::readFile(target.path() / "a/x"), "1");
    const auto own = account_.run({"ls", place("b"), "--at", "2", "--system", "iMac"});
    EXPECT_FALSE(says(own, "was not told")) << own.errors;
    EXPECT_EQ(own.output.find("saw it"), std::string::npos) << own.output;
    std::vector<std::string> paths;
    for (const auto& line : test::jsonLines(run({"runs"}).output)) {
        if (line.value("type", "") == "run")
            paths.push_back(line.value("path", ""));
    }
    EXPECT_EQ(paths, (std::vector<std::string>{place("a"), place("b"), place("a")}));
}

TEST_F(OtherPaths, AreNotSaidToHaveComeOrChangedWhereNobodyLooked)
{
    using Changes = std::map<std::string, std::string>;
    EXPECT_EQ(changes("1", "2"), (Changes{{"b", "first-seen"}, {"b/y", "first-seen"}}));
    EXPECT_EQ(changes("2", "3"),
              (Changes{{"a/x", "changed"}, {"a/z", "came"}, {"a/o.tmp", "included"}}));
    const auto told = account_.run({"diff", "2", "3", "--machine", "iMac"});
    EXPECT_TRUE(
        says(told, "Run 2 was not told to back up " + place("a") + ", and holds it as run 1 of "))
        << told.errors;
    EXPECT_TRUE(
        says(told, "Run 3 was not told to back up " + place("b") + ", and holds it as run 2 of "))
        << told.errors;
    EXPECT_TRUE(says(told, "1 item of run 3 was left out of run 2 by its rules; whether it was "
                           "there then is not known."))
        << told.errors;
}

} // namespace
} // namespace stowline
