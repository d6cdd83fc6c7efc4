#include "stowline/tool/CallWorker.h"

#include "stowline/call/CallArchive.h"
#include "stowline/call/ResultMaking.h"
#include "stowline/call/WebServiceCallRequest.h"
#include "stowline/call/WireNames.h"
#include "stowline/platform/files/Files.h"
#include "stowline/platform/files/GzipStream.h"
#include "stowline/platform/processes/BuildIdentity.h"
#include "stowline/platform/text/Text.h"
#include "stowline/util/Base64.h"
#include "tests/support/DevServerProcess.h"
#include "tests/support/RawServer.h"
#include "tests/support/SoapAnswers.h"
#include "tests/support/TestBundle.h"
#include "tests/support/TestPaths.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <regex>
#include <set>
#include <thread>

namespace stowline::tool {
namespace {

using namespace std::chrono_literals;
using test::RawConnection;
using test::RawServer;

/// What the worker did with an argument.
struct Outcome {
    CallStatus status;
    std::string output;
    [[nodiscard]] Dictionary result() const
    {
        const auto root = unarchive(output);
        return root && root->dictionary() ? *root->dictionary() : Dictionary();
    }
    [[nodiscard]] std::string faultCode() const
    {
        const auto fields = result();
        const Value* code = find(fields, kWSFaultCode);
        return code ? code->text() : "";
    }
};

Outcome runWith(const std::vector<std::string>& words, std::chrono::milliseconds limit = 20s)
{
    Outcome outcome{};
    CallWorkerOptions options{.limit = limit, .slice = 125ms};
    options.writeOutput = [&](std::string_view bytes) {
        outcome.output = bytes;
        return true;
    };
    outcome.status = runCallWorker(words, options);
    return outcome;
}

Outcome call(const WebServiceCallRequest& request, std::chrono::milliseconds limit = 20s)
{
    return runWith({"WebServiceCaller", encodedRequest(request.dictionary()).value()}, limit);
}

Dictionary methodWith(Dictionary added)
{
    added.emplace("namespace", "http://stowline.example/account");
    return added;
}

/// The request that the captures show.
WebServiceCallRequest authenticateRequest(const std::string& url)
{
    return {.url = url,
            .methodInfo =
                methodWith({{"httpHeaders", Dictionary{}},
                            {"soapParams", Array{test::named("userName", "<<USERNAME>>"),
                                                 test::named("password", "<<PASSWORD>>"),
                                                 test::named("partner", "<<PARTNER>>")}}}),
            .methodName = "Authenticate",
            .soapParamSubstitutions =
                SubstitutionMap{{"<<USERNAME>>", "ann & bob"}, {"<<PASSWORD>>", "p<w>\"'é"}}};
}

std::string header(const std::string& request, const std::string& name)
{
    const auto at = request.find("\r\n" + name + ": ");
    if (at == std::string::npos)
        return "(absent)";
    const auto begin = at + name.size() + 4;
    return request.substr(begin, request.find("\r\n", begin) - begin);
}

TEST(CallWorker, SendsTheCapturedRequestAndReadsTheCapturedAnswer)
{
    const test::TestBundle bundle({});
    const std::string answer = test::wireBody("authenticate.response.http");
    const RawServer server(test::httpAnswer(answer));
    const auto outcome = call(authenticateRequest(server.url("/AccountService.asmx")));
    ASSERT_EQ(outcome.status, CallStatus::done);

    std::string expected = test::wireCapture("authenticate.request.http");
    const std::string body = test::wireBody("authenticate.request.http");
    expected = expected.substr(0, expected.find("\n\n"));
    expected = platform::replacingOccurrences(expected, "\n", "\r\n");
    expected = platform::replacingOccurrences(expected, "{host}",
                                              "127.0.0.1:" + std::to_string(server.port()));
    expected = platform::replacingOccurrences(expected, "{version}", "5.2.1");
    expected = platform::replacingOccurrences(expected, "{length}", std::to_string(body.size()));
    EXPECT_EQ(server.requests().at(0), expected + "\r\n\r\n" + body);

    const auto result = outcome.result();
    EXPECT_EQ(*find(result, "accountStatus"), Value("Active"));
    EXPECT_EQ(find(result, "message"), nullptr);
    EXPECT_EQ(*find(result, "greeting"), Value(""));
    EXPECT_EQ(valueAtKeyPath(result, "kWSMethodInvocationResult.backupServerName"),
              Value("127.0.0.1:8443"));
    EXPECT_EQ(*find(result, kWSHTTPResponseMessage),
              Value(platform::dataFromText(test::httpAnswer(answer))));
}

std::string packed(const std::string& bytes)
{
    std::string result;
    platform::GzipWriter writer([&](std::string_view piece) { result.append(piece); });
    writer.write(bytes);
    writer.finish();
    return result;
}

std::string packedAnswer(const std::string& coding, const std::string& body)
{
    return "HTTP/1.1 200 OK\r\nContent-Encoding: " + coding +
           "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

TEST(CallWorker, UnderstandsAnswersThatArePackedUnasked)
{
    const test::TestBundle bundle({});
    const std::string body = packed(test::wireBody("authenticate.response.http"));
    for (const char* coding : {"gzip", "GZIP", "x-gzip"}) {
        const RawServer server(packedAnswer(coding, body));
        const auto result = call(authenticateRequest(server.url())).result();
        EXPECT_EQ(*find(result, "accountStatus"), Value("Active")) << coding;
        EXPECT_EQ(*find(result, kWSHTTPResponseMessage),
                  Value(platform::dataFromText(packedAnswer(coding, body))));
        EXPECT_EQ(server.requests().at(0).find("Accept-Encoding"), std::string::npos);
    }
}

TEST(CallWorker, WhatCannotBeUnpackedIsAFault)
{
    const test::TestBundle bundle({});
    const std::string whole = packed(test::wireBody("authenticate.response.http"));
    const std::string tooMuch = packed(std::string((std::size_t(64) << 20) + 1, ' '));
    for (const std::string& body :
         {whole.substr(0, whole.size() / 2), whole + "x", std::string("no gzip"), tooMuch}) {
        const RawServer server(packedAnswer("gzip", body));
        const auto outcome = call(authenticateRequest(server.url()));
        EXPECT_EQ(outcome.faultCode(), kFaultCodeUnreadableAnswer);
        EXPECT_NE(find(outcome.result(), kWSFaultString)->text().find("cannot be unpacked"),
                  std::string::npos);
    }
}

TEST(CallWorker, IsNotTurnedIntoAGetByARedirect)
{
    const test::TestBundle bundle({});
    const std::string good = test::httpAnswer(test::wireBody("authenticate.response.http"));
    for (const int status : {301, 302, 303, 307, 308}) {
        const RawServer server([&](const std::string& request, const RawConnection& connection) {
            connection.send(request.find(" /moved ") != std::string::npos
                                ? good
                                : "HTTP/1.1 " + std::to_string(status) +
                                      " Moved\r\nLocation: /moved\r\nContent-Length: 0\r\n\r\n");
        });
        const auto outcome = call(authenticateRequest(server.url()));
        const bool repeats = status >= 307;
        EXPECT_EQ(outcome.faultCode(), repeats ? "" : kFaultCodeNoAnswer) << status;
        EXPECT_EQ(server.requests().size(), repeats ? 2U : 1U) << status;
        EXPECT_TRUE(server.requests().back().starts_with("POST ")) << status;
    }
}

TEST(CallWorker, GoesThroughTheProxyOfItsRequest)
{
    const test::TestBundle bundle({});
    const RawServer proxy(test::httpAnswer(test::wireBody("authenticate.response.http")));
    WebServiceCallRequest request = authenticateRequest("http://service.example/x");
    request.proxy = "http://127.0.0.1:" + std::to_string(proxy.port());
    EXPECT_EQ(*find(call(request).result(), "accountStatus"), Value("Active"));
    EXPECT_TRUE(proxy.requests().at(0).starts_with("POST http://service.example/x HTTP/1.1\r\n"));
}

TEST(CallWorker, NeedsExactlyOneArgument)
{
    EXPECT_EQ(runWith({"tool"}).status, CallStatus::wrongArgumentCount);
    EXPECT_EQ(runWith({"tool", "a", "b"}).status, CallStatus::wrongArgumentCount);
    EXPECT_EQ(runWith({}).output, "");
}

TEST(CallWorker, RefusesWhatIsNoBase64)
{
    for (const char* argument : {"", "YWI", "é", "@/nonexistent", "@"}) {
        EXPECT_EQ(runWith({"tool", argument}).status, CallStatus::argumentUndecodable) << argument;
        EXPECT_EQ(runWith({"tool", argument}).output, "");
    }
}

TEST(CallWorker, RefusesArchivesThatAreNoDictionary)
{
    const auto encoded = [](const std::string& bytes) {
        return Base64::base64EncodingWithLineLength(bytes, Base64::kNeverBreaks);
    };
    EXPECT_EQ(runWith({"tool", encoded(archive(Array{1}).value())}).status,
              CallStatus::requestNoDictionary);
    EXPECT_EQ(runWith({"tool", encoded("no archive")}).status, CallStatus::requestNoDictionary);
}

TEST(CallWorker, RefusesARequestCutAtAnyLength)
{
    const std::string whole =
        archive(authenticateRequest("http://127.0.0.1:1/").dictionary()).value();
    for (std::size_t length = 1; length < whole.size(); ++length) {
        const auto argument =
            Base64::base64EncodingWithLineLength(whole.substr(0, length), Base64::kNeverBreaks);
        ASSERT_EQ(runWith({"tool", argument}).status, CallStatus::requestNoDictionary) << length;
    }
}

TEST(CallWorker, TakesItsRequestFromAFile)
{
    const test::TestBundle bundle({});
    const RawServer server(test::httpAnswer(test::wireBody("authenticate.response.http")));
    const auto file = bundle.folder().write(
        "request", encodedRequest(authenticateRequest(server.url()).dictionary()).value());
    EXPECT_EQ(runWith({"tool", "@" + file.string()}).status, CallStatus::done);
}

TEST(CallWorker, RequestsOfWrongTypesAreFaultsNotCrashes)
{
    for (const Dictionary& request :
         {Dictionary{}, Dictionary{{"url", 5}}, Dictionary{{"url", "http://127.0.0.1:1/"}},
          Dictionary{{"url", "node7/service"},
                     {"methodInfo", Dictionary{{"soapParams", Array{1, "x", Dictionary{}}},
                                               {"soapHeaders", Dictionary{}},
                                               {"httpHeaders", Array{}}}}}}) {
        const auto outcome = runWith({"tool", encodedRequest(request).value()});
        EXPECT_EQ(outcome.status, CallStatus::done);
        EXPECT_EQ(outcome.faultCode(), kFaultCodeNoAnswer);
    }
}

TEST(CallWorker, WithoutHttpHeadersNoUserAgentIsSent)
{
    const test::TestBundle bundle({});
    const RawServer server(test::httpAnswer(test::wireBody("authenticate.response.http")));
    auto request = authenticateRequest(server.url());
    request.methodInfo->erase("httpHeaders");
    (void)call(request);
    EXPECT_EQ(header(server.requests().at(0), "User-Agent"), "(absent)");
}

TEST(CallWorker, WithHttpHeadersTheUserAgentIsTheClients)
{
    const test::TestBundle bundle({});
    const RawServer server(test::httpAnswer(test::wireBody("authenticate.response.http")));
    auto request = authenticateRequest(server.url());
    request.methodInfo->insert_or_assign(
        "httpHeaders",
        Dictionary{{"user-agent", "Other/1"}, {"X-Partner", 7}, {"SOAPAction", "\"urn:own\""}});
    (void)call(request);
    const std::string sent = server.requests().at(0);
    EXPECT_EQ(header(sent, "User-Agent"), "Mac/5.2.1");
    EXPECT_EQ(sent.find("Other/1"), std::string::npos);
    EXPECT_EQ(header(sent, "X-Partner"), "7");
    EXPECT_EQ(header(sent, "SOAPAction"), "\"urn:own\"");
}

TEST(CallWorker, SoapHeadersAreExpandedWithTheHeaderValues)
{
    const test::TestBundle bundle({});
    const RawServer server(test::httpAnswer(test::wireBody("authenticate.response.http")));
    auto request = authenticateRequest(server.url());
    (void)call(request);
    request.methodInfo->insert_or_assign("soapHeaders",
                                         Array{Dictionary{{"template", "<t><<TOKEN>></t>"}}});
    request.soapHeaderSubstitutions = SubstitutionMap{{"<<TOKEN>>", "a&b"}};
    (void)call(request);
    request.methodInfo->insert_or_assign("soapHeaders", Array{});
    (void)call(request);
    const auto sent = server.requests();
    EXPECT_EQ(sent.at(0).find("soap:Header"), std::string::npos);
    EXPECT_NE(sent.at(1).find("<soap:Header><t>a&amp;b</t></soap:Header>"), std::string::npos);
    EXPECT_NE(sent.at(2).find("<soap:Header></soap:Header>"), std::string::npos);
}

TEST(CallWorker, ARepeatedParameterTakesTheLaterTemplate)
{
    const test::TestBundle bundle({});
    const RawServer server(test::httpAnswer(test::wireBody("authenticate.response.http")));
    auto request = authenticateRequest(server.url());
    request.methodInfo->insert_or_assign(
        "soapParams", Array{test::named("a", "1"), test::named("b", "2"), test::named("a", "3")});
    (void)call(request);
    EXPECT_NE(server.requests().at(0).find("><a>3</a><b>2</b></Authenticate>"), std::string::npos);
}

TEST(CallWorker, AnswersThatAreNoSoapAreFaultsWithTheResponse)
{
    const test::TestBundle bundle({});
    for (const std::string& body : {test::wireBody("html.response.http"), std::string("plain"),
                                    std::string(), std::string("<Envelope><Body></Envelope>")}) {
        const RawServer server(test::httpAnswer(body));
        const auto outcome = call(authenticateRequest(server.url()));
        EXPECT_EQ(outcome.status, CallStatus::done);
        EXPECT_EQ(outcome.faultCode(), kFaultCodeUnreadableAnswer);
        EXPECT_NE(find(outcome.result(), kWSHTTPResponseMessage), nullptr);
    }
}

TEST(CallWorker, AFaultOfTheServiceIsAResult)
{
    const test::TestBundle bundle({});
    const RawServer server(test::httpAnswer(test::wireBody("fault.response.http"), 500));
    const auto outcome = call(authenticateRequest(server.url()));
    EXPECT_EQ(outcome.status, CallStatus::done);
    EXPECT_EQ(outcome.faultCode(), "soap:Server");
    EXPECT_TRUE(WSMethodResultIsFault(outcome.result()));
}

TEST(CallWorker, NoConnectionIsAFaultThatSaysSo)
{
    const test::TestBundle bundle({});
    const auto outcome =
        call(authenticateRequest("http://127.0.0.1:" + std::to_string(test::closedPort()) + "/"));
    EXPECT_EQ(outcome.status, CallStatus::done);
    EXPECT_EQ(outcome.faultCode(), kFaultCodeNoAnswer);
    EXPECT_EQ(find(outcome.result(), kWSHTTPResponseMessage), nullptr);
}

TEST(CallWorker, SilenceUntilTheLimitGivesNoResult)
{
    const test::TestBundle bundle({});
    const RawServer silent(
        [](const std::string&, const RawConnection& connection) { connection.holdUntilClosed(); });
    const auto outcome = call(authenticateRequest(silent.url()), 300ms);
    EXPECT_EQ(outcome.status, CallStatus::noResult);
    EXPECT_EQ(outcome.output, "");
}

TEST(CallWorker, ADrippingServerDoesNotStretchTheLimit)
{
    const test::TestBundle bundle({});
    const RawServer dripping([](const std::string&, const RawConnection& connection) {
        connection.send("HTTP/1.1 200 OK\r\nContent-Length: 1000000\r\n\r\n");
        for (int i = 0; i < 1000; ++i) {
            connection.send("x");
            std::this_thread::sleep_for(5ms);
        }
    });
    EXPECT_EQ(call(authenticateRequest(dripping.url()), 400ms).status, CallStatus::noResult);
}

TEST(CallWorker, AParameterOfFiveMegabytesArrivesWhole)
{
    const test::TestBundle bundle({});
    const RawServer server(test::httpAnswer(test::wireBody("authenticate.response.http")));
    auto request = authenticateRequest(server.url());
    const std::string large(5'000'000, 'x');
    request.soapParamSubstitutions = SubstitutionMap{{"<<USERNAME>>", large}};
    EXPECT_EQ(call(request).status, CallStatus::done);
    EXPECT_NE(server.requests().at(0).find("<userName>" + large + "</userName>"),
              std::string::npos);
}

TEST(CallWorker, AnswersBeyond64MiBAreFaults)
{
    const test::TestBundle bundle({});
    const RawServer server([](const std::string&, const RawConnection& connection) {
        const std::string piece(std::size_t(1) << 20, ' ');
        connection.send("HTTP/1.1 200 OK\r\nContent-Type: text/xml\r\n\r\n");
        for (int i = 0; i < 65; ++i)
            connection.send(piece);
    });
    const auto outcome = call(authenticateRequest(server.url()));
    EXPECT_EQ(outcome.status, CallStatus::done);
    EXPECT_EQ(*find(outcome.result(), kWSFaultString),
              Value("The answer from 127.0.0.1 is larger than 67108864 bytes."));
}

TEST(CallWorker, ValuesThatXmlCannotCarryAreNotSent)
{
    const test::TestBundle bundle({});
    const RawServer server(test::httpAnswer("x"));
    auto request = authenticateRequest(server.url());
    request.soapParamSubstitutions = SubstitutionMap{{"<<USERNAME>>", "a\x01"}};
    const auto outcome = call(request);
    EXPECT_EQ(outcome.faultCode(), kFaultCodeUnsendable);
    EXPECT_EQ(*find(outcome.result(), kWSFaultString),
              Value("The request holds the control character U+0001, which XML cannot carry."));
    EXPECT_TRUE(server.requests().empty());
}

TEST(CallWorker, AnIncompleteWriteIsReported)
{
    const test::TestBundle bundle({});
    CallWorkerOptions options;
    options.writeOutput = [](std::string_view) { return false; };
    const auto argument = encodedRequest(authenticateRequest("http://127.0.0.1:1/").dictionary());
    EXPECT_EQ(runCallWorker({"tool", *argument}, options), CallStatus::outputIncomplete);
}

// ---- the program itself ----

test::ProgramResult runTool(const std::vector<std::string>& arguments)
{
    test::ProgramRun run{{test::builtProgram("WebServiceCaller")}};
    run.words.insert(run.words.end(), arguments.begin(), arguments.end());
    return test::runProgram(run);
}

TEST(WebServiceCaller, ExitStatusesAreEightBits)
{
    EXPECT_EQ(runTool({}).status, 255);
    EXPECT_EQ(runTool({"a", "b"}).status, 255);
    EXPECT_EQ(runTool({"--nursery", "3"}).status, 255); // without what a nursery is given
    EXPECT_EQ(runTool({"***"}).status, 254);
    EXPECT_EQ(runTool({Base64::base64EncodingWithLineLength(archive(Array{}).value(), 0)}).status,
              253);
}

TEST(WebServiceCaller, ItsManualPageHasEveryExitStatus)
{
    const std::string page =
        platform::readFile(test::sourceFile("docs/man/WebServiceCaller.1")).value_or("");
    std::set<int> told;
    const std::regex row("\n(\\d+)\\|");
    for (std::sregex_iterator found(page.begin(), page.end(), row), end; found != end; ++found)
        told.insert(std::stoi((*found)[1]));
    std::set<int> known;
    for (const CallStatus status :
         {CallStatus::done, CallStatus::wrongArgumentCount, CallStatus::argumentUndecodable,
          CallStatus::requestNoDictionary, CallStatus::noResult, CallStatus::archiveEmpty,
          CallStatus::outputIncomplete})
        known.insert(static_cast<int>(status) & 0xff);
    EXPECT_EQ(told, known);
}

TEST(WebServiceCaller, WritesNothingOnFailureAndNothingOnStandardErrorEver)
{
    for (const auto& arguments :
         {std::vector<std::string>{}, std::vector<std::string>{"***"},
          std::vector<std::string>{Base64::base64EncodingWithLineLength("garbage", 0)}}) {
        const auto result = runTool(arguments);
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.errors, "");
    }
    const auto argument = encodedRequest(authenticateRequest("http://127.0.0.1:1/").dictionary());
    const auto result = runTool({*argument});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "");
    EXPECT_TRUE(unarchive(result.output));
}

TEST(WebServiceCaller, StaysUntilItIsReleased)
{
    const auto argument =
        encodedRequest(authenticateRequest("http://127.0.0.1:1/").dictionary()).value();
    test::BackgroundProgram closing({{test::builtProgram("WebServiceCaller"), argument}});
    while (closing.readLine()) { // to the end of its output
    }
    EXPECT_TRUE(closing.isRunning());
    closing.closeInput();
    EXPECT_EQ(closing.wait().status, 0);
}

TEST(WebServiceCaller, AnAnswerThatNeedsTooMuchMemoryIsAFaultThatNamesTheLimit)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "A sanitizer takes more address space than the limit leaves.";
#endif
    const RawServer server(test::soapAnswer("<a>" + std::string(60'000'000, 'x') + "</a>"));
    const auto argument = encodedRequest(authenticateRequest(server.url()).dictionary());
    const auto result = test::runProgram({{"/bin/sh", "-c", "ulimit -v 250000; exec \"$0\" \"$1\"",
                                           test::builtProgram("WebServiceCaller"), *argument}});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "");
    const auto root = unarchive(result.output);
    ASSERT_TRUE(root && root->dictionary());
    EXPECT_EQ(platform::findText(*root->dictionary(), "kWSFaultString"),
              "The answer needs more memory than the helper may take (1 GiB).");
}

TEST(WebServiceCaller, AShortReadReleasesItToo)
{
    const auto argument =
        encodedRequest(authenticateRequest("http://127.0.0.1:1/").dictionary()).value();
    test::BackgroundProgram closing({{test::builtProgram("WebServiceCaller"), argument}});
    while (closing.readLine()) { // to the end of its output
    }
    closing.writeInput("ab"); // and no end
    EXPECT_EQ(closing.wait().status, 0);
}

TEST(WebServiceCaller, LinksNeitherGlibNorIcu)
{
    const auto result =
        test::runProgram({{"/usr/bin/readelf", "-d", test::builtProgram("WebServiceCaller")}});
    ASSERT_EQ(result.status, 0);
    for (const char* library : {"libglib", "libgio", "libicu", "libsqlite", "libisal", "libmount"})
        EXPECT_EQ(result.output.find(library), std::string::npos) << library;
    EXPECT_NE(result.output.find("libcurl"), std::string::npos);
}

TEST(WebServiceCaller, SaysOfWhichBuildItIs)
{
    EXPECT_EQ(platform::buildIdentityOfProgram(test::builtProgram("WebServiceCaller")),
              platform::buildIdentity());
}

TEST(WebServiceCaller, GivesASilentServerSixtySeconds)
{
    if (!std::getenv("STOWLINE_LONG_TESTS"))
        GTEST_SKIP() << "Takes a minute; scripts/test --long runs it.";
    const RawServer silent(
        [](const std::string&, const RawConnection& connection) { connection.holdUntilClosed(); });
    const auto argument = encodedRequest(authenticateRequest(silent.url()).dictionary());
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(runTool({*argument}).status, 252);
    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_GE(took, 60s);
    EXPECT_LT(took, 63s);
}

} // namespace
} // namespace stowline::tool
