#include "stowline/platform/text/Text.h"
#include "stowline/service/WebServiceBroker.h"
#include "tests/support/DevServerProcess.h"
#include "tests/support/SoapAnswers.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <regex>

namespace stowline {
namespace {

using test::methodEntry;
using test::RawServer;
using test::settingsWith;

const std::vector<std::string> kFolder{"USERNAME",      "PASSWORD",   "SERVERNAME",
                                       "SYSTEMNAME",    "PATH",       "SORTFIELD",
                                       "SORTDIRECTION", "STARTINDEX", "PAGESIZE"};

std::optional<Array> listFolder(ErrorSlot error, std::int64_t* total = nullptr,
                                bool ascending = true,
                                std::optional<std::string_view> system = "iMac")
{
    return WebServiceBroker::getAccountFilesAndFoldersForUserName(
        "ann", "pw", "server1", system, "/home", "Name", ascending, 0, 50, total, error);
}

std::string listing(const std::string& name)
{
    return test::httpAnswer(test::wireBody(name));
}

TEST(FilesAndFolders, ListsOfManyOneAndNoneAreAlwaysArrays)
{
    test::SharedText capture("list-many.response.http");
    const RawServer server([&capture](const std::string&, const test::RawConnection& connection) {
        connection.send(listing(capture.get()));
    });
    const test::TestBundle bundle(
        settingsWith("GetAccountFilesAndFolders", methodEntry(server.url(), kFolder)));
    std::optional<Error> error = platform::makeError("stale", 1, "stale");
    std::int64_t total = -1;
    const auto many = listFolder(&error, &total);
    ASSERT_TRUE(many);
    EXPECT_FALSE(error); // always written
    EXPECT_EQ(many->size(), 2U);
    EXPECT_EQ(platform::valueAtKeyPath(many->at(1), "Name"), Value("Grüße.txt"));
    EXPECT_EQ(platform::valueAtKeyPath(many->at(1), "Size"), Value("5368709120"));
    EXPECT_EQ(total, 2);
    capture = "list-one.response.http";
    const auto one = listFolder(&error, &total);
    ASSERT_EQ(one.value().size(), 1U);
    EXPECT_EQ(platform::valueAtKeyPath(one->at(0), "Name"), Value("Letters & notes"));
    capture = "list-none.response.http";
    EXPECT_EQ(listFolder(&error, nullptr), Array());
    EXPECT_EQ(listFolder(&error, &total), Array());
    EXPECT_EQ(total, 0);
}

TEST(FilesAndFolders, SendsEveryParameter)
{
    const RawServer server(listing("list-none.response.http"));
    const test::TestBundle bundle(
        settingsWith("GetAccountFilesAndFolders", methodEntry(server.url(), kFolder)));
    (void)listFolder(nullptr);
    (void)listFolder(nullptr, nullptr, false, std::nullopt);
    const std::string start = "<USERNAME>ann</USERNAME><PASSWORD>pw</PASSWORD>"
                              "<SERVERNAME>server1</SERVERNAME>";
    EXPECT_EQ(test::parametersIn(server.requests().at(0)),
              start + "<SYSTEMNAME>iMac</SYSTEMNAME><PATH>/home</PATH><SORTFIELD>Name</SORTFIELD>"
                      "<SORTDIRECTION>Ascending</SORTDIRECTION><STARTINDEX>0</STARTINDEX>"
                      "<PAGESIZE>50</PAGESIZE>");
    EXPECT_EQ(test::parametersIn(server.requests().at(1)),
              start + "<SYSTEMNAME xsi:nil=\"true\" /><PATH>/home</PATH><SORTFIELD>Name</SORTFIELD>"
                      "<SORTDIRECTION>Descending</SORTDIRECTION><STARTINDEX>0</STARTINDEX>"
                      "<PAGESIZE>50</PAGESIZE>");
}

TEST(FilesAndFolders, TotalsThatAreNoNumbersChangeNothing)
{
    test::SharedText text("none");
    const RawServer server([&text](const std::string&, const test::RawConnection& connection) {
        connection.send(test::soapAnswer("<GetAccountFilesAndFoldersResult><Code>SUCCESS</Code>"
                                         "</GetAccountFilesAndFoldersResult><totalCount>" +
                                         text.get() + "</totalCount>"));
    });
    const test::TestBundle bundle(
        settingsWith("GetAccountFilesAndFolders", methodEntry(server.url(), kFolder)));
    std::int64_t total = 7;
    for (const char* noNumber : {"none", "", "-", " x1"}) {
        text = noNumber;
        EXPECT_TRUE(listFolder(nullptr, &total));
        EXPECT_EQ(total, 7) << noNumber;
    }
    text = " 9223372036854775807 files";
    EXPECT_TRUE(listFolder(nullptr, &total));
    EXPECT_EQ(total, 9223372036854775807);
}

TEST(FilesAndFolders, RefusalsAreWordsOfTheCode)
{
    const RawServer server(test::soapAnswer("<GetAccountFilesAndFoldersResult><Code>NoSuchFolder"
                                            "</Code></GetAccountFilesAndFoldersResult>"));
    const test::TestBundle bundle(
        settingsWith("GetAccountFilesAndFolders", methodEntry(server.url(), kFolder)));
    std::optional<Error> error;
    EXPECT_FALSE(listFolder(&error));
    EXPECT_EQ(error->domain, "com.Stowline.Application");
    EXPECT_EQ(error->code, 250);
    EXPECT_EQ(error->localizedDescription(), "No such folder");
    EXPECT_EQ(error->kind, FailureKind::refusedByService);
    EXPECT_EQ(platform::findText(error->userInfo, platform::kServiceCodeKey), "NoSuchFolder");
    EXPECT_FALSE(listFolder(nullptr));
}

TEST(FilesAndFolders, WithoutACodeThereIsNeitherResultNorError)
{
    const RawServer server(test::soapAnswer("<totalCount>3</totalCount>"));
    const test::TestBundle bundle(
        settingsWith("GetAccountFilesAndFolders", methodEntry(server.url(), kFolder)));
    std::optional<Error> error = platform::makeError("stale", 1, "stale");
    std::int64_t total = -1;
    EXPECT_FALSE(listFolder(&error, &total));
    EXPECT_FALSE(error);
    EXPECT_EQ(total, -1);
}

TEST(FilesAndFolders, TheCallsErrorComesBack)
{
    const RawServer server(test::httpAnswer(test::wireBody("fault.response.http"), 500));
    const test::TestBundle bundle(
        settingsWith("GetAccountFilesAndFolders", methodEntry(server.url(), kFolder)));
    std::optional<Error> error;
    EXPECT_FALSE(listFolder(&error));
    EXPECT_EQ(error->code, 200);
}

TEST(Systems, OneNameIsAnArrayOfOne)
{
    test::SharedText systems;
    const RawServer server([&systems](const std::string&, const test::RawConnection& connection) {
        connection.send(test::soapAnswer("<GetAccountSystemsResult><Code>Success</Code>"
                                         "</GetAccountSystemsResult>" +
                                         systems.get()));
    });
    const test::TestBundle bundle(settingsWith(
        "GetAccountSystems", methodEntry(server.url(), {"USERNAME", "PASSWORD", "SERVERNAME"})));
    const auto list = [] {
        return WebServiceBroker::getAccountSystemsForUsername("ann", "pw", "s", nullptr);
    };
    EXPECT_EQ(list(), Array());
    systems = "<systems/>";
    EXPECT_EQ(list(), Array());
    systems = "<systems><SystemInfo><SystemName>iMac</SystemName></SystemInfo></systems>";
    EXPECT_EQ(list(), Array{"iMac"});
    systems = "<systems><SystemInfo><SystemName>a</SystemName></SystemInfo>"
              "<SystemInfo><SystemName>b</SystemName></SystemInfo></systems>";
    EXPECT_EQ(list(), (Array{"a", "b"}));
}

TEST(Systems, AMapIsNoName)
{
    const RawServer server(
        test::soapAnswer("<GetAccountSystemsResult><Code>Success</Code></GetAccountSystemsResult>"
                         "<systems><SystemInfo><SystemName><x>1</x></SystemName></SystemInfo>"
                         "</systems>"));
    const test::TestBundle bundle(
        settingsWith("GetAccountSystems", methodEntry(server.url(), {"USERNAME"})));
    EXPECT_EQ(WebServiceBroker::getAccountSystemsForUsername("ann", "pw", "s", nullptr), Array());
}

TEST(Versions, ATextIsNoMap)
{
    const RawServer server(
        test::soapAnswer("<GetFileVersionsResult><Code>Success</Code></GetFileVersionsResult>"
                         "<fileVersions><FileVersion>x</FileVersion></fileVersions>"));
    const test::TestBundle bundle(
        settingsWith("GetFileVersions", methodEntry(server.url(), {"FILEID"})));
    EXPECT_EQ(WebServiceBroker::getFileVersionsForUsername("ann", "pw", "s", 1, nullptr), Array());
}

TEST(Versions, SendsTheNumberAndListsMaps)
{
    const RawServer server(test::soapAnswer(
        "<GetFileVersionsResult><Code>success</Code></GetFileVersionsResult><fileVersions>"
        "<FileVersion><VersionID>1</VersionID></FileVersion></fileVersions>"));
    const test::TestBundle bundle(
        settingsWith("GetFileVersions",
                     methodEntry(server.url(), {"USERNAME", "PASSWORD", "SERVERNAME", "FILEID"})));
    const auto versions = WebServiceBroker::getFileVersionsForUsername(
        "ann", "pw", "s", -9223372036854775807 - 1, nullptr);
    EXPECT_EQ(versions, Array{Dictionary({{"VersionID", "1"}})});
    EXPECT_TRUE(test::parametersIn(server.requests().at(0))
                    .ends_with("<FILEID>-9223372036854775808</FILEID>"));
}

TEST(Search, AbsentPlaceIsEverywhere)
{
    const RawServer server(
        test::soapAnswer("<SearchFilesExResult><Code>Success</Code></SearchFilesExResult>"
                         "<items><FileInfo><Name>n</Name></FileInfo></items>"
                         "<totalCount>12</totalCount>"));
    const test::TestBundle bundle(settingsWith(
        "SearchFilesEx",
        methodEntry(server.url(), {"USERNAME", "PASSWORD", "SERVERNAME", "SYSTEMNAME", "PATH",
                                   "SEARCHINSUBFOLDERS", "FILENAME", "FILETYPE", "FILEEXTENSIONS",
                                   "SORTFIELD", "SORTDIRECTION", "STARTINDEX", "PAGESIZE"})));
    std::int64_t total = 0;
    const auto found = WebServiceBroker::searchFilesForUsername(
        "ann", "pw", "s", std::nullopt, std::nullopt, "let*", 0, 50, &total, nullptr);
    EXPECT_EQ(found.value().size(), 1U);
    EXPECT_EQ(total, 12);
    EXPECT_EQ(test::parametersIn(server.requests().at(0)),
              "<USERNAME>ann</USERNAME><PASSWORD>pw</PASSWORD><SERVERNAME>s</SERVERNAME>"
              "<SYSTEMNAME></SYSTEMNAME><PATH></PATH><SEARCHINSUBFOLDERS>1</SEARCHINSUBFOLDERS>"
              "<FILENAME>let*</FILENAME><FILETYPE></FILETYPE><FILEEXTENSIONS></FILEEXTENSIONS>"
              "<SORTFIELD>Name</SORTFIELD><SORTDIRECTION>Ascending</SORTDIRECTION>"
              "<STARTINDEX>0</STARTINDEX><PAGESIZE>50</PAGESIZE>");
    (void)WebServiceBroker::searchFilesForUsername("ann", "pw", "s", "iMac", "/home", std::nullopt,
                                                   0, 50, nullptr, nullptr);
    EXPECT_NE(test::parametersIn(server.requests().at(1))
                  .find("<SYSTEMNAME>iMac</SYSTEMNAME><PATH>/home</PATH>"
                        "<SEARCHINSUBFOLDERS>1</SEARCHINSUBFOLDERS>"
                        "<FILENAME xsi:nil=\"true\" />"),
              std::string::npos);
}

TEST(Recovery, TellsTheLocalTimeAndNeverWritesTheError)
{
    ::setenv("TZ", "Asia/Kolkata", 1);
    ::tzset();
    const RawServer server(test::soapAnswer("<a>1</a>"));
    const RawServer faulty(test::httpAnswer(test::wireBody("fault.response.http"), 500));
    const test::TestBundle bundle(settingsWith(
        "getMetaDataAboutFilesToRecover",
        methodEntry("http://%@/", {"STRARRINP", "TIMEOFRECOVERY", "UNAME", "ERRORMESSAGE"})));
    const auto ask = [](const RawServer& asked, ErrorSlot error) {
        return WebServiceBroker::getMetaDataAboutFilesToRecoverForFileVersion(
            "17,18", "ann", "127.0.0.1:" + std::to_string(asked.port()), "none", error);
    };
    const std::time_t before = std::time(nullptr);
    EXPECT_EQ(platform::valueAtKeyPath(ask(server, nullptr).value(), "a"), Value("1"));
    const std::string sent = test::parametersIn(server.requests().at(0));
    std::smatch match;
    ASSERT_TRUE(std::regex_match(sent, match,
                                 std::regex("<STRARRINP>17,18</STRARRINP><TIMEOFRECOVERY>(\\d\\d/"
                                            "\\d\\d/\\d{4} \\d\\d:\\d\\d:\\d\\d)</TIMEOFRECOVERY>"
                                            "<UNAME>ann</UNAME><ERRORMESSAGE>none</ERRORMESSAGE>")))
        << sent;
    std::tm shown{};
    ASSERT_NE(::strptime(match[1].str().c_str(), "%m/%d/%Y %H:%M:%S", &shown), nullptr);
    EXPECT_NEAR(static_cast<double>(::timegm(&shown) - (5 * 60 + 30) * 60),
                static_cast<double>(before), 60);

    std::optional<Error> error;
    EXPECT_FALSE(ask(faulty, &error));
    EXPECT_FALSE(error);
}

TEST(DeleteVersions, IsTheTruthOfTheAnswer)
{
    test::SharedText text;
    const RawServer server([&text](const std::string&, const test::RawConnection& connection) {
        connection.send(test::soapAnswer(text.get()));
    });
    const test::TestBundle bundle(
        settingsWith("DeleteFilesInBulk", methodEntry("http://%@/", {"UNAME", "FILELISTID"}, "r")));
    const auto isDeleted = [&](const char* answer) {
        text = answer;
        return WebServiceBroker::deleteFileVersionWithFileListID(
            "L1", "ann", "127.0.0.1:" + std::to_string(server.port()));
    };
    EXPECT_TRUE(isDeleted("<r>True</r>"));
    EXPECT_TRUE(isDeleted("<r>YES</r>"));
    EXPECT_TRUE(isDeleted("<r>1</r>"));
    EXPECT_FALSE(isDeleted("<r>false</r>"));
    EXPECT_FALSE(isDeleted("<x/>"));
    EXPECT_FALSE(isDeleted("<r><a>true</a></r>"));
    EXPECT_EQ(test::parametersIn(server.requests().at(0)),
              "<UNAME>ann</UNAME><FILELISTID>L1</FILELISTID>");
}

} // namespace
} // namespace stowline
