#include "stowline/logging/CountingLogger.h"
#include "stowline/logging/DDLog.h"
#include "stowline/service/WebServiceBroker.h"
#include "tests/support/SoapAnswers.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <regex>

namespace stowline {
namespace {

using test::RawServer;

constexpr const char* kBody =
    "<<EVENTTYPE>>|<<USERNAME>>|<<AUTHTOKEN>>|<<SYSTEMNAME>>|<<BACKUPDURATION>>|<<CLIENTVERSION>>|"
    "<<CLIENTDATE>>|<<ISSCHEDULED>>|<<ERRORFILESCOUNT>>|<<ERRORFILESSIZE>>|<<TOTALFILESCOUNT>>|"
    "<<TOTALFILESSIZE>>|<<UNCHANGEDFILESCOUNT>>|<<UNCHANGEDFILESSIZE>>|<<UPLOADEDFILESCOUNT>>|"
    "<<UPLOADEDFILESSIZE>>";

Dictionary eventSettings(const std::string& url)
{
    return {{"URLS", Dictionary{{"ReachabilityHost", "127.0.0.1"}}},
            {"Templates", Dictionary{{"LogEvent", Dictionary{{"URL", url}, {"body", kBody}}}}}};
}

bool logEvent(std::int32_t duration = -5)
{
    return WebServiceBroker::centralMonitoringLogEvent("BackupEnded", "ann", "T&1", "iMac",
                                                       duration, 0, 0, 4, 18446744073709551615U, 1,
                                                       4294967296U, 3, 5);
}

std::string bodyOf(const std::string& request)
{
    return request.substr(request.find("\r\n\r\n") + 4);
}

TEST(LogEvent, SendsEveryFigure)
{
    ::setenv("TZ", "Asia/Tokyo", 1);
    ::tzset();
    const RawServer server(test::httpAnswer("<ok/>"));
    const test::TestBundle bundle(eventSettings(server.url()));
    const auto logger = std::make_shared<CountingLogger>();
    DDLog::addLogger(logger);
    const std::time_t before = std::time(nullptr);
    EXPECT_TRUE(logEvent());
    std::smatch match;
    const std::string body = bodyOf(server.requests().at(0));
    ASSERT_TRUE(std::regex_match(
        body, match,
        std::regex(R"(BackupEnded\|ann\|T&amp;1\|iMac\|-5\|5\.2\.1\|)"
                   R"((\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d)\|false\|0\|0\|4\|18446744073709551615\|1\|)"
                   R"(4294967296\|3\|5)")))
        << body;
    std::tm shown{};
    ASSERT_NE(::strptime(match[1].str().c_str(), "%Y-%m-%dT%H:%M:%S", &shown), nullptr);
    EXPECT_NEAR(static_cast<double>(::timegm(&shown) - 9 * 3600), static_cast<double>(before), 60);
    DDLog::flushLog();
    EXPECT_TRUE(logger->hasLine("LogEvent method result:\n<ok/>"));
}

TEST(LogEvent, OnlyARefusedTokenAndSilenceAreFailures)
{
    test::SharedText answer("<Fault>anything else</Fault>");
    const RawServer server([&answer](const std::string&, const test::RawConnection& connection) {
        connection.send(test::httpAnswer(answer.get(), 500));
    });
    const test::TestBundle bundle(eventSettings(server.url()));
    EXPECT_TRUE(logEvent());
    answer = "xInvalidAuthenticationTokenFaultx";
    EXPECT_FALSE(logEvent());
    answer = "invalidauthenticationtokenfault";
    EXPECT_TRUE(logEvent());
}

TEST(LogEvent, NoAnswerIsAFailureThatIsLogged)
{
    const test::TestBundle bundle(
        eventSettings("http://127.0.0.1:" + std::to_string(test::closedPort())));
    const auto logger = std::make_shared<CountingLogger>();
    DDLog::addLogger(logger);
    EXPECT_FALSE(logEvent());
    DDLog::flushLog();
    EXPECT_TRUE(logger->hasLine("LogEvent method result:\n(null)"));
}

TEST(LogEvent, WithoutAVersionItSendsAnEmptyOne)
{
    const RawServer server(test::httpAnswer("<ok/>"));
    const test::TestBundle bundle(eventSettings(server.url()),
                                  {{"CFBundleShortVersionString", 5}}); // no string
    EXPECT_TRUE(logEvent());
    EXPECT_NE(bodyOf(server.requests().at(0)).find("|iMac|-5||"), std::string::npos);
}

TEST(MonitoringSettings, AreAMapOrNothing)
{
    test::SharedText content("<r><Interval>60</Interval></r>");
    const RawServer server([&content](const std::string&, const test::RawConnection& connection) {
        connection.send(test::soapAnswer(content.get()));
    });
    const test::TestBundle bundle(test::settingsWith(
        "GetSettings",
        test::methodEntry(server.url(), {"USERNAME", "AUTHTOKEN", "SYSTEMNAME"}, "r")));
    const auto get = [](std::optional<std::string_view> token) {
        return WebServiceBroker::centralMonitoringGetSettingsForUserName("ann", token, "iMac");
    };
    EXPECT_EQ(get("T"), (Dictionary{{"Interval", "60"}}));
    EXPECT_EQ(test::parametersIn(server.requests().at(0)),
              "<USERNAME>ann</USERNAME><AUTHTOKEN>T</AUTHTOKEN><SYSTEMNAME>iMac</SYSTEMNAME>");
    content = "<r>text</r>";
    EXPECT_EQ(get(std::nullopt), std::nullopt);
    EXPECT_NE(server.requests().at(1).find("<AUTHTOKEN xsi:nil=\"true\" />"), std::string::npos);
    content = "<x/>";
    EXPECT_EQ(get("T"), std::nullopt);
}

} // namespace
} // namespace stowline
