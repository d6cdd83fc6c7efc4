#include "stowline/platform/desktop/ConsoleLog.h"
#include "stowline/service/WebServiceBroker.h"
#include "tests/support/RawServer.h"
#include "tests/support/TestBundle.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace stowline {
namespace {

using test::RawConnection;
using test::RawServer;

Dictionary settingsWithTemplate(Dictionary entry, const std::string& host = "127.0.0.1")
{
    return {{"URLS", Dictionary{{"ReachabilityHost", host}}},
            {"Templates", Dictionary{{"T", std::move(entry)}}}};
}

/// Console lines of one test.
class Console {
public:
    Console()
    {
        platform::setConsoleLogSink([this](std::string_view line) { lines.emplace_back(line); });
    }
    ~Console() { platform::setConsoleLogSink({}); }
    std::vector<std::string> lines;
};

std::optional<std::string> send(const SubstitutionMap& params = {})
{
    return WebServiceBroker::sendTemplateRequestWithName("T", params, "%@ %s ignored", {});
}

std::string bodyOf(const std::string& request)
{
    return request.substr(request.find("\r\n\r\n") + 4);
}

TEST(TemplateRequest, PostsTheFilledBodyWithItsHeaders)
{
    const RawServer server(test::httpAnswer("<Code>é</Code>"));
    const test::TestBundle bundle(
        settingsWithTemplate({{"URL", server.url("/d%%20e f")},
                              {"body", "<p><<PATH>></p><q><<PATH>></q><r>é & <<OTHER>></r>"},
                              {"httpHeaders", Dictionary{{"X-B", "<<PATH>>"}}}}));
    EXPECT_EQ(send({{"<<PATH>>", "a<b"}, {"<<UNUSED>>", "x"}}), "<Code>é</Code>");
    const std::string body = "<p>a&lt;b</p><q>a&lt;b</q><r>é & <<OTHER>></r>";
    EXPECT_EQ(server.requests().at(0),
              "POST /d%20e%20f HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(server.port()) +
                  "\r\nUser-Agent: Mac/5.2.1\r\nContent-Length: " + std::to_string(body.size()) +
                  "\r\nX-B: <<PATH>>\r\n\r\n" + body);
}

TEST(TemplateRequest, LengthsCountBytesAndMayBeReplaced)
{
    const RawServer server(test::httpAnswer("ok"));
    const test::TestBundle bundle(settingsWithTemplate(
        {{"URL", server.url()},
         {"body", "é"},
         {"httpHeaders", Dictionary{{"content-length", "02"}, {"user-agent", "mine"}}}}));
    EXPECT_EQ(send(), "ok");
    const std::string request = server.requests().at(0);
    EXPECT_NE(request.find("content-length: 02\r\n"), std::string::npos) << request;
    EXPECT_EQ(request.find("Content-Length"), std::string::npos);
    EXPECT_NE(request.find("user-agent: mine\r\n"), std::string::npos);
    EXPECT_EQ(bodyOf(request), "é");
}

TEST(TemplateRequest, ValuesWithMarkupAndOtherPlaceholdersAreHarmless)
{
    const RawServer server(test::httpAnswer("ok"));
    const test::TestBundle bundle(
        settingsWithTemplate({{"URL", server.url()}, {"body", "<<A>>|<<B>>"}}));
    EXPECT_EQ(send({{"<<A>>", "]]><<B>>&"}, {"<<B>>", "b"}}), "ok");
    EXPECT_EQ(bodyOf(server.requests().at(0)), "]]&gt;&lt;&lt;B&gt;&gt;&amp;|b");
}

TEST(TemplateRequest, FillsItsUrl)
{
    const RawServer server(test::httpAnswer("ok"));
    const test::TestBundle bundle(settingsWithTemplate({{"URL", "http://%@/x"}, {"body", "b"}}));
    EXPECT_EQ(WebServiceBroker::sendTemplateRequestWithName(
                  "T", {}, "%@", {"127.0.0.1:" + std::to_string(server.port())}),
              "ok");
}

TEST(TemplateRequest, AnyStatusIsAnAnswer)
{
    const RawServer server(test::httpAnswer("broken", 500));
    const test::TestBundle bundle(settingsWithTemplate({{"URL", server.url()}, {"body", "b"}}));
    EXPECT_EQ(send(), "broken");
}

TEST(TemplateRequest, NothingIsSentWithoutAHost)
{
    const Console console;
    const RawServer server(test::httpAnswer("ok"));
    const test::TestBundle bundle(
        settingsWithTemplate({{"URL", server.url()}, {"body", "b"}}, "no-such-host.invalid"));
    EXPECT_EQ(send(), std::nullopt);
    EXPECT_TRUE(server.requests().empty());
    EXPECT_TRUE(console.lines.empty());
}

TEST(TemplateRequest, IsNeitherTurnedIntoAGetNorTakenElsewhere)
{
    const RawServer other(test::httpAnswer("taken"));
    test::SharedText answer;
    const RawServer server([&answer](const std::string&, const RawConnection& connection) {
        connection.send(answer.get());
    });
    const test::TestBundle bundle(
        settingsWithTemplate({{"URL", server.url()}, {"body", "<p>secret</p>"}}));
    std::size_t requests = 0;
    for (const int status : {301, 302, 303, 307, 308}) {
        for (const bool isElsewhere : {false, true}) {
            if (!isElsewhere && status >= 307)
                continue; // which sends the body again, and may
            const Console console;
            answer = "HTTP/1.1 " + std::to_string(status) +
                     " Elsewhere\r\nContent-Length: 0\r\nLocation: " +
                     (isElsewhere ? other.url("/x") : "/x") + "\r\n\r\n";
            EXPECT_EQ(send(), std::nullopt) << status;
            EXPECT_EQ(server.requests().size(), ++requests) << status;
            EXPECT_TRUE(other.requests().empty()) << status;
            ASSERT_EQ(console.lines.size(), 1U);
            for (const RawServer* named : {&server, isElsewhere ? &other : &server})
                EXPECT_NE(console.lines[0].find("127.0.0.1:" + std::to_string(named->port())),
                          std::string::npos)
                    << console.lines[0];
        }
    }
}

TEST(TemplateRequest, AMissingTemplateIsToldOnTheConsole)
{
    const Console console;
    const test::TestBundle bundle({{"URLS", Dictionary{{"ReachabilityHost", "127.0.0.1"}}}});
    EXPECT_EQ(send(), std::nullopt);
    EXPECT_EQ(console.lines,
              std::vector<std::string>{"Attemting to send request T, but no template found"});
}

TEST(TemplateRequest, EntriesWithoutBodyOrUrl)
{
    const Console console;
    const RawServer server(test::httpAnswer("ok"));
    const test::TestBundle bundle(
        {{"URLS", Dictionary{{"ReachabilityHost", "127.0.0.1"}}},
         {"Templates", Dictionary{{"NoBody", Dictionary{{"URL", server.url()}}},
                                  {"NoUrl", Dictionary{{"body", "b"}}}}}});
    EXPECT_EQ(WebServiceBroker::sendTemplateRequestWithName("NoBody", {}, "", {}), "ok");
    EXPECT_NE(server.requests().at(0).find("Content-Length: 0\r\n"), std::string::npos);
    EXPECT_EQ(WebServiceBroker::sendTemplateRequestWithName("NoUrl", {}, "", {}), std::nullopt);
    ASSERT_EQ(console.lines.size(), 1U);
    EXPECT_TRUE(console.lines[0].starts_with("Method NoUrl, URL connection error: "))
        << console.lines[0];
}

TEST(TemplateRequest, ConnectionErrorsAreToldOnTheConsole)
{
    const Console console;
    const test::TestBundle bundle(settingsWithTemplate(
        {{"URL", "http://127.0.0.1:" + std::to_string(test::closedPort()) + "/"}, {"body", "b"}}));
    EXPECT_EQ(send(), std::nullopt);
    ASSERT_EQ(console.lines.size(), 1U);
    EXPECT_TRUE(console.lines[0].starts_with("Method T, URL connection error: The call to "))
        << console.lines[0];
}

TEST(TemplateRequest, LargeAnswersAndOtherEncodings)
{
    test::SharedText content(std::string(10 << 20, 'x'));
    const RawServer server([&content](const std::string&, const RawConnection& connection) {
        connection.send(test::httpAnswer(content.get()));
    });
    const Console console;
    const test::TestBundle bundle(settingsWithTemplate({{"URL", server.url()}, {"body", "b"}}));
    EXPECT_EQ(send()->size(), std::size_t{10} << 20);
    content = "caf\xe9";
    EXPECT_EQ(send(), std::nullopt);
    EXPECT_TRUE(console.lines.empty());
}

TEST(TemplateRequest, WaitsAMinuteAndNoLonger)
{
    if (!std::getenv("STOWLINE_LONG_TESTS"))
        GTEST_SKIP() << "Takes a minute; scripts/test --long runs it.";
    const Console console;
    const RawServer server(
        [](const std::string&, const RawConnection& connection) { connection.holdUntilClosed(); });
    const test::TestBundle bundle(settingsWithTemplate({{"URL", server.url()}, {"body", "b"}}));
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(send(), std::nullopt);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(59));
    EXPECT_EQ(console.lines,
              std::vector<std::string>{"Method T, URL connection error: The request timed out."});
}

} // namespace
} // namespace stowline
