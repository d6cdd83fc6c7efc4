#include "stowline/platform/processes/CommandOutput.h"

#include "stowline/platform/threads/StopRequest.h"

#include <gtest/gtest.h>

#include <cerrno>

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
