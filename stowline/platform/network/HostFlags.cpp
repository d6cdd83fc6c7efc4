#include "stowline/platform/network/HostFlags.h"

#include "stowline/platform/files/FileDescriptor.h"
#include "stowline/platform/network/NameLookUp.h"
#include "stowline/platform/text/HostName.h"
#include "stowline/platform/text/Text.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace stowline::platform {

namespace {

std::atomic<bool> captivePortal = false;

bool sameAddress(const sockaddr_storage& left, const sockaddr& right)
{
    if (left.ss_family != right.sa_family)
        return false;
    if (right.sa_family == AF_INET)
        return reinterpret_cast<const sockaddr_in&>(left).sin_addr.s_addr ==
               reinterpret_cast<const sockaddr_in&>(right).sin_addr.s_addr;
    return std::memcmp(&reinterpret_cast<const sockaddr_in6&>(left).sin6_addr,
                       &reinterpret_cast<const sockaddr_in6&>(right).sin6_addr,
                       sizeof(in6_addr)) == 0;
}

/// Connecting a datagram socket makes the kernel choose a route and an own address, and sends
/// nothing.
HostFlags flagsOfAddress(const addrinfo& address)
{
    const FileDescriptor socket(::socket(address.ai_family, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!socket.isOpen() || ::connect(socket.number(), address.ai_addr, address.ai_addrlen) != 0)
        return 0;
    sockaddr_storage own{};
    socklen_t length = sizeof own;
    const bool local =
        ::getsockname(socket.number(), reinterpret_cast<sockaddr*>(&own), &length) == 0 &&
        sameAddress(own, *address.ai_addr);
    return kHostReachable | (local ? kHostIsLocalAddress : 0);
}

/// "localhost" means this machine also where no name service says so (RFC 6761 section 6.3).
std::string nameToLookUp(const std::string& name)
{
    return equalsIgnoringAsciiCase(name, "localhost") ? "127.0.0.1" : asciiHostName(name);
}

bool meansNoWay(int lookupFault)
{
    return lookupFault == EAI_NONAME || lookupFault == EAI_NODATA || lookupFault == EAI_AGAIN ||
           lookupFault == EAI_FAIL;
}

} // namespace

bool isHostName(const std::string& name)
{
    constexpr std::size_t longest = 253; // RFC 1035 section 2.3.4, without the final dot
    return !name.empty() && name.size() <= longest &&
           std::none_of(name.begin(), name.end(),
                        [](unsigned char c) { return c <= ' ' || c == 0x7f || c == '/'; });
}

std::optional<HostFlags> hostFlags(const std::string& name, std::chrono::milliseconds patience)
{
    const auto answer = lookedUp(nameToLookUp(name), patience);
    if (!answer)
        return std::nullopt;
    if (answer->fault != 0)
        return meansNoWay(answer->fault) ? std::optional<HostFlags>(0) : std::nullopt;

    HostFlags flags = 0;
    for (const addrinfo* address = answer->addresses.get(); address && flags == 0;
         address = address->ai_next)
        flags = flagsOfAddress(*address);
    const bool behindPortal =
        captivePortal && (flags & kHostReachable) && !(flags & kHostIsLocalAddress);
    return behindPortal ? flags | kHostInterventionRequired : flags;
}

void setCaptivePortal(bool present)
{
    captivePortal = present;
}

} // namespace stowline::platform
