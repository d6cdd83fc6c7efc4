#include "stowline/platform/files/Files.h"
#include "tests/support/TestPaths.h"

#include <gtest/gtest.h>

#include <regex>
#include <set>
#include <string>

namespace stowline::cli {
namespace {

std::set<std::string> numbersIn(const std::string& file, const char* form)
{
    const std::string text = platform::readFile(test::sourceFile(file)).value();
    const std::regex number(form);
    std::set<std::string> found;
    for (std::sregex_iterator match(text.begin(), text.end(), number), end; match != end; ++match)
        found.insert((*match)[1]);
    return found;
}

TEST(ExitStatus, EachOfThemStandsInTheReadmeAndInTheManualPage)
{
    const auto numbers = numbersIn("cli/shared/ExitStatus.h", " = (\\d+),");
    EXPECT_GT(numbers.size(), 12U);
    const auto page = numbersIn("docs/man/stowline.1.in", "\n(\\d+)[|,]");
    const auto readme = numbersIn("README.md", "\\| (\\d+)(?: \\||,)");
    for (const std::string& number : numbers) {
        if (number == "143")
            continue; // on the line of 130
        EXPECT_TRUE(page.contains(number)) << number;
        EXPECT_TRUE(readme.contains(number)) << number;
    }
}

} // namespace
} // namespace stowline::cli
