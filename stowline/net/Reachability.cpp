#include "stowline/net/Reachability.h"

#include "stowline/logging/LogMacros.h"
#include "stowline/net/ReachabilityTarget.h"
#include "stowline/platform/desktop/NotificationCenter.h"

#include <map>
#include <memory>

namespace stowline {

namespace {

using Registry = std::map<std::string, std::unique_ptr<ReachabilityTarget>, std::less<>>;

Registry& registry()
{
    static auto& hosts = *new Registry; // lives until the process ends
    return hosts;
}

void postChange(const std::string& host, platform::HostFlags flags)
{
    platform::NotificationCenter::shared().post(
        {kHostReachabilityDidChangeNotification,
         host,
         {{"isReachable", Reachability::isReachableWithFlags(flags)}}});
}

} // namespace

bool Reachability::addHostForReachabilityObservation(std::optional<std::string_view> hostName)
{
    if (!hostName)
        return false;
    const std::string host(*hostName);
    if (registry().contains(host))
        return true;
    auto target = reachabilityTargetFactory()(host);
    if (!target) {
        STOWLINE_LOG_ERROR("Unable to create reachability object for host %@", host);
        return false;
    }
    if (!target->setCallback([host](platform::HostFlags flags) { postChange(host, flags); })) {
        STOWLINE_LOG_ERROR("Unable to set reachability callback for host %@", host);
        return false;
    }
    if (!target->scheduleWithMainRunLoop()) {
        STOWLINE_LOG_ERROR("Unable to schedule reachability with main run loop for host %@", host);
        return false;
    }
    registry().emplace(host, std::move(target));
    return true;
}

void Reachability::removeHostFromReachabilityObservation(std::string_view host)
{
    const auto entry = registry().find(host);
    if (entry == registry().end())
        return;
    entry->second->unscheduleFromMainRunLoop();
    registry().erase(entry);
}

bool Reachability::isHostReachable(std::optional<std::string_view> hostName)
{
    if (!hostName)
        return false;
    const auto target = reachabilityTargetFactory()(std::string(*hostName));
    if (!target) {
        STOWLINE_LOG_ERROR("Unable to create reachability object for host %@", *hostName);
        return false;
    }
    const auto flags = target->flags();
    return flags && isReachableWithFlags(*flags);
}

bool Reachability::isReachableWithFlags(platform::HostFlags flags)
{
    constexpr auto required =
        platform::kHostConnectionRequired | platform::kHostInterventionRequired;
    return (flags & platform::kHostReachable) != 0 && (flags & required) == 0;
}

} // namespace stowline
