#include "stowline/platform/network/Sockets.h"

#include "stowline/platform/files/DescriptorLimit.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace stowline::platform {

namespace {

SocketAddress addressIn(const sockaddr_storage& address)
{
    std::array<char, INET6_ADDRSTRLEN> text{};
    if (address.ss_family == AF_INET) {
        const auto& v4 = reinterpret_cast<const sockaddr_in&>(address);
        ::inet_ntop(AF_INET, &v4.sin_addr, text.data(), text.size());
        return {text.data(), ntohs(v4.sin_port)};
    }
    if (address.ss_family == AF_INET6) {
        const auto& v6 = reinterpret_cast<const sockaddr_in6&>(address);
        ::inet_ntop(AF_INET6, &v6.sin6_addr, text.data(), text.size());
        return {text.data(), ntohs(v6.sin6_port)};
    }
    return {};
}

bool await(int socket, short event, std::chrono::milliseconds atMost)
{
    pollfd waiting{.fd = socket, .events = event, .revents = 0};
    const auto deadline = std::chrono::steady_clock::now() + atMost;
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        const int ready =
            ::poll(&waiting, 1, static_cast<int>(std::max<std::int64_t>(left.count(), 0)));
        if (ready >= 0 || errno != EINTR)
            return ready > 0;
    }
}

} // namespace

void resetOnClose(std::uint16_t remotePort)
{
    const int end = static_cast<int>(descriptorLimit(65536));
    for (int descriptor = 3; descriptor < end; ++descriptor) {
        if (remoteAddressOf(descriptor).port != remotePort)
            continue;
        const linger atOnce{.l_onoff = 1, .l_linger = 0};
        ::setsockopt(descriptor, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    }
}

void takePortAlone(int socket)
{
    const int yes = 1;
    const int no = 0;
    ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    ::setsockopt(socket, SOL_SOCKET, SO_REUSEPORT, &no, sizeof no);
}

void letConnectionsWait(int socket, int atMost)
{
    ::listen(socket, atMost);
}

bool awaitReadable(int socket, std::chrono::milliseconds atMost)
{
    return await(socket, POLLIN, atMost);
}

bool awaitWritable(int socket, std::chrono::milliseconds atMost)
{
    return await(socket, POLLOUT, atMost);
}

std::ptrdiff_t receiveFrom(int socket, char* bytes, std::size_t size)
{
    for (;;) {
        const ssize_t count = ::recv(socket, bytes, size, 0);
        if (count >= 0 || errno != EINTR)
            return count;
    }
}

std::ptrdiff_t sendTo(int socket, const char* bytes, std::size_t size)
{
    for (;;) {
        const ssize_t count = ::send(socket, bytes, size, MSG_NOSIGNAL);
        if (count >= 0 || errno != EINTR)
            return count;
    }
}

void endConnection(int socket)
{
    ::shutdown(socket, SHUT_RDWR);
    ::close(socket);
}

SocketAddress remoteAddressOf(int socket)
{
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    if (::getpeername(socket, reinterpret_cast<sockaddr*>(&address), &length) != 0)
        return {};
    return addressIn(address);
}

SocketAddress localAddressOf(int socket)
{
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    if (::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length) != 0)
        return {};
    return addressIn(address);
}

} // namespace stowline::platform
