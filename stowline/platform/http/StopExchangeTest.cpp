// Requests whose caller is asked to stop, whatever the network does meanwhile.
#include "stowline/platform/http/HttpExchange.h"
#include "stowline/platform/http/ReadStream.h"
#include "stowline/platform/threads/StopRequest.h"
#include "tests/support/RawServer.h"
#include "tests/support/SilentNames.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <functional>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace stowline::platform {
namespace {

using namespace std::chrono_literals;
using test::RawConnection;
using test::RawServer;

/// Performs a request that is asked to stop when the function has returned in another thread.
/// Fails the test unless it ends soon after that.
HttpOutcome stoppedOnce(HttpRequest request, const std::function<void()>& ready)
{
    const StopRequest stop;
    const StopScope scope(stop);
    std::chrono::steady_clock::time_point asked;
    std::thread stopper([&] {
        ready();
        asked = std::chrono::steady_clock::now();
        stop.request();
    });
    HttpOutcome outcome;
    {
        HttpExchange exchange(std::move(request), {});
        EXPECT_TRUE(exchange.wait(60s));
        outcome = exchange.takeOutcome();
    }
    const auto ended = std::chrono::steady_clock::now();
    stopper.join();
    EXPECT_LT(ended - asked, 1500ms);
    return outcome;
}

void expectStopped(const HttpOutcome& outcome)
{
    EXPECT_EQ(outcome.kind, HttpFailure::stopped);
    EXPECT_EQ(outcome.reason, FailureKind::stopped);
    EXPECT_FALSE(outcome.response);
    EXPECT_EQ(outcome.failure, "The request was stopped.");
}

void untilOneRequest(const RawServer& server)
{
    while (server.requests().empty())
        std::this_thread::sleep_for(1ms);
}

/// A socket that listens; closed with this object.
class Listener {
public:
    explicit Listener(int backlog) : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        auto* general = reinterpret_cast<sockaddr*>(&address);
        EXPECT_EQ(::bind(socket_, general, length), 0);
        EXPECT_EQ(::listen(socket_, backlog), 0);
        ::getsockname(socket_, general, &length);
        port_ = ntohs(address.sin_port);
    }
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;
    ~Listener() { ::close(socket_); }
    [[nodiscard]] int port() const { return port_; }

private:
    int socket_;
    int port_ = 0;
};

TEST(StopExchange, EndsARequestThatIsNotAnswered)
{
    const RawServer server(
        [](const std::string&, const RawConnection& connection) { connection.holdUntilClosed(); });
    expectStopped(
        stoppedOnce({.url = server.url(), .body = "data"}, [&server] { untilOneRequest(server); }));
}

TEST(StopExchange, EndsAnAnswerThatDrips)
{
    const RawServer server([](const std::string&, const RawConnection& connection) {
        connection.send("HTTP/1.1 200 OK\r\nContent-Length: 1000000\r\n\r\n");
        while (connection.send("x"))
            std::this_thread::sleep_for(5ms);
    });
    expectStopped(stoppedOnce({.url = server.url()}, [&server] { untilOneRequest(server); }));
}

TEST(StopExchange, EndsAConnectionThatStalls)
{
    // A queue that is full: further connections are neither accepted nor refused.
    const Listener listener(0);
    std::vector<int> waiting;
    for (int i = 0; i < 4; ++i) {
        waiting.push_back(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(listener.port()));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        (void)::connect(waiting.back(), reinterpret_cast<sockaddr*>(&address), sizeof address);
    }
    expectStopped(stoppedOnce({.url = "http://127.0.0.1:" + std::to_string(listener.port()) + "/"},
                              [] { std::this_thread::sleep_for(100ms); }));
    for (const int socket : waiting)
        ::close(socket);
}

TEST(StopExchange, EndsATlsHandshakeThatStalls)
{
    const Listener listener(8); // the kernel takes the connection and nobody says hello
    expectStopped(stoppedOnce({.url = "https://127.0.0.1:" + std::to_string(listener.port()) + "/"},
                              [] { std::this_thread::sleep_for(100ms); }));
}

TEST(StopExchange, EndsALookUpThatIsNotAnsweredAsATimeLimitDoes)
{
    const test::SilentNames names;
    if (names.missing())
        GTEST_SKIP() << *names.missing();
    expectStopped(
        stoppedOnce({.url = "http://slow.example/"}, [&names] { EXPECT_TRUE(names.isAsked()); }));
    const auto start = std::chrono::steady_clock::now();
    {
        HttpExchange abandoned({.url = "http://slower.example/"}, {});
        EXPECT_FALSE(abandoned.wait(500ms));
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, 1500ms);
}

TEST(StopExchange, SendsNothingAfterTheRequest)
{
    const RawServer server(test::httpAnswer("ok"));
    const StopRequest stop;
    const StopScope scope(stop);
    stop.request();
    HttpExchange exchange({.url = server.url()}, {});
    EXPECT_TRUE(exchange.wait(60s));
    expectStopped(exchange.takeOutcome());
    EXPECT_TRUE(server.requests().empty());
}

TEST(StopExchange, AnAnswerThatHasArrivedIsNotTakenBack)
{
    const RawServer server(test::httpAnswer("ok"));
    const StopRequest stop;
    const StopScope scope(stop);
    HttpExchange exchange({.url = server.url()}, {});
    ASSERT_TRUE(exchange.wait(60s));
    stop.request();
    ASSERT_TRUE(exchange.wait(60s));
    EXPECT_EQ(exchange.takeOutcome().body, "ok");
}

TEST(StopExchange, AStreamEndsWithTheError)
{
    const RawServer server(
        [](const std::string&, const RawConnection& connection) { connection.holdUntilClosed(); });
    const StopRequest stop;
    const StopScope scope(stop);
    const auto stream = makeHttpReadStream({.url = server.url()});
    stream->open();
    std::thread stopper([&] {
        untilOneRequest(server);
        stop.request();
    });
    while (stream->status() != ReadStream::Status::error)
        (void)stream->await(60s);
    stopper.join();
    EXPECT_EQ(stream->error().code, static_cast<int>(HttpFailure::stopped));
}

} // namespace
} // namespace stowline::platform
