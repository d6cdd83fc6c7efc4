// Questions about text that need Unicode's character tables.
#pragma once

#include <string>
#include <string_view>

namespace stowline::platform {

/// Whether the code point is an upper-case or title-case letter (general categories Lu, Lt).
[[nodiscard]] bool isUppercaseLetter(char32_t codePoint);

/// Whole text in lower or upper case, by Unicode's full, language-neutral mapping. Bytes that are
/// no UTF-8 become U+FFFD.
[[nodiscard]] std::string lowercased(std::string_view text);
[[nodiscard]] std::string uppercased(std::string_view text);

/// First character in upper case, the rest in lower case.
[[nodiscard]] std::string capitalized(std::string_view text);

/// Compares without regard to case, by Unicode's full case folding.
[[nodiscard]] bool equalsIgnoringCase(std::string_view left, std::string_view right);

/// Code points of a text; bytes that are no UTF-8 become U+FFFD.
[[nodiscard]] std::u32string codePointsOf(std::string_view text);
[[nodiscard]] std::string textOf(std::u32string_view codePoints);

} // namespace stowline::platform
