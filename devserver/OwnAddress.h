// Which names a request may be for.
#pragma once

#include <string>
#include <string_view>

namespace stowline::devserver {

/// The address that the service listens on.
struct OwnAddress {
    std::string scheme; ///< "http" or "https"
    int port = 0;
};

/// Whether the value of a Host header names the service: 127.0.0.1 or localhost with its port,
/// which is left out where it is the scheme's own (http 80, https 443), as browsers do.
[[nodiscard]] bool isOwnHost(const OwnAddress& own, std::string_view host);

/// Whether the value of an Origin header is one of the service's own pages.
[[nodiscard]] bool isOwnOrigin(const OwnAddress& own, std::string_view origin);

} // namespace stowline::devserver
