#include "stowline/logging/CountingLogger.h"
#include "stowline/logging/DDLog.h"
#include "stowline/platform/desktop/OperatingSystem.h"
#include "stowline/service/FailureWatch.h"
#include "stowline/service/WebServiceBroker.h"
#include "stowline/util/General.h"
#include "tests/support/SoapAnswers.h"

#include <gtest/gtest.h>

namespace stowline {
namespace {

using test::methodEntry;
using test::RawServer;
using test::settingsWith;

std::string hostOf(const RawServer& server)
{
    return "127.0.0.1:" + std::to_string(server.port());
}

TEST(UsedSpace, ReadsTheNumberTheAnswerStartsWith)
{
    test::SharedText text("1234567890123");
    const RawServer server([&text](const std::string&, const test::RawConnection& connection) {
        connection.send(test::soapAnswer("<r>" + text.get() + "</r>"));
    });
    const test::TestBundle bundle(settingsWith(
        "GetAccountUsedSpace", methodEntry(server.url(), {"USERNAME", "PASSWORD"}, "r")));
    EXPECT_EQ(WebServiceBroker::usedSpaceInKbForAccount("ann", "pw"), 1234567890123);
    text = " -12 KB";
    EXPECT_EQ(WebServiceBroker::usedSpaceInKbForAccount("ann", "pw"), -12);
    text = "unknown";
    EXPECT_EQ(WebServiceBroker::usedSpaceInKbForAccount("ann", "pw"), 0);
    EXPECT_EQ(test::parametersIn(server.requests().at(0)),
              "<USERNAME>ann</USERNAME><PASSWORD>pw</PASSWORD>");
}

TEST(UsedSpace, IsAbsentWithoutAnAnswer)
{
    const RawServer server(test::soapAnswer("<other/>"));
    const test::TestBundle bundle(
        settingsWith("GetAccountUsedSpace", methodEntry(server.url(), {}, "r")));
    EXPECT_EQ(WebServiceBroker::usedSpaceInKbForAccount("ann", "pw"), std::nullopt);
}

TEST(AccountInfo, TellsWhoAsksAndReturnsTheAnswerUnread)
{
    const RawServer server(test::soapAnswer("<r><a>1</a><b>2</b></r>"));
    const test::TestBundle bundle(
        settingsWith("GetAccountInfo",
                     methodEntry(server.url(),
                                 {"USERNAME", "PASSWORD", "INSTALLATIONID", "OSBITS", "SYSTEMNAME",
                                  "PRODUCTNAME", "PRODUCTVERSION", "OSVERSION"},
                                 "r")),
        {{"CFBundleName", "Backup & More"}});
    EXPECT_EQ(WebServiceBroker::getAccountInfoForUsername2("ann", "pw"),
              Value(Dictionary{{"a", "1"}, {"b", "2"}}));
    EXPECT_EQ(test::parametersIn(server.requests().at(0)),
              "<USERNAME>ann</USERNAME><PASSWORD>pw</PASSWORD><INSTALLATIONID>" +
                  General::hardwareId().value() +
                  "</INSTALLATIONID><OSBITS>x64</OSBITS><SYSTEMNAME>" + General::localHostName() +
                  "</SYSTEMNAME><PRODUCTNAME>Backup &amp; More</PRODUCTNAME>"
                  "<PRODUCTVERSION>5.2.1</PRODUCTVERSION><OSVERSION>" +
                  platform::operatingSystemVersion() + "</OSVERSION>");
}

TEST(OperatingSystemVersion, ComesFromTheSystemsOwnFile)
{
    const test::TemporaryFolder root;
    EXPECT_EQ(platform::operatingSystemVersion(root.path()), "");
    root.write("etc/os-release", "NAME=\"X\"\nVERSION_ID=\"12.4\"\n");
    EXPECT_EQ(platform::operatingSystemVersion(root.path()), "12.4");
    root.write("etc/os-release", "VERSION_ID=39\n");
    EXPECT_EQ(platform::operatingSystemVersion(root.path()), "39");
    root.write("System/Library/CoreServices/SystemVersion.plist",
               platform::writeXmlPropertyList(Dictionary{{"ProductVersion", "10.9.5"}}).value());
    EXPECT_EQ(platform::operatingSystemVersion(root.path()), "10.9.5");
}

TEST(UploadPath, NeedsAllItsArgumentsButNotTheirContent)
{
    const RawServer server(test::soapAnswer("<r>/vol1/ann/</r>"));
    const test::TestBundle bundle(
        settingsWith("GetPhyPath", methodEntry("http://%@/", {"USERNAME", "STRREGISTRYID"}, "r")));
    const auto call = WebServiceBroker::getUploadServerPathForUsername;
    const FailureWatch watch;
    EXPECT_FALSE(call(std::nullopt, hostOf(server), "g"));
    EXPECT_FALSE(call("ann", std::nullopt, "g"));
    EXPECT_FALSE(call("ann", hostOf(server), std::nullopt));
    EXPECT_FALSE(watch.failure()); // nothing was tried
    EXPECT_TRUE(server.requests().empty());
    EXPECT_EQ(call("ann", hostOf(server), ""), "/vol1/ann/");
    EXPECT_EQ(test::parametersIn(server.requests().at(0)),
              "<USERNAME>ann</USERNAME><STRREGISTRYID></STRREGISTRYID>");
}

TEST(UploadPath, AnEmptyAnswerIsNone)
{
    const RawServer server(test::soapAnswer("<r></r>"));
    const test::TestBundle bundle(settingsWith("GetPhyPath", methodEntry("http://%@/", {}, "r")));
    EXPECT_FALSE(WebServiceBroker::getUploadServerPathForUsername("ann", hostOf(server), "g"));
}

TEST(EncryptionKey, ComesBackAndStaysOutOfTheLog)
{
    const RawServer server(test::soapAnswer("<r>key-4711</r>"));
    const test::TestBundle bundle(
        settingsWith("getenckey", methodEntry("http://%@/", {"USERNAME", "PASSWORD"}, "r")));
    const auto logger = std::make_shared<CountingLogger>();
    DDLog::addLogger(logger);
    EXPECT_EQ(WebServiceBroker::getEncKeyForUserName("ann", "pw", hostOf(server)), "key-4711");
    DDLog::flushLog();
    for (const auto& line : logger->lines())
        EXPECT_EQ(line.text.find("4711"), std::string::npos) << line.text;
    const RawServer empty(test::soapAnswer("<r/>"));
    EXPECT_FALSE(WebServiceBroker::getEncKeyForUserName("ann", "pw", hostOf(empty)));
}

bool prepare(const std::string& server, ErrorSlot error)
{
    return WebServiceBroker::preparePackagedFilesForProtectionForUserName(
        "ann", "pw", server, "/a/Photos.photoslibrary", std::uint64_t{18446744073709551615U},
        error);
}

Dictionary packageSettings()
{
    return settingsWith("PreparePackagedFilesForProtection",
                        methodEntry("http://%@/",
                                    {"USERNAME", "PASSWORD", "PACKAGEPATH", "PACKAGEBYTECOUNT"},
                                    "r"));
}

TEST(PreparePackage, SuccessInAnyCase)
{
    const RawServer server(test::soapAnswer("<r>SucceSS</r>"));
    const test::TestBundle bundle(packageSettings());
    const auto logger = std::make_shared<CountingLogger>();
    DDLog::addLogger(logger);
    std::optional<Error> error;
    EXPECT_TRUE(prepare(hostOf(server), &error));
    EXPECT_FALSE(error);
    EXPECT_EQ(test::parametersIn(server.requests().at(0)),
              "<USERNAME>ann</USERNAME><PASSWORD>pw</PASSWORD>"
              "<PACKAGEPATH>/a/Photos.photoslibrary</PACKAGEPATH>"
              "<PACKAGEBYTECOUNT>18446744073709551615</PACKAGEBYTECOUNT>");
    DDLog::flushLog();
    EXPECT_TRUE(
        logger->hasLine("WebMethod PreparePackagedFilesForProtection returned SucceSS result"));
}

TEST(PreparePackage, ARefusalSaysWhatCameBack)
{
    const RawServer server(test::soapAnswer("<r>TooLarge</r>"));
    const RawServer nothing(test::soapAnswer("<x/>"));
    const test::TestBundle bundle(packageSettings());
    std::optional<Error> error;
    EXPECT_FALSE(prepare(hostOf(server), &error));
    EXPECT_EQ(error->code, 250);
    EXPECT_EQ(error->kind, FailureKind::refusedByService);
    EXPECT_EQ(error->localizedDescription(),
              "WebMethod PreparePackagedFilesForProtection returned TooLarge result");
    std::optional<Error> second;
    EXPECT_FALSE(prepare(hostOf(nothing), &second));
    EXPECT_EQ(second->localizedDescription(),
              "WebMethod PreparePackagedFilesForProtection returned (null) result");
    EXPECT_FALSE(prepare(hostOf(server), nullptr));
}

TEST(PreparePackage, AnErrorOfEarlierIsNotTakenForTheCalls)
{
    const RawServer server(test::soapAnswer("<r>TooLarge</r>"));
    const test::TestBundle bundle(packageSettings());
    std::optional<Error> error = platform::makeError("stale", 1, "stale");
    EXPECT_FALSE(prepare(hostOf(server), &error));
    EXPECT_EQ(error->code, 250);
}

TEST(PreparePackage, TheCallsOwnErrorWins)
{
    const test::TestBundle bundle(packageSettings());
    std::optional<Error> error;
    EXPECT_FALSE(prepare("127.0.0.1:" + std::to_string(test::closedPort()), &error));
    EXPECT_EQ(error->code, 200);
}

} // namespace
} // namespace stowline
