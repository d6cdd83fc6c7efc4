// The proxy that the desktop's settings name.
#pragma once

#include <string>

namespace stowline::platform {

/// The proxy for an address as "http://host:port" or "socks5://host:port": what the desktop is set
/// to, when the environment (http_proxy, https_proxy, all_proxy, in either case) names none for the
/// address's scheme. Any thread; may ask the desktop's settings service, for two seconds at most:
/// one that is not heard by then is not asked again before it has answered. What it said counts for
/// a second.
/// @return empty when there is none or it is not known in time, or the environment decides.
[[nodiscard]] std::string systemProxyFor(const std::string& url);

/// The host of the proxy that a call to an address goes over, the environment's or the desktop's,
/// as a name or an address that can be looked up. Hosts that the environment excepts (no_proxy) by
/// name or by their end are called without one; networks are not understood there ("10.0.0.0/8").
/// As systemProxyFor() otherwise.
/// @return empty when the call goes over none
[[nodiscard]] std::string proxyHostFor(const std::string& url);

/// The first proxy in a resolver's answer that can be used: "direct://" and kinds that are not
/// known give the empty text, "socks://" is "socks5://".
[[nodiscard]] std::string usableProxy(const char* const* answer);

} // namespace stowline::platform
