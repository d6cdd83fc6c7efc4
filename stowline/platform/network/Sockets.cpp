#include "stowline/platform/network/Sockets.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>

namespace stowline::platform {

namespace {

std::uint16_t remotePortOf(int descriptor)
{
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    if (::getpeername(descriptor, reinterpret_cast<sockaddr*>(&address), &length) != 0)
        return 0;
    if (address.ss_family == AF_INET)
        return ntohs(reinterpret_cast<const sockaddr_in&>(address).sin_port);
    if (address.ss_family == AF_INET6)
        return ntohs(reinterpret_cast<const sockaddr_in6&>(address).sin6_port);
    return 0;
}

} // namespace

void resetOnClose(std::uint16_t remotePort)
{
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    const int end = static_cast<int>(limit.rlim_cur < 65536 ? limit.rlim_cur : 65536);
    for (int descriptor = 3; descriptor < end; ++descriptor) {
        if (remotePortOf(descriptor) != remotePort)
            continue;
        const linger atOnce{.l_onoff = 1, .l_linger = 0};
        ::setsockopt(descriptor, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    }
}

} // namespace stowline::platform
