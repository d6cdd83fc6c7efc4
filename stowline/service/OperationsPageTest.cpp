// docs/operations.md says what the code does.
#include "stowline/platform/files/Files.h"
#include "stowline/platform/http/HttpExchange.h"
#include "stowline/service/WebMethodCatalogue.h"
#include "tests/support/TestPaths.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <regex>
#include <set>
#include <sstream>

namespace stowline {
namespace {

struct Row {
    std::string operation;
    std::set<std::string> placeholders;
    bool hasServer = false;
    std::size_t cells = 0;
};

std::string read(const std::string& name)
{
    return platform::readFile(test::sourceFile(name)).value();
}

/// Rows by what they call.
std::map<std::string, Row> rows()
{
    std::map<std::string, Row> found;
    std::istringstream lines(read("docs/operations.md"));
    const std::regex row(R"(\| `(\w+)` \| (?:template |request )?`(\w+)`( `%@`)? \|(.*)\|)");
    const std::regex placeholder("<<[A-Z0-9_]+>>");
    for (std::string line; std::getline(lines, line);) {
        std::smatch match;
        if (!std::regex_match(line, match, row))
            continue;
        const std::string rest = match[4];
        Row read{.operation = match[1],
                 .hasServer = match[3].matched,
                 .cells = static_cast<std::size_t>(std::ranges::count(rest, '|')) + 1};
        for (std::sregex_iterator at(rest.begin(), rest.end(), placeholder), end; at != end; ++at)
            read.placeholders.insert(at->str());
        EXPECT_TRUE(found.emplace(match[2], read).second) << match[2] << " stands twice";
    }
    return found;
}

template <class Needs>
void compare(std::map<std::string, Row>& page, std::span<const Needs> catalogue)
{
    for (const Needs& needs : catalogue) {
        const auto row = page.find(std::string(needs.name));
        ASSERT_NE(row, page.end()) << needs.name << " is missing in docs/operations.md";
        const std::set<std::string> placeholders(needs.placeholders.begin(),
                                                 needs.placeholders.end());
        EXPECT_EQ(row->second.placeholders, placeholders) << needs.name;
        EXPECT_EQ(row->second.hasServer, needs.urlArguments == 1) << needs.name;
        EXPECT_EQ(row->second.cells, 4U) << needs.name;
        page.erase(row);
    }
}

TEST(OperationsPage, HasARowForEverythingTheCatalogueKnows)
{
    auto page = rows();
    compare(page, webMethodCatalogue());
    compare(page, webRequestCatalogue());
    compare(page, templateCatalogue());
    for (const auto& [name, row] : page)
        ADD_FAILURE() << name << " is on the page but not in the catalogue";
}

TEST(OperationsPage, NamesEveryOperationOfTheBroker)
{
    const std::string header = read("stowline/service/WebServiceBroker.h");
    const std::set<std::string> others{"invokeSOAPMethodWithName",
                                       "sendWebRequestWithURL",
                                       "sendTemplateRequestWithName",
                                       "prepareIncomingResultDictionary",
                                       "errorFromFaultDictionary",
                                       "messageFromCode",
                                       "useNursery",
                                       "beginNursery",
                                       "expandTemplate",
                                       "expandTemplates",
                                       "formatUploadErrorFromResponseDictionary",
                                       "uploadErrorWith",
                                       "isRestoringConfigured",
                                       "isUndeletingConfigured",
                                       "clientTimeString"};
    std::set<std::string> declared;
    const std::regex operation(R"(static [\w:<>\s]+?\s(\w+)\()");
    for (std::sregex_iterator at(header.begin(), header.end(), operation), end; at != end; ++at) {
        if (!others.contains((*at)[1]))
            declared.insert((*at)[1]);
    }
    std::set<std::string> shown;
    for (const auto& [name, row] : rows())
        shown.insert(row.operation);
    EXPECT_EQ(shown, declared);
}

TEST(PagesOfPlainRequests, TellTheLimitOfAnAnswer)
{
    constexpr std::size_t mebibyte = 1U << 20U;
    const std::string limit =
        std::to_string(platform::HttpLimits().maximumResponseBytes / mebibyte) + " MiB, headers";
    for (const char* page : {"docs/settings.md", "docs/decisions/plain-requests.md",
                             "stowline/service/WebServiceBroker.h"})
        EXPECT_NE(read(page).find("An answer of more than " + limit), std::string::npos) << page;
}

} // namespace
} // namespace stowline
