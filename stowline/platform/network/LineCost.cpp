#include "stowline/platform/network/LineCost.h"

#include "stowline/platform/threads/Patience.h"

#include <gio/gio.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string_view>

namespace stowline::platform {

namespace {

constexpr std::chrono::seconds kPatience{5};

LineCost asked()
{
    GNetworkMonitor* monitor = ::g_network_monitor_get_default();
    // The other kinds always say that a line is not metered.
    const std::string_view kind = G_OBJECT_TYPE_NAME(monitor);
    if (kind != "GNetworkMonitorNM" && kind != "GNetworkMonitorPortal")
        return LineCost::unknown;
    return ::g_network_monitor_get_network_metered(monitor) != 0 ? LineCost::byVolume
                                                                 : LineCost::notByVolume;
}

} // namespace

LineCost lineCost()
{
    const auto found = std::make_shared<std::atomic<LineCost>>(LineCost::unknown);
    (void)isDoneWithin(kPatience, [found] { *found = asked(); });
    return *found;
}

} // namespace stowline::platform
