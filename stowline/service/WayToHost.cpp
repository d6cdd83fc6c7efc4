#include "stowline/service/WayToHost.h"

#include "stowline/net/Reachability.h"
#include "stowline/platform/network/SystemProxy.h"
#include "stowline/platform/threads/StopRequest.h"
#include "stowline/service/SettingsTables.h"

namespace stowline {

namespace {

constexpr std::string_view kExample = ".example"; ///< a name that is nobody's (RFC 2606)

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
    return isStopRequested() ? FailureKind::stopped : FailureKind::hostUnreachable;
}

} // namespace stowline
