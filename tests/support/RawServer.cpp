#include "tests/support/RawServer.h"

#include "stowline/platform/text/Text.h"

#include <arpa/inet.h>
#include <array>
#include <atomic>
#include <mutex>
#include <netinet/in.h>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace stowline::test {

namespace {

int listeningSocket()
{
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::bind(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(socket, 128) != 0)
        throw std::runtime_error("cannot listen");
    return socket;
}

int portOf(int socket)
{
    sockaddr_in address{};
    socklen_t length = sizeof address;
    ::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length);
    return ntohs(address.sin_port);
}

std::size_t statedLength(const std::string& head)
{
    const std::string lower = platform::asciiLowercase(head);
    const auto at = lower.find("content-length:");
    return at == std::string::npos
               ? 0
               : static_cast<std::size_t>(platform::leadingInteger(lower.substr(at + 15)));
}

std::string readRequest(int socket, bool withBody)
{
    std::string request;
    std::array<char, 65536> piece{};
    for (;;) {
        const auto headEnd = request.find("\r\n\r\n");
        if (headEnd != std::string::npos && !withBody)
            return request.substr(0, headEnd + 4);
        if (headEnd != std::string::npos &&
            request.size() >= headEnd + 4 + statedLength(request.substr(0, headEnd)))
            return request;
        const ssize_t count = ::recv(socket, piece.data(), piece.size(), 0);
        if (count <= 0)
            return request;
        request.append(piece.data(), static_cast<std::size_t>(count));
    }
}

} // namespace

bool RawConnection::send(const std::string& bytes) const
{
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t count =
            ::send(socket_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count <= 0)
            return false;
        sent += static_cast<std::size_t>(count);
    }
    return true;
}

void RawConnection::holdUntilClosed() const
{
    std::array<char, 256> ignored{};
    while (::recv(socket_, ignored.data(), ignored.size(), 0) > 0) {
    }
}

void RawConnection::reset() const
{
    const linger atOnce{.l_onoff = 1, .l_linger = 0};
    ::setsockopt(socket_, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
}

void RawConnection::end() const
{
    isKept_ = false;
    ::shutdown(socket_, SHUT_WR);
}

class RawServer::Implementation {
public:
    Implementation(Handler handler, Reads reads)
        : handler_(std::move(handler)), reads_(reads), listener_(listeningSocket()),
          port_(portOf(listener_)), acceptor_([this] { acceptAll(); })
    {
    }

    ~Implementation()
    {
        ::shutdown(listener_, SHUT_RDWR);
        acceptor_.join();
        {
            const std::lock_guard lock(mutex_);
            for (const int socket : sockets_)
                ::shutdown(socket, SHUT_RDWR);
        }
        for (auto& thread : threads_)
            thread.join();
        ::close(listener_);
    }

    [[nodiscard]] int port() const { return port_; }

    [[nodiscard]] std::vector<std::string> requests() const
    {
        const std::lock_guard lock(mutex_);
        return requests_;
    }

    [[nodiscard]] std::size_t connections() const
    {
        const std::lock_guard lock(mutex_);
        return threads_.size();
    }

    [[nodiscard]] std::size_t openConnections() const
    {
        const std::lock_guard lock(mutex_);
        return sockets_.size();
    }

private:
    void acceptAll()
    {
        for (;;) {
            const int socket = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
            if (socket < 0)
                return;
            const std::lock_guard lock(mutex_);
            sockets_.push_back(socket);
            const std::size_t number = threads_.size() + 1;
            threads_.emplace_back([this, socket, number] { serve(socket, number); });
        }
    }

    void serve(int socket, std::size_t number)
    {
        while (serveOne(RawConnection(socket, number),
                        readRequest(socket, reads_ == Reads::requests))) {
        }
        const std::lock_guard lock(mutex_);
        std::erase(sockets_, socket);
        ::close(socket);
    }

    /// @return whether another request may come
    bool serveOne(const RawConnection& connection, const std::string& request)
    {
        if (request.empty())
            return false;
        {
            const std::lock_guard lock(mutex_);
            requests_.push_back(request);
        }
        handler_(request, connection);
        return connection.isKept();
    }

    Handler handler_;
    const Reads reads_;
    int listener_;
    int port_;
    mutable std::mutex mutex_;
    std::vector<int> sockets_;
    std::vector<std::thread> threads_;
    std::vector<std::string> requests_;
    std::thread acceptor_;
};

RawServer::RawServer(Handler handler, Reads reads)
    : implementation_(std::make_unique<Implementation>(std::move(handler), reads))
{
}

RawServer::RawServer(std::string answer)
    : RawServer([answer = std::move(answer)](const std::string&, const RawConnection& connection) {
          connection.send(answer);
      })
{
}

RawServer::~RawServer() = default;

int RawServer::port() const
{
    return implementation_->port();
}

std::string RawServer::url(const std::string& path) const
{
    return "http://127.0.0.1:" + std::to_string(port()) + path;
}

std::vector<std::string> RawServer::requests() const
{
    return implementation_->requests();
}

std::size_t RawServer::connections() const
{
    return implementation_->connections();
}

std::size_t RawServer::openConnections() const
{
    return implementation_->openConnections();
}

std::string httpAnswer(const std::string& body, int status)
{
    return "HTTP/1.1 " + std::to_string(status) +
           (status == 200 ? " OK" : " Internal Server Error") +
           "\r\nContent-Type: text/xml; charset=utf-8\r\nContent-Length: " +
           std::to_string(body.size()) + "\r\n\r\n" + body;
}

int closedPort()
{
    const int socket = listeningSocket();
    const int port = portOf(socket);
    ::close(socket);
    return port;
}

} // namespace stowline::test
