#include "tests/support/DesktopProxy.h"

#include <atomic>
#include <cstdlib>
#include <gio/gio.h>
#include <thread>

namespace {

std::string& namedProxy()
{
    static auto& proxy = *new std::string;
    return proxy;
}

std::chrono::milliseconds delay{};
std::atomic<int> questions = 0;

gchar** lookup(GProxyResolver*, const gchar*, GCancellable*, GError**)
{
    ++questions;
    std::this_thread::sleep_for(delay);
    const char* const list[] = {namedProxy().c_str(), nullptr};
    return g_strdupv(const_cast<gchar**>(list));
}

gboolean isSupported(GProxyResolver*)
{
    return TRUE;
}

void makeInterface(gpointer interface, gpointer)
{
    auto* resolver = static_cast<GProxyResolverInterface*>(interface);
    resolver->is_supported = isSupported;
    resolver->lookup = lookup;
}

GType resolverType()
{
    const GTypeInfo info{.class_size = sizeof(GObjectClass),
                         .base_init = nullptr,
                         .base_finalize = nullptr,
                         .class_init = nullptr,
                         .class_finalize = nullptr,
                         .class_data = nullptr,
                         .instance_size = sizeof(GObject),
                         .n_preallocs = 0,
                         .instance_init = nullptr,
                         .value_table = nullptr};
    const GType type =
        g_type_register_static(G_TYPE_OBJECT, "StowlineTestProxy", &info, G_TYPE_FLAG_NONE);
    const GInterfaceInfo interface {
        makeInterface, nullptr, nullptr
    };
    g_type_add_interface_static(type, G_TYPE_PROXY_RESOLVER, &interface);
    return type;
}

} // namespace

namespace stowline::test {

void setDesktopProxy(const std::string& proxy, std::chrono::milliseconds after)
{
    namedProxy() = proxy;
    delay = after;
    ::setenv("GIO_USE_PROXY_RESOLVER", "stowline-test", 1);
    static const GType type = resolverType();
    g_io_extension_point_register(G_PROXY_RESOLVER_EXTENSION_POINT_NAME);
    g_io_extension_point_implement(G_PROXY_RESOLVER_EXTENSION_POINT_NAME, type, "stowline-test",
                                   1000);
}

int desktopProxyQuestions()
{
    return questions;
}

} // namespace stowline::test
