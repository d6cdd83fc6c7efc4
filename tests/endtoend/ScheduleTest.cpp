// stowline schedule. No service manager runs where tests do, so a program in the place of systemctl
// notes what it is asked and keeps the state that the real one would.
#include "stowline/platform/files/Files.h"
#include "tests/endtoend/Command.h"
#include "tests/support/TestPaths.h"

#include <gtest/gtest.h>

namespace stowline {
namespace {

namespace fs = std::filesystem;
using test::Words;

constexpr const char* kStandIn = R"(#!/bin/sh
state=$(dirname "$0")
echo "$*" >>"$state/calls"
units="$HOME/.config/systemd/user"
[ "$1" = --user ] && shift
case "$1" in
show)
    case "$*" in
    *ActiveState*) [ -e "$state/active" ] && echo active || echo inactive ;;
    *NextElapse*) echo "Mon 2026-11-23 02:30:00 UTC" ;;
    *) echo "Version=252" ;;
    esac ;;
enable)
    mkdir -p "$units/timers.target.wants"
    ln -sf "$units/$2" "$units/timers.target.wants/$2" ;;
restart)
    [ -e "$state/fails" ] && rm -f "$state/active" && grep -q -f "$state/fails" "$units/$2" && exit 1
    touch "$state/active" ;;
disable) rm -f "$units/timers.target.wants/$3" "$state/active" ;;
esac
)";

class Schedule : public testing::Test {
protected:
    void giveManager() const
    {
        const auto file = programs_.write("systemctl", kStandIn);
        fs::permissions(file, fs::perms::owner_all);
    }
    [[nodiscard]] test::ProgramResult run(Words words) const
    {
        auto program = stowline_.run(std::move(words));
        program.environment.erase("STOWLINE_BUNDLE");
        program.environment["PATH"] = programs_.path().string() + ":/usr/bin:/bin";
        program.environment["STOWLINE_PASSWORD"] = "sec ret";
        return test::runProgram(program);
    }
    [[nodiscard]] test::ProgramResult install(Words more) const
    {
        Words words{"schedule", "install", "--daily", "02:30"};
        words.insert(words.end(), more.begin(), more.end());
        return run(words);
    }
    [[nodiscard]] fs::path unit(const std::string& name) const
    {
        return stowline_.home().path() / ".config/systemd/user" / name;
    }
    [[nodiscard]] std::string text(const std::string& name) const
    {
        return platform::readFile(unit(name)).value_or("(none)");
    }
    /// Whatever is left in the folder of units but folders.
    [[nodiscard]] std::size_t files() const
    {
        std::size_t count = 0;
        if (!fs::exists(unit("")))
            return 0;
        for (const auto& entry : fs::recursive_directory_iterator(unit("")))
            count += entry.is_directory() && !entry.is_symlink() ? 0 : 1;
        return count;
    }

    test::TemporaryFolder programs_;
    test::Command stowline_{fs::path(test::builtPrograms())};
    const Words whole_{"-u", "ann", "--password-file", "/secrets/pw", "/home/ann/Documents"};
};

TEST_F(Schedule, InstallsATimerThatTheManagerRuns)
{
    giveManager();
    const auto result = install(whole_);
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_NE(text("stowline-backup.timer").find("OnCalendar=*-*-* 02:30:00\n"), std::string::npos);
    const std::string service = text("stowline-backup.service");
    EXPECT_NE(service.find("ExecStart=\"" + test::builtProgram("stowline") +
                           "\" \"--no-progress\" \"backup\" \"--profile=default\" "
                           "\"--username=ann\" \"--password-file=/secrets/pw\" \"--\" "
                           "\"/home/ann/Documents\"\n"),
              std::string::npos)
        << service;
    EXPECT_EQ(service.find("sec ret"), std::string::npos);
    EXPECT_EQ(service.find("--not-metered"), std::string::npos);
    EXPECT_TRUE(fs::is_symlink(unit("timers.target.wants/stowline-backup.timer")));
    const auto status = run({"--json", "schedule", "status"});
    EXPECT_EQ(status.status, 0) << status.errors;
    EXPECT_EQ(test::jsonLines(status.output).back()["next"], "Mon 2026-11-23 02:30:00 UTC");
    EXPECT_NE(run({"doctor"}).output.find("ok    schedule      next run: Mon 2026-11-23"),
              std::string::npos);
    // Again, with another time: the newer one counts.
    EXPECT_EQ(run({"schedule", "install", "--daily", "23:59", "-u", "ann", "--password-command",
                   "pass show x", "--on-mains", "--not-metered", "/y"})
                  .status,
              0);
    EXPECT_NE(text("stowline-backup.timer").find("*-*-* 23:59:00\n"), std::string::npos);
    EXPECT_NE(text("stowline-backup.service").find("\"--password-command=pass show x\""),
              std::string::npos);
    EXPECT_NE(text("stowline-backup.service").find("ConditionACPower=true\n"), std::string::npos);
    EXPECT_NE(text("stowline-backup.service").find(" \"--not-metered\" \"--\" \"/y\"\n"),
              std::string::npos);
}

TEST_F(Schedule, RemovesExactlyWhatItMade)
{
    giveManager();
    const auto other = stowline_.home().write(".config/systemd/user/other.timer", "[Timer]\n");
    ASSERT_EQ(install(whole_).status, 0);
    Words work{"--profile", "my work"};
    work.insert(work.end(), whole_.begin(), whole_.end());
    ASSERT_EQ(install(work).status, 0);
    EXPECT_TRUE(fs::exists(unit("stowline-backup-my\\x20work.timer")));
    EXPECT_EQ(run({"schedule", "remove", "--dry-run"}).status, 0);
    EXPECT_EQ(files(), 7U);
    EXPECT_EQ(run({"schedule", "remove"}).status, 0);
    EXPECT_EQ(files(), 4U);
    EXPECT_EQ(run({"schedule", "remove", "--profile", "my work"}).status, 0);
    EXPECT_EQ(files(), 1U);
    EXPECT_TRUE(fs::exists(other));
    EXPECT_EQ(run({"schedule", "remove"}).status, 4);
    EXPECT_EQ(run({"schedule", "status"}).status, 4);
}

TEST_F(Schedule, OfOtherProfilesIsToldToo)
{
    giveManager();
    for (const char* profile : {"my work", "docs"}) {
        Words words{"--profile", profile};
        words.insert(words.end(), whole_.begin(), whole_.end());
        ASSERT_EQ(install(words).status, 0);
    }
    // Somebody else's timer, and the half of one.
    stowline_.home().write(".config/systemd/user/stowline-backup-foreign.timer", "[Timer]\n");
    stowline_.home().write(".config/systemd/user/stowline-backup-half.timer",
                           text("stowline-backup-docs.timer"));
    const auto none = run({"schedule", "status"});
    EXPECT_EQ(none.status, 4);
    EXPECT_NE(none.errors.find("No schedule is installed for the profile \"default\". Others are "
                               "(--profile): docs, my work.\n"),
              std::string::npos)
        << none.errors;
    const std::string well = run({"doctor"}).output;
    for (const char* line : {"ok    schedule      profile default: none; ",
                             "ok    schedule      profile docs: next run: Mon 2026-11-23",
                             "ok    schedule      profile my work: next run: Mon 2026-11-23"})
        EXPECT_NE(well.find(line), std::string::npos) << well;
    EXPECT_EQ(well.find("foreign"), std::string::npos) << well;
    EXPECT_EQ(well.find("half"), std::string::npos) << well;
    const auto docs = run({"schedule", "status", "--profile", "docs"});
    EXPECT_EQ(docs.status, 0) << docs.errors;
    EXPECT_NE(docs.errors.find("Others have a schedule too (--profile): my work."),
              std::string::npos)
        << docs.errors;
    fs::remove(programs_.path() / "active");
    const auto stopped = run({"doctor"});
    EXPECT_EQ(stopped.status, 1);
    EXPECT_NE(stopped.output.find("FAULT schedule      profile docs: It is installed, but"),
              std::string::npos)
        << stopped.output;
}

TEST_F(Schedule, StatusSaysOfALastRunThatFailedThatItDid)
{
    giveManager();
    ASSERT_EQ(install(whole_).status, 0);
    EXPECT_EQ(run({"backup", "-u", "ann", "--before", "/bin/false", "/"}).status, 1);
    const auto status = run({"schedule", "status"});
    EXPECT_NE(status.output.find("0 files stored, 0 items failed; Nothing was backed up: the "
                                 "command of --before failed with status 1 (/bin/false)."),
              std::string::npos)
        << status.output;
}

TEST_F(Schedule, IsNeverCalledInstalledWhereNoManagerAnswers)
{
    const auto result = install(whole_); // the distribution's systemctl, or none
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.errors.find("Nothing was installed: the service manager of this user"),
              std::string::npos)
        << result.errors;
    EXPECT_NE(result.errors.find("'--' '/home/ann/Documents'"), std::string::npos);
    EXPECT_EQ(files(), 0U);
    giveManager();
    programs_.write("fails", "\n"); // whatever the unit says
    const auto refused = install(whole_);
    EXPECT_EQ(refused.status, 1);
    EXPECT_NE(refused.errors.find("The schedule was not installed: the service manager did not "
                                  "start stowline-backup.timer."),
              std::string::npos);
    EXPECT_EQ(refused.errors.find("earlier"), std::string::npos) << refused.errors;
    EXPECT_EQ(files(), 0U);
}

TEST_F(Schedule, PutsAnEarlierOneBackWhereTheNewOneDoesNotStart)
{
    giveManager();
    ASSERT_EQ(install(whole_).status, 0);
    const std::string service = text("stowline-backup.service");
    const std::string timer = text("stowline-backup.timer");
    const Words other{"schedule", "install",         "--daily", "23:59", "-u",
                      "ann",      "--password-file", "/p",      "/y"};
    programs_.write("fails", "23:59\n"); // a time that the manager does not take
    const auto refused = run(other);
    EXPECT_EQ(refused.status, 1);
    EXPECT_NE(refused.errors.find("did not start stowline-backup.timer. The earlier schedule is "
                                  "in place again."),
              std::string::npos)
        << refused.errors;
    EXPECT_EQ(text("stowline-backup.service"), service);
    EXPECT_EQ(text("stowline-backup.timer"), timer);
    EXPECT_EQ(run({"schedule", "status"}).status, 0);
    programs_.write("fails", "\n"); // none at all any more
    const auto lost = run(other);
    EXPECT_EQ(lost.status, 1);
    EXPECT_NE(lost.errors.find("The earlier schedule may not run any more"), std::string::npos)
        << lost.errors;
    EXPECT_EQ(text("stowline-backup.timer"), timer);
}

TEST_F(Schedule, SaysWhenTheUnitsCannotBeWritten)
{
    giveManager();
    stowline_.home().write(".config/systemd", "no folder");
    const auto result = install(whole_);
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.errors.find(unit("stowline-backup.timer").string() +
                                 " or the service beside it cannot be written."),
              std::string::npos)
        << result.errors;
    EXPECT_EQ(result.errors.find("service manager"), std::string::npos) << result.errors;
}

TEST_F(Schedule, SaysWhenTheManagerDoesNotRunIt)
{
    giveManager();
    ASSERT_EQ(install(whole_).status, 0);
    fs::remove(programs_.path() / "active");
    const auto result = run({"schedule", "status"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.errors.find("does not run it"), std::string::npos) << result.errors;
    EXPECT_NE(run({"doctor"}).output.find("FAULT schedule"), std::string::npos);
}

TEST_F(Schedule, LeavesUnitsOfOthersAlone)
{
    giveManager();
    const auto mine = stowline_.home().write(".config/systemd/user/stowline-backup.service", "x");
    const auto result = install(whole_);
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.errors.find("was not written by this command"), std::string::npos);
    EXPECT_EQ(run({"schedule", "remove"}).status, 4);
    EXPECT_EQ(platform::readFile(mine), "x");
}

TEST_F(Schedule, SaysOfAPathThatIsNotThere)
{
    giveManager();
    const auto result =
        install({"-u", "ann", "--password-file", "/p", stowline_.home().path().string(), "/none"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_NE(result.errors.find("There is nothing at /none now. A run that finds nothing at a "
                                 "path fails, and says so.\n"),
              std::string::npos)
        << result.errors;
    EXPECT_EQ(result.errors.find("nothing at " + stowline_.home().path().string()),
              std::string::npos);
}

TEST_F(Schedule, WantsAllThatARunWithoutATerminalNeeds)
{
    giveManager();
    const auto refused = [&](Words words, const std::string& sentence) {
        const auto result = install(std::move(words));
        EXPECT_EQ(result.status, 2) << sentence;
        EXPECT_NE(result.errors.find(sentence), std::string::npos) << result.errors;
        EXPECT_EQ(files(), 0U);
    };
    refused({"-u", "ann", "/x"}, "Please give --password-file or --password-command");
    refused({"--password-file", "p", "/x"}, "Please give --username");
    refused({"-u", "ann", "--password-file", "p"}, "Please name what to back up: PATH");
    refused({"-u", "ann", "--password-file", "p", "/\xff"}, "is not UTF-8");
    for (const char* time : {"2:30", "24:00", "02:60", "0230", "ab:cd", "02:3x"})
        EXPECT_EQ(
            run({"schedule", "install", "--daily", time, "-u", "a", "--password-file", "p", "/x"})
                .status,
            2)
            << time;
    // What the configuration has need not be said again.
    stowline_.home().write(".config/stowline/config.toml",
                           "[backup]\npassword-file = \"/p\"\n[profile.work]\nusername = "
                           "\"ann\"\npaths = \"/srv\"\n");
    EXPECT_EQ(install({"--profile", "work"}).status, 0);
    EXPECT_EQ(install({"--profile", "home"}).status, 2);
}

TEST_F(Schedule, AProfileSaysWhenItRuns)
{
    giveManager();
    const auto file = stowline_.home().write(
        ".config/stowline/config.toml",
        "[schedule.install]\ndaily = \"05:05\"\n"
        "[backup]\nusername = \"ann\"\npassword-file = \"/p\"\n"
        "[profile.work]\npaths = \"/srv\"\ndaily = \"03:15\"\non-mains = true\n"
        "[profile.home]\npaths = \"/home\"\n");
    const auto timeOf = [this](const std::string& unit) {
        const std::string timer = text(unit + ".timer");
        return timer.substr(std::min(timer.find("OnCalendar="), timer.size()), 25);
    };
    EXPECT_EQ(run({"schedule", "install", "--profile", "work"}).status, 0);
    EXPECT_EQ(timeOf("stowline-backup-work"), "OnCalendar=*-*-* 03:15:00");
    EXPECT_NE(text("stowline-backup-work.service").find("ConditionACPower=true"),
              std::string::npos);
    EXPECT_EQ(run({"schedule", "install", "--profile", "home"}).status, 0);
    EXPECT_EQ(timeOf("stowline-backup-home"), "OnCalendar=*-*-* 05:05:00");
    EXPECT_EQ(text("stowline-backup-home.service").find("ConditionACPower=true"),
              std::string::npos);
    EXPECT_EQ(install({"--profile", "work"}).status, 0);
    EXPECT_EQ(timeOf("stowline-backup-work"), "OnCalendar=*-*-* 02:30:00")
        << "the line comes first";
    EXPECT_TRUE(platform::writeFileAtomically(file, "[profile.work]\ndaily = \"25:00\"\n"));
    const auto faulty = run({"config", "check"});
    EXPECT_EQ(faulty.status, 10);
    EXPECT_NE(faulty.output.find(":2:"), std::string::npos) << faulty.output;
    EXPECT_NE(faulty.output.find("must be a time of day such as 02:30"), std::string::npos)
        << faulty.output;
}

} // namespace
} // namespace stowline
