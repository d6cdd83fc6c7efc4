// The question before anything is sent: is there a way to the service?
#pragma once

#include "stowline/net/Reachability.h"
#include "stowline/platform/threads/StopRequest.h"
#include "stowline/platform/values/Error.h"
#include "stowline/service/SettingsTables.h"

#include <optional>

namespace stowline {

/// Why nothing can be sent: the reachability host of the settings is not reachable, or the thread
/// was asked to stop before that was known. Absent when there is a way.
[[nodiscard]] inline std::optional<FailureKind> obstacleOnTheWay()
{
    if (Reachability::isHostReachable(settingsTables::reachabilityHost()))
        return std::nullopt;
    const StopRequest* stop = StopRequest::ofThisThread();
    return stop && stop->isRequested() ? FailureKind::stopped : FailureKind::hostUnreachable;
}

} // namespace stowline
