// Questions about text that need Unicode's character tables.
#pragma once

#include <cstddef>
#include <functional>
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

/// Whether the code point is a letter or a mark on one (general categories L and M), of any script.
[[nodiscard]] bool isLetter(char32_t codePoint);

/// The same, or a digit or other number sign (category N).
[[nodiscard]] bool isLetterOrNumber(char32_t codePoint);

/// The text without the characters to which the question is answered yes. Bytes that are not UTF-8
/// stay as they are.
[[nodiscard]] std::string withoutCharacters(std::string_view text,
                                            const std::function<bool(char32_t)>& isDropped);

/// Length of a text in UTF-16 units, and a piece of it by such positions: one for most characters,
/// two for those beyond U+FFFF. Half a pair at an end of the piece becomes U+FFFD, as do bytes that
/// are not UTF-8.
[[nodiscard]] std::size_t utf16Length(std::string_view text);
[[nodiscard]] std::string utf16Piece(std::string_view text, std::size_t from, std::size_t count);

/// Code points of a text; bytes that are not UTF-8 become U+FFFD.
[[nodiscard]] std::u32string codePointsOf(std::string_view text);
[[nodiscard]] std::string textOf(std::u32string_view codePoints);

} // namespace stowline::platform
