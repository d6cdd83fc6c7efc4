#include "stowline/service/Diagnosis.h"

#include "stowline/platform/desktop/Bundle.h"
#include "stowline/platform/http/HttpExchange.h"
#include "stowline/platform/http/HttpMessage.h"
#include "stowline/platform/network/SystemProxy.h"
#include "stowline/platform/processes/ChildProcess.h"
#include "stowline/platform/text/Credentials.h"
#include "stowline/platform/text/HostName.h"
#include "stowline/platform/text/Text.h"
#include "stowline/platform/text/Url.h"
#include "stowline/platform/time/Date.h"
#include "stowline/platform/time/DateText.h"
#include "stowline/service/FailureSentence.h"
#include "stowline/service/WayToHost.h"
#include "stowline/service/WebServicesSettings.h"

#include <algorithm>
#include <set>

namespace stowline {

namespace {

constexpr std::chrono::seconds kPatience{10};
constexpr std::string_view kExample = ".example"; ///< a name that is nobody's (RFC 2606)
constexpr std::string_view kHost = "{0}";         ///< in sentences
constexpr std::string_view kPlaceToFill = "%@";

std::string rootOf(const platform::UrlOrigin& origin)
{
    return origin.scheme + "://" + origin.host + ":" + std::to_string(origin.port) + "/";
}

/// What lies behind an address once its places are filled, or the address itself when no call can
/// use it; absent when the host is such a place and the server that fills it is not known.
std::optional<std::string> target(const std::string& url, const std::string& server)
{
    static constexpr std::string_view mark = "stowline-fills-this";
    const auto origin = platform::originOf(platform::addressForCalls(
        platform::replacingOccurrences(url, kPlaceToFill, server.empty() ? mark : server)));
    if (!origin)
        return url;
    if (origin->host.find(mark) != std::string::npos)
        return std::nullopt;
    return rootOf(*origin);
}

/// A call for each entry of a table of the settings that has an address.
template <class Taker> void forEachEntry(const char* tableName, const Taker& taker)
{
    const auto& settings = WebServicesSettings::settingsDictionary();
    const Dictionary* table = settings ? platform::findDictionary(*settings, tableName) : nullptr;
    for (const auto& [name, entry] : table ? *table : Dictionary()) {
        const Dictionary* fields = entry.dictionary();
        if (const std::string* url = fields ? platform::findString(*fields, "URL") : nullptr)
            taker(name, *fields, *url);
    }
}

/// The way of the first call that goes over no proxy; of any when all go over one.
WayToHost wayOfCalls()
{
    WayToHost way;
    for (const std::string& address : serviceAddresses({})) {
        way = wayToHost(platform::addressForCalls(address));
        if (!way.isProxy)
            return way;
    }
    return way.isProxy ? way : wayToHost({});
}

/// The status of the answer to a body of one byte; absent when there is none.
std::optional<int> statusForBody(const std::string& root, const char* length)
{
    platform::HttpExchange exchange({.method = "POST",
                                     .url = root,
                                     .headers = {{"Content-Length", length}},
                                     .body = "0",
                                     .proxy = platform::systemProxyFor(root)},
                                    {});
    if (!exchange.wait(kPatience))
        return std::nullopt;
    const auto outcome = exchange.takeOutcome();
    if (!outcome.response)
        return std::nullopt;
    return platform::HttpResponseMessage::fromBytes(*outcome.response).statusCode;
}

const char* certificateWords(platform::CertificateFault fault)
{
    switch (fault) {
    case platform::CertificateFault::selfSigned:
        return "The certificate of {0} is self-signed, which this system does not trust. If "
               "the service is your own, add the certificate to the system's trusted ones "
               "(update-ca-certificates); if not, do not go on.";
    case platform::CertificateFault::unknownIssuer:
        return "The certificate of {0} comes from an issuer that this system does not trust. "
               "Please update the system's certificates (ca-certificates), or add the issuer's if "
               "it is your own.";
    case platform::CertificateFault::expired:
        return "The certificate of {0} has expired. Please check this machine's clock; if it is "
               "right, the provider must renew the certificate.";
    case platform::CertificateFault::notYetValid:
        return "The certificate of {0} is not valid yet. Please check this machine's clock.";
    case platform::CertificateFault::otherHost:
        return "The certificate of {0} is for another name. Please check the address in the "
               "settings; if it is right, do not go on.";
    case platform::CertificateFault::noTrust:
        return "The certificate of {0} cannot be checked: the certificates that are trusted cannot "
               "be read. Please check the file that SSL_CERT_FILE names, or unset it.";
    default:
        return "";
    }
}

/// Why there is no answer; of a certificate that is not taken also what to do about it.
std::string wordsFor(const platform::HttpOutcome& outcome, const std::string& host)
{
    const std::string words =
        outcome.reason == FailureKind::certificate ? certificateWords(outcome.certificate) : "";
    return words.empty() ? sentenceFor(outcome.reason, host)
                         : platform::replacingOccurrences(words, kHost, host);
}

Finding unwell(const std::string& subject, FailureKind kind, std::string text)
{
    return {subject, false, std::move(text), kind};
}

/// The time of an answer's Date, as "Sun, 06 Nov 1994 08:49:37 GMT".
std::optional<Date> timeToldBy(std::string_view response)
{
    constexpr std::string_view months = "JanFebMarAprMayJunJulAugSepOctNovDec";
    for (const auto& header : platform::HttpResponseMessage::fromBytes(response).headers) {
        const std::string& text = header.second;
        if (platform::asciiLowercase(header.first) != "date" || text.size() != 29)
            continue;
        const auto month = months.find(text.substr(8, 3));
        if (month == std::string_view::npos || month % 3 != 0)
            continue;
        const std::string number = std::to_string(101 + month / 3).substr(1);
        return platform::dateFromInternetTimeText(text.substr(12, 4) + "-" + number + "-" +
                                                  text.substr(5, 2) + "T" + text.substr(17, 8) +
                                                  "Z");
    }
    return std::nullopt;
}

} // namespace

/// Without an argument the helper ends with status 255 and says nothing.
Finding lookAtHelper()
{
    const auto tool = platform::Bundle::executableFolder() / "WebServiceCaller";
    const auto answer = platform::captureOutput({tool.string()}, kPatience);
    constexpr int expected = 255;
    if (!answer)
        return unwell("helper", FailureKind::helperFailed,
                      tool.string() + " cannot be run. " + answer.error().sentence());
    if (answer->exit.bySignal || answer->exit.status != expected)
        return unwell("helper", FailureKind::helperFailed,
                      tool.string() + " cannot be run. Please install the program again.");
    return {"helper", true, tool.string()};
}

Finding lookAtNetwork()
{
    const auto host = WebServicesSettings::reachabilityHost();
    if (!host)
        return unwell("network", FailureKind::invalidSettings,
                      "The settings name no ReachabilityHost.");
    const WayToHost way = wayOfCalls();
    if (way.isReachable && way.isProxy)
        return {"network", true, "There is a route to the proxy " + way.host};
    if (way.isReachable)
        return {"network", true, "There is a route to " + way.host};
    if (host->ends_with(kExample))
        return unwell("network", FailureKind::hostUnreachable,
                      "The settings in use name no service: " + *host +
                          " is an example. Please run \"stowline connect ADDRESS\" with the "
                          "address of yours.");
    return unwell("network", FailureKind::hostUnreachable,
                  sentenceFor(FailureKind::hostUnreachable, *host));
}

bool settingsNameNoService()
{
    const auto host = WebServicesSettings::reachabilityHost();
    return host && host->ends_with(kExample) &&
           std::ranges::all_of(serviceAddresses({}), [](const std::string& address) {
               const auto origin = platform::originOf(address);
               return origin && origin->host.ends_with(kExample);
           });
}

std::vector<std::string> serviceAddresses(const std::string& server)
{
    std::set<std::string> addresses;
    for (const char* table : {"WebServices", "WebRequests", "Templates"})
        forEachEntry(table, [&](const auto& /*name*/, const auto& /*fields*/, const auto& url) {
            if (const auto address = target(url, server))
                addresses.insert(*address);
        });
    return {addresses.begin(), addresses.end()};
}

std::map<std::string, std::string> addressesOfLetteredLengths(const std::string& server)
{
    std::map<std::string, std::string> requests;
    forEachEntry("WebRequests", [&](const auto& name, const auto& fields, const auto& url) {
        const std::string* method = platform::findString(fields, "httpMethod");
        const Value* plain = platform::find(fields, "plainContentLength");
        const bool isPlain = plain && plain->boolean() && *plain->boolean();
        const auto address = target(url, server);
        if (method && *method != "GET" && !isPlain && address)
            requests.emplace(*address, name);
    });
    return requests;
}

std::optional<Finding> lookAtLetteredLength(const std::string& address, const std::string& request)
{
    constexpr int notUnderstood = 400;
    const auto lettered = statusForBody(address, "1u");
    if (lettered && *lettered != notUnderstood)
        return std::nullopt;
    // Only where the letter makes the difference.
    const auto plain = statusForBody(address, "1");
    if (!plain || *plain == notUnderstood)
        return std::nullopt;
    return unwell("length", FailureKind::badRequest,
                  platform::addressWithoutCredentials(address) +
                      " does not accept a length followed by a letter, such as \"" + request +
                      "\" sends it. Please set plainContentLength to true there in the settings.");
}

Finding lookAtAddress(const std::string& address)
{
    const std::string shown = platform::addressWithoutCredentials(address);
    const auto origin = platform::originOf(platform::addressForCalls(address));
    if (!origin)
        return unwell("address", FailureKind::invalidSettings,
                      "\"" + shown +
                          "\" is not an address that a call can use. Please write it as "
                          "https://HOST/PATH or http://HOST:PORT/PATH in the settings.");
    const std::string subject = origin->scheme == "https" ? "tls" : "http";
    const std::string host = origin->host + ":" + std::to_string(origin->port);
    const std::string root = rootOf(*origin);
    platform::HttpExchange exchange(
        {.method = "GET", .url = root, .proxy = platform::systemProxyFor(root)}, {});
    if (!exchange.wait(kPatience))
        return unwell(subject, FailureKind::timeOut,
                      shown + " does not answer within 10 seconds. Please try again later.");
    const auto outcome = exchange.takeOutcome();
    if (!outcome.response)
        return unwell(subject, outcome.reason, wordsFor(outcome, host));
    constexpr int wantsProxyCredentials = 407;
    if (platform::HttpResponseMessage::fromBytes(*outcome.response).statusCode ==
        wantsProxyCredentials)
        return unwell("proxy", FailureKind::proxyRefused,
                      sentenceFor(FailureKind::proxyRefused, host));
    return {subject, true, shown + " answers"};
}

std::optional<Finding> lookAtClock(const std::string& address)
{
    const auto origin = platform::originOf(platform::addressForCalls(address));
    if (!origin)
        return std::nullopt;
    const std::string root = rootOf(*origin);
    platform::HttpExchange exchange(
        {.method = "GET", .url = root, .proxy = platform::systemProxyFor(root)}, {});
    if (!exchange.wait(kPatience))
        return std::nullopt;
    const auto outcome = exchange.takeOutcome();
    const auto told = timeToldBy(outcome.response.value_or(""));
    if (!told)
        return std::nullopt;
    constexpr std::chrono::minutes most{5};
    const auto ahead = platform::currentDate() - *told;
    const auto minutes = std::chrono::duration_cast<std::chrono::minutes>(ahead).count();
    const std::string text = platform::countText(
        static_cast<std::uint64_t>(minutes < 0 ? -minutes : minutes), "minute", "minutes");
    if (ahead > most || ahead < -most)
        return unwell("clock", FailureKind::unspecified,
                      "The clock of this machine is " + text +
                          (ahead > most ? " ahead of" : " behind") + " that of " + origin->host +
                          ". Please set it, or have the system keep it (\"timedatectl set-ntp "
                          "true\").");
    return Finding{"clock", true, "agrees with " + origin->host};
}

std::optional<Finding> firstTrouble()
{
    for (const auto look : {lookAtHelper, lookAtNetwork}) {
        if (Finding finding = look(); !finding.isWell)
            return finding;
    }
    for (const std::string& address : serviceAddresses({})) {
        if (Finding finding = lookAtAddress(address); !finding.isWell)
            return finding;
    }
    return std::nullopt;
}

bool desktopNamesAProxy(const std::string& server)
{
    const auto addresses = serviceAddresses(server);
    return std::ranges::any_of(addresses, [](const std::string& address) {
        return !platform::systemProxyFor(platform::addressForCalls(address)).empty();
    });
}

} // namespace stowline
