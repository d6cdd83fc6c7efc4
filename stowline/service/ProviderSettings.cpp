#include "stowline/service/ProviderSettings.h"

#include "stowline/platform/files/Files.h"
#include "stowline/platform/http/HttpExchange.h"
#include "stowline/platform/http/HttpMessage.h"
#include "stowline/platform/network/SystemProxy.h"
#include "stowline/platform/text/HostName.h"
#include "stowline/platform/text/Text.h"
#include "stowline/platform/text/Url.h"
#include "stowline/platform/values/PropertyList.h"
#include "stowline/service/FailureSentence.h"

#include <algorithm>
#include <chrono>
#include <set>

namespace stowline {

namespace {

constexpr std::chrono::seconds kPatience{30};
constexpr std::size_t kMostBytes = std::size_t{4} << 20; ///< those that are shipped have 40 KiB
constexpr std::string_view kPlaceToFill = "%@";
constexpr std::string_view kSecure = "https";
using Kind = SettingsRefusal::Kind;

/// Whether a host is this machine whatever the network says (RFC 1122 section 3.2.1.3, RFC 6761
/// section 6.3).
bool isThisMachine(const std::string& host)
{
    return host == "localhost" || host == "::1" || host == "[::1]" ||
           (host.starts_with("127.") && host.find_first_not_of("0123456789.") == std::string::npos);
}

/// The address of the file; absent when the text is not an address.
std::optional<std::string> addressOfFile(const std::string& text)
{
    const std::string full = text.find("://") == std::string::npos ? "https://" + text : text;
    const std::string address = platform::addressForCalls(full);
    const auto origin = platform::originOf(address);
    if (!origin || origin->host.empty())
        return std::nullopt;
    const auto path = address.find('/', address.find("://") + 3);
    if (path != std::string::npos && path + 1 < address.size())
        return address;
    return address.substr(0, path) + std::string(kProviderSettingsPath);
}

/// The addresses of all entries of the settings.
std::vector<std::string> addressesIn(const Dictionary& settings)
{
    std::vector<std::string> addresses;
    for (const char* name : {"WebServices", "WebRequests", "Templates"}) {
        const Dictionary* table = platform::findDictionary(settings, name);
        for (const auto& [entry, value] : table ? *table : Dictionary()) {
            const Dictionary* fields = value.dictionary();
            if (const std::string* url = fields ? platform::findString(*fields, "URL") : nullptr)
                addresses.push_back(*url);
        }
    }
    return addresses;
}

/// Whether calls may go to an address of the settings.
bool isTaken(const std::string& url, const platform::UrlOrigin& from)
{
    const auto origin = platform::originOf(
        platform::addressForCalls(platform::replacingOccurrences(url, kPlaceToFill, from.host)));
    return origin &&
           (origin->scheme == kSecure || (from.scheme != kSecure && isThisMachine(origin->host)));
}

/// Where the calls of the settings go, but those whose server is named by the service.
std::vector<std::string> originsOf(const Dictionary& settings)
{
    std::set<std::string> origins;
    for (const std::string& url : addressesIn(settings)) {
        const auto origin = platform::originOf(platform::addressForCalls(url));
        if (origin && url.find(kPlaceToFill) == std::string::npos)
            origins.insert(platform::textOf(*origin));
    }
    return {origins.begin(), origins.end()};
}

/// What a status tells that is neither of the file nor of its want.
std::optional<FailureKind> reasonOf(int status)
{
    constexpr int firstOfServer = 500;
    if (status >= firstOfServer)
        return FailureKind::fault;
    if (status == 401 || status == 403)
        return FailureKind::refusedByService;
    return std::nullopt;
}

std::variant<ProviderSettings, SettingsRefusal>
examined(std::string bytes, const std::string& address, const platform::UrlOrigin& from)
{
    auto faults = checkSettings(bytes);
    if (!faults.empty()) {
        return SettingsRefusal{Kind::faulty,
                               "The settings at " + address +
                                   " have faults and were not accepted. Please tell the provider.",
                               std::move(faults)};
    }
    const auto reading = platform::readPropertyList(bytes);
    const Dictionary* settings = reading.value ? reading.value->dictionary() : nullptr;
    if (!settings)
        return SettingsRefusal{Kind::faulty, address + " is not a property list.", {}};
    for (const std::string& url : addressesIn(*settings)) {
        if (!isTaken(url, from))
            return SettingsRefusal{
                Kind::faulty,
                "The settings at " + address + " send calls to " +
                    platform::withoutCredentials(url) +
                    ", which is not encrypted. They were not accepted. Please tell "
                    "the provider.",
                {}};
    }
    auto origins = originsOf(*settings);
    return ProviderSettings{std::move(bytes), std::move(origins)};
}

} // namespace

std::variant<ProviderSettings, SettingsRefusal> fetchProviderSettings(const std::string& text)
{
    const auto address = addressOfFile(text);
    const std::string shown = platform::withoutCredentials(address.value_or(text));
    const auto origin = platform::originOf(address.value_or(""));
    if (!origin)
        return SettingsRefusal{Kind::address,
                               "\"" + shown +
                                   "\" is not an address. Please write it as https://HOST.",
                               {}};
    if (origin->scheme != kSecure && !isThisMachine(origin->host))
        return SettingsRefusal{Kind::address,
                               shown + " is not encrypted, and the settings decide where passwords "
                                       "go. Please write the address with https://.",
                               {}};
    // What is asked of this machine leaves it in no way.
    const bool isHere = isThisMachine(origin->host);
    platform::HttpExchange exchange(
        {.method = "GET",
         .url = *address,
         .staysAtOrigin = true,
         .proxy = isHere ? std::string() : platform::systemProxyFor(*address),
         .usesNoProxy = isHere},
        {.maximumResponseBytes = kMostBytes});
    if (!exchange.wait(kPatience))
        return SettingsRefusal{Kind::unreachable,
                               shown + " does not answer within 30 seconds. Please try again "
                                       "later.",
                               {},
                               FailureKind::timeOut};
    auto outcome = exchange.takeOutcome();
    if (!outcome.response)
        return SettingsRefusal{
            Kind::unreachable, sentenceFor(outcome.reason, origin->host), {}, outcome.reason};
    constexpr int ok = 200;
    const int status = platform::HttpResponseMessage::fromBytes(*outcome.response).statusCode;
    if (const auto reason = reasonOf(status))
        return SettingsRefusal{Kind::unreachable,
                               shown + " answers with status " + std::to_string(status) + ". " +
                                   (*reason == FailureKind::fault
                                        ? "Please try again later."
                                        : "Please ask the provider whether the address is right."),
                               {},
                               *reason};
    if (status != ok)
        return SettingsRefusal{
            Kind::notFound,
            "No settings were found at " + shown + " (status " + std::to_string(status) +
                "). Please ask the provider for the address of its settings file.",
            {}};
    return examined(std::move(outcome.body), shown, *origin);
}

std::optional<std::filesystem::path> keptProviderSettings()
{
    const auto folder = platform::configurationFolder();
    return folder ? std::optional(*folder / "provider.plist") : std::nullopt;
}

} // namespace stowline
