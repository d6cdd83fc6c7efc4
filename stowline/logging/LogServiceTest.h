// A log service of a test's own.
#pragma once

#include "tests/support/MountNamespace.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace stowline {

/// Listens where the log service does. In a mount namespace of the test's own.
class LogService {
public:
    LogService() : devices_(test::Mount::memory("/dev")), socket_(::socket(AF_UNIX, SOCK_DGRAM, 0))
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::string_view("/dev/log").copy(address.sun_path, sizeof address.sun_path - 1);
        if (::bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
            throw std::runtime_error("the log socket cannot be made");
    }
    ~LogService() { ::close(socket_); }
    LogService(const LogService&) = delete;
    LogService& operator=(const LogService&) = delete;

    /// The next message: "<priority>…: text".
    [[nodiscard]] std::string next() const
    {
        std::array<char, 8192> piece{};
        const ssize_t count = ::recv(socket_, piece.data(), piece.size(), 0);
        return {piece.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0))};
    }

private:
    test::Mount devices_;
    int socket_;
};

} // namespace stowline
