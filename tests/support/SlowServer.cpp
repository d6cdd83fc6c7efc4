#include "tests/support/SlowServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace stowline::test {

SlowServer::SlowServer(std::size_t enough, std::size_t most, std::size_t perStep,
                       std::chrono::milliseconds step)
    : listener_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    const int buffer = 8192; // little is read ahead
    ::setsockopt(listener_, SOL_SOCKET, SO_RCVBUF, &buffer, sizeof buffer);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    auto* general = reinterpret_cast<sockaddr*>(&address);
    if (::bind(listener_, general, length) != 0 || ::listen(listener_, 1) != 0)
        throw std::runtime_error("There is no port for a server.");
    ::getsockname(listener_, general, &length);
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([=, this] { serve(enough, most, perStep, step); });
}

SlowServer::~SlowServer()
{
    over_.release();
    ::shutdown(listener_, SHUT_RDWR); // nobody may have come
    thread_.join();
    ::close(listener_);
}

std::string SlowServer::url() const
{
    return "http://127.0.0.1:" + std::to_string(port_) + "/";
}

void SlowServer::serve(std::size_t enough, std::size_t most, std::size_t perStep,
                       std::chrono::milliseconds step)
{
    const int connection = ::accept(listener_, nullptr, nullptr);
    if (connection < 0)
        return;
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
    if (total >= enough)
        ::send(connection, answer.data(), answer.size(), MSG_NOSIGNAL);
    else
        over_.acquire();
    ::close(connection);
}

} // namespace stowline::test
