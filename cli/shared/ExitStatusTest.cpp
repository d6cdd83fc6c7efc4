#include "stowline/platform/files/Files.h"
#include "tests/support/TestPaths.h"

#include <gtest/gtest.h>

#include <regex>
#include <set>
#include <string>

namespace stowline::cli {
namespace {

std::set<std::string> foundIn(const std::string& file, const char* form)
{
    const std::string text = platform::readFile(test::sourceFile(file)).value();
    const std::regex wanted(form);
    std::set<std::string> found;
    for (std::sregex_iterator match(text.begin(), text.end(), wanted), end; match != end; ++match)
        found.insert((*match)[1]);
    return found;
}

TEST(ExitStatus, EachOfThemStandsInTheReadmeAndInTheManualPage)
{
    const auto numbers = foundIn("cli/shared/ExitStatus.h", " = (\\d+),");
    EXPECT_GT(numbers.size(), 12U);
    const auto page = foundIn("docs/man/stowline.1.in", "\n(\\d+)[|,]");
    const auto readme = foundIn("README.md", "\\| (\\d+)(?: \\||,)");
    for (const std::string& number : numbers) {
        if (number == "143")
            continue; // on the line of 130
        EXPECT_TRUE(page.contains(number)) << number;
        EXPECT_TRUE(readme.contains(number)) << number;
    }
}

TEST(ExitStatus, EachOfThemHasAWordThatThePageOfTheOutputLists)
{
    const auto named = foundIn("cli/shared/ExitStatus.h", "    (\\w+) = ");
    const auto worded = foundIn("cli/shared/Output.cpp", "case ExitStatus::(\\w+):");
    EXPECT_EQ(named, worded);
    const std::string page =
        platform::readFile(test::sourceFile("docs/formats/command-output.md")).value();
    const std::string line = page.substr(page.find("| `status` |"));
    for (const std::string& word : foundIn("cli/shared/Output.cpp", "return \"([a-z-]+)\";"))
        EXPECT_LT(line.find("`" + word + "`"), line.find('\n')) << word;
}

} // namespace
} // namespace stowline::cli
