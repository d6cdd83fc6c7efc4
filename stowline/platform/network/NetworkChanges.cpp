#include "stowline/platform/network/NetworkChanges.h"

#include "stowline/platform/desktop/MainRunLoop.h"
#include "stowline/platform/network/HostFlags.h"

#include <array>
#include <cerrno>
#include <gio/gio.h>
#include <glib-unix.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <unistd.h>

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

void tell(GNetworkMonitor* monitor)
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

void onNetworkChanged(GNetworkMonitor* monitor, gboolean /*isAvailable*/, gpointer /*none*/)
{
    tell(monitor);
}

gboolean onLinkChanged(gint socket, GIOCondition /*condition*/, gpointer /*none*/)
{
    std::array<char, 8192> message{};
    // Too many messages at once (ENOBUFS) are a change as well.
    while (::recv(socket, message.data(), message.size(), 0) > 0 || errno == EINTR) {
    }
    tell(g_network_monitor_get_default());
    return G_SOURCE_CONTINUE;
}

/// The kernel's word on links and addresses: one that goes down takes its IPv4 routes away without
/// a message of their own, and the desktop's monitor listens to routes only.
void watchLinks()
{
    const int socket = ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE);
    sockaddr_nl groups = {};
    groups.nl_family = AF_NETLINK;
    groups.nl_groups = RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR;
    if (socket >= 0 &&
        ::bind(socket, reinterpret_cast<const sockaddr*>(&groups), sizeof groups) == 0)
        g_unix_fd_add(socket, G_IO_IN, onLinkChanged, nullptr);
    else if (socket >= 0)
        ::close(socket);
}

/// On the main loop, because the monitor reports to the context in which it was made.
void start()
{
    GNetworkMonitor* monitor = g_network_monitor_get_default();
    g_signal_connect(monitor, "network-changed", G_CALLBACK(onNetworkChanged), nullptr);
    watchLinks();
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
