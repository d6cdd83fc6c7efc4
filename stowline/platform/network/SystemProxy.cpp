#include "stowline/platform/network/SystemProxy.h"

#include "stowline/platform/text/Text.h"

#include <gio/gio.h>

#include <array>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string_view>

namespace stowline::platform {

namespace {

struct ListDeleter {
    void operator()(char** list) const { g_strfreev(list); }
};

bool isSet(const char* variable)
{
    const char* value = std::getenv(variable);
    return value && *value != '\0';
}

bool environmentDecides(const std::string& url)
{
    const bool isSecure = asciiLowercase(url).starts_with("https:");
    for (const char* variable : {"all_proxy", "ALL_PROXY", isSecure ? "https_proxy" : "http_proxy",
                                 isSecure ? "HTTPS_PROXY" : "http_proxy"}) {
        if (isSet(variable))
            return true;
    }
    return false;
}

} // namespace

std::string usableProxy(const char* const* answer)
{
    constexpr std::array<std::string_view, 5> known{"http://", "https://", "socks4://",
                                                    "socks4a://", "socks5://"};
    constexpr std::string_view unspecific = "socks://";
    const std::string_view first = answer && *answer ? *answer : "";
    if (first.starts_with(unspecific))
        return "socks5://" + std::string(first.substr(unspecific.size()));
    for (const std::string_view kind : known) {
        if (first.starts_with(kind))
            return std::string(first);
    }
    return {};
}

std::string systemProxyFor(const std::string& url)
{
    if (environmentDecides(url))
        return {};
    // One at a time: the resolvers share state that they make on first use.
    static std::mutex mutex;
    const std::lock_guard lock(mutex);
    const std::unique_ptr<char*, ListDeleter> answer(
        g_proxy_resolver_lookup(g_proxy_resolver_get_default(), url.c_str(), nullptr, nullptr));
    return usableProxy(answer.get());
}

} // namespace stowline::platform
