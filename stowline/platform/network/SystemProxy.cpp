#include "stowline/platform/network/SystemProxy.h"

#include "stowline/platform/text/Text.h"
#include "stowline/platform/threads/ForkSafety.h"
#include "stowline/platform/threads/SerialQueue.h"

#include <gio/gio.h>

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <exception>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
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

/// Asks the desktop, for as long as that takes.
std::string lookedUp(const std::string& url)
{
    const std::unique_ptr<char*, ListDeleter> answer(
        g_proxy_resolver_lookup(g_proxy_resolver_get_default(), url.c_str(), nullptr, nullptr));
    return usableProxy(answer.get());
}

/// How long a call waits for the desktop's word.
constexpr std::chrono::seconds kPatience{2};

/// How long that word is good for the calls after it: asking costs each of many calls a part of its
/// time, and a change of the desktop's settings may wait this long.
constexpr std::chrono::seconds kValidFor{1};

/// The last word for each address that was asked about lately.
class KnownProxies {
public:
    using Clock = std::chrono::steady_clock;

    std::optional<std::string> find(const std::string& url)
    {
        const std::lock_guard lock(mutex_);
        const auto known = proxies_.find(url);
        if (known == proxies_.end() || Clock::now() - known->second.since >= kValidFor)
            return std::nullopt;
        return known->second.proxy;
    }

    void remember(const std::string& url, const std::string& proxy)
    {
        constexpr std::size_t most = 64;
        const std::lock_guard lock(mutex_);
        if (proxies_.size() >= most)
            proxies_.clear();
        proxies_[url] = {proxy, Clock::now()};
    }

private:
    struct Known {
        std::string proxy;
        Clock::time_point since;
    };
    ForkSafeMutex mutex_;
    std::map<std::string, Known> proxies_;
};

struct Answer {
    std::mutex mutex;
    std::condition_variable arrived;
    std::optional<std::string> proxy;
    std::exception_ptr fault;
};

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
    static auto& lookups = *new SerialQueue("stowline.proxy"); // lives until the process ends
    static std::atomic<bool> isStuck = false;
    static auto& known = *new KnownProxies();
    if (auto proxy = known.find(url))
        return *proxy;
    if (isStuck)
        return {};
    const auto found = std::make_shared<Answer>();
    lookups.async([url, found] {
        std::string proxy;
        std::exception_ptr fault;
        try {
            proxy = lookedUp(url);
        } catch (...) {
            fault = std::current_exception();
        }
        {
            const std::lock_guard lock(found->mutex);
            found->proxy = std::move(proxy);
            found->fault = fault;
        }
        found->arrived.notify_all();
        isStuck = false;
    });
    std::unique_lock lock(found->mutex);
    if (!found->arrived.wait_for(lock, kPatience, [&] { return found->proxy.has_value(); })) {
        isStuck = true; // until it answers after all
        return {};
    }
    if (found->fault)
        std::rethrow_exception(found->fault);
    known.remember(url, *found->proxy);
    return *found->proxy;
}

} // namespace stowline::platform
