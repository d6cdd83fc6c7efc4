#include "stowline/service/WayToHost.h"

#include "stowline/net/Reachability.h"
#include "stowline/platform/files/DescriptorLimit.h"
#include "stowline/platform/network/SystemProxy.h"
#include "stowline/platform/processes/ChildProcess.h"
#include "stowline/platform/threads/StopRequest.h"
#include "stowline/service/SettingsTables.h"

#include <cerrno>

namespace stowline {

namespace {

constexpr std::string_view kExample = ".example"; ///< a name that is nobody's (RFC 2606)

/// The helper is started with five; a look-up needs fewer.
constexpr std::size_t kDescriptorsOfACall = 5;

bool isStopRequested()
{
    const StopRequest* stop = StopRequest::ofThisThread();
    return stop && stop->isRequested();
}

} // namespace

WayToHost wayToHost(const std::string& url)
{
    const auto host = settingsTables::reachabilityHost();
    if (!host)
        return {};
    const std::string proxy = host->ends_with(kExample) ? "" : platform::proxyHostFor(url);
    if (!proxy.empty() && Reachability::isHostReachable(proxy))
        return {.host = proxy, .isProxy = true, .isReachable = true};
    return {.host = *host, .isReachable = Reachability::isHostReachable(host)};
}

std::optional<FailureKind> obstacleOnTheWay(const std::string& url)
{
    if (isStopRequested())
        return FailureKind::stopped;
    if (wayToHost(url).isReachable)
        return std::nullopt;
    if (isStopRequested())
        return FailureKind::stopped;
    // Of which neither the name service nor the kernel's answer tells.
    return platform::areDescriptorsFree(kDescriptorsOfACall) ? FailureKind::hostUnreachable
                                                             : FailureKind::helperFailed;
}

std::string sentenceOfObstacle(FailureKind obstacle, std::string_view unreachable)
{
    if (obstacle == FailureKind::stopped)
        return "The call was stopped.";
    if (obstacle == FailureKind::helperFailed)
        return platform::StartFailure{EMFILE}.sentence();
    return std::string(unreachable);
}

} // namespace stowline
