#include "stowline/service/TagReading.h"
#include "stowline/service/WebServiceBroker.h"
#include "tests/support/RawServer.h"
#include "tests/support/TestBundle.h"

#include <gtest/gtest.h>

namespace stowline {
namespace {

using test::RawServer;

Dictionary deletionSettings()
{
    const auto entry = [](const std::string& body) {
        return Dictionary{{"URL", "http://%@/"}, {"body", body}};
    };
    return {{"URLS", Dictionary{{"ReachabilityHost", "127.0.0.1"}}},
            {"Templates",
             Dictionary{
                 {"BeginDeleteFolders", entry("<<USERNAME>>|<<PASSWORD>>|<<SYSTEMNAME>>|<<PATH>>")},
                 {"CheckDeleteFolders", entry("check <<USERNAME>>|<<PASSWORD>>|<<PROCESSGUID>>")},
                 {"BeginCancelDeleteFolders",
                  entry("cancel <<USERNAME>>|<<PASSWORD>>|<<PROCESSGUID>>")}}}};
}

class FolderDeletion : public testing::Test {
protected:
    std::optional<std::string> begin(const std::string& text)
    {
        answer_ = text;
        return WebServiceBroker::beginDeleteFolderForUsername("ann", "p&w", "iMac", "/a", host());
    }
    bool isOver(const std::string& text)
    {
        answer_ = text;
        return WebServiceBroker::checkDeleteFolderForUsername("ann", "pw", "G", host());
    }
    std::string host() const { return "127.0.0.1:" + std::to_string(server_.port()); }
    std::string lastBody() const
    {
        const std::string request = server_.requests().back();
        return request.substr(request.find("\r\n\r\n") + 4);
    }

    test::SharedText answer_;
    RawServer server_{[this](const std::string&, const test::RawConnection& connection) {
        connection.send(test::httpAnswer(answer_.get()));
    }};
    test::TestBundle bundle_{deletionSettings()};
};

TEST_F(FolderDeletion, BeginsWithTheServicesIdentifier)
{
    EXPECT_EQ(begin("<x><code>Success</CODE><ProcessGuid> G-1 </ProcessGuid></x>"), " G-1 ");
    EXPECT_EQ(lastBody(), "ann|p&amp;w|iMac|/a");
    EXPECT_EQ(begin("<Code>Failed</Code><ProcessGuid>G</ProcessGuid>"), std::nullopt);
    EXPECT_EQ(begin("<Code> Success</Code><ProcessGuid>G</ProcessGuid>"), std::nullopt);
    EXPECT_EQ(begin("<Code>success</Code>"), std::nullopt);
    EXPECT_EQ(begin("<ProcessGuid>G</ProcessGuid>"), std::nullopt);
    EXPECT_EQ(begin(""), std::nullopt);
}

TEST_F(FolderDeletion, AbsentArgumentsStayInTheTemplate)
{
    answer_ = "<Code>success</Code><ProcessGuid>G</ProcessGuid>";
    EXPECT_EQ(WebServiceBroker::beginDeleteFolderForUsername("ann", std::nullopt, "s", std::nullopt,
                                                             host()),
              "G");
    EXPECT_EQ(lastBody(), "ann|<<PASSWORD>>|s|<<PATH>>");
}

TEST_F(FolderDeletion, IsOverWhenCompletedCancelledOrUnreadable)
{
    const std::string ok = "<Code>Success</Code>";
    const std::string running = "<ProcessIsCompleted>false</ProcessIsCompleted>";
    EXPECT_FALSE(isOver(ok + running + "<ProcessIsCancelled>false</ProcessIsCancelled>"));
    EXPECT_EQ(lastBody(), "check ann|pw|G");
    EXPECT_TRUE(isOver(ok + running + "<ProcessIsCancelled>true</ProcessIsCancelled>"));
    EXPECT_TRUE(isOver(ok + running));
    EXPECT_TRUE(isOver(ok + "<ProcessIsCompleted>TRUE</ProcessIsCompleted>"));
    EXPECT_TRUE(isOver(ok + "<ProcessIsCancelled>false</ProcessIsCancelled>"));
    EXPECT_TRUE(
        isOver("<Code>Busy</Code>" + running + "<ProcessIsCancelled>false</ProcessIsCancelled>"));
    EXPECT_TRUE(isOver("<html>Please sign in</html>"));
    EXPECT_TRUE(isOver("\xff"));
}

TEST_F(FolderDeletion, CancellingSaysNothing)
{
    answer_ = "whatever";
    WebServiceBroker::cancelDeleteFolderForUsername("ann", "pw", "G", host());
    EXPECT_EQ(lastBody(), "cancel ann|pw|G");
}

TEST(TagReading, TakesTheFirstOfEachTagInAnyCase)
{
    EXPECT_EQ(elementText("<a>1</a><a>2</a>", "A"), "1");
    EXPECT_EQ(elementText("<A> &amp; <b/></a>", "a"), " &amp; <b/>");
    EXPECT_EQ(elementText("<a></a>", "a"), "");
    EXPECT_EQ(elementText("</a><a>1</a>", "a"), std::nullopt); // the closing tag comes first
    EXPECT_EQ(elementText("<a>1", "a"), std::nullopt);
    EXPECT_EQ(elementText("1</a>", "a"), std::nullopt);
    EXPECT_EQ(elementText("<a x=\"1\">1</a>", "a"), std::nullopt);
    EXPECT_EQ(elementText("<é>1</é>", "é"), "1");
}

} // namespace
} // namespace stowline
