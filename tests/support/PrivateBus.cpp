#include "tests/support/PrivateBus.h"

#include <gio/gio.h>

#include <algorithm>
#include <filesystem>
#include <mutex>
#include <stdexcept>
#include <thread>

namespace stowline::test {

namespace {

constexpr const char* kDaemon = "/usr/bin/dbus-daemon";

/// Anybody may own and call anything.
constexpr const char* kConfiguration = R"(<busconfig>
<type>session</type>
<listen>unix:tmpdir=/tmp</listen>
<policy context="default"><allow send_destination="*" eavesdrop="true"/><allow eavesdrop="true"/><allow own="*"/></policy>
</busconfig>
)";

std::string pathOf(std::string name)
{
    std::ranges::replace(name, '.', '/');
    return "/" + name;
}

} // namespace

bool PrivateBus::isInstalled()
{
    return std::filesystem::exists(kDaemon);
}

PrivateBus::PrivateBus()
{
    const auto configuration = folder_.write("bus.conf", kConfiguration);
    daemon_.emplace(ProgramRun{.words = {kDaemon, "--config-file=" + configuration.string(),
                                         "--nofork", "--nopidfile", "--print-address=1"}});
    address_ = daemon_->readLine().value_or("");
    if (address_.empty())
        throw std::runtime_error("dbus-daemon does not start: " + daemon_->wait().errors);
}

struct BusService::Parts {
    std::map<std::string, std::uint32_t> numbers;
    std::mutex mutex;
    std::vector<std::string> calls;
    GMainContext* context = ::g_main_context_new();
    GMainLoop* loop = ::g_main_loop_new(context, 0);
    GDBusNodeInfo* description = nullptr;
    GDBusConnection* connection = nullptr;
    std::thread thread;

    static void take(GDBusConnection* /*connection*/, const gchar* /*sender*/,
                     const gchar* /*path*/, const gchar* /*interface*/, const gchar* method,
                     GVariant* arguments, GDBusMethodInvocation* invocation, gpointer parts)
    {
        auto& self = *static_cast<Parts*>(parts);
        char* text = ::g_variant_print(arguments, 0);
        {
            const std::lock_guard lock(self.mutex);
            self.calls.push_back(std::string(method) + text);
        }
        ::g_free(text);
        ::g_dbus_method_invocation_return_value(invocation, ::g_variant_new("(u)", 1U));
    }

    static GVariant* tell(GDBusConnection* /*connection*/, const gchar* /*sender*/,
                          const gchar* /*path*/, const gchar* /*interface*/, const gchar* property,
                          GError** /*error*/, gpointer parts)
    {
        return ::g_variant_new_uint32(static_cast<Parts*>(parts)->numbers.at(property));
    }
};

BusService::BusService(const PrivateBus& bus, const std::string& name, const std::string& members,
                       std::map<std::string, std::uint32_t> numbers)
    : parts_(std::make_unique<Parts>())
{
    static const GDBusInterfaceVTable work{Parts::take, Parts::tell, nullptr, {}};
    const auto expect = [&name](const void* thing) {
        if (!thing)
            throw std::runtime_error(name + " cannot be served");
    };
    Parts& parts = *parts_;
    parts.numbers = std::move(numbers);
    ::g_main_context_push_thread_default(parts.context);
    parts.connection = ::g_dbus_connection_new_for_address_sync(
        bus.address().c_str(),
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, nullptr);
    expect(parts.connection);
    std::string described("<node><interface name='");
    described += name + "'>" + members + "</interface></node>";
    parts.description = ::g_dbus_node_info_new_for_xml(described.c_str(), nullptr);
    expect(parts.description);
    const unsigned registered = ::g_dbus_connection_register_object(
        parts.connection, pathOf(name).c_str(), parts.description->interfaces[0], &work, &parts,
        nullptr, nullptr);
    expect(registered == 0 ? nullptr : &registered);
    ::g_main_context_pop_thread_default(parts.context);
    parts.thread = std::thread([&parts] { ::g_main_loop_run(parts.loop); });
    GVariant* owned = ::g_dbus_connection_call_sync(
        parts.connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
        "RequestName", ::g_variant_new("(su)", name.c_str(), 0U), nullptr, G_DBUS_CALL_FLAGS_NONE,
        -1, nullptr, nullptr);
    expect(owned);
    ::g_variant_unref(owned);
}

BusService::~BusService()
{
    Parts& parts = *parts_;
    // From its own loop, so that one that does not run yet is ended too.
    ::g_main_context_invoke(
        parts.context,
        [](gpointer loop) -> gboolean {
            ::g_main_loop_quit(static_cast<GMainLoop*>(loop));
            return G_SOURCE_REMOVE;
        },
        parts.loop);
    parts.thread.join();
    ::g_dbus_connection_close_sync(parts.connection, nullptr, nullptr);
    ::g_object_unref(parts.connection);
    ::g_dbus_node_info_unref(parts.description);
    ::g_main_loop_unref(parts.loop);
    ::g_main_context_unref(parts.context);
}

std::vector<std::string> BusService::calls() const
{
    const std::lock_guard lock(parts_->mutex);
    return parts_->calls;
}

std::unique_ptr<BusService> notificationService(const PrivateBus& bus)
{
    return std::make_unique<BusService>(
        bus, "org.freedesktop.Notifications",
        "<method name='Notify'><arg type='s' direction='in'/><arg type='u' direction='in'/>"
        "<arg type='s' direction='in'/><arg type='s' direction='in'/><arg type='s' "
        "direction='in'/><arg type='as' direction='in'/><arg type='a{sv}' direction='in'/>"
        "<arg type='i' direction='in'/><arg type='u' direction='out'/></method>");
}

std::unique_ptr<BusService> networkManager(const PrivateBus& bus, std::uint32_t metered)
{
    constexpr std::uint32_t connected = 4; // NM_CONNECTIVITY_FULL
    constexpr std::uint32_t global = 70;   // NM_STATE_CONNECTED_GLOBAL
    std::string members;
    for (const char* property : {"Connectivity", "Metered", "State"})
        members += std::string("<property name='") + property + "' type='u' access='read'/>";
    return std::make_unique<BusService>(
        bus, "org.freedesktop.NetworkManager", members,
        std::map<std::string, std::uint32_t>{
            {"Connectivity", connected}, {"Metered", metered}, {"State", global}});
}

} // namespace stowline::test
