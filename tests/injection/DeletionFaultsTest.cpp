// Asking how far a deletion is while everything that can fail does.
#include "stowline/platform/time/DateText.h"
#include "stowline/service/WebServiceBroker.h"
#include "tests/injection/FailingInTurn.h"
#include "tests/injection/OpenedAccount.h"

namespace stowline {
namespace {

const std::vector<std::string> kCalled{"new",  "socket", "socketpair",  "connect",
                                       "send", "recv",   "getsockopt",  "setsockopt",
                                       "poll", "fcntl",  "getsockname", "getaddrinfo"};

/// A deletion that goes on for minutes, and one that was cancelled.
class Asking {
public:
    Asking()
    {
        store("one");
        store("two");
        store("three");
        running_ = begun();
        cancelled_ = begun();
        WebServiceBroker::cancelDeleteFolderForUsername("ann", "secret words", running_,
                                                        account_.host);
        while (!isOver(running_))
            continue;
        std::swap(running_, cancelled_);
    }

    /// What is over is over, whatever fails: only an answer that was read whole says "no".
    test::Path path()
    {
        return {[this] { isOver_ = isOver(cancelled_); }, [this] { EXPECT_TRUE(isOver_); },
                [this] {
                    EXPECT_TRUE(isOver(cancelled_));
                    EXPECT_FALSE(isOver(running_));
                }};
    }

private:
    void store(const std::string& name)
    {
        EXPECT_TRUE(WebServiceBroker::protect2UploadedFileForUser(
            "ann", "secret words", account_.host, name, "/folder", 0, name, 0, account_.serverPath,
            platform::currentDate(), false, "iMac", 0, name, false, 0, -1, nullptr));
    }

    std::string begun()
    {
        const auto guid = WebServiceBroker::beginDeleteFolderForUsername(
            "ann", "secret words", "iMac", "/folder", account_.host);
        EXPECT_TRUE(guid);
        return guid.value_or("");
    }

    [[nodiscard]] bool isOver(const std::string& guid) const
    {
        return WebServiceBroker::checkDeleteFolderForUsername("ann", "secret words", guid,
                                                              account_.host);
    }

    const test::OpenedAccount account_{{"--deletion-pause", "60000"}};
    std::string running_;
    std::string cancelled_;
    bool isOver_ = false;
};

class DeletionFaults : public testing::TestWithParam<test::Failing> {};

TEST_P(DeletionFaults, NothingThatIsOverIsSaidToGoOn)
{
    Asking asking;
    test::failInTurn(GetParam(), asking.path());
}

INSTANTIATE_TEST_SUITE_P(Functions, DeletionFaults, testing::ValuesIn(test::bothWays(kCalled)),
                         test::nameOf);

TEST(DeletionFaults, AreAllTried)
{
    Asking asking;
    EXPECT_EQ(test::unlisted(kCalled, asking.path()), std::vector<std::string>());
}

} // namespace
} // namespace stowline
