#include "stowline/logging/CountingLogger.h"
#include "stowline/logging/DDLog.h"
#include "stowline/platform/desktop/ConsoleLog.h"
#include "stowline/platform/http/ReadStream.h"
#include "stowline/service/WebServiceBroker.h"
#include "tests/support/RawServer.h"
#include "tests/support/TestBundle.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <thread>

namespace stowline {
namespace {

using test::named;
using test::RawConnection;
using test::RawServer;

Dictionary settingsWithRequest(Dictionary entry)
{
    return {{"WebRequests", Dictionary{{"R", std::move(entry)}}}};
}

struct Outcome {
    std::optional<Data> body;
    std::optional<Dictionary> headers = Dictionary{{"stale", "1"}};
    std::optional<Error> error = platform::makeError("stale", 1, "stale");
    std::vector<std::string> console;
};

Outcome send(const std::string& url, std::optional<std::string_view> body = std::nullopt,
             const SubstitutionMap& values = {})
{
    Outcome outcome;
    platform::setConsoleLogSink(
        [&outcome](std::string_view line) { outcome.console.emplace_back(line); });
    outcome.body = WebServiceBroker::sendWebRequestWithURL(url, "R", values, body, &outcome.headers,
                                                           &outcome.error);
    platform::setConsoleLogSink({});
    return outcome;
}

std::string textOf(const Outcome& outcome)
{
    return outcome.body ? std::string(outcome.body->begin(), outcome.body->end()) : "(absent)";
}

std::string firstLineOf(const std::string& request)
{
    return request.substr(0, request.find("\r\n"));
}

TEST(WebRequest, WithoutMethodAndVersionIsGetOver11)
{
    const RawServer server(test::httpAnswer("ok"));
    const test::TestBundle bundle(settingsWithRequest({}));
    EXPECT_EQ(textOf(send(server.url("/x"))), "ok");
    EXPECT_EQ(server.requests().at(0),
              "GET /x HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(server.port()) +
                  "\r\nUser-Agent: Mac/5.2.1\r\n\r\n");
}

TEST(WebRequest, OnlyExactly10IsHttp10)
{
    const RawServer server(test::httpAnswer("ok"));
    Dictionary requests;
    for (const char* version : {"1.0", "1.1", "2", "1.0 "})
        requests.emplace(version, Dictionary{{"httpMethod", "PUT"}, {"httpVersion", version}});
    const test::TestBundle bundle({{"WebRequests", requests}});
    const auto lineFor = [&](const char* version) {
        EXPECT_TRUE(WebServiceBroker::sendWebRequestWithURL(server.url(), version, {}, "x", nullptr,
                                                            nullptr));
        return firstLineOf(server.requests().back());
    };
    EXPECT_EQ(lineFor("1.0"), "PUT / HTTP/1.0");
    EXPECT_EQ(lineFor("1.1"), "PUT / HTTP/1.1");
    EXPECT_EQ(lineFor("2"), "PUT / HTTP/1.1");
    EXPECT_EQ(lineFor("1.0 "), "PUT / HTTP/1.1");
}

TEST(WebRequest, HeadersGoOutInOrderLaterOnesReplacingEarlierOnes)
{
    const RawServer server(test::httpAnswer("ok"));
    const test::TestBundle bundle(settingsWithRequest(
        {{"httpMethod", "POST"},
         {"requestHeaders",
          Array{named("X-B", "<<B>> & <b>"), named("x-a", "1"), named("X-b", "<<B>>"),
                named("User-Agent", "other"), named("X-Empty", ""), named("X-Blank", " \t "),
                named("X-Feed", "<<F>>"), named("X-Tab", " <<V>>"), named("X-Open", "<<C>>")}}}));
    send(server.url(), "hello", {{"<<B>>", "v&w"}, {"<<F>>", "\f"}, {"<<V>>", "\v"}});
    EXPECT_EQ(server.requests().at(0),
              "POST / HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(server.port()) +
                  "\r\nUser-Agent: Mac/5.2.1\r\nX-b: v&w\r\nx-a: "
                  "1\r\nX-Empty:\r\nX-Blank:\r\nX-Feed:\r\nX-Tab:\r\nX-Open: "
                  "<<C>>\r\nContent-Length: 5u\r\n\r\nhello");
}

TEST(WebRequest, TheLengthIsAPlainNumberWhereTheSettingsSaySo)
{
    const RawServer server(test::httpAnswer("ok"));
    Dictionary requests;
    for (const bool plain : {false, true})
        requests.emplace(plain ? "plain" : "letter",
                         Dictionary{{"httpMethod", "POST"}, {"plainContentLength", plain}});
    const test::TestBundle bundle({{"WebRequests", requests}});
    const auto ends = [&](const char* name, std::string_view end) {
        EXPECT_TRUE(WebServiceBroker::sendWebRequestWithURL(server.url(), name, {}, "hello",
                                                            nullptr, nullptr));
        EXPECT_TRUE(server.requests().back().ends_with(end)) << server.requests().back();
    };
    ends("plain", "\r\nContent-Length: 5\r\n\r\nhello");
    ends("letter", "\r\nContent-Length: 5u\r\n\r\nhello");
}

TEST(WebRequest, AFoldedHeaderKeepsWhatFollows)
{
    const RawServer server("HTTP/1.1 200 OK\r\nX-Long: one\r\n  two \r\n\tthree\r\nStatus: true\r\n"
                           "Content-Length: 0\r\n\r\n");
    const test::TestBundle bundle(
        settingsWithRequest({{"responseHeaderNames", Array{"X-Long", "Status"}}}));
    EXPECT_EQ(send(server.url()).headers,
              (Dictionary{{"X-Long", "one two three"}, {"Status", "true"}}));
}

TEST(WebRequest, EmptyAndAbsentBodiesSendNoLength)
{
    const RawServer server(test::httpAnswer("ok"));
    const test::TestBundle bundle(settingsWithRequest({{"httpMethod", "POST"}}));
    send(server.url(), "");
    send(server.url());
    for (const std::string& request : server.requests()) {
        EXPECT_TRUE(request.starts_with("POST / HTTP/1.1")) << request;
        EXPECT_EQ(request.find("ontent-"), std::string::npos) << request;
    }
    EXPECT_EQ(server.requests().size(), 2U);
}

TEST(WebRequest, AnyStatusIsASuccess)
{
    const RawServer server(test::httpAnswer("broken", 500));
    const test::TestBundle bundle(settingsWithRequest({}));
    const Outcome outcome = send(server.url());
    EXPECT_EQ(textOf(outcome), "broken");
    EXPECT_FALSE(outcome.error);
    EXPECT_EQ(outcome.headers, Dictionary()); // nothing is listed
}

TEST(WebRequest, ListedHeadersComeBackUnderTheListsSpelling)
{
    const RawServer server("HTTP/1.1 200 OK\r\nstatus: true\r\nX-RECEIVED: 5\r\nOther: 1\r\n"
                           "x-received: 6\r\nContent-Length: 0\r\n\r\n");
    const test::TestBundle bundle(settingsWithRequest(
        {{"responseHeaderNames", Array{"Status", "STATUS", "X-Received", "X-Lacking"}}}));
    const Outcome outcome = send(server.url());
    EXPECT_EQ(textOf(outcome), "");
    EXPECT_EQ(outcome.headers, (Dictionary{{"Status", "true"}, {"X-Received", "5, 6"}}));
}

TEST(WebRequest, SlotsMayBeNull)
{
    const RawServer server(test::httpAnswer("ok"));
    const test::TestBundle bundle(settingsWithRequest({}));
    EXPECT_TRUE(
        WebServiceBroker::sendWebRequestWithURL(server.url(), "R", {}, {}, nullptr, nullptr));
    EXPECT_FALSE(WebServiceBroker::sendWebRequestWithURL("nowhere", "R", {}, {}, nullptr, nullptr));
}

TEST(WebRequest, AValueCannotWriteHeaders)
{
    const RawServer server(test::httpAnswer("ok"));
    const test::TestBundle bundle(
        settingsWithRequest({{"requestHeaders", Array{named("X-Name", "<<N>>")}}}));
    const auto logger = std::make_shared<CountingLogger>();
    DDLog::addLogger(logger);
    for (const std::string& value : {std::string("a\r\nX: 1"), std::string("a\n"),
                                     std::string("\r"), std::string("a\0b", 3)}) {
        const Outcome outcome = send(server.url(), "body", {{"<<N>>", value}});
        EXPECT_FALSE(outcome.body);
        EXPECT_FALSE(outcome.headers);
        ASSERT_TRUE(outcome.error);
        EXPECT_EQ(outcome.error->code, 250);
        EXPECT_EQ(outcome.error->localizedDescription(),
                  "The value of the header \"X-Name\" holds a line break or a NUL character, which "
                  "cannot be sent.");
        EXPECT_EQ(outcome.error->kind, FailureKind::unsendableValue);
        EXPECT_EQ(outcome.console, std::vector<std::string>{outcome.error->localizedDescription()});
    }
    EXPECT_TRUE(server.requests().empty());
    // In the log too, as every failure of a request.
    DDLog::removeLogger(logger);
    DDLog::flushLog();
    ASSERT_EQ(logger->count(), 4U);
    for (const auto& line : logger->lines()) {
        EXPECT_TRUE(line.text.starts_with("Web request named R returned error: ")) << line.text;
        EXPECT_EQ(line.flag, kLogFlagError);
        EXPECT_EQ(line.file, "WebServiceBroker");
        EXPECT_EQ(line.function, "sendWebRequestWithURL:requestName:httpHeaderSubstitutions:"
                                 "requestBody:responseHeaders:error:");
    }
}

TEST(WebRequest, AHostInOtherLettersIsSentInAscii)
{
    const RawServer proxy(test::httpAnswer("ok"));
    const test::TestBundle bundle(settingsWithRequest({}));
    ::setenv("http_proxy", proxy.url("").c_str(), 1);
    EXPECT_EQ(textOf(send("http://gr\u00fcn.example/%41?b")), "ok");
    ::unsetenv("http_proxy");
    EXPECT_EQ(firstLineOf(proxy.requests().at(0)), "GET http://xn--grn-ioa.example/%41?b HTTP/1.1");
}

TEST(WebRequest, AnEntryWithHalfAHeaderIsRefused)
{
    const RawServer server(test::httpAnswer("ok"));
    const test::TestBundle bundle(settingsWithRequest(
        {{"requestHeaders", Array{named("X-A", "1"), Dictionary{{"name", "X-B"}}}}}));
    const Outcome outcome = send(server.url());
    EXPECT_EQ(outcome.error->kind, FailureKind::invalidSettings);
    EXPECT_EQ(outcome.error->localizedDescription(),
              "The settings of the web request \"R\" have a header without a name or a template. "
              "Please complete it.");
    EXPECT_TRUE(server.requests().empty());
}

TEST(WebRequest, FailuresAreLoggedTwice)
{
    const test::TestBundle bundle(settingsWithRequest({}));
    const auto logger = std::make_shared<CountingLogger>();
    DDLog::addLogger(logger);
    const Outcome outcome = send("no address");
    EXPECT_FALSE(outcome.body);
    EXPECT_FALSE(outcome.headers);
    EXPECT_EQ(outcome.error->code, 250);
    EXPECT_EQ(outcome.error->kind, FailureKind::invalidSettings);
    EXPECT_EQ(outcome.error->localizedDescription(), "Unable to create network stream");
    EXPECT_EQ(outcome.console, std::vector<std::string>{"Unable to create network stream"});
    DDLog::flushLog();
    EXPECT_TRUE(logger->hasLine("Web request named R returned error: Error "
                                "Domain=com.Stowline.Application Code=250 \"Unable to create "
                                "network stream\""));
    EXPECT_EQ(logger->lines().back().flag, kLogFlagError);
}

TEST(WebRequest, TheStreamsOwnErrorIsHandedOn)
{
    const test::TestBundle bundle(settingsWithRequest({}));
    const Outcome outcome = send("http://127.0.0.1:" + std::to_string(test::closedPort()) + "/");
    EXPECT_EQ(outcome.error->domain, platform::kHttpErrorDomain);
    EXPECT_EQ(outcome.error->code, static_cast<int>(platform::HttpFailure::connection));
    EXPECT_EQ(outcome.error->kind, FailureKind::connection);
    EXPECT_NE(outcome.error->localizedDescription().find("127.0.0.1"), std::string::npos);
}

TEST(WebRequest, ASilentServerTimesOutAndASteadyOneDoesNot)
{
    const RawServer silent(
        [](const std::string&, const RawConnection& connection) { connection.holdUntilClosed(); });
    const RawServer steady([](const std::string&, const RawConnection& connection) {
        for (const char c : std::string("HTTP/1.1 200 OK\r\n\r\nabc")) {
            std::this_thread::sleep_for(std::chrono::milliseconds(40));
            connection.send(std::string(1, c));
        }
    });
    const test::TestBundle bundle(settingsWithRequest({{"requestTimeout", "0.3"}}));
    const auto start = std::chrono::steady_clock::now();
    const Outcome outcome = send(silent.url());
    EXPECT_EQ(outcome.error->localizedDescription(), "Request timeout");
    EXPECT_EQ(outcome.error->kind, FailureKind::timeOut);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(290));
    EXPECT_EQ(textOf(send(steady.url())), "abc"); // 22 bytes take some 0.9 s
}

TEST(WebRequest, WithoutATimeoutItIsSixtySeconds)
{
    if (!std::getenv("STOWLINE_LONG_TESTS"))
        GTEST_SKIP() << "Takes a minute; scripts/test --long runs it.";
    const RawServer silent(
        [](const std::string&, const RawConnection& connection) { connection.holdUntilClosed(); });
    const test::TestBundle bundle(settingsWithRequest({}));
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(send(silent.url()).error->localizedDescription(), "Request timeout");
    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_GE(took, std::chrono::seconds(59));
    EXPECT_LT(took, std::chrono::seconds(66));
}

TEST(WebRequest, ABodyGoesToNoOtherServer)
{
    const RawServer other(test::httpAnswer("stolen"));
    const RawServer server("HTTP/1.1 307 Elsewhere\r\nLocation: " + other.url() +
                           "\r\nContent-Length: 0\r\n\r\n");
    const test::TestBundle bundle(settingsWithRequest({{"httpMethod", "POST"}}));
    const Outcome outcome = send(server.url(), "my letters");
    EXPECT_FALSE(outcome.body);
    EXPECT_EQ(outcome.error->code, static_cast<int>(platform::HttpFailure::redirect));
    EXPECT_EQ(outcome.error->kind, FailureKind::refusedRedirect);
    EXPECT_TRUE(other.requests().empty());
}

TEST(WebRequest, APartThatWasNotSentIsNotStored)
{
    for (const char* status : {"301", "302", "303"}) {
        const RawServer server([&](const std::string& request, const RawConnection& connection) {
            connection.send(request.starts_with("GET")
                                ? "HTTP/1.1 200 OK\r\nStatus: true\r\nContent-Length: 0\r\n\r\n"
                                : "HTTP/1.1 " + std::string(status) +
                                      " There\r\nLocation: /there\r\nContent-Length: 0\r\n\r\n");
        });
        const test::TestBundle bundle(settingsWithRequest({{"httpMethod", "POST"}}));
        const Outcome outcome = send(server.url(), "my letters");
        EXPECT_FALSE(outcome.body) << status;
        EXPECT_EQ(outcome.error->kind, FailureKind::refusedRedirect);
    }
}

TEST(WebRequest, ARedirectAtHomeTakesTheBodyAlong)
{
    const RawServer server([](const std::string& request, const RawConnection& connection) {
        connection.send(request.find(" /second ") != std::string::npos
                            ? test::httpAnswer("there")
                            : "HTTP/1.1 308 There\r\nLocation: /second\r\nContent-Length: 4\r\n\r\n"
                              "here");
    });
    const test::TestBundle bundle(settingsWithRequest({{"httpMethod", "POST"}}));
    EXPECT_EQ(textOf(send(server.url(), "letters")), "there");
    EXPECT_TRUE(server.requests().at(1).ends_with("Content-Length: 7u\r\n\r\nletters"));
}

TEST(WebRequest, GoesThroughTheEnvironmentsProxy)
{
    const RawServer proxy(test::httpAnswer("by proxy"));
    const test::TestBundle bundle(settingsWithRequest({}));
    ::setenv("http_proxy", proxy.url("").c_str(), 1);
    ::unsetenv("no_proxy");
    EXPECT_EQ(textOf(send("http://backup.invalid/x")), "by proxy");
    EXPECT_EQ(firstLineOf(proxy.requests().at(0)), "GET http://backup.invalid/x HTTP/1.1");
    ::unsetenv("http_proxy");
}

TEST(WebRequest, BoundsWhatItReads)
{
    const RawServer flood([](const std::string&, const RawConnection& connection) {
        connection.send("HTTP/1.1 200 OK\r\nContent-Length: 1073741824\r\n\r\n");
        const std::string piece(1 << 20, 'x');
        for (int i = 0; i < 80; ++i)
            connection.send(piece);
    });
    const RawServer headers([](const std::string&, const RawConnection& connection) {
        std::string answer = "HTTP/1.1 200 OK\r\n";
        for (int i = 0; i < 10000; ++i)
            answer += "X-" + std::to_string(i) + ": " + std::string(40, 'h') + "\r\n";
        connection.send(answer + "Status: true\r\nContent-Length: 0\r\n\r\n");
    });
    const test::TestBundle bundle(settingsWithRequest({{"responseHeaderNames", Array{"Status"}}}));
    EXPECT_EQ(send(flood.url()).error->kind, FailureKind::tooLarge);
    const Outcome outcome = send(headers.url()); // the library takes 300 KB of them, or refuses
    if (outcome.body)
        EXPECT_EQ(outcome.headers, (Dictionary{{"Status", "true"}}));
    else
        EXPECT_TRUE(outcome.error);
}

TEST(WebRequest, CutHeadersAreAFailure)
{
    const RawServer server("HTTP/1.1 200 OK\r\nStatus: tr");
    const test::TestBundle bundle(settingsWithRequest({}));
    EXPECT_FALSE(send(server.url()).body);
}

} // namespace
} // namespace stowline
