#include "stowline/platform/processes/CommandOutput.h"

#include "stowline/platform/files/Files.h"
#include "stowline/platform/text/Numbers.h"
#include "stowline/platform/threads/StopRequest.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace stowline::platform {
namespace {

using namespace std::chrono_literals;

std::string output(const std::string& line)
{
    return outputOfCommand(line, 30s).value_or("(none)");
}

TEST(OutputOfCommand, TellsWordsApartByBlanksMarksAndBackslashes)
{
    EXPECT_EQ(output("printf %s| one  two"), "one|two|");
    EXPECT_EQ(output("printf '%s|' 'one two' \"th ree\" fo\\ ur ''"), "one two|th ree|fo ur||");
    EXPECT_EQ(output("printf '%s|' \"it's\" 'a \"b\"'"), "it's|a \"b\"|");
}

TEST(FaultInCommand, TellsWhyALineIsNone)
{
    for (const char* line : {"true", "a 'b c' \\\\", "a \"b\\\"\"", "a # '"})
        EXPECT_EQ(faultInCommand(line), "") << line;
    for (const char* line : {"", "  ", "# a", "\t\n"})
        EXPECT_EQ(faultInCommand(line), "This command names no program") << line;
    EXPECT_EQ(faultInCommand(std::string("a\0b", 3)), "This command holds a NUL byte");
    for (const char* line : {"'a", "a \"b", "it's", "'a\\"})
        EXPECT_EQ(faultInCommand(line),
                  "The command " + std::string(line) + " has an unmatched quotation mark");
    EXPECT_EQ(faultInCommand("a\\"),
              "The command a\\ ends with a backslash that stands before nothing");
}

TEST(RunCommand, TellsHowItEnded)
{
    using Kind = CommandEnd::Kind;
    const auto end = [](const std::string& line) { return runCommand(line, {}, 30s); };
    EXPECT_EQ(end("true").kind, Kind::success);
    EXPECT_EQ(end("sh -c 'exit 7'").kind, Kind::failed);
    EXPECT_EQ(end("sh -c 'exit 7'").number, 7);
    EXPECT_EQ(end("sh -c 'kill -TERM $$'").kind, Kind::bySignal);
    EXPECT_EQ(end("sh -c 'kill -TERM $$'").number, 15);
    EXPECT_EQ(end("echo \"open").kind, Kind::malformed);
    EXPECT_EQ(end("").kind, Kind::malformed);
    EXPECT_EQ(end("/nonexistent/program").kind, Kind::notStarted);
    EXPECT_EQ(end("/nonexistent/program").number, ENOENT);
    EXPECT_EQ(end("sh -c 'read line || exit 9'").number, 9); // its standard input is empty
}

TEST(RunCommand, EndsWhatTakesTooLongAndWhatIsStopped)
{
    EXPECT_EQ(runCommand("sleep 600", {}, 50ms).kind, CommandEnd::Kind::timeOver);
    const StopRequest stop;
    const StopScope scope(stop);
    stop.request();
    EXPECT_EQ(runCommand("sleep 600", {}, 30s).kind, CommandEnd::Kind::stopped);
}

/// A command that leaves processes running, and their numbers in files.
class LeavingCommand {
public:
    /// @param rest what it does when both are there
    [[nodiscard]] std::string line(const std::string& rest) const
    {
        // Each is there once it has written its number; the daemon has a session of its own by
        // then.
        return "sh -c 'cd \"" + folder_.path().string() +
               "\"; sh -c \"echo \\$\\$ >job.new; mv job.new job; sleep 600; true\" & "
               "setsid sh -c \"echo \\$\\$ >daemon.new; mv daemon.new daemon; sleep 600; true\" & "
               "until test -e job && test -e daemon; do sleep 0.01; done; " +
               rest + "'";
    }
    [[nodiscard]] bool areThere() const { return id("job") > 0 && id("daemon") > 0; }
    [[nodiscard]] bool isRunning(const std::string& name) const
    {
        return id(name) > 0 && ::kill(id(name), 0) == 0;
    }
    void endDaemon() const { ::kill(-id("daemon"), SIGKILL); }

private:
    [[nodiscard]] pid_t id(const std::string& name) const
    {
        std::string text = readFile(folder_.path() / name).value_or("");
        if (text.ends_with('\n'))
            text.pop_back();
        return wholeNumber<pid_t>(text).value_or(-1);
    }
    test::TemporaryFolder folder_;
};

TEST(RunCommand, EndsWhatItLeavesRunningButADaemon)
{
    for (const auto& [rest, kind] : {std::pair("exit 0", CommandEnd::Kind::success),
                                     std::pair("exit 3", CommandEnd::Kind::failed)}) {
        const LeavingCommand command;
        EXPECT_EQ(runCommand(command.line(rest), {}, 60s).kind, kind);
        ASSERT_TRUE(command.areThere());
        EXPECT_FALSE(command.isRunning("job"));
        EXPECT_TRUE(command.isRunning("daemon"));
        command.endDaemon();
    }
    int isOn = 1;
    ASSERT_EQ(::prctl(PR_GET_CHILD_SUBREAPER, &isOn), 0);
    EXPECT_EQ(isOn, 0) << "the process is as it was";
}

TEST(RunCommand, EndsAllThatItStartedWhenItIsStopped)
{
    const LeavingCommand command;
    const StopRequest stop;
    std::thread person([&] {
        while (!command.areThere()) // another process's files
            std::this_thread::sleep_for(1ms);
        stop.request();
    });
    const StopScope scope(stop);
    EXPECT_EQ(runCommand(command.line("sleep 600; true"), {}, 60s).kind, CommandEnd::Kind::stopped);
    person.join();
    EXPECT_FALSE(command.isRunning("job"));
    EXPECT_FALSE(command.isRunning("daemon"));
}

TEST(RunCommand, EndsAllThatItStartedWhenItsTimeIsOver)
{
    for (auto limit = 2s;; limit *= 2) { // more, where the machine is too slow for both to start
        const LeavingCommand command;
        EXPECT_EQ(runCommand(command.line("sleep 600; true"), {}, limit).kind,
                  CommandEnd::Kind::timeOver);
        EXPECT_FALSE(command.isRunning("job"));
        EXPECT_FALSE(command.isRunning("daemon"));
        if (command.areThere())
            return;
    }
}

TEST(RunCommand, LeavesEarlierChildrenAlone)
{
    const pid_t child = ::fork();
    if (child == 0) {
        ::pause();
        ::_exit(0);
    }
    EXPECT_EQ(runCommand("true", {}, 60s).kind, CommandEnd::Kind::success);
    EXPECT_EQ(runCommand("sleep 600", {}, 10ms).kind, CommandEnd::Kind::timeOver);
    EXPECT_EQ(::kill(child, 0), 0);
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, WNOHANG), 0) << "it runs, and is for us to wait for";
    ::kill(child, SIGKILL);
    EXPECT_EQ(::waitpid(child, &status, 0), child);
}

TEST(RunCommand, AddsToTheEnvironment)
{
    EXPECT_EQ(
        runCommand("sh -c 'test \"$ANSWER\" = 42 && test -n \"$PATH\"'", {"ANSWER=42"}, 30s).kind,
        CommandEnd::Kind::success);
    EXPECT_EQ(runCommand("sh -c 'test \"$PATH\" = /x'", {"PATH=/x"}, 30s).kind,
              CommandEnd::Kind::success);
}

TEST(OutputOfCommand, ExpandsNothing)
{
    EXPECT_EQ(output("printf '%s|' $HOME * ~ `id` a;b"), "$HOME|*|~|`id`|a;b|");
}

TEST(OutputOfCommand, LeavesCommentsOut)
{
    EXPECT_EQ(output("printf '%s|' a#b # what nobody needs"), "a#b|");
}

TEST(OutputOfCommand, HasNoneOfALineThatIsNoCommand)
{
    for (const char* line : {"", "  ", "printf 'open", "printf \"open"})
        EXPECT_EQ(outputOfCommand(line, 30s), std::nullopt) << line;
    EXPECT_EQ(outputOfCommand(std::string("printf a\0b", 10), 30s), std::nullopt);
}

TEST(OutputOfCommand, HasNoneOfAProgramThatFailsOrIsMissing)
{
    EXPECT_EQ(outputOfCommand("sh -c 'echo half; exit 3'", 30s), std::nullopt);
    EXPECT_EQ(outputOfCommand("/no/such/program", 30s), std::nullopt);
    EXPECT_EQ(outputOfCommand("cat", 30s), ""); // its standard input is empty
}

TEST(OutputOfCommand, HasNoneOfAProgramThatTakesTooLong)
{
    EXPECT_EQ(outputOfCommand("sleep 600", 100ms), std::nullopt);
}

} // namespace
} // namespace stowline::platform
