// What the machine knows about the way to a host, as a word of flags.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#pragma GCC visibility push(default)
namespace stowline::platform {

using HostFlags = std::uint32_t;

inline constexpr HostFlags kHostTransientConnection = 1;
inline constexpr HostFlags kHostReachable = 2;
inline constexpr HostFlags kHostConnectionRequired = 4;
inline constexpr HostFlags kHostConnectionOnTraffic = 8;
inline constexpr HostFlags kHostInterventionRequired = 16;
inline constexpr HostFlags kHostConnectionOnDemand = 32;
inline constexpr HostFlags kHostIsLocalAddress = 65536;

/// Whether the text can name a host at all: not empty, at most 253 bytes, no blanks, control
/// characters or slashes.
[[nodiscard]] bool isHostName(const std::string& name);

/// How long the answer of the name service is waited for: longer than the system's resolver takes
/// to give up three name servers that are silent.
inline constexpr std::chrono::seconds kNamePatience{30};

/// Looks the name up and asks the kernel for a route to each of its addresses; nothing is sent to
/// the host. Reachable when one address has a route. Blocks for the name lookup: as long as the
/// patience lasts, and not after this thread was asked to stop (StopRequest). Any thread.
///
/// The answer rests on the name service and the kernel alone, so it does not depend on a desktop
/// daemon; only when a network monitor has been started (NetworkChanges) and tells of a captive
/// portal does a host that is not this machine need intervention.
/// @return absent when the lookup itself failed for a reason other than "no such host" or
///         "no network", or gave no answer in time; 0 when there is no way to the host.
[[nodiscard]] std::optional<HostFlags>
hostFlags(const std::string& name, std::chrono::milliseconds patience = kNamePatience);

/// Set by NetworkChanges when the desktop says that a sign-in page stands before the network.
void setCaptivePortal(bool present);

} // namespace stowline::platform
#pragma GCC visibility pop
