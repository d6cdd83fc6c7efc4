// Addresses as text.
#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#pragma GCC visibility push(default)
namespace stowline::platform {

/// A text that is known to be a URL or a reference relative to one (RFC 3986 section 4.1). A plain
/// value.
class Url {
public:
    /// @return absent when the text is empty, holds a character that no URL may hold, a percent
    ///         sign that begins no escape, or a colon in its first segment that ends no scheme.
    [[nodiscard]] static std::optional<Url> fromText(std::string_view text);

    [[nodiscard]] const std::string& text() const { return text_; }
    friend auto operator<=>(const Url&, const Url&) = default;

private:
    explicit Url(std::string text) : text_(std::move(text)) {}
    std::string text_;
};

/// Makes any text usable as a URL: characters that no URL may hold (controls, space, quotes,
/// angle brackets, backslash, circumflex, grave accent, braces, bar, everything outside ASCII) are
/// written as "%" and two upper-case hexadecimal digits per UTF-8 byte. The URL's own delimiters
/// stay, and so do brackets (IPv6 addresses). A percent sign that begins an escape (two hexadecimal
/// digits follow) stays; any other becomes "%25" (RFC 3986 section 2).
[[nodiscard]] std::string percentEscaped(std::string_view text);

/// Scheme, host and port of an absolute http or https URL, in lower case.
struct UrlOrigin {
    std::string scheme;
    std::string host;
    std::uint16_t port = 0; ///< the scheme's own when the URL names none
    bool operator==(const UrlOrigin&) const = default;
};

/// @return absent when the text is not an absolute http or https URL.
[[nodiscard]] std::optional<UrlOrigin> originOf(const std::string& url);

/// As "https://host", with the port where it is not the scheme's own.
[[nodiscard]] std::string textOf(const UrlOrigin& origin);

/// An address as it may be shown: without user name and password, also where it is not a URL. What
/// stands before the last "@" is left out, but for the scheme.
[[nodiscard]] std::string withoutCredentials(std::string_view address);

} // namespace stowline::platform
#pragma GCC visibility pop
