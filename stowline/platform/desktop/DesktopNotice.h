// Telling the person at the desktop, who may be looking at something else.
#pragma once

#include <string>

#pragma GCC visibility push(default)
namespace stowline::platform {

struct DesktopNotice {
    std::string application; ///< whose notice it is
    std::string title;       ///< one line
    std::string text;        ///< plain
};

/// Shows a notice that stays until the person takes it away, by the desktop's notification service
/// (org.freedesktop.Notifications) on the session bus that the environment names
/// (DBUS_SESSION_BUS_ADDRESS, else "bus" in XDG_RUNTIME_DIR). Blocks for two seconds at most,
/// whatever the bus does. Any thread.
/// @return whether the service took it; false where there is no session, bus or service
bool showDesktopNotice(const DesktopNotice& notice);

} // namespace stowline::platform
#pragma GCC visibility pop
