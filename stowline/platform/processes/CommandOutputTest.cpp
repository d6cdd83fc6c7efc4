#include "stowline/platform/processes/CommandOutput.h"

#include <gtest/gtest.h>

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
