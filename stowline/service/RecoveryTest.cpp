#include "stowline/logging/CountingLogger.h"
#include "stowline/logging/DDLog.h"
#include "stowline/platform/desktop/Bundle.h"
#include "stowline/platform/text/Text.h"
#include "stowline/service/WebServiceBroker.h"
#include "tests/support/DevServerProcess.h"
#include "tests/support/SoapAnswers.h"

#include <gtest/gtest.h>

namespace stowline {
namespace {

using test::named;
using test::RawServer;

constexpr const char* kTicket = "tick3t-that-nobody-may-see";

std::string hostOf(const RawServer& server)
{
    return "127.0.0.1:" + std::to_string(server.port());
}

Dictionary restoreSettings()
{
    Dictionary settings = test::settingsWith(
        "GetRestoreTicket", test::methodEntry("http://%@/", {"USERNAME", "PASSWORD"}, "r"));
    settings.emplace(
        "WebRequests",
        Dictionary{{"DownloadFilePart",
                    Dictionary{{"URL", "http://%@/part"},
                               {"requestHeaders", Array{named("X-UserName", "<<BASE64USERNAME>>"),
                                                        named("X-Ticket", "<<TICKET>>"),
                                                        named("X-VersionID", "<<VERSIONID>>"),
                                                        named("X-Offset", "<<OFFSET>>"),
                                                        named("X-Length", "<<LENGTH>>")}},
                               {"responseHeaderNames", Array{"Status", "X-Reason", "X-Checksum",
                                                             "X-VersionSize", "X-Digest"}}}},
                   {"UploadFilePart",
                    Dictionary{{"URL", "http://%@/up"},
                               {"httpMethod", "POST"},
                               {"requestHeaders", Array{named("X-Ticket", "<<TICKET>>")}},
                               {"responseHeaderNames", Array{"Status"}}}}});
    return settings;
}

std::string answer(const std::string& headers, const std::string& body)
{
    return "HTTP/1.1 200 OK\r\n" + headers + "Content-Length: " + std::to_string(body.size()) +
           "\r\n\r\n" + body;
}

FilePart read(const std::string& server, std::uint64_t offset, std::uint64_t length,
              ErrorSlot error = nullptr)
{
    return WebServiceBroker::filePartForUsername("ann", kTicket, "17", offset, length, server,
                                                 error);
}

/// What reading five bytes from the start comes to when this is answered.
FilePartOutcome outcomeOf(const std::string& whole)
{
    const RawServer server(whole);
    return read(hostOf(server), 0, 5).outcome;
}

// The CRC-32 of "hello" is 3610a686.
constexpr const char* kGood = "Status: true\r\nX-Checksum: 3610a686\r\nX-VersionSize: 11\r\n";

TEST(RestoreTicket, IsAskedForWithNameAndPassword)
{
    const RawServer server(test::soapAnswer("<r><Ticket>" + std::string(kTicket) +
                                            "</Ticket><SecondsToLive>3600</SecondsToLive></r>"));
    const test::TestBundle bundle(restoreSettings());
    std::optional<Error> error;
    const auto ticket =
        WebServiceBroker::restoreTicketForUsername("ann", "p&w", hostOf(server), &error);
    EXPECT_FALSE(error);
    ASSERT_TRUE(ticket);
    EXPECT_EQ(ticket->text, kTicket);
    EXPECT_EQ(ticket->secondsToLive, 3600);
    EXPECT_EQ(test::parametersIn(server.requests().at(0)),
              "<USERNAME>ann</USERNAME><PASSWORD>p&amp;w</PASSWORD>");
}

TEST(RestoreTicket, AnAnswerWithoutAUsableTicketIsAnError)
{
    const test::TestBundle bundle(restoreSettings());
    for (const char* content : {"<r>Success</r>", "<r><Ticket>t</Ticket></r>",
                                "<r><Ticket>t</Ticket><SecondsToLive>0</SecondsToLive></r>",
                                "<r><Ticket>t</Ticket><SecondsToLive>soon</SecondsToLive></r>",
                                "<r><Ticket>two words</Ticket><SecondsToLive>9</SecondsToLive></r>",
                                "<r><Ticket></Ticket><SecondsToLive>9</SecondsToLive></r>"}) {
        const RawServer server(test::soapAnswer(content));
        std::optional<Error> error;
        EXPECT_FALSE(WebServiceBroker::restoreTicketForUsername("ann", "p", hostOf(server), &error))
            << content;
        ASSERT_TRUE(error) << content;
        EXPECT_EQ(error->code, kServiceErrorCode);
    }
}

TEST(RestoreTicket, SettingsWithoutRestoringAreToldApart)
{
    Dictionary settings = restoreSettings();
    settings.erase("WebRequests");
    const test::TestBundle bundle(settings);
    EXPECT_FALSE(WebServiceBroker::isRestoringConfigured());
    std::optional<Error> error;
    EXPECT_FALSE(WebServiceBroker::restoreTicketForUsername("ann", "p", "127.0.0.1:1", &error));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->localizedDescription(), kRestoringNotConfiguredMessage);
    error.reset();
    EXPECT_EQ(read("127.0.0.1:1", 0, 1, &error).outcome, FilePartOutcome::notConfigured);
    EXPECT_TRUE(error);
}

TEST(FilePart, IsAskedForByVersionAndPlace)
{
    const RawServer server(answer(std::string(kGood) + "X-Digest: abc\r\n", "hello"));
    const test::TestBundle bundle(restoreSettings());
    EXPECT_TRUE(WebServiceBroker::isRestoringConfigured());
    std::optional<Error> error = platform::makeError("stale", 1, "stale");
    const FilePart part = read(hostOf(server), 0, 5, &error);
    EXPECT_FALSE(error);
    EXPECT_EQ(part.outcome, FilePartOutcome::read);
    EXPECT_EQ(platform::textFromData(part.bytes), "hello");
    EXPECT_EQ(part.checksum, 0x3610a686U);
    EXPECT_EQ(part.versionSize, 11U);
    EXPECT_EQ(part.versionDigest, "abc");
    const std::string request = server.requests().at(0);
    EXPECT_TRUE(request.starts_with("GET /part HTTP/1.1\r\n"));
    EXPECT_NE(request.find("X-UserName: YW5u\r\nX-Ticket: " + std::string(kTicket) +
                           "\r\nX-VersionID: 17\r\nX-Offset: 0\r\nX-Length: 5\r\n"),
              std::string::npos)
        << request;
}

TEST(FilePart, AShortOneIsGoodAtTheVersionsEndOnly)
{
    const RawServer server(answer(kGood, "hello")); // five bytes of a version of eleven
    const test::TestBundle bundle(restoreSettings());
    EXPECT_EQ(read(hostOf(server), 6, 100).outcome, FilePartOutcome::read);
    EXPECT_EQ(read(hostOf(server), 5, 100).outcome, FilePartOutcome::garbled);
    EXPECT_EQ(read(hostOf(server), 7, 5).outcome, FilePartOutcome::garbled);
    EXPECT_EQ(read(hostOf(server), 0, 6).outcome, FilePartOutcome::garbled);
    EXPECT_EQ(read(hostOf(server), 12, 5).outcome, FilePartOutcome::garbled);
    EXPECT_EQ(read(hostOf(server), ~std::uint64_t{0}, 5).outcome, FilePartOutcome::garbled);
}

TEST(FilePart, BytesThatAreNotTheirChecksumsAreNotHandedOut)
{
    const test::TestBundle bundle(restoreSettings());
    const RawServer server(answer(kGood, "hellO"));
    const FilePart part = read(hostOf(server), 0, 5);
    EXPECT_EQ(part.outcome, FilePartOutcome::garbled);
    EXPECT_TRUE(part.bytes.empty());
    for (const char* headers : {"Status: true\r\n", "Status: true\r\nX-VersionSize: 11\r\n",
                                "Status: true\r\nX-Checksum: 3610a686\r\n",
                                "Status: true\r\nX-Checksum: 3610a686x\r\nX-VersionSize: 11\r\n",
                                "Status: true\r\nX-Checksum: 3610a686\r\nX-VersionSize: -11\r\n",
                                "Status: true\r\nX-Checksum: 3610a686\r\nX-VersionSize: eleven\r\n",
                                "Status: true\r\nX-Checksum: 13610a686\r\nX-VersionSize: 11\r\n"})
        EXPECT_EQ(outcomeOf(answer(headers, "hello")), FilePartOutcome::garbled) << headers;
}

TEST(FilePart, EveryNoIsToldApart)
{
    const test::TestBundle bundle(restoreSettings());
    const auto refusedFor = [](const std::string& reason) {
        return outcomeOf(answer("Status: false\r\nX-Reason: " + reason + "\r\n", "hello"));
    };
    EXPECT_EQ(refusedFor("TicketRefused"), FilePartOutcome::ticketRefused);
    EXPECT_EQ(refusedFor("NoSuchVersion"), FilePartOutcome::noSuchVersion);
    EXPECT_EQ(refusedFor("ContentMissing"), FilePartOutcome::contentMissing);
    EXPECT_EQ(refusedFor("ContentDamaged"), FilePartOutcome::contentDamaged);
    EXPECT_EQ(refusedFor("OutOfRange"), FilePartOutcome::outOfRange);
    EXPECT_EQ(refusedFor("NotToday"), FilePartOutcome::refused);
    EXPECT_EQ(outcomeOf(answer("Status: false\r\n", "")), FilePartOutcome::refused);
    const RawServer server(answer("Status: false\r\nX-Reason: NotToday\r\n", "hello"));
    std::optional<Error> error;
    const FilePart part = read(hostOf(server), 0, 5, &error);
    EXPECT_EQ(part.reason, "NotToday");
    EXPECT_TRUE(part.bytes.empty());
    EXPECT_FALSE(error);
}

TEST(FilePart, WhatIsNoAnswerToTheQuestionIsAFailureWithAnError)
{
    const test::TestBundle bundle(restoreSettings());
    std::optional<Error> error;
    const RawServer page(test::httpAnswer("<html>Please sign in to this network</html>"));
    EXPECT_EQ(read(hostOf(page), 0, 5, &error).outcome, FilePartOutcome::failed);
    EXPECT_TRUE(error);
    error.reset();
    const std::string nowhere = "127.0.0.1:" + std::to_string(test::closedPort());
    EXPECT_EQ(read(nowhere, 0, 5, &error).outcome, FilePartOutcome::failed);
    EXPECT_TRUE(error);
}

TEST(FilePart, TheTicketFollowsNoRedirectToAnotherServer)
{
    const RawServer other(answer(kGood, "hello"));
    const test::TestBundle bundle(restoreSettings());
    for (const char* status : {"301", "302", "303", "307", "308"}) {
        const RawServer server("HTTP/1.1 " + std::string(status) + " Moved\r\nLocation: " +
                               other.url("/part") + "\r\nContent-Length: 0\r\n\r\n");
        std::optional<Error> error;
        EXPECT_EQ(read(hostOf(server), 0, 5, &error).outcome, FilePartOutcome::failed) << status;
        EXPECT_TRUE(error) << status;
        EXPECT_FALSE(WebServiceBroker::uploadForUser("ann", "hello", "f", 5, hostOf(server), "/",
                                                     "g", &error, kTicket))
            << status;
    }
    EXPECT_TRUE(other.requests().empty());
}

TEST(FilePart, RedirectsOfTheSameServerAreFollowed)
{
    const RawServer server([](const std::string& request, const test::RawConnection& connection) {
        connection.send(request.starts_with("GET /moved") ? answer(kGood, "hello")
                                                          : "HTTP/1.1 307 Moved\r\n"
                                                            "Location: /moved\r\n"
                                                            "Content-Length: 0\r\n\r\n");
    });
    const test::TestBundle bundle(restoreSettings());
    EXPECT_EQ(read(hostOf(server), 0, 5).outcome, FilePartOutcome::read);
    EXPECT_NE(server.requests().at(1).find(kTicket), std::string::npos);
}

TEST(FilePart, TheTicketTravelsWithPartsGoingUpWhereItIsGiven)
{
    const RawServer server(answer("Status: true\r\n", ""));
    const test::TestBundle bundle(restoreSettings());
    EXPECT_TRUE(WebServiceBroker::uploadForUser("ann", "hello", "f", 5, hostOf(server), "/", "g",
                                                nullptr, kTicket));
    EXPECT_TRUE(
        WebServiceBroker::uploadForUser("ann", "hello", "f", 5, hostOf(server), "/", "g", nullptr));
    EXPECT_NE(server.requests().at(0).find("X-Ticket: " + std::string(kTicket) + "\r\n"),
              std::string::npos);
    EXPECT_NE(server.requests().at(1).find("X-Ticket:\r\n"), std::string::npos);
}

TEST(FilePart, AServiceThatWantsTicketsTakesNoPartWithoutOne)
{
    const test::DevServerProcess service({"--require-ticket"});
    platform::Bundle::useFolder(service.bundle());
    platform::Bundle::useExecutable(test::builtProgram("stowline"));
    const std::string host = service.address().substr(std::string("http://").size());
    ASSERT_TRUE(
        WebServiceBroker::creatAccountWithFirstname("Ann", "ann", "pw", "ann@b.c", nullptr));
    const auto path = WebServiceBroker::getUploadServerPathForUsername("ann", host, "guid");
    ASSERT_TRUE(path);
    const auto send = [&](std::string_view ticket) {
        std::optional<Error> error;
        const auto answer = WebServiceBroker::uploadForUser("ann", "hello", "f", 5, host, *path,
                                                            "part", &error, ticket);
        EXPECT_FALSE(error) << error->text(); // a "no" of the service is none
        return answer.has_value();
    };
    EXPECT_FALSE(send(""));
    EXPECT_FALSE(send("made-up"));
    const auto ticket = WebServiceBroker::restoreTicketForUsername("ann", "pw", host, nullptr);
    ASSERT_TRUE(ticket);
    EXPECT_TRUE(send(ticket->text));
}

TEST(FilePart, NeitherTicketNorPasswordIsLogged)
{
    const auto logger = std::make_shared<CountingLogger>();
    DDLog::addLogger(logger);
    const RawServer tickets(test::soapAnswer("<r><Ticket>" + std::string(kTicket) +
                                             "</Ticket><SecondsToLive>3600</SecondsToLive></r>"));
    const test::TestBundle bundle(restoreSettings());
    testing::internal::CaptureStderr();
    EXPECT_TRUE(
        WebServiceBroker::restoreTicketForUsername("ann", "pass-w0rd", hostOf(tickets), nullptr));
    for (const std::string& whole :
         {answer(kGood, "hello"), answer(kGood, "other"),
          answer("Status: false\r\nX-Reason: TicketRefused\r\n", ""), std::string("no HTTP")}) {
        const RawServer server(whole);
        (void)read(hostOf(server), 0, 5);
        (void)WebServiceBroker::uploadForUser("ann", "hello", "f", 5, hostOf(server), "/", "g",
                                              nullptr, kTicket);
    }
    (void)WebServiceBroker::filePartForUsername("ann", std::string(kTicket) + "\n", "17", 0, 5,
                                                "127.0.0.1:1", nullptr);
    DDLog::flushLog();
    const std::string errors = testing::internal::GetCapturedStderr();
    EXPECT_EQ(errors.find(kTicket), std::string::npos) << errors;
    EXPECT_FALSE(logger->lines().empty());
    for (const auto& line : logger->lines()) {
        EXPECT_EQ(line.text.find(kTicket), std::string::npos) << line.text;
        EXPECT_EQ(line.text.find("pass-w0rd"), std::string::npos) << line.text;
    }
}

} // namespace
} // namespace stowline
