#include "tests/support/SilentNames.h"

#include "tests/support/NetworkNamespace.h"

#include <arpa/inet.h>
#include <array>
#include <fstream>
#include <netinet/in.h>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace stowline::test {

SilentNames::SilentNames(const std::string& services) : missing_(enterNetworkNamespace())
{
    if (!missing_)
        missing_ = enterMountNamespace();
    if (missing_)
        return;
    ip("link set lo up");
    settings_.emplace();
    std::ofstream("/etc/resolv.conf") << "nameserver 127.0.0.1\noptions timeout:30 attempts:3\n";
    std::ofstream("/etc/nsswitch.conf") << "hosts: " << services << "\n";
    std::ofstream("/etc/hosts") << "127.0.0.1 named.example\n";
    socket_ = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(53);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::bind(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
        throw std::runtime_error("There is no port for a name server.");
}

SilentNames::~SilentNames()
{
    if (socket_ >= 0)
        ::close(socket_);
}

bool SilentNames::isAsked(std::chrono::milliseconds within) const
{
    pollfd ready{socket_, POLLIN, 0};
    std::array<char, 512> question{};
    return ::poll(&ready, 1, static_cast<int>(within.count())) == 1 &&
           ::recv(socket_, question.data(), question.size(), 0) > 0;
}

} // namespace stowline::test
