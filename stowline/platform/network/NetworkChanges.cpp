#include "stowline/platform/network/NetworkChanges.h"

#include "stowline/platform/desktop/MainRunLoop.h"
#include "stowline/platform/network/HostFlags.h"

#include <gio/gio.h>

#include <mutex>
#include <utility>

namespace stowline::platform {

namespace {

struct Watch {
    std::mutex mutex;
    std::function<void()> onChange;
    bool started = false;
};

Watch& watch()
{
    static auto& instance = *new Watch; // never destroyed: the main loop may still call
    return instance;
}

void onNetworkChanged(GNetworkMonitor* monitor, gboolean, gpointer)
{
    setCaptivePortal(g_network_monitor_get_connectivity(monitor) == G_NETWORK_CONNECTIVITY_PORTAL);
    std::function<void()> onChange;
    {
        const std::lock_guard lock(watch().mutex);
        onChange = watch().onChange;
    }
    if (onChange)
        onChange();
}

/// On the main loop, because the monitor reports to the context in which it was made.
void start()
{
    GNetworkMonitor* monitor = g_network_monitor_get_default();
    g_signal_connect(monitor, "network-changed", G_CALLBACK(onNetworkChanged), nullptr);
}

} // namespace

void NetworkChanges::observe(std::function<void()> onChange)
{
    const std::lock_guard lock(watch().mutex);
    watch().onChange = std::move(onChange);
    if (!std::exchange(watch().started, true))
        MainRunLoop::perform(start);
}

} // namespace stowline::platform
