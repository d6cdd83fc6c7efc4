#include "stowline/platform/text/Credentials.h"

#include <algorithm>

namespace stowline::platform {

namespace {

constexpr std::string_view kSchemeEnd = "://";
constexpr std::string_view kTokenEnds = " \t\r\n\"'<>()";

/// Where the name and password of an address end that begins at `begin`, behind the "@"; `begin`
/// when it has none.
std::size_t credentialsEnd(std::string_view text, std::size_t begin)
{
    const std::string_view rest = text.substr(begin);
    const std::string_view token = rest.substr(0, rest.find_first_of(kTokenEnds));
    const std::string_view authority = token.substr(0, token.find_first_of("/?#"));
    // What stands behind a colon is a port, or it is a password, which may hold anything.
    const std::size_t colon =
        authority.find(':', authority.starts_with('[') ? authority.find(']') : 0);
    const bool hasPassword =
        colon != std::string_view::npos && colon + 1 < authority.size() &&
        authority.find_first_not_of("0123456789", colon + 1) != std::string_view::npos;
    const std::string_view line = rest.substr(0, rest.find('\n'));
    const std::size_t at =
        hasPassword ? line.substr(0, line.find(kSchemeEnd)).rfind('@') : authority.rfind('@');
    return at == std::string_view::npos ? begin : begin + at + 1;
}

/// Whether what stands before the first slash is a name and a whole port, so that an "@" behind
/// that slash belongs to the path.
bool beginsWithHostAndPort(std::string_view rest)
{
    const std::string_view authority = rest.substr(0, rest.find_first_of("/?#"));
    const std::size_t colon = authority.find(':');
    if (authority.size() == rest.size() || colon == 0 || colon == std::string_view::npos)
        return false;
    const std::string_view port = authority.substr(colon + 1);
    return !port.empty() && port.find_first_not_of("0123456789") == std::string_view::npos;
}

} // namespace

std::string addressWithoutCredentials(std::string_view address)
{
    if (address.find(kSchemeEnd) != std::string_view::npos)
        return textWithoutCredentials(address);
    const std::size_t at = address.rfind('@');
    const bool hasPassword = at != std::string_view::npos && address.find(':') < at;
    return std::string(hasPassword && !beginsWithHostAndPort(address) ? address.substr(at + 1)
                                                                      : address);
}

std::string textWithoutCredentials(std::string_view text)
{
    std::string shown;
    std::size_t token = 0; // where the word under way begins in what is shown
    bool isAfterScheme = false;
    for (std::size_t at = 0; at < text.size();) {
        if (text.substr(at).starts_with(kSchemeEnd)) {
            shown += kSchemeEnd;
            at = credentialsEnd(text, at + kSchemeEnd.size());
            isAfterScheme = true;
            continue;
        }
        const char character = text[at++];
        if (character == '@' && !isAfterScheme && shown.find(':', token) != std::string::npos) {
            shown.resize(token);
            continue;
        }
        shown.push_back(character);
        if (kTokenEnds.find(character) != std::string_view::npos) {
            token = shown.size();
            isAfterScheme = false;
        }
    }
    return shown;
}

} // namespace stowline::platform
