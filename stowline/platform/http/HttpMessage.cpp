#include "stowline/platform/http/HttpMessage.h"

#include "stowline/platform/text/Text.h"

#include <algorithm>
#include <utility>

namespace stowline::platform {

namespace {

std::string_view takeLine(std::string_view& rest)
{
    const auto end = rest.find('\n');
    std::string_view line = rest.substr(0, end);
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    if (line.ends_with('\r'))
        line.remove_suffix(1);
    return line;
}

std::string_view withoutBlanks(std::string_view text)
{
    const auto first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

bool isBlank(char c)
{
    return c == ' ' || c == '\t';
}

/// Adds what stands in a further line to a value.
void goOn(std::string& value, std::string_view more)
{
    if (!value.empty() && !more.empty())
        value += ' ';
    value += more;
}

} // namespace

const HttpHeader* findHeader(const std::vector<HttpHeader>& headers, std::string_view name)
{
    const auto found = std::ranges::find_if(headers, [&](const HttpHeader& header) {
        return equalsIgnoringAsciiCase(header.first, name);
    });
    return found == headers.end() ? nullptr : &*found;
}

HttpHeader* findHeader(std::vector<HttpHeader>& headers, std::string_view name)
{
    return const_cast<HttpHeader*>(findHeader(std::as_const(headers), name));
}

bool isToken(std::string_view text)
{
    constexpr std::string_view marks = "!#$%&'*+-.^_`|~";
    return !text.empty() && std::all_of(text.begin(), text.end(), [&](char c) {
        return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
               marks.find(c) != std::string_view::npos;
    });
}

FailureKind kindOfStatus(int status)
{
    switch (status) {
    case 400:
        return FailureKind::badRequest;
    case 407:
        return FailureKind::proxyRefused;
    case 413:
        return FailureKind::requestTooLarge;
    case 408:
    case 429:
    case 502:
    case 503:
    case 504:
        return FailureKind::unavailable;
    default:
        return FailureKind::unreadableAnswer;
    }
}

HttpResponseMessage HttpResponseMessage::fromBytes(std::string_view bytes)
{
    HttpResponseMessage message;
    if (!bytes.starts_with("HTTP/"))
        return message;
    message.statusLine = takeLine(bytes);
    if (const auto blank = message.statusLine.find(' '); blank != std::string::npos) {
        const auto code = leadingInteger(std::string_view(message.statusLine).substr(blank));
        message.statusCode = code > 0 && code < 1000 ? static_cast<int>(code) : 0;
    }
    while (!bytes.empty()) {
        const std::string_view line = takeLine(bytes);
        if (line.empty())
            break;
        if (isBlank(line.front())) {
            if (!message.headers.empty())
                goOn(message.headers.back().second, withoutBlanks(line));
            continue;
        }
        const auto colon = line.find(':');
        if (colon != std::string_view::npos)
            message.headers.emplace_back(line.substr(0, colon),
                                         withoutBlanks(line.substr(colon + 1)));
    }
    message.body = dataFromText(bytes);
    return message;
}

Dictionary HttpResponseMessage::dictionary() const
{
    Dictionary fields;
    for (const auto& [name, value] : headers) {
        const std::string* earlier = findString(fields, name);
        fields.insert_or_assign(name, earlier ? *earlier + ", " + value : value);
    }
    return {{"statusLine", statusLine},
            {"statusCode", statusCode},
            {"headers", std::move(fields)},
            {"body", body}};
}

} // namespace stowline::platform
