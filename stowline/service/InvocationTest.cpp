#include "stowline/service/WebServiceBroker.h"

#include "stowline/call/WireNames.h"
#include "stowline/logging/CountingLogger.h"
#include "stowline/logging/DDLog.h"
#include "stowline/platform/desktop/ConsoleLog.h"
#include "stowline/platform/files/Files.h"
#include "stowline/platform/text/Text.h"
#include "stowline/service/FailureWatch.h"
#include "tests/support/DevServerProcess.h"
#include "tests/support/SoapAnswers.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <thread>

namespace stowline {
namespace {

using test::RawConnection;
using test::RawServer;

constexpr const char* kUnreachable =
    "Sorry, we can't sign you in right now. Please check your Internet connection before trying "
    "again.";

/// Log and console of one test.
class Witness {
public:
    Witness()
    {
        DDLog::addLogger(logger);
        platform::setConsoleLogSink([this](std::string_view line) { console.emplace_back(line); });
    }
    ~Witness()
    {
        platform::setConsoleLogSink({});
        DDLog::removeLogger(logger);
        DDLog::flushLog();
    }
    [[nodiscard]] bool logged(std::string_view text) const
    {
        DDLog::flushLog();
        return logger->hasLine(text);
    }
    [[nodiscard]] bool loggedLineWith(std::string_view part) const
    {
        DDLog::flushLog();
        for (const auto& line : logger->lines()) {
            if (line.text.find(part) != std::string::npos)
                return true;
        }
        return false;
    }

    std::shared_ptr<CountingLogger> logger = std::make_shared<CountingLogger>();
    std::vector<std::string> console;
};

Dictionary method(const std::string& url, const char* resultKeyPath = nullptr)
{
    Dictionary entry{
        {"URL", url}, {"namespace", "urn:t"}, {"soapParams", Array{test::named("p", "<<P>>")}}};
    if (resultKeyPath)
        entry.emplace("resultKeyPath", resultKeyPath);
    return entry;
}

/// A bundle whose helper is a shell script.
std::filesystem::path helperFolder(const test::TemporaryFolder& folder, const std::string& lines)
{
    const auto file = folder.write("WebServiceCaller", "#!/bin/sh\n" + lines + "\n");
    std::filesystem::permissions(file, std::filesystem::perms::owner_all);
    return folder.path();
}

TEST(Invocation, ReturnsTheWholeAnswerWithTheHttpResponse)
{
    const RawServer server(test::soapAnswer("<a><b>x</b></a>"));
    const test::TestBundle bundle(test::settingsWith("M", method(server.url())));
    const Witness witness;
    const auto result = WebServiceBroker::invokeSOAPMethodWithName("M", {}, {});
    ASSERT_TRUE(result);
    EXPECT_EQ(valueAtKeyPath(*result, "a.b"), Value("x"));
    EXPECT_EQ(valueAtKeyPath(*result, "kWSHTTPResponseMessage.statusCode"), Value(200));
    EXPECT_EQ(valueAtKeyPath(*result, "kWSHTTPResponseMessage.headers.Content-Type"),
              Value("text/xml; charset=utf-8"));
    EXPECT_TRUE(witness.logged("\nisKindOfClass nsdictionary = 1"));
    EXPECT_TRUE(witness.logged("\ncount is 3"));
    EXPECT_TRUE(witness.logged("\nWebService M result = " + result->text()));
    ASSERT_EQ(witness.console.size(), 1U);
    EXPECT_TRUE(witness.console[0].starts_with(
        "WebServiceCaller termination status = 0, inData.length = "));
}

TEST(Invocation, FollowsTheResultKeyPath)
{
    const RawServer server(test::soapAnswer("<a><b>x</b></a>"));
    const test::TestBundle bundle(test::settingsWith("M", method(server.url(), "a.b")));
    const Witness witness;
    EXPECT_EQ(WebServiceBroker::invokeSOAPMethodWithName("M", {}, {}), Value("x"));
    EXPECT_TRUE(witness.logged("\nisKindOfClass nsdictionary = 0"));
    EXPECT_FALSE(witness.loggedLineWith("count is"));
}

TEST(Invocation, APathThatLeadsNowhereIsAbsentWithoutError)
{
    const RawServer server(test::soapAnswer("<a/>"));
    const test::TestBundle bundle(test::settingsWith("M", method(server.url(), "a.b")));
    std::optional<Error> error;
    EXPECT_FALSE(WebServiceBroker::invokeSOAPMethodWithName("M", {}, {}, &error));
    EXPECT_FALSE(error);
}

TEST(Invocation, FillsAndEscapesTheUrl)
{
    const RawServer server(test::soapAnswer(""));
    const test::TestBundle bundle(test::settingsWith("M", method("http://%@/a b/%@?x=100%%")));
    const std::string host = "127.0.0.1:" + std::to_string(server.port());
    EXPECT_TRUE(
        WebServiceBroker::invokeSOAPMethodWithName("M", {}, {}, nullptr, "", {host, "node 7"}));
    EXPECT_TRUE(server.requests().at(0).starts_with("POST /a%20b/node%207?x=100%25 HTTP/1.1\r\n"))
        << server.requests().at(0);
}

TEST(Invocation, IgnoresTheLeadingString)
{
    const RawServer server(test::soapAnswer(""));
    const test::TestBundle bundle(test::settingsWith("M", method("%@")));
    EXPECT_TRUE(WebServiceBroker::invokeSOAPMethodWithName("M", {}, {}, nullptr, "ignored",
                                                           {server.url("/x")}));
}

TEST(Invocation, AnUnreachableHostStartsNoProcess)
{
    const test::TemporaryFolder folder;
    const auto trace = folder.path() / "started";
    const test::TestBundle bundle(
        test::settingsWith("M", method("http://127.0.0.1:1/"), "no-such-host.invalid"), {},
        helperFolder(folder, "touch " + trace.string()));
    const Witness witness;
    std::optional<Error> error;
    EXPECT_FALSE(WebServiceBroker::invokeSOAPMethodWithName("M", {}, {}, &error));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain, "com.Stowline.Application");
    EXPECT_EQ(error->code, 250);
    EXPECT_EQ(error->kind, FailureKind::hostUnreachable);
    EXPECT_EQ(error->localizedDescription(), kUnreachable);
    EXPECT_FALSE(std::filesystem::exists(trace));
    EXPECT_TRUE(witness.console.empty());
    EXPECT_TRUE(witness.logged(
        "invokeSOAPMethodWithName:withHeaderSubstitutions:withParamSubstitutions:error:"
        "anyStringPlusUrlSubstitutions: call failed: " +
        error->text()));
    EXPECT_EQ(witness.logger->lines().at(0).flag, kLogFlagError);
    EXPECT_FALSE(WebServiceBroker::invokeSOAPMethodWithName("M", {}, {}, nullptr));
}

TEST(Invocation, TheUnreachableMessageIsLocalized)
{
    const test::TestBundle bundle(test::settingsWith("M", method("u"), "no-such-host.invalid"));
    bundle.folder().write(
        "Resources/Localizable.strings",
        platform::writeXmlPropertyList(Dictionary{{kUnreachable, "Keine Verbindung."}}).value());
    std::optional<Error> error;
    (void)WebServiceBroker::invokeSOAPMethodWithName("M", {}, {}, &error);
    EXPECT_EQ(error->localizedDescription(), "Keine Verbindung.");
}

TEST(Invocation, WithoutReachabilityHostNothingIsReachable)
{
    const test::TestBundle bundle({{"WebServices", Dictionary{{"M", method("u")}}}});
    std::optional<Error> error;
    EXPECT_FALSE(WebServiceBroker::invokeSOAPMethodWithName("M", {}, {}, &error));
    EXPECT_EQ(error->code, 250);
}

TEST(Invocation, AnUnknownMethodIsLoggedAndLeavesTheErrorAlone)
{
    const test::TestBundle bundle(test::settingsWith("M", method("u")));
    const Witness witness;
    std::optional<Error> error = platform::makeError("mine", 1, "kept");
    const FailureWatch watch;
    EXPECT_FALSE(WebServiceBroker::invokeSOAPMethodWithName("Other", {}, {}, &error));
    EXPECT_EQ(watch.kind(), FailureKind::invalidSettings);
    EXPECT_EQ(error->domain, "mine");
    EXPECT_TRUE(witness.logged("\nWebServiceBroker: the settings have no web service \"Other\". "
                               "Please add it to \"WebServices\"."));
}

TEST(Invocation, AFaultIsError200WithoutTheServicesWords)
{
    const RawServer server(test::httpAnswer(test::wireBody("fault.response.http"), 500));
    const test::TestBundle bundle(test::settingsWith("M", method(server.url())));
    const Witness witness;
    std::optional<Error> error;
    EXPECT_FALSE(WebServiceBroker::invokeSOAPMethodWithName("M", {}, {}, &error));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, 200);
    EXPECT_EQ(error->domain, "com.Stowline.Application");
    EXPECT_EQ(error->kind, FailureKind::fault);
    EXPECT_EQ(error->localizedDescription(), "Web Service call returned fault");
    EXPECT_EQ(error->text().find("Database"), std::string::npos);
    EXPECT_FALSE(platform::find(error->userInfo, platform::kFailureReasonKey));
    bool isLogged = false;
    for (const auto& line : witness.logger->lines()) {
        if (!line.text.starts_with("WebService M, Soap call returned fault, result = {"))
            continue;
        isLogged = true;
        EXPECT_EQ(line.flag, kLogFlagError);
        EXPECT_EQ(line.file, "WebServiceBroker");
        EXPECT_EQ(line.function,
                  "invokeSOAPMethodWithName:withHeaderSubstitutions:withParamSubstitutions:error:"
                  "anyStringPlusUrlSubstitutions:");
    }
    EXPECT_TRUE(isLogged);
}

TEST(Invocation, SecretsThatTheServiceSaysAgainStayOutOfTheLog)
{
    const std::string fault =
        platform::replacingOccurrences(test::wireBody("fault.response.http"), "</faultstring>",
                                       " of pass-word, abc</faultstring>");
    ASSERT_NE(fault.find("pass-word"), std::string::npos);
    const RawServer server(test::httpAnswer(fault, 500));
    const test::TestBundle bundle(test::settingsWith("M", method(server.url())));
    const Witness witness;
    std::optional<Error> error;
    for (const char* placeholder :
         {"<<PASSWORD>>", "<<AUTHTOKEN>>", "<<ANSWER>>", "<<TICKET>>", "<<SOURCESTRING>>"}) {
        EXPECT_FALSE(WebServiceBroker::invokeSOAPMethodWithName(
            "M", SubstitutionMap{{placeholder, "pass-word"}}, {}, &error));
        EXPECT_FALSE(WebServiceBroker::invokeSOAPMethodWithName(
            "M", {}, SubstitutionMap{{placeholder, "pass-word"}}, &error));
        EXPECT_FALSE(witness.loggedLineWith("pass-word")) << placeholder;
    }
    EXPECT_TRUE(witness.loggedLineWith("of (not shown), abc"));
    // What is not a secret, or too short to be told from other words, stays.
    EXPECT_FALSE(WebServiceBroker::invokeSOAPMethodWithName(
        "M", {}, SubstitutionMap{{"<<PASSWORD>>", "abc"}, {"<<PATH>>", "pass-word"}}, &error));
    EXPECT_TRUE(witness.loggedLineWith("of pass-word, abc"));
}

/// A call without a SOAP answer: to a server that answers so, or to an address.
struct NoAnswer {
    FailureKind kind;
    std::string answer;
    std::string url = {};
};

std::ostream& operator<<(std::ostream& stream, const NoAnswer& call)
{
    return stream << platform::nameOf(call.kind);
}

class NoSoapAnswer : public testing::TestWithParam<NoAnswer> {};

TEST_P(NoSoapAnswer, IsToldByTheKindOfTheError)
{
    const RawServer server(GetParam().answer);
    const test::TestBundle bundle(
        test::settingsWith("M", method(GetParam().url.empty() ? server.url() : GetParam().url)));
    std::optional<Error> error;
    EXPECT_FALSE(WebServiceBroker::invokeSOAPMethodWithName("M", {}, {}, &error));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, 200);
    EXPECT_EQ(error->localizedDescription(), "Web Service call returned fault");
    EXPECT_EQ(platform::nameOf(error->kind), platform::nameOf(GetParam().kind));
    EXPECT_FALSE(platform::findText(error->userInfo, platform::kFailureReasonKey).empty());
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, NoSoapAnswer,
    testing::Values(
        NoAnswer{FailureKind::connection, ""},
        NoAnswer{FailureKind::nameNotFound, "", "http://no-such-host.invalid/"},
        NoAnswer{FailureKind::invalidSettings, "", "htp://host/"},
        NoAnswer{FailureKind::unreadableAnswer, test::httpAnswer("<html/>")},
        NoAnswer{FailureKind::badRequest, test::httpAnswer("<html/>", 400)},
        NoAnswer{FailureKind::proxyRefused, test::httpAnswer("<html/>", 407)},
        NoAnswer{FailureKind::requestTooLarge, test::httpAnswer("<html/>", 413)},
        NoAnswer{FailureKind::unavailable, test::httpAnswer("<html/>", 503)},
        NoAnswer{FailureKind::refusedRedirect,
                 "HTTP/1.1 302 There\r\nLocation: ftp://there/\r\nContent-Length: 0\r\n\r\n"}),
    [](const auto& test) { return std::string(platform::nameOf(test.param.kind)); });

TEST(Invocation, NoConnectionIsError200)
{
    const test::TestBundle bundle(test::settingsWith(
        "M", method("http://127.0.0.1:" + std::to_string(test::closedPort()) + "/")));
    std::optional<Error> error;
    EXPECT_FALSE(WebServiceBroker::invokeSOAPMethodWithName("M", {}, {}, &error));
    EXPECT_EQ(error->code, 200);
}

TEST(Invocation, ValuesThatCannotBeSentAreNamedButNotShown)
{
    const test::TemporaryFolder folder;
    const auto trace = folder.path() / "started";
    const test::TestBundle bundle(test::settingsWith("M", method("u")), {},
                                  helperFolder(folder, "touch " + trace.string()));
    const Witness witness;
    std::optional<Error> error;
    const SubstitutionMap params{{"<<P>>", std::string_view("secret\0word", 11)}};
    EXPECT_FALSE(WebServiceBroker::invokeSOAPMethodWithName("M", {}, params, &error));
    EXPECT_EQ(error->code, 250);
    EXPECT_EQ(error->kind, FailureKind::unsendableValue);
    EXPECT_EQ(error->localizedDescription(),
              "The value for <<P>> holds the control character U+0000, which cannot be sent. "
              "Please remove it and try again.");
    EXPECT_FALSE(witness.loggedLineWith("secret"));
    EXPECT_FALSE(std::filesystem::exists(trace));
    ASSERT_FALSE(witness.logger->lines().empty());
    for (const auto& line : witness.logger->lines()) { // not the function that found it
        EXPECT_EQ(line.file, "WebServiceBroker");
        EXPECT_TRUE(line.function.starts_with("invokeSOAPMethodWithName:")) << line.function;
    }
    error.reset();
    EXPECT_FALSE(WebServiceBroker::invokeSOAPMethodWithName("M", SubstitutionMap{{"<<H>>", "\xff"}},
                                                            {}, &error));
    EXPECT_NE(error->localizedDescription().find("bytes that are not UTF-8"), std::string::npos);
}

// ---- helpers that misbehave ----

struct BadHelper {
    const char* name;
    const char* lines;
    FailureKind kind = FailureKind::helperFailed;
};

std::ostream& operator<<(std::ostream& stream, const BadHelper& helper)
{
    return stream << helper.name;
}

class MisbehavingHelper : public testing::TestWithParam<BadHelper> {};

TEST_P(MisbehavingHelper, GivesAnAbsentResultAndLeavesNothingBehind)
{
    const test::TemporaryFolder folder;
    const test::TestBundle bundle(test::settingsWith("M", method("u")), {},
                                  helperFolder(folder, GetParam().lines));
    const Witness witness;
    (void)WebServiceBroker::invokeSOAPMethodWithName("M", {}, {});
    const auto descriptors = test::openDescriptorCount();
    std::optional<Error> error = platform::makeError("mine", 1, "kept");
    const FailureWatch watch;
    EXPECT_FALSE(WebServiceBroker::invokeSOAPMethodWithName("M", {}, {}, &error));
    EXPECT_EQ(error->domain, "mine");
    EXPECT_EQ(watch.kind(), GetParam().kind);
    EXPECT_EQ(test::openDescriptorCount(), descriptors);
    EXPECT_FALSE(test::hasChildren());
}

INSTANTIATE_TEST_SUITE_P(
    Helpers, MisbehavingHelper,
    testing::Values(BadHelper{"TimesOut", "exit 252", FailureKind::timeOut},
                    BadHelper{"WritesNothing", "exit 0"},
                    BadHelper{"WritesButFails", "echo x; exit 250"},
                    BadHelper{"IsKilled", "kill -9 $$"},
                    BadHelper{"DiesBeforeTheRelease", "exec 0<&-; echo garbage; exit 1"},
                    BadHelper{"PrintsGarbage", "echo garbage; exec 1>&-; read r"},
                    BadHelper{"PrintsMuch", "head -c 3000000 /dev/zero; exec 1>&-; read r"}),
    [](const auto& test) { return test.param.name; });

TEST(Invocation, AHelperThatIsMissingIsAnErrorAndLogged)
{
    const test::TemporaryFolder folder;
    const test::TestBundle bundle(test::settingsWith("M", method("u")), {}, folder.path());
    const Witness witness;
    std::optional<Error> error;
    EXPECT_FALSE(WebServiceBroker::invokeSOAPMethodWithName("M", {}, {}, &error));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, 250);
    EXPECT_EQ(error->kind, FailureKind::helperFailed);
    EXPECT_TRUE(witness.loggedLineWith("WebServiceCaller cannot be started. Please install"));
}

TEST(Invocation, AnAnswerThatIsNoDictionaryGoesToTheConsole)
{
    const test::TemporaryFolder folder;
    const auto archive =
        folder.write("archive", platform::writeBinaryPropertyList(Array{"odd"}).value());
    const test::TestBundle bundle(
        test::settingsWith("M", method("u")), {},
        helperFolder(folder, "cat " + archive.string() + "; exec 1>&-; read r; exit 0"));
    const Witness witness;
    EXPECT_FALSE(WebServiceBroker::invokeSOAPMethodWithName("M", {}, {}));
    EXPECT_EQ(witness.console.back(), "Error result type from WebServiceCaller:\n(odd)");
}

TEST(Invocation, ReleasesTheHelperWithTheCountOfBytes)
{
    const test::TemporaryFolder folder;
    const auto note = folder.path() / "release";
    const test::TestBundle bundle(
        test::settingsWith("M", method("u")), {},
        helperFolder(folder, "printf 12345; exec 1>&-; head -c 4 > " + note.string()));
    (void)WebServiceBroker::invokeSOAPMethodWithName("M", {}, {});
    EXPECT_EQ(platform::readFile(note), std::string("\5\0\0\0", 4));
}

TEST(Invocation, ThePasswordIsInNoArgumentOfTheHelper)
{
    const test::TemporaryFolder folder;
    const auto note = folder.path() / "arguments";
    const test::TestBundle bundle(test::settingsWith("M", method("u")), {},
                                  helperFolder(folder, "echo \"$@\" > " + note.string()));
    (void)WebServiceBroker::invokeSOAPMethodWithName("M", {}, SubstitutionMap{{"<<P>>", "secret"}});
    EXPECT_EQ(platform::readFile(note), "@/dev/fd/3\n");
}

TEST(Invocation, AHelperThatHangsIsEndedAfter75Seconds)
{
    if (!std::getenv("STOWLINE_LONG_TESTS"))
        GTEST_SKIP() << "Takes 75 seconds; scripts/test --long runs it.";
    const test::TemporaryFolder folder;
    const test::TestBundle bundle(test::settingsWith("M", method("u")), {},
                                  helperFolder(folder, "exec sleep 600"));
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(WebServiceBroker::invokeSOAPMethodWithName("M", {}, {}));
    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_GE(took, std::chrono::seconds(75));
    EXPECT_LT(took, std::chrono::seconds(80));
    EXPECT_FALSE(test::hasChildren());
}

TEST(Invocation, SixtyFourThreadsNeverMixAnswers)
{
    const RawServer echo([](const std::string& request, const RawConnection& connection) {
        const auto begin = request.find("<p>") + 3;
        connection.send(test::soapAnswer(
            "<echo>" + request.substr(begin, request.find("</p>") - begin) + "</echo>"));
    });
    const test::TestBundle bundle(test::settingsWith("M", method(echo.url(), "echo")));
    std::vector<std::thread> threads;
    std::atomic<int> right = 0;
    for (int t = 0; t < 64; ++t) {
        threads.emplace_back([&right, t] {
            for (int i = 0; i < 3; ++i) {
                const std::string text = std::to_string(t) + "/" + std::to_string(i);
                const auto result = WebServiceBroker::invokeSOAPMethodWithName(
                    "M", {}, SubstitutionMap{{"<<P>>", text}});
                right += result == Value(text) ? 1 : 0;
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(right, 64 * 3);
    EXPECT_FALSE(test::hasChildren());
}

TEST(Invocation, AnswersOfDecryptionStayOutOfTheLog)
{
    const RawServer server(test::soapAnswer("<r>plain secret</r>"));
    const test::TestBundle bundle(test::settingsWith("DecryptString", method(server.url(), "r")));
    const Witness witness;
    EXPECT_EQ(WebServiceBroker::decryptString("x"), Value("plain secret"));
    EXPECT_FALSE(witness.loggedLineWith("plain secret"));
    EXPECT_TRUE(witness.logged("\nWebService DecryptString result = (not shown)"));
}

// ---- pure parts ----

TEST(PrepareIncomingResult, TurnsBytesIntoAMessageAndCopiesTheRest)
{
    const Dictionary result{
        {"a", "1"},
        {"kWSHTTPResponseMessage",
         platform::dataFromText("HTTP/1.1 503 Busy\r\nRetry-After: 5\r\n\r\nbody")}};
    const auto prepared = WebServiceBroker::prepareIncomingResultDictionary(result);
    EXPECT_EQ(*find(prepared, "a"), Value("1"));
    EXPECT_EQ(valueAtKeyPath(prepared, "kWSHTTPResponseMessage.statusCode"), Value(503));
    EXPECT_EQ(valueAtKeyPath(prepared, "kWSHTTPResponseMessage.headers.Retry-After"), Value("5"));
    EXPECT_EQ(WebServiceBroker::prepareIncomingResultDictionary({{"a", "1"}}),
              (Dictionary{{"a", "1"}}));
}

TEST(ErrorFromFault, DoesNotReadTheFault)
{
    const auto error = WebServiceBroker::errorFromFaultDictionary({{"kWSFaultString", "inside"}});
    EXPECT_EQ(error.code, 200);
    EXPECT_EQ(error.userInfo,
              (Dictionary{{"localizedDescription", "Web Service call returned fault"}}));
}

TEST(MessageFromCode, WritesCamelCaseAsWords)
{
    EXPECT_EQ(WebServiceBroker::messageFromCode("InvalidUserName"), "Invalid user name");
    EXPECT_EQ(WebServiceBroker::messageFromCode("invalidUser"), "Invalid user");
    EXPECT_EQ(WebServiceBroker::messageFromCode("ABC"), "A b c");
    EXPECT_EQ(WebServiceBroker::messageFromCode(""), "");
    EXPECT_EQ(WebServiceBroker::messageFromCode("X"), "X");
    EXPECT_EQ(WebServiceBroker::messageFromCode("ÄrgerÜberall"), "Ärger überall");
    EXPECT_EQ(WebServiceBroker::messageFromCode("error404Found"), "Error404 found");
}

TEST(BrokerTemplates, AnAbsentMapFillsNothing)
{
    EXPECT_EQ(WebServiceBroker::expandTemplate("<<A>>", std::nullopt, true), "<<A>>");
    EXPECT_EQ(
        WebServiceBroker::expandTemplates(std::vector<std::string>{"<<A>>"}, std::nullopt, true),
        std::vector<std::string>{"<<A>>"});
}

TEST(BrokerTemplates, AMapMayBeOneThatIsOrIsNotThere)
{
    std::optional<SubstitutionMap> map;
    const std::vector<std::string> texts{"<<A>>"};
    EXPECT_EQ(WebServiceBroker::expandTemplate("<<A>>", map, true), "<<A>>");
    EXPECT_EQ(WebServiceBroker::expandTemplates(texts, map, true), texts);
    map = SubstitutionMap{{"<<A>>", "<"}};
    EXPECT_EQ(WebServiceBroker::expandTemplate("<<A>>", map, true), "&lt;");
    EXPECT_EQ(WebServiceBroker::expandTemplates(texts, map, false), std::vector<std::string>{"<"});
}

TEST(BrokerTemplates, AreThoseOfTheSoapFolder)
{
    EXPECT_EQ(WebServiceBroker::expandTemplate("<<A>>", {{"<<A>>", "<"}}, true), "&lt;");
    EXPECT_EQ(WebServiceBroker::expandTemplates(std::vector<std::string>{"<<A>>"}, {{"<<A>>", "<"}},
                                                false),
              std::vector<std::string>{"<"});
}

} // namespace
} // namespace stowline
