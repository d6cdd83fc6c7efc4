// Parts over kept connections: one counts as stored only when the server answered this very part.
#include "stowline/service/WebServiceBroker.h"
#include "tests/support/RawServer.h"
#include "tests/support/TestBundle.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <map>
#include <mutex>
#include <set>
#include <thread>

namespace stowline {
namespace {

using test::named;
using test::RawConnection;
using test::RawServer;

constexpr const char* kGuid = "6F9619FF-8B86-D011-B42D-00C04FC964FF";

std::string hostOf(const RawServer& server)
{
    return "127.0.0.1:" + std::to_string(server.port());
}

Dictionary settings()
{
    return {{"WebRequests",
             Dictionary{{"UploadFilePart",
                         Dictionary{{"URL", "http://%@/UploadFilePart"},
                                    {"httpMethod", "POST"},
                                    {"requestHeaders", Array{named("X-Guid", "<<GUID>>")}},
                                    {"requestIdHeader", "X-RequestID"},
                                    {"responseHeaderNames", Array{"Status"}}}}}}};
}

bool isStored(const RawServer& server, const std::string& identifier)
{
    return WebServiceBroker::uploadForUser("ann", "hello", "/a", 5, hostOf(server), "/vol1/ann/",
                                           identifier, nullptr)
        .has_value();
}

std::string fieldOf(const std::string& request, const std::string& name)
{
    const auto at = request.find("\r\n" + name + ": ") + name.size() + 4;
    return request.substr(at, request.find("\r\n", at) - at);
}

/// "Status: true" to the request of a number; to nobody's where there is none.
std::string yesTo(const std::string& number)
{
    return "HTTP/1.1 200 OK\r\nStatus: true\r\n" +
           (number.empty() ? number : "X-RequestID: " + number + " 5\r\n") +
           "Content-Length: 0\r\n\r\n";
}

/// Misbehaves in turn in every way in which an answer can come to the wrong request, and notes what
/// it really stored.
class HostileService {
public:
    void answer(const std::string& request, const RawConnection& connection)
    {
        const std::string number = fieldOf(request, "X-RequestID");
        std::size_t turn = 0;
        std::string earlier;
        bool isFirst = false;
        {
            const std::lock_guard lock(mutex_);
            turn = turn_++ % 7;
            earlier = std::exchange(lastOn_[connection.number()], number);
            isFirst = earlier.empty();
            const bool keeps = isFirst || turn == 0 || turn == 1 || turn == 3 || turn == 6;
            if (keeps)
                stored_.insert(fieldOf(request, "X-Guid"));
        }
        connection.keepOpen();
        if (isFirst) // leaves something behind every second time
            connection.send(yesTo(number) + (turn % 2 == 0 ? yesTo(number) : ""));
        else if (turn == 2)
            connection.send(yesTo(earlier)); // late
        else if (turn == 3)
            connection.send(yesTo(number) + yesTo(number)); // twice
        else if (turn == 4)
            connection.send(yesTo("")); // of nobody
        else if (turn == 5)
            cutShort(number, connection);
        else if (turn == 6)
            connection.send(yesTo(number) +
                            "HTTP/1.1 200 OK\r\nStatus: true\r\nX-Re"); // bytes over
        else
            connection.send(yesTo(number));
    }

    [[nodiscard]] bool has(const std::string& identifier) const
    {
        const std::lock_guard lock(mutex_);
        return stored_.contains(identifier);
    }

private:
    static void cutShort(const std::string& number, const RawConnection& connection)
    {
        connection.send("HTTP/1.1 200 OK\r\nStatus: true\r\nX-RequestID: " + number);
        connection.end();
    }

    mutable std::mutex mutex_;
    std::size_t turn_ = 0;
    std::map<std::size_t, std::string> lastOn_; ///< the number that a connection brought last
    std::set<std::string> stored_;
};

TEST(PartAnswers, CountNothingAsStoredThatWasNot)
{
    HostileService service;
    const RawServer server([&](const std::string& request, const RawConnection& connection) {
        service.answer(request, connection);
    });
    const test::TestBundle bundle(settings());
    constexpr int threads = 4;
    constexpr int partsEach = 70;
    std::atomic<int> stored = 0;
    std::atomic<int> onlyClaimed = 0;
    {
        std::vector<std::jthread> senders;
        for (int t = 0; t < threads; ++t)
            senders.emplace_back([&, t] {
                for (int i = 0; i < partsEach; ++i) {
                    const std::string part =
                        kGuid + std::to_string(t) + ";offset=" + std::to_string(i);
                    if (!isStored(server, part))
                        continue;
                    ++stored;
                    onlyClaimed += service.has(part) ? 0 : 1;
                }
            });
    }
    EXPECT_EQ(onlyClaimed, 0);
    EXPECT_GT(stored, threads * partsEach / 2); // most were sent again over new connections
    EXPECT_LT(server.connections(), server.requests().size()); // some were kept
}

TEST(PartAnswers, AreAskedForAgainOnlyOfPartsThatNameTheirPlace)
{
    for (const bool namesPlace : {false, true}) {
        const RawServer server([](const std::string& request, const RawConnection& connection) {
            const bool isFirst = fieldOf(request, "X-Guid") == std::string(kGuid) + ";offset=0";
            if (!isFirst && connection.number() == 1)
                return connection.reset(); // the part has arrived
            connection.keepOpen();
            connection.send(yesTo(fieldOf(request, "X-RequestID")));
        });
        const test::TestBundle bundle(settings());
        EXPECT_TRUE(isStored(server, std::string(kGuid) + ";offset=0"));
        const std::string identifier = kGuid + std::string(namesPlace ? ";offset=5" : "");
        EXPECT_TRUE(isStored(server, identifier));
        const auto requests = server.requests();
        EXPECT_EQ(std::ranges::count_if(requests,
                                        [&](const std::string& request) {
                                            return fieldOf(request, "X-Guid") == identifier;
                                        }),
                  namesPlace ? 2 : 1);
        EXPECT_EQ(server.connections(), 2U); // the other part took no kept one
    }
}

} // namespace
} // namespace stowline
