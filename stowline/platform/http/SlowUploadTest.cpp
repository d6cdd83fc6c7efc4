// Requests whose end the system's buffers hold while a slow server reads it.
#include "stowline/platform/http/HttpExchange.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <memory>
#include <netinet/in.h>
#include <semaphore>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace stowline::platform {
namespace {

using namespace std::chrono_literals;

constexpr std::size_t kBodyBytes = 400'000;

/// Accepts one connection and reads so many bytes at a steady pace, then answers if it read all.
class SlowServer {
public:
    SlowServer(std::size_t most, std::size_t perStep, std::chrono::milliseconds step)
        : listener_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        const int buffer = 8192; // little is read ahead
        ::setsockopt(listener_, SOL_SOCKET, SO_RCVBUF, &buffer, sizeof buffer);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        auto* general = reinterpret_cast<sockaddr*>(&address);
        EXPECT_EQ(::bind(listener_, general, length), 0);
        EXPECT_EQ(::listen(listener_, 1), 0);
        ::getsockname(listener_, general, &length);
        port_ = ntohs(address.sin_port);
        thread_ = std::thread([=, this] { serve(most, perStep, step); });
    }
    SlowServer(const SlowServer&) = delete;
    SlowServer& operator=(const SlowServer&) = delete;
    ~SlowServer()
    {
        over_.release();
        thread_.join();
        ::close(listener_);
    }
    [[nodiscard]] std::string url() const
    {
        return "http://127.0.0.1:" + std::to_string(port_) + "/";
    }

private:
    void serve(std::size_t most, std::size_t perStep, std::chrono::milliseconds step)
    {
        const int connection = ::accept(listener_, nullptr, nullptr);
        std::vector<char> piece(perStep);
        std::size_t total = 0;
        while (total < most) {
            const ssize_t count = ::recv(connection, piece.data(), piece.size(), 0);
            if (count <= 0)
                break;
            total += static_cast<std::size_t>(count);
            std::this_thread::sleep_for(step);
        }
        const std::string answer = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok";
        if (total >= kBodyBytes)
            ::send(connection, answer.data(), answer.size(), MSG_NOSIGNAL);
        else
            over_.acquire();
        ::close(connection);
    }

    int listener_;
    int port_ = 0;
    std::binary_semaphore over_{0};
    std::thread thread_;
};

TEST(SlowUpload, MovesAsLongAsTheServerReads)
{
    const SlowServer server(kBodyBytes, 4000, 20ms); // some 2 s for what is handed over at once
    const std::string body(kBodyBytes, 'x');
    HttpExchange exchange({.url = server.url(), .body = body}, {});
    int silences = 0;
    while (!exchange.hasEnded())
        silences += exchange.waitForEvent(700ms) ? 0 : 1;
    EXPECT_EQ(silences, 0);
    EXPECT_EQ(exchange.takeOutcome().body, "ok");
}

TEST(SlowUpload, IsSilentWhenTheServerReadsNoMore)
{
    const auto server = std::make_unique<SlowServer>(40'000, 4000, 1ms);
    const std::string body(kBodyBytes, 'x');
    {
        HttpExchange exchange({.url = server->url(), .body = body}, {});
        const auto end = std::chrono::steady_clock::now() + 20s;
        bool moved = true;
        while (moved && std::chrono::steady_clock::now() < end)
            moved = exchange.waitForEvent(700ms);
        EXPECT_FALSE(moved);
        EXPECT_FALSE(exchange.hasEnded());
    }
}

} // namespace
} // namespace stowline::platform
