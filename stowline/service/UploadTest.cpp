#include "stowline/logging/CountingLogger.h"
#include "stowline/logging/DDLog.h"
#include "stowline/platform/text/Text.h"
#include "stowline/service/FailureWatch.h"
#include "stowline/service/WebServiceBroker.h"
#include "tests/support/DevServerProcess.h"
#include "tests/support/SoapAnswers.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <ctime>

namespace stowline {
namespace {

using test::named;
using test::RawServer;

std::string hostOf(const RawServer& server)
{
    return "127.0.0.1:" + std::to_string(server.port());
}

/// Settings with both requests, with headers as the wire capture has them.
Dictionary uploadSettings()
{
    const Array common{named("X-FileName", "<<BASE64FILENAME>>"), named("X-Guid", "<<GUID>>"),
                       named("X-UserName", "<<BASE64USERNAME>>"),
                       named("X-ServerDirPath", "<<BASE64SERVERDIRPATH>>")};
    Array part = common;
    part.push_back(named("X-PortionSize", "<<PORTIONSIZE>>"));
    const Array listed{"Status", "X-ReceivedBytes"};
    return {{"WebRequests",
             Dictionary{{"GetServerPartInfo", Dictionary{{"URL", "http://%@/GetServerPartInfo"},
                                                         {"requestHeaders", common},
                                                         {"responseHeaderNames", listed}}},
                        {"UploadFilePart", Dictionary{{"URL", "http://%@/UploadFilePart"},
                                                      {"httpMethod", "POST"},
                                                      {"requestHeaders", part},
                                                      {"responseHeaderNames", listed}}}}}};
}

constexpr const char* kGuid = "6F9619FF-8B86-D011-B42D-00C04FC964FF";

std::optional<Dictionary> askAbout(const std::string& server, ErrorSlot error)
{
    return WebServiceBroker::getServerFileInfoForClientFilename("/Users/ann/letter.txt", kGuid,
                                                                "ann", "/vol1/ann/", server, error);
}

std::optional<Dictionary> sendPart(const std::string& server, std::uint64_t size, ErrorSlot error)
{
    return WebServiceBroker::uploadForUser("ann", "hello", "/Users/ann/letter.txt", size, server,
                                           "/vol1/ann/", kGuid, error);
}

std::string capture(const std::string& name, const RawServer& server)
{
    std::string text = test::wireCapture(name);
    text = platform::replacingOccurrences(text, "{host}", hostOf(server));
    text = platform::replacingOccurrences(text, "{version}", "5.2.1");
    const auto end = text.find("\n\n");
    return platform::replacingOccurrences(text.substr(0, end + 2), "\n", "\r\n") +
           text.substr(end + 2);
}

std::string answerWithHeaders(const std::string& headers)
{
    return "HTTP/1.1 200 OK\r\n" + headers + "Content-Length: 0\r\n\r\n";
}

TEST(UploadPart, LooksExactlyLikeTheCapture)
{
    std::string answer = test::wireCapture("part.response.http");
    const RawServer server(platform::replacingOccurrences(answer, "\n", "\r\n"));
    const test::TestBundle bundle(uploadSettings());
    std::optional<Error> error = platform::makeError("stale", 1, "stale");
    const auto headers = sendPart(hostOf(server), 5, &error);
    EXPECT_FALSE(error);
    EXPECT_EQ(headers, (Dictionary{{"Status", "true"}, {"X-ReceivedBytes", "5"}}));
    std::string expected = capture("part.request.http", server);
    if (expected.ends_with("\n"))
        expected.pop_back();
    EXPECT_EQ(server.requests().at(0), expected);
}

TEST(UploadPart, PartSizesGoFarBeyondFourGibibytes)
{
    const RawServer server(answerWithHeaders("Status: yes\r\n"));
    const test::TestBundle bundle(uploadSettings());
    for (const std::uint64_t size :
         {std::uint64_t{5242880}, std::uint64_t{1} << 32, ~std::uint64_t{0}})
        EXPECT_TRUE(sendPart(hostOf(server), size, nullptr));
    const auto requests = server.requests();
    EXPECT_NE(requests.at(0).find("X-PortionSize: 5242880\r\n"), std::string::npos);
    EXPECT_NE(requests.at(1).find("X-PortionSize: 4294967296\r\n"), std::string::npos);
    EXPECT_NE(requests.at(2).find("X-PortionSize: 18446744073709551615\r\n"), std::string::npos);
}

TEST(UploadPart, NoIsNoError)
{
    const test::TestBundle bundle(uploadSettings());
    for (const char* headers : {"Status: false\r\n", "Status: 0\r\n", "Status:\r\n", ""}) {
        const RawServer server(answerWithHeaders(headers));
        std::optional<Error> error = platform::makeError("stale", 1, "stale");
        EXPECT_FALSE(sendPart(hostOf(server), 5, &error)) << headers;
        EXPECT_FALSE(error);
    }
}

TEST(UploadPart, ARefusedPartIsToldByWatchAndLog)
{
    const RawServer server(test::httpAnswer("<html>Bad Request</html>", 400));
    const test::TestBundle bundle(uploadSettings());
    const auto logger = std::make_shared<CountingLogger>();
    DDLog::addLogger(logger);
    const FailureWatch watch;
    std::optional<Error> error;
    EXPECT_FALSE(sendPart(hostOf(server), 5, &error));
    EXPECT_FALSE(error);
    EXPECT_EQ(watch.kind(), FailureKind::badRequest);
    EXPECT_NE(watch.failure()->localizedDescription().find("400"), std::string::npos);
    DDLog::flushLog();
    bool isLogged = false;
    for (const auto& line : logger->lines()) {
        isLogged |= line.flag == kLogFlagError &&
                    line.text.starts_with(
                        "Web request named UploadFilePart was answered with: HTTP/1.1 400 ");
        EXPECT_EQ(line.file, "WebServiceBroker");
        EXPECT_TRUE(line.function.ends_with(":error:")) << line.function;
    }
    EXPECT_TRUE(isLogged);
}

TEST(UploadPart, ANoIsToldByTheWatch)
{
    const RawServer server(answerWithHeaders("Status: false\r\n"));
    const test::TestBundle bundle(uploadSettings());
    const FailureWatch watch;
    EXPECT_FALSE(sendPart(hostOf(server), 5, nullptr));
    EXPECT_EQ(watch.kind(), FailureKind::refusedByService);
}

TEST(UploadPart, LogsStatusAndAnswer)
{
    const RawServer server(answerWithHeaders("status: true\r\nx-receivedbytes: 5\r\n"));
    const test::TestBundle bundle(uploadSettings());
    const auto logger = std::make_shared<CountingLogger>();
    DDLog::addLogger(logger);
    (void)sendPart(hostOf(server), 5, nullptr);
    (void)askAbout(hostOf(server), nullptr);
    DDLog::flushLog();
    EXPECT_TRUE(logger->hasLine("\nWebServiceBroker.uploadDataForUser. Status = true"));
    EXPECT_TRUE(
        logger->hasLine("\nWebServiceBroker.getServerFileInfoForclientFilemane. Status = true"));
    EXPECT_TRUE(logger->hasLine("\nresultDictionary = {Status = true; X-ReceivedBytes = 5; }"));
}

TEST(UploadPart, TransportFailuresAreStoredAndLogged)
{
    const test::TestBundle bundle(uploadSettings());
    const auto logger = std::make_shared<CountingLogger>();
    DDLog::addLogger(logger);
    const std::string nowhere = "127.0.0.1:" + std::to_string(test::closedPort());
    std::optional<Error> error;
    EXPECT_FALSE(sendPart(nowhere, 5, &error));
    ASSERT_TRUE(error);
    std::optional<Error> second;
    EXPECT_FALSE(askAbout(nowhere, &second));
    EXPECT_TRUE(second);
    DDLog::flushLog();
    EXPECT_TRUE(logger->hasLine("Web request error: " + error->localizedDescription()));
}

TEST(PartInfo, AnAbsentArgumentSendsNothing)
{
    const RawServer server(answerWithHeaders("Status: true\r\n"));
    const test::TestBundle bundle(uploadSettings());
    const std::string host = hostOf(server);
    for (std::size_t absent = 0; absent < 5; ++absent) {
        std::array<std::optional<std::string_view>, 5> words{"/a", kGuid, "ann", "/vol1/", host};
        words.at(absent).reset();
        std::optional<Error> error = platform::makeError("kept", 1, "kept");
        const FailureWatch watch;
        EXPECT_FALSE(WebServiceBroker::getServerFileInfoForClientFilename(
            words[0], words[1], words[2], words[3], words[4], &error));
        EXPECT_EQ(error->domain, "kept");
        EXPECT_FALSE(watch.failure()) << absent; // nothing was tried
    }
    EXPECT_TRUE(server.requests().empty());
}

TEST(PartInfo, SendsNoBodyAndClearsTheErrorOfANo)
{
    const RawServer server(answerWithHeaders("Status: false\r\n"));
    const test::TestBundle bundle(uploadSettings());
    std::optional<Error> error = platform::makeError("stale", 1, "stale");
    EXPECT_FALSE(askAbout(hostOf(server), &error));
    EXPECT_FALSE(error); // which tells the server's no from a failure
    const std::string request = server.requests().at(0);
    EXPECT_TRUE(request.starts_with("GET /GetServerPartInfo HTTP/1.1\r\n"));
    EXPECT_EQ(request.find("Content-Length"), std::string::npos);
    EXPECT_NE(request.find("X-FileName: L1VzZXJzL2Fubi9sZXR0ZXIudHh0\r\n"), std::string::npos);
}

TEST(PartInfo, NamesOfAnyBytesAndLengthTravelOnOneLine)
{
    const RawServer server(answerWithHeaders("Status: true\r\n"));
    const test::TestBundle bundle(uploadSettings());
    const std::string name = std::string(40000, 'n') + "\r\nX-Evil: 1\xff";
    EXPECT_TRUE(WebServiceBroker::getServerFileInfoForClientFilename(name, "g", "ann", "/",
                                                                     hostOf(server), nullptr));
    EXPECT_EQ(server.requests().at(0).find("X-Evil"), std::string::npos);
}

TEST(PartInfo, ServerNamesArePercentEscaped)
{
    Dictionary settings = uploadSettings();
    const RawServer server(answerWithHeaders("Status: true\r\n"));
    Dictionary& entry =
        *settings["WebRequests"].dictionary()->find("GetServerPartInfo")->second.dictionary();
    entry["URL"] = "http://" + hostOf(server) + "/%@";
    const test::TestBundle bundle(settings);
    EXPECT_TRUE(askAbout("grün 1", nullptr));
    EXPECT_TRUE(server.requests().at(0).starts_with("GET /gr%C3%BCn%201 HTTP"));
}

const std::vector<std::string> kProtectFile{"USERNAME",   "PASSWORD",  "SYSTEMNAME",
                                            "PATH",       "FILENAME",  "UNIQUEID",
                                            "SESSIONKEY", "LOCALTIME", "ORIGINALFILESIZEINBYTES",
                                            "SERVERPATH"};

bool protectFile(const std::string& server, const std::string& directory, ErrorSlot error)
{
    return WebServiceBroker::protectUploadedFileForUser(
        "ann", "p&w", server, "iMac", "Data", directory, "letter.txt", "GUID-1", "KEY-1",
        Date(std::chrono::hours(24 * 365)), 18446744073709551615U, "/vol1/ann/GUID-1", error);
}

TEST(ProtectFile, SendsItsTenParametersOneByOne)
{
    ::setenv("TZ", "UTC", 1);
    ::tzset();
    const RawServer server(test::soapAnswer("<r>anything</r>"));
    const test::TestBundle bundle(
        test::settingsWith("ProtectFile", test::methodEntry("http://%@/", kProtectFile, "r")));
    const auto logger = std::make_shared<CountingLogger>();
    DDLog::addLogger(logger);
    EXPECT_TRUE(protectFile(hostOf(server), "/a/b/", nullptr));
    EXPECT_EQ(test::parametersIn(server.requests().at(0)),
              "<USERNAME>ann</USERNAME><PASSWORD>p&amp;w</PASSWORD><SYSTEMNAME>iMac</SYSTEMNAME>"
              "<PATH>\\\\Data\\a\\b\\</PATH><FILENAME>letter.txt</FILENAME>"
              "<UNIQUEID>GUID-1</UNIQUEID><SESSIONKEY>KEY-1</SESSIONKEY>"
              "<LOCALTIME>1971-01-01T00:00:00.00</LOCALTIME>"
              "<ORIGINALFILESIZEINBYTES>18446744073709551615</ORIGINALFILESIZEINBYTES>"
              "<SERVERPATH>/vol1/ann/GUID-1</SERVERPATH>");
    DDLog::flushLog();
    EXPECT_TRUE(
        logger->hasLine("\nWebServiceBroker.protectUploadedFileForUser. result = anything"));
}

TEST(ProtectFile, AnyResultIsTrueAndNoneIsFalse)
{
    const RawServer refusing(test::soapAnswer("<r>Refused</r>"));
    const RawServer faulty(test::wireBody("fault.response.http").empty()
                               ? ""
                               : test::httpAnswer(test::wireBody("fault.response.http"), 500));
    const test::TestBundle bundle(
        test::settingsWith("ProtectFile", test::methodEntry("http://%@/", kProtectFile, "r")));
    std::optional<Error> error;
    EXPECT_TRUE(protectFile(hostOf(refusing), "/", &error));
    EXPECT_FALSE(error);
    EXPECT_FALSE(protectFile(hostOf(faulty), "/", &error));
    EXPECT_EQ(error->code, 200);
}

const std::vector<std::string> kProtect2{"USERNAME",
                                         "PASSWORD",
                                         "ACTUALFILE_NAME",
                                         "ACTUALFILE_PATH",
                                         "ACTUALFILE_SIZE",
                                         "ENCRYPTEDFILE_NAME",
                                         "ENCRYPTEDFILE_PATH",
                                         "ENCRYPTEDFILE_SIZE",
                                         "CLIENTDATE",
                                         "ISDELTA",
                                         "SYSTEMNAME",
                                         "CACHEFILESIZE",
                                         "UNIQUEKEY",
                                         "IISCOMPRESSED",
                                         "LNGFILESIZEINBYTESFROMCLIENT",
                                         "LNGBASELINEPKFORTHISDELTA"};

bool protect2(const std::string& server)
{
    using namespace std::chrono;
    const Date date = sys_days(year(2014) / 3 / 7) + hours(9) + minutes(5);
    return WebServiceBroker::protect2UploadedFileForUser(
        "ann", "pw", server, "a.txt", "/home/ann", 1, "e.txt", 4294967296, "/vol1/", date, true,
        "iMac", 3, "KEY", false, 18446744073709551615U, -1, nullptr);
}

TEST(Protect2, SendsItsSixteenParametersOneByOne)
{
    ::setenv("TZ", "Asia/Tokyo", 1);
    ::tzset();
    const RawServer server(test::soapAnswer("<r>SUCCESS</r>"));
    const test::TestBundle bundle(
        test::settingsWith("protect2", test::methodEntry("http://%@/", kProtect2, "r")));
    EXPECT_TRUE(protect2(hostOf(server)));
    EXPECT_EQ(
        test::parametersIn(server.requests().at(0)),
        "<USERNAME>ann</USERNAME><PASSWORD>pw</PASSWORD><ACTUALFILE_NAME>a.txt</ACTUALFILE_NAME>"
        "<ACTUALFILE_PATH>/home/ann</ACTUALFILE_PATH><ACTUALFILE_SIZE>1</ACTUALFILE_SIZE>"
        "<ENCRYPTEDFILE_NAME>e.txt</ENCRYPTEDFILE_NAME>"
        "<ENCRYPTEDFILE_PATH>/vol1/</ENCRYPTEDFILE_PATH>"
        "<ENCRYPTEDFILE_SIZE>4294967296</ENCRYPTEDFILE_SIZE>"
        "<CLIENTDATE>2014-03-07 09:05:00</CLIENTDATE><ISDELTA>1</ISDELTA>"
        "<SYSTEMNAME>iMac</SYSTEMNAME><CACHEFILESIZE>3</CACHEFILESIZE><UNIQUEKEY>KEY</UNIQUEKEY>"
        "<IISCOMPRESSED>0</IISCOMPRESSED>"
        "<LNGFILESIZEINBYTESFROMCLIENT>18446744073709551615</LNGFILESIZEINBYTESFROMCLIENT>"
        "<LNGBASELINEPKFORTHISDELTA>-1</LNGBASELINEPKFORTHISDELTA>");
}

TEST(Protect2, OnlySuccessIsTrue)
{
    test::SharedText word("ok");
    const RawServer server([&word](const std::string&, const test::RawConnection& connection) {
        connection.send(test::soapAnswer("<r>" + word.get() + "</r>"));
    });
    const test::TestBundle bundle(
        test::settingsWith("protect2", test::methodEntry("http://%@/", kProtect2, "r")));
    EXPECT_FALSE(protect2(hostOf(server)));
    word = "";
    EXPECT_FALSE(protect2(hostOf(server)));
    word = "Success";
    EXPECT_TRUE(protect2(hostOf(server)));
    EXPECT_FALSE(protect2("127.0.0.1:" + std::to_string(test::closedPort())));
}

TEST(ClientTime, IsUniversalWhateverTheZone)
{
    using namespace std::chrono;
    ::setenv("TZ", "America/New_York", 1);
    ::tzset();
    EXPECT_EQ(WebServiceBroker::clientTimeString(sys_days(year(2015) / 1 / 1)),
              "2015-01-01 00:00:00");
    EXPECT_EQ(WebServiceBroker::clientTimeString(sys_days(year(2014) / 3 / 7) + hours(9) +
                                                 minutes(5) + microseconds(999999)),
              "2014-03-07 09:05:00");
    EXPECT_EQ(WebServiceBroker::clientTimeString(Date(microseconds(-1))), "1969-12-31 23:59:59");
}

TEST(UploadError, NamesPartAnswerAndMoreInThisOrder)
{
    const Error error = WebServiceBroker::formatUploadErrorFromResponseDictionary(
        Dictionary{{"Status", "false"}}, "part 3 of %@", "try %d of %@", 2, "many");
    EXPECT_EQ(error.domain, "com.Stowline.Application");
    EXPECT_EQ(error.code, 250);
    EXPECT_EQ(error.localizedDescription(),
              "Upload error. Client file part: part 3 of %@. Server response dictionary: {Status = "
              "false; }. Additional info: try 2 of many");
    EXPECT_EQ(WebServiceBroker::formatUploadErrorFromResponseDictionary(std::nullopt, "p", "x")
                  .localizedDescription(),
              "Upload error. Client file part: p. Server response dictionary: (null). Additional "
              "info: x");
}

} // namespace
} // namespace stowline
