#include "stowline/platform/text/Url.h"

#include "stowline/platform/text/Text.h"

#include <curl/urlapi.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

namespace stowline::platform {

namespace {

bool isHexadecimal(char c)
{
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

bool mayStand(std::string_view text, std::size_t at)
{
    const char c = text[at];
    if (c == '%')
        return at + 2 < text.size() && isHexadecimal(text[at + 1]) && isHexadecimal(text[at + 2]);
    return c > ' ' && c < '\x7f' &&
           std::string_view("\"<>\\^`{|}").find(c) == std::string_view::npos;
}

bool isSchemeName(std::string_view text)
{
    const auto isLetter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
    return !text.empty() && isLetter(text.front()) && std::ranges::all_of(text, [&](char c) {
        return isLetter(c) || (c >= '0' && c <= '9') || c == '+' || c == '-' || c == '.';
    });
}

std::optional<std::string> part(CURLU* url, CURLUPart which, unsigned flags = 0)
{
    char* text = nullptr;
    if (curl_url_get(url, which, &text, flags) != CURLUE_OK)
        return std::nullopt;
    const std::unique_ptr<char, decltype(&curl_free)> owner(text, &curl_free);
    return asciiLowercase(text);
}

} // namespace

std::optional<Url> Url::fromText(std::string_view text)
{
    const auto firstDelimiter = text.find_first_of(":/?#");
    if (firstDelimiter != std::string_view::npos && text[firstDelimiter] == ':' &&
        !isSchemeName(text.substr(0, firstDelimiter)))
        return std::nullopt;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (!mayStand(text, at))
            return std::nullopt;
    }
    return text.empty() ? std::nullopt : std::optional(Url(std::string(text)));
}

std::string percentEscaped(std::string_view text)
{
    static constexpr std::string_view digits = "0123456789ABCDEF";
    std::string escaped;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (mayStand(text, at)) {
            escaped.push_back(text[at]);
            continue;
        }
        const auto byte = static_cast<unsigned char>(text[at]);
        escaped.append({'%', digits[byte >> 4], digits[byte & 0x0FU]});
    }
    return escaped;
}

std::optional<UrlOrigin> originOf(const std::string& text)
{
    const std::unique_ptr<CURLU, decltype(&curl_url_cleanup)> url(curl_url(), &curl_url_cleanup);
    if (curl_url_set(url.get(), CURLUPART_URL, text.c_str(), 0) != CURLUE_OK)
        return std::nullopt;
    const auto scheme = part(url.get(), CURLUPART_SCHEME);
    const auto host = part(url.get(), CURLUPART_HOST);
    const auto port = part(url.get(), CURLUPART_PORT, CURLU_DEFAULT_PORT);
    if (!scheme || !host || !port || (*scheme != "http" && *scheme != "https"))
        return std::nullopt;
    return UrlOrigin{*scheme, *host, static_cast<std::uint16_t>(leadingInteger(*port))};
}

std::string textOf(const UrlOrigin& origin)
{
    constexpr std::uint16_t http = 80;
    constexpr std::uint16_t https = 443;
    const bool standard = origin.port == (origin.scheme == "https" ? https : http);
    return origin.scheme + "://" + origin.host +
           (standard ? "" : ":" + std::to_string(origin.port));
}

std::string withoutCredentials(std::string_view address)
{
    const auto at = address.rfind('@');
    if (at == std::string_view::npos)
        return std::string(address);
    const auto slashes = address.find("//");
    const std::string_view scheme =
        slashes < at ? address.substr(0, slashes + 2) : std::string_view();
    return std::string(scheme) + std::string(address.substr(at + 1));
}

} // namespace stowline::platform
