#include "stowline/platform/http/HttpRequestRules.h"

#include "stowline/platform/text/Text.h"

namespace stowline::platform {

namespace {

bool isCredential(std::string_view headerName)
{
    return equalsIgnoringAsciiCase(headerName, "Authorization") ||
           equalsIgnoringAsciiCase(headerName, "Cookie") ||
           equalsIgnoringAsciiCase(headerName, "Proxy-Authorization");
}

bool describesBody(std::string_view headerName)
{
    return equalsIgnoringAsciiCase(headerName, "Content-Type") ||
           equalsIgnoringAsciiCase(headerName, "Content-Length");
}

bool breaksHeader(std::string_view text)
{
    return text.find_first_of(std::string_view("\r\n\0", 3)) != std::string_view::npos;
}

} // namespace

std::optional<std::string> requestFault(const HttpRequest& request)
{
    if (!isToken(request.method))
        return "The settings name an HTTP method that cannot be sent.";
    if (!request.requestIdHeader.empty() && !isToken(request.requestIdHeader))
        return "The settings name a header for the number of a request that cannot be sent.";
    for (const auto& [name, value] : request.headers) {
        if (name.empty() || breaksHeader(name) || breaksHeader(value))
            return "The header \"" + replacingOccurrences(name, std::string("\0", 1), "?") +
                   "\" cannot be sent: it holds a line break or a NUL character.";
    }
    return std::nullopt;
}

Redirect redirectFor(long status)
{
    switch (status) {
    case 301:
    case 302:
    case 303:
        return Redirect::asGet;
    case 307:
    case 308:
        return Redirect::repeated;
    default:
        return Redirect::none;
    }
}

std::optional<std::string> redirectFault(const HttpRequest& request, const UrlOrigin& from,
                                         Redirect redirect, const std::string& location)
{
    const auto target = originOf(location);
    const std::string server = "The server at " + textOf(from);
    if (!target || (from.scheme == "https" && target->scheme != "https"))
        return server + " redirects to \"" + withoutCredentials(location) +
               "\", which is not followed.";
    if (redirect == Redirect::asGet && request.bodyMustArrive && !request.body.empty())
        return server + " redirects to " + textOf(*target) +
               " in a way that leaves the data behind, which is not followed.";
    const bool takesBody = redirect == Redirect::repeated && !request.body.empty();
    if (*target != from && (takesBody || request.staysAtOrigin))
        return server + " redirects the " + (takesBody ? "data" : "request") + " to " +
               textOf(*target) + ", another server, where it is not sent.";
    return std::nullopt;
}

void redirectRequest(HttpRequest& request, const UrlOrigin& from, Redirect redirect,
                     const std::string& location)
{
    if (redirect == Redirect::asGet) {
        request.method = "GET";
        request.body = {};
        std::erase_if(request.headers,
                      [](const auto& header) { return describesBody(header.first); });
    }
    if (originOf(location) != from)
        std::erase_if(request.headers,
                      [](const auto& header) { return isCredential(header.first); });
    request.url = location;
}

} // namespace stowline::platform
