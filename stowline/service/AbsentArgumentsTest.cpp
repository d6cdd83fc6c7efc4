// Arguments that are absent: what the service is sent in their place.
#include "stowline/service/WebServiceBroker.h"
#include "tests/support/SoapAnswers.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace stowline {
namespace {

using Words = std::vector<std::optional<std::string_view>>;

/// An operation, the placeholders of those of its arguments that may be absent, and whether one
/// stays in the text (posted templates) or becomes an explicit nil (calls).
struct Told {
    const char* name;
    bool isTemplate;
    std::vector<std::string> placeholders;
    std::function<void(const Words&, std::string_view server)> perform;
};

std::ostream& operator<<(std::ostream& stream, const Told& operation)
{
    return stream << operation.name;
}

/// Settings with the operation under this name, whose message has an element for each placeholder.
Dictionary settingsFor(const Told& operation, const std::string& url)
{
    std::string body;
    Array params;
    for (const std::string& placeholder : operation.placeholders) {
        const std::string name = "a" + placeholder.substr(2, placeholder.size() - 4);
        body += "<" + name + ">" + placeholder + "</" + name + ">";
        params.emplace_back(test::named(name, placeholder));
    }
    Dictionary settings = test::settingsWith(
        operation.name, {{"URL", url}, {"namespace", "urn:t"}, {"soapParams", params}});
    settings.emplace("Templates", Dictionary{{operation.name,
                                              Dictionary{{"URL", "http://%@/"}, {"body", body}}}});
    return settings;
}

/// What stands for an argument.
std::string element(const Told& operation, std::size_t at, std::optional<std::string_view> word)
{
    const std::string& placeholder = operation.placeholders.at(at);
    const std::string name = "a" + placeholder.substr(2, placeholder.size() - 4);
    if (!word && !operation.isTemplate)
        return "<" + name + " xsi:nil=\"true\" />";
    return "<" + name + ">" + std::string(word.value_or(placeholder)) + "</" + name + ">";
}

class AbsentArgument : public testing::TestWithParam<Told> {};

TEST_P(AbsentArgument, IsToldAsAbsentAndTheOthersAsTheyAre)
{
    const Told& operation = GetParam();
    const test::RawServer server(test::soapAnswer(""));
    const test::TestBundle bundle(settingsFor(operation, server.url()));
    const std::string host = "127.0.0.1:" + std::to_string(server.port());
    std::vector<std::string> values;
    for (std::size_t i = 0; i < operation.placeholders.size(); ++i)
        values.push_back("value " + std::to_string(i));
    for (std::size_t absent = 0; absent <= values.size(); ++absent) { // at last none
        Words words(values.begin(), values.end());
        if (absent < words.size())
            words[absent].reset();
        operation.perform(words, host);
        ASSERT_EQ(server.requests().size(), absent + 1);
        const std::string request = server.requests().back();
        for (std::size_t i = 0; i < words.size(); ++i)
            EXPECT_NE(request.find(element(operation, i, words[i])), std::string::npos)
                << element(operation, i, words[i]) << " is missing in " << request;
    }
}

const std::vector<Told> kOperations{
    {"GetAccountSystems",
     false,
     {"<<USERNAME>>", "<<PASSWORD>>", "<<SERVERNAME>>"},
     [](const Words& w, std::string_view) {
         (void)WebServiceBroker::getAccountSystemsForUsername(w[0], w[1], w[2], nullptr);
     }},
    {"GetAccountFilesAndFolders",
     false,
     {"<<USERNAME>>", "<<PASSWORD>>", "<<SERVERNAME>>", "<<SYSTEMNAME>>", "<<PATH>>",
      "<<SORTFIELD>>"},
     [](const Words& w, std::string_view) {
         (void)WebServiceBroker::getAccountFilesAndFoldersForUserName(
             w[0], w[1], w[2], w[3], w[4], w[5], true, 0, 10, nullptr, nullptr);
     }},
    {"GetFileVersions",
     false,
     {"<<USERNAME>>", "<<PASSWORD>>", "<<SERVERNAME>>"},
     [](const Words& w, std::string_view) {
         (void)WebServiceBroker::getFileVersionsForUsername(w[0], w[1], w[2], 7, nullptr);
     }},
    {"SearchFilesEx",
     false,
     {"<<USERNAME>>", "<<PASSWORD>>", "<<SERVERNAME>>", "<<FILENAME>>"},
     [](const Words& w, std::string_view) {
         (void)WebServiceBroker::searchFilesForUsername(w[0], w[1], w[2], "s", "/", w[3], 0, 10,
                                                        nullptr, nullptr);
     }},
    {"BeginDeleteFolders",
     true,
     {"<<USERNAME>>", "<<PASSWORD>>", "<<SYSTEMNAME>>", "<<PATH>>"},
     [](const Words& w, std::string_view server) {
         (void)WebServiceBroker::beginDeleteFolderForUsername(w[0], w[1], w[2], w[3], server);
     }},
    {"CheckDeleteFolders",
     true,
     {"<<USERNAME>>", "<<PASSWORD>>", "<<PROCESSGUID>>"},
     [](const Words& w, std::string_view server) {
         (void)WebServiceBroker::checkDeleteFolderForUsername(w[0], w[1], w[2], server);
     }},
    {"BeginCancelDeleteFolders",
     true,
     {"<<USERNAME>>", "<<PASSWORD>>", "<<PROCESSGUID>>"},
     [](const Words& w, std::string_view server) {
         WebServiceBroker::cancelDeleteFolderForUsername(w[0], w[1], w[2], server);
     }},
    {"GetSettings",
     false,
     {"<<USERNAME>>", "<<AUTHTOKEN>>", "<<SYSTEMNAME>>"},
     [](const Words& w, std::string_view) {
         (void)WebServiceBroker::centralMonitoringGetSettingsForUserName(w[0], w[1], w[2]);
     }},
    {"SendBackupSummaryReport",
     false,
     {"<<USERNAME>>", "<<PASSWORD>>", "<<ACCOUNTUSERNAME>>", "<<MACHINENAME>>"},
     [](const Words& w, std::string_view) {
         WebServiceBroker::sendBackupReportForUserName(w[0], w[1], {}, w[2], w[3], {}, 0, 0, 0, 0,
                                                       0);
     }}};

INSTANTIATE_TEST_SUITE_P(Operations, AbsentArgument, testing::ValuesIn(kOperations),
                         [](const auto& test) { return test.param.name; });

} // namespace
} // namespace stowline
