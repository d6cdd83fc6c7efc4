#include "stowline/service/WebServiceBroker.h"
#include "tests/support/SoapAnswers.h"

#include <gtest/gtest.h>

namespace stowline {
namespace {

using test::RawServer;

std::string hostOf(const RawServer& server)
{
    return "127.0.0.1:" + std::to_string(server.port());
}

Dictionary undeleteSettings()
{
    Dictionary settings = test::settingsWith(
        "GetDeletedFiles", test::methodEntry("http://%@/",
                                             {"USERNAME", "PASSWORD", "SYSTEMNAME", "PATH", "SINCE",
                                              "STARTINDEX", "PAGESIZE"},
                                             "r"));
    const Dictionary other = test::settingsWith(
        "UndeleteFiles",
        test::methodEntry("http://%@/", {"USERNAME", "PASSWORD", "SYSTEMNAME", "PATH", "SINCE"},
                          "r"));
    Dictionary methods = *findDictionary(settings, "WebServices");
    methods.emplace("UndeleteFiles", *find(*findDictionary(other, "WebServices"), "UndeleteFiles"));
    settings.insert_or_assign("WebServices", methods);
    return settings;
}

std::optional<UndeletedFiles> undelete(const RawServer& server, std::optional<Error>& error)
{
    return WebServiceBroker::undeleteFilesForUsername("ann", "p&w", "iMac", "/d", std::nullopt,
                                                      hostOf(server), &error);
}

constexpr const char* kFigures =
    "<TotalCount>12</TotalCount><TotalSize>345</TotalSize><GraceSeconds>604800</GraceSeconds>"
    "<Left>2</Left>";

TEST(Undeletion, AsksForAPageAndReadsIt)
{
    const RawServer server(test::soapAnswer(
        std::string("<r><Code>Success</Code><files><DeletedFile><VersionID>7</VersionID>"
                    "<SystemName>iMac</SystemName><Path>/d</Path><Name>a</Name><Size>5</Size>"
                    "<DeletedAt>2026-01-01 00:00:00</DeletedAt><KeptUntil>2026-01-08 00:00:00"
                    "</KeptUntil></DeletedFile></files>") +
        kFigures + "</r>"));
    const test::TestBundle bundle(undeleteSettings());
    EXPECT_TRUE(WebServiceBroker::isUndeletingConfigured());
    std::optional<Error> error = platform::makeError("stale", 1, "stale");
    const auto page = WebServiceBroker::deletedFilesForUsername("ann", "p&w", "iMac", "/d", 1700,
                                                                10, 50, hostOf(server), &error);
    EXPECT_FALSE(error);
    ASSERT_TRUE(page);
    ASSERT_EQ(page->files.size(), 1U); // one that comes alone is a list of one
    EXPECT_EQ(page->files[0].versionId, "7");
    EXPECT_EQ(page->files[0].folder, "/d");
    EXPECT_EQ(page->files[0].name, "a");
    EXPECT_EQ(page->files[0].size, 5U);
    EXPECT_EQ(page->files[0].deletedAt, "2026-01-01 00:00:00");
    EXPECT_EQ(page->files[0].keptUntil, "2026-01-08 00:00:00");
    EXPECT_EQ(page->totalCount, 12U);
    EXPECT_EQ(page->totalSize, 345U);
    EXPECT_EQ(page->graceSeconds, 604800U);
    EXPECT_EQ(page->left, 2U);
    EXPECT_EQ(test::parametersIn(server.requests().at(0)),
              "<USERNAME>ann</USERNAME><PASSWORD>p&amp;w</PASSWORD><SYSTEMNAME>iMac</SYSTEMNAME>"
              "<PATH>/d</PATH><SINCE>1700</SINCE><STARTINDEX>10</STARTINDEX><PAGESIZE>50"
              "</PAGESIZE>");
}

TEST(Undeletion, SaysWhatCameBackAndWhatRemains)
{
    const RawServer server(
        test::soapAnswer("<r><Code>Success</Code><Undeleted>2000</Undeleted><UndeletedSize>9"
                         "</UndeletedSize><Remaining>3</Remaining><Left>1</Left><Lost>4</"
                         "Lost><Forgetting>5</Forgetting></r>"));
    const test::TestBundle bundle(undeleteSettings());
    std::optional<Error> error = platform::makeError("stale", 1, "stale");
    const auto done = undelete(server, error);
    EXPECT_FALSE(error);
    ASSERT_TRUE(done);
    EXPECT_EQ(done->undeleted, 2000U);
    EXPECT_EQ(done->size, 9U);
    EXPECT_EQ(done->remaining, 3U);
    EXPECT_EQ(done->left, 1U);
    EXPECT_EQ(done->lost, 4U);
    EXPECT_EQ(done->forgetting, 5U);
}

TEST(Undeletion, AnAnswerThatIsNoneIsAnErrorAndARefusalIsToldAsOne)
{
    const test::TestBundle bundle(undeleteSettings());
    const std::string success = "<r><Code>Success</Code>";
    for (const auto& [content, kind] :
         {std::pair<std::string, FailureKind>("<r>x</r>", FailureKind::unreadableAnswer),
          {success + "</r>", FailureKind::unreadableAnswer},
          {success + "<Undeleted>1</Undeleted><UndeletedSize>1</UndeletedSize>"
                     "<Remaining>some</Remaining><Left>0</Left><Lost>0</Lost><Forgetting>0</"
                     "Forgetting></r>",
           FailureKind::unreadableAnswer},
          {success +
               "<Undeleted>-1</Undeleted><UndeletedSize>1</UndeletedSize>"
               "<Remaining>0</Remaining><Left>0</Left><Lost>0</Lost><Forgetting>0</Forgetting></r>",
           FailureKind::unreadableAnswer},
          {success + "<Undeleted>1</Undeleted><UndeletedSize>1</UndeletedSize>"
                     "<Remaining>0</Remaining><Left>0</Left></r>",
           FailureKind::unreadableAnswer},
          {"<r><Code>AccountClosed</Code></r>", FailureKind::refusedByService}}) {
        const RawServer server(test::soapAnswer(content));
        std::optional<Error> error;
        EXPECT_FALSE(undelete(server, error)) << content;
        ASSERT_TRUE(error) << content;
        EXPECT_EQ(error->code, kServiceErrorCode) << content;
        EXPECT_EQ(error->kind, kind) << content;
    }
}

TEST(Undeletion, SettingsWithoutItAreToldApart)
{
    Dictionary settings = undeleteSettings();
    Dictionary methods = *findDictionary(settings, "WebServices");
    methods.erase("GetDeletedFiles");
    settings.insert_or_assign("WebServices", methods);
    const test::TestBundle bundle(settings);
    EXPECT_FALSE(WebServiceBroker::isUndeletingConfigured());
    const RawServer server(test::soapAnswer("<r><Code>Success</Code></r>"));
    std::optional<Error> error;
    EXPECT_FALSE(undelete(server, error));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->localizedDescription(), kUndeletingNotConfiguredMessage);
    EXPECT_TRUE(server.requests().empty());
}

} // namespace
} // namespace stowline
