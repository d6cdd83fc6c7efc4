#include "stowline/platform/desktop/DesktopNotice.h"

#include "stowline/platform/threads/Patience.h"

#include <gio/gio.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>

namespace stowline::platform {

namespace {

constexpr std::chrono::milliseconds kPatience{2000};
/// "Critical": stays until it is taken away (org.freedesktop.Notifications, "Urgency
/// Levels").
constexpr unsigned char kStays = 2;

struct Unref {
    void operator()(void* object) const { ::g_object_unref(object); }
    void operator()(GVariant* variant) const { ::g_variant_unref(variant); }
};
struct Free {
    void operator()(char* text) const { ::g_free(text); }
};
using OwnedText = std::unique_ptr<char, Free>;

std::string variable(const char* name)
{
    const char* value = std::getenv(name);
    return value ? value : "";
}

/// Never one that would start a bus.
std::optional<std::string> sessionBus()
{
    const std::string named = variable("DBUS_SESSION_BUS_ADDRESS");
    if (!named.empty())
        return named.starts_with("autolaunch:") ? std::nullopt : std::optional(named);
    const std::string folder = variable("XDG_RUNTIME_DIR");
    const std::string socket = folder + "/bus";
    std::error_code unknown;
    if (folder.empty() || !std::filesystem::is_socket(socket, unknown))
        return std::nullopt;
    const OwnedText escaped(::g_dbus_address_escape_value(socket.c_str()));
    return "unix:path=" + std::string(escaped.get());
}

GVariant* argumentsFor(const DesktopNotice& notice)
{
    // What a service shows as text it reads as markup.
    const OwnedText text(::g_markup_escape_text(notice.text.c_str(), -1));
    GVariantBuilder actions;
    GVariantBuilder hints;
    ::g_variant_builder_init(&actions, G_VARIANT_TYPE("as"));
    ::g_variant_builder_init(&hints, G_VARIANT_TYPE("a{sv}"));
    ::g_variant_builder_add(&hints, "{sv}", "urgency", ::g_variant_new_byte(kStays));
    return ::g_variant_new("(susssasa{sv}i)", notice.application.c_str(), 0U, "dialog-warning",
                           notice.title.c_str(), text.get(), &actions, &hints, -1);
}

bool isTaken(const std::string& bus, const DesktopNotice& notice)
{
    constexpr auto flags =
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
    const std::unique_ptr<GDBusConnection, Unref> connection(
        ::g_dbus_connection_new_for_address_sync(bus.c_str(), flags, nullptr, nullptr, nullptr));
    if (!connection)
        return false;
    const std::unique_ptr<GVariant, Unref> answer(::g_dbus_connection_call_sync(
        connection.get(), "org.freedesktop.Notifications", "/org/freedesktop/Notifications",
        "org.freedesktop.Notifications", "Notify", argumentsFor(notice), G_VARIANT_TYPE("(u)"),
        G_DBUS_CALL_FLAGS_NONE, static_cast<int>(kPatience.count()), nullptr, nullptr));
    return answer != nullptr;
}

} // namespace

bool showDesktopNotice(const DesktopNotice& notice)
{
    const auto bus = sessionBus();
    if (!bus)
        return false;
    const auto isShown = std::make_shared<std::atomic<bool>>(false);
    return isDoneWithin(kPatience, [bus, notice, isShown] { *isShown = isTaken(*bus, notice); }) &&
           *isShown;
}

} // namespace stowline::platform
