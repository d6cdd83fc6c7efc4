// Sending a part and asking for it while everything that can fail does.
#include "stowline/platform/http/HttpExchange.h"
#include "stowline/service/WebServiceBroker.h"
#include "tests/injection/FailingInTurn.h"
#include "tests/injection/OpenedAccount.h"
#include "tests/support/RawServer.h"

#include <chrono>

namespace stowline {
namespace {

const std::vector<std::string> kCalled{
    "new",       "socket",     "socketpair", "connect", "send",  "recv", "getsockname",
    "getrandom", "getsockopt", "setsockopt", "poll",    "fcntl", "ioctl"};

/// Each turn sends a part, and asks how much of the file the service has.
class Uploading {
public:
    Uploading()
    {
        run(); // what is looked at once a process is looked at
    }

    test::Path path()
    {
        return {[this] { run(); }, [this] { check(); },
                [this] {
                    run();
                    EXPECT_TRUE(sent_) << (error_ ? error_->text() : "refused");
                    EXPECT_TRUE(known_) << (askingError_ ? askingError_->text() : "refused");
                    check();
                }};
    }

private:
    void run()
    {
        error_.reset();
        askingError_.reset();
        const std::string guid = "guid-" + std::to_string(++turn_);
        sent_ = WebServiceBroker::uploadForUser("ann", content_, "letter", content_.size(),
                                                account_.host, account_.serverPath, guid, &error_);
        known_ = WebServiceBroker::getServerFileInfoForClientFilename(
            "letter", guid, "ann", account_.serverPath, account_.host, &askingError_);
    }

    /// A whole answer, or an error.
    void check()
    {
        const std::string size = std::to_string(content_.size());
        if (sent_) {
            EXPECT_EQ(platform::findText(*sent_, "X-ReceivedBytes"), size);
        }
        if (known_) {
            EXPECT_EQ(platform::findText(*known_, "X-ServerPath"),
                      account_.serverPath + "guid-" + std::to_string(turn_));
        }
    }

    const test::OpenedAccount account_;
    const std::string content_ = std::string(200000, 'p');
    int turn_ = 0;
    std::optional<Error> error_;
    std::optional<Error> askingError_;
    std::optional<Dictionary> sent_;
    std::optional<Dictionary> known_;
};

class UploadFaults : public testing::TestWithParam<test::Failing> {};

TEST_P(UploadFaults, EndInAWholeAnswerOrAnError)
{
    Uploading uploading;
    test::failInTurn(GetParam(), uploading.path());
}

INSTANTIATE_TEST_SUITE_P(Functions, UploadFaults, testing::ValuesIn(test::bothWays(kCalled)),
                         test::nameOf);

/// Over which connection a part goes to a server that says so.
std::string connectionOfPartTo(const test::RawServer& server)
{
    platform::HttpExchange exchange({.url = server.url(),
                                     .headers = {},
                                     .body = "part",
                                     .requestIdHeader = "X-RequestID",
                                     .mayArriveTwice = true},
                                    {});
    EXPECT_TRUE(exchange.wait(std::chrono::seconds(60)));
    const platform::HttpOutcome outcome = exchange.takeOutcome();
    return outcome.response ? outcome.body : outcome.failure;
}

TEST(KeptConnectionFaults, APartWithoutANumberGoesOverNoKeptConnection)
{
    const test::RawServer server([](const std::string& request,
                                    const test::RawConnection& connection) {
        const std::string name = "X-RequestID: ";
        const auto at = request.find(name);
        const std::string tie = at == std::string::npos
                                    ? ""
                                    : request.substr(at, request.find("\r\n", at) - at) + " 4\r\n";
        connection.keepOpen();
        connection.send("HTTP/1.1 200 OK\r\n" + tie + "Content-Length: 1\r\n\r\n" +
                        std::to_string(connection.number()));
    });
    EXPECT_EQ(connectionOfPartTo(server), "1");
    EXPECT_EQ(connectionOfPartTo(server), "1");
    test::arm({.function = "getrandom", .call = 1, .isPersistent = true});
    const std::string unnumbered = connectionOfPartTo(server);
    EXPECT_GT(test::disarm().failures, 0U);
    EXPECT_EQ(unnumbered, "2");
    EXPECT_EQ(server.requests()[2].find("X-RequestID"), std::string::npos);
}

TEST(UploadFaults, AreAllTried)
{
    Uploading uploading;
    EXPECT_EQ(test::unlisted(kCalled, uploading.path()), std::vector<std::string>());
}

} // namespace
} // namespace stowline
