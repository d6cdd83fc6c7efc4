#include "devserver/OwnAddress.h"

namespace stowline::devserver {

bool isOwnHost(const OwnAddress& own, std::string_view host)
{
    const std::string port = ":" + std::to_string(own.port);
    const bool mayLackPort = own.port == (own.scheme == "https" ? 443 : 80);
    for (const std::string_view name : {"127.0.0.1", "localhost"}) {
        if (!host.starts_with(name))
            continue;
        const std::string_view rest = host.substr(name.size());
        if (rest == port || (rest.empty() && mayLackPort))
            return true;
    }
    return false;
}

bool isOwnOrigin(const OwnAddress& own, std::string_view origin)
{
    const std::string start = own.scheme + "://";
    return origin.starts_with(start) && isOwnHost(own, origin.substr(start.size()));
}

} // namespace stowline::devserver
