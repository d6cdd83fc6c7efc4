// Whether a host can be reached without anybody doing something first.
#pragma once

#include "stowline/platform/network/HostFlags.h"

#include <optional>
#include <string>
#include <string_view>

#pragma GCC visibility push(default)
namespace stowline {

/// Posted on the main run loop whenever the flags of an observed host change, also when the verdict
/// stays the same. Sender: the host name. User info: "isReachable", a boolean.
inline constexpr const char* kHostReachabilityDidChangeNotification =
    "kHostReachabilityDidChangeNotification";

/// A question asked once, and observation that goes on. Static operations over one registry.
class Reachability {
public:
    Reachability() = delete;

    /// Puts a host under observation; observers subscribe at the notification centre. Main thread.
    /// @return true when the host is under observation now, also when it was before; false without
    ///         a log line for an absent name, and with one when the machine refuses.
    static bool addHostForReachabilityObservation(std::optional<std::string_view> host);

    /// Ends the observation of a host; does nothing for one that is not observed. Main thread.
    static void removeHostFromReachabilityObservation(std::string_view host);

    /// Asks now. Blocks for the name lookup, for half a minute at most and until this thread is
    /// asked to stop (StopRequest); nothing is sent to the host. Any thread.
    /// @return false for an absent name and when the machine cannot tell, or not in time.
    [[nodiscard]] static bool isHostReachable(std::optional<std::string_view> host);

    /// The verdict: reachable, and neither a connection nor a person is required first.
    [[nodiscard]] static bool isReachableWithFlags(platform::HostFlags flags);
};

} // namespace stowline
#pragma GCC visibility pop
