// The question before anything is sent: is there a way to the service?
#pragma once

#include "stowline/platform/values/Error.h"

#include <optional>
#include <string>
#include <string_view>

namespace stowline {

/// The host whose reachability tells whether a call can be made, and whether it is reachable.
struct WayToHost {
    std::string host;     ///< empty when the settings name none
    bool isProxy = false; ///< the one that carries the call, not the settings' ReachabilityHost
    bool isReachable = false;
};

/// Where a proxy carries a call to this address, its host is asked for first: on a network that has
/// nothing but the proxy nobody else's name is known. Else, and where it is not reachable, the
/// reachability host of the settings counts. One that can be nobody's ("service.example") is not
/// reachable by any way, and neither is one that the settings do not name. Blocks as
/// Reachability::isHostReachable does.
/// @param url as the call uses it; may be empty
[[nodiscard]] WayToHost wayToHost(const std::string& url);

/// Why nothing can be sent to an address: there is no way (hostUnreachable), the thread was asked
/// to stop before that was known (stopped), or this process may open too few files to look, or to
/// call (helperFailed). Absent when there is a way.
[[nodiscard]] std::optional<FailureKind> obstacleOnTheWay(const std::string& url);

/// What people are told of an obstacle to a call.
/// @param unreachable the words for one that is not reachable
[[nodiscard]] std::string sentenceOfObstacle(FailureKind obstacle, std::string_view unreachable);

} // namespace stowline
