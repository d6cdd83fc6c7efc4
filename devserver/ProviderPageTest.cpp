// docs/provider.md names what the service answers, no more and no less.
#include "devserver/AccountService.h"
#include "devserver/BackupService.h"
#include "devserver/BrowseService.h"
#include "devserver/ReportServices.h"
#include "stowline/platform/files/Files.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestPaths.h"

#include <gtest/gtest.h>

#include <map>
#include <regex>
#include <set>
#include <sstream>

namespace stowline::devserver {
namespace {

/// Elements of answers, as paths, by method.
using Answers = std::map<std::string, std::set<std::string>>;

/// Of the tables; "….Name" is inside the element that was last named in full.
Answers answersOnPage()
{
    Answers answers;
    std::istringstream lines(platform::readFile(test::sourceFile("docs/provider.md")).value_or(""));
    const std::regex row(R"(\| (?:`(\w+)`)? ?\| (`.*`) \|.*\|)");
    const std::regex name("`([^`]+)`");
    std::string method;
    std::string outer;
    for (std::string line; std::getline(lines, line);) {
        std::smatch match;
        if (!std::regex_match(line, match, row))
            continue;
        if (match[1].matched)
            method = match[1];
        const std::string elements = match[2];
        for (std::sregex_iterator at(elements.begin(), elements.end(), name), end; at != end;
             ++at) {
            const std::string element = (*at)[1];
            const std::string inside = "…";
            if (element.starts_with(inside)) {
                answers[method].erase(outer);
                answers[method].insert(outer + element.substr(inside.size()));
            } else {
                outer = element;
                answers[method].insert(element);
            }
        }
    }
    return answers;
}

void collect(const std::vector<Field>& fields, const std::string& before,
             std::set<std::string>& found)
{
    for (const Field& field : fields) {
        if (field.parts.empty())
            found.insert(before + field.name);
        else
            collect(field.parts, before + field.name + ".", found);
    }
}

TEST(ProviderPage, NamesEveryElementOfEveryAnswer)
{
    const test::TemporaryFolder folder;
    Accounts accounts(folder.path() / "service.sqlite");
    Storage storage(folder.path());
    Deletions deletions(storage, {});
    Journal journal(folder.path());
    MonitoringTokens tokens;
    const AccountServiceContext context{accounts, storage, Data(32), ""};
    Answers given;
    for (const Service& service :
         {accountService(context), backupService(context, deletions), browseService(context),
          monitoringService(journal, tokens), reportService(context, journal)}) {
        for (const ServiceMethod& method : service.methods)
            collect(method.results, "", given[method.name]);
    }
    given.erase("ChangePassword"); // which no operation calls
    const Answers named = answersOnPage();
    for (const auto& [method, elements] : given) {
        const auto found = named.find(method);
        if (found == named.end())
            ADD_FAILURE() << method << " is missing in docs/provider.md";
        else
            EXPECT_EQ(found->second, elements) << method;
    }
    for (const auto& [method, elements] : named)
        EXPECT_TRUE(given.contains(method)) << method << " is on the page, but is not answered";
}

} // namespace
} // namespace stowline::devserver
