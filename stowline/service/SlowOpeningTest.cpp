// Connections that never come about, though bytes move all the while.
#include "stowline/service/WebServiceBroker.h"
#include "tests/support/RawServer.h"
#include "tests/support/TestBundle.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <array>
#include <chrono>
#include <netinet/in.h>
#include <stdexcept>
#include <string_view>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace stowline {
namespace {

using namespace std::chrono_literals;
using test::RawServer;

/// Begins a greeting of TLS to whoever connects, goes on with a byte now and then for some seconds,
/// and hangs up.
class DrippingServer {
public:
    DrippingServer() : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        auto* general = reinterpret_cast<sockaddr*>(&address);
        if (::bind(socket_, general, length) != 0 || ::listen(socket_, 8) != 0 ||
            ::getsockname(socket_, general, &length) != 0)
            throw std::runtime_error("There is no port to listen on.");
        url_ = "https://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/";
        thread_ = std::jthread([this] { serve(); });
    }
    ~DrippingServer()
    {
        ::shutdown(socket_, SHUT_RDWR);
        thread_.join();
        ::close(socket_);
    }
    DrippingServer(const DrippingServer&) = delete;
    DrippingServer& operator=(const DrippingServer&) = delete;

    [[nodiscard]] const std::string& url() const { return url_; }

private:
    static bool send(int connection, std::string_view bytes)
    {
        return ::send(connection, bytes.data(), bytes.size(), MSG_NOSIGNAL) > 0;
    }

    void serve() const
    {
        constexpr std::string_view record("\x16\x03\x03\x40\x00", 5); // of a handshake, 16 KiB
        constexpr int bytes = 60;
        for (int one = ::accept(socket_, nullptr, nullptr); one >= 0;
             one = ::accept(socket_, nullptr, nullptr)) {
            bool isHeard = send(one, record);
            for (int i = 0; isHeard && i < bytes; ++i) {
                std::this_thread::sleep_for(50ms);
                isHeard = send(one, "\x02");
            }
            ::close(one);
        }
    }

    const int socket_;
    std::string url_;
    std::jthread thread_;
};

std::string failureOf(const std::string& url)
{
    const test::TestBundle bundle(
        {{"WebRequests", Dictionary{{"R", Dictionary{{"requestTimeout", 0.5}}}}}});
    std::optional<Error> error;
    EXPECT_FALSE(
        WebServiceBroker::sendWebRequestWithURL(url, "R", {}, std::nullopt, nullptr, &error));
    return error ? error->localizedDescription() : std::string();
}

TEST(SlowOpening, OfTlsIsBoundAsAWhole)
{
    const DrippingServer server;
    EXPECT_EQ(failureOf(server.url()), "Request timeout");
}

TEST(SlowOpening, AfterARedirectIsBoundToo)
{
    const DrippingServer server;
    const RawServer redirecting(
        "HTTP/1.1 302 Found\r\nContent-Length: 0\r\nLocation: " + server.url() + "\r\n\r\n");
    EXPECT_EQ(failureOf(redirecting.url()), "Request timeout");
}

} // namespace
} // namespace stowline
