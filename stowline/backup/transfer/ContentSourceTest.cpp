// Tickets: when one is asked for anew, and what becomes of a part whose ticket is refused.
#include "stowline/backup/transfer/ContentSource.h"

#include "stowline/util/Crc32.h"
#include "tests/support/SoapAnswers.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <mutex>
#include <set>

namespace stowline::backup {
namespace {

using namespace std::chrono_literals;
using test::named;
using test::RawServer;

constexpr std::string_view kContent = "hello world";

/// Hands out the tickets "t1", "t2", … for a thousand seconds each, and parts of one version for
/// all but those that it refuses.
class Service {
public:
    explicit Service(std::set<std::string> refused = {})
        : refused_(std::move(refused)),
          server_([this](const std::string& request, const test::RawConnection& connection) {
              connection.send(answerTo(request));
          }),
          bundle_(settings())
    {
    }

    [[nodiscard]] Account account() const
    {
        return {"ann", "pw", "127.0.0.1:" + std::to_string(server_.port()), "iMac"};
    }

    [[nodiscard]] int tickets() const
    {
        const std::lock_guard lock(mutex_);
        return tickets_;
    }

private:
    static Dictionary settings()
    {
        Dictionary settings = test::settingsWith(
            "GetRestoreTicket", test::methodEntry("http://%@/", {"USERNAME", "PASSWORD"}, "r"));
        settings.emplace(
            "WebRequests",
            Dictionary{{"DownloadFilePart",
                        Dictionary{{"URL", "http://%@/part"},
                                   {"requestHeaders", Array{named("X-Ticket", "<<TICKET>>"),
                                                            named("X-Offset", "<<OFFSET>>"),
                                                            named("X-Length", "<<LENGTH>>")}},
                                   {"responseHeaderNames", Array{"Status", "X-Reason", "X-Checksum",
                                                                 "X-VersionSize", "X-Digest"}}}}});
        return settings;
    }

    static std::string headerIn(const std::string& request, const std::string& name)
    {
        const auto at = request.find(name + ": ") + name.size() + 2;
        return request.substr(at, request.find("\r\n", at) - at);
    }

    std::string answerTo(const std::string& request)
    {
        const std::lock_guard lock(mutex_);
        if (request.starts_with("POST"))
            return test::soapAnswer("<r><Ticket>t" + std::to_string(++tickets_) +
                                    "</Ticket><SecondsToLive>1000</SecondsToLive></r>");
        if (refused_.contains("all") || refused_.contains(headerIn(request, "X-Ticket")))
            return "HTTP/1.1 200 OK\r\nStatus: false\r\nX-Reason: TicketRefused\r\n"
                   "Content-Length: 0\r\n\r\n";
        const std::string bytes(kContent.substr(std::stoul(headerIn(request, "X-Offset")),
                                                std::stoul(headerIn(request, "X-Length"))));
        return fmt::format("HTTP/1.1 200 OK\r\nStatus: true\r\nX-Checksum: {:08x}\r\n"
                           "X-VersionSize: {}\r\nContent-Length: {}\r\n\r\n{}",
                           Crc32::updateCRC32(0, bytes.data(), bytes.size()), kContent.size(),
                           bytes.size(), bytes);
    }

    mutable std::mutex mutex_;
    const std::set<std::string> refused_;
    int tickets_ = 0;
    RawServer server_;
    test::TestBundle bundle_;
};

TEST(TicketKeeper, AsksAnewWhenFourFifthsOfATicketsTimeAreOver)
{
    const Service service;
    Moment now;
    TicketKeeper keeper(service.account(), [&now] { return now; });
    std::optional<Error> error;
    EXPECT_EQ(keeper.ticket(error), "t1");
    now += 799s;
    EXPECT_EQ(keeper.ticket(error), "t1");
    now += 2s;
    EXPECT_EQ(keeper.ticket(error), "t2");
    now += 799s;
    EXPECT_EQ(keeper.ticket(error), "t2");
    EXPECT_EQ(service.tickets(), 2);
}

TEST(TicketKeeper, AsksAnewWhenItsTicketIsNotTaken)
{
    const Service service;
    TicketKeeper keeper(service.account(), [] { return Moment(); });
    std::optional<Error> error;
    EXPECT_EQ(keeper.ticket(error), "t1");
    keeper.drop("another one");
    EXPECT_EQ(keeper.ticket(error), "t1");
    keeper.drop("t1");
    EXPECT_EQ(keeper.ticket(error), "t2");
}

/// Reads the whole version. @return why it did not come
std::optional<FetchFailure> read(const Service& service, std::string& content)
{
    Tries tries(1h, StopRequest());
    BandwidthLimit unlimited(0, std::chrono::steady_clock::now);
    ContentSource source(service.account(), tries, unlimited, kContent.size());
    return source.read("17", 0, kContent.size(), [&content](std::string_view bytes) {
        content += bytes;
        return true;
    });
}

TEST(ContentSource, ARefusedTicketGivesWayToAnother)
{
    const Service service({"t1"});
    std::string content;
    const auto failure = read(service, content);
    EXPECT_FALSE(failure) << failure->reason;
    EXPECT_EQ(content, kContent);
    EXPECT_EQ(service.tickets(), 2);
}

TEST(ContentSource, AServiceThatTakesNoneOfItsTicketsIsToldSo)
{
    const Service service({"all"});
    std::string content;
    const auto failure = read(service, content);
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->kind, FetchFailure::Kind::refused);
    EXPECT_EQ(failure->reason, "The service does not accept its own tickets.");
    EXPECT_EQ(content, "");
}

} // namespace
} // namespace stowline::backup
