#include "devserver/page/FormFields.h"

#include "stowline/platform/text/Numbers.h"

#include <algorithm>

namespace stowline::devserver {

namespace {

/// What comes before a separator; takes it and the separator away.
std::string_view takeUpTo(std::string_view& rest, char separator)
{
    const std::size_t end = std::min(rest.find(separator), rest.size());
    const std::string_view piece = rest.substr(0, end);
    rest.remove_prefix(std::min(end + 1, rest.size()));
    return piece;
}

std::string decoded(std::string_view text)
{
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = text[i] == '%' && i + 2 < text.size()
                              ? platform::wholeNumber<unsigned char>(text.substr(i + 1, 2), 16)
                              : std::nullopt;
        if (byte) {
            result += static_cast<char>(*byte);
            i += 2;
        } else {
            result += text[i] == '+' ? ' ' : text[i];
        }
    }
    return result;
}

} // namespace

std::optional<std::string> formField(std::string_view body, std::string_view name)
{
    while (!body.empty()) {
        std::string_view value = takeUpTo(body, '&');
        if (decoded(takeUpTo(value, '=')) == name)
            return decoded(value);
    }
    return std::nullopt;
}

std::optional<std::string> cookieNamed(std::string_view header, std::string_view name)
{
    while (!header.empty()) {
        std::string_view value = takeUpTo(header, ';');
        value.remove_prefix(std::min(value.find_first_not_of(' '), value.size()));
        if (takeUpTo(value, '=') == name)
            return std::string(value);
    }
    return std::nullopt;
}

} // namespace stowline::devserver
