// Small questions about text that need no language knowledge: bytes, UTF-8, ASCII case.
#pragma once

#include "stowline/platform/text/Data.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#pragma GCC visibility push(default)
namespace stowline::platform {

/// Length of the longest prefix that is valid UTF-8 (RFC 3629: no surrogates, no overlong forms).
/// Equal to text.size() exactly when the whole text is valid.
[[nodiscard]] std::size_t validUtf8PrefixLength(std::string_view text);
[[nodiscard]] bool isValidUtf8(std::string_view text);

/// One code point as UTF-8; nothing for values that are not code points.
void appendUtf8(std::string& text, char32_t codePoint);

/// First character that XML 1.0 cannot carry (section 2.2): a control character other than tab,
/// line feed and carriage return, U+FFFE, U+FFFF, or a byte that is not UTF-8.
/// @return its name for people ("the control character U+0000", "bytes that are not UTF-8"); absent
///         when the text is clean.
[[nodiscard]] std::optional<std::string> characterXmlCannotCarry(std::string_view text);

/// Code points of a UTF-8 text, and the offset in bytes of one of them (the text's size for those
/// beyond its end). Bytes that are not UTF-8 count with the character before them or as one each.
[[nodiscard]] std::size_t characterCount(std::string_view text);
[[nodiscard]] std::size_t offsetOfCharacter(std::string_view text, std::size_t index);

/// The text with "?" in the place of every control character but line feed and tab, and of those
/// that turn or hide text (U+202E and its like, not the joiners), so that showing it is harmless.
[[nodiscard]] std::string withoutControls(std::string_view text);

/// The text as it may stand in an HTML document, in an element or between quotes: "&", "<", ">" and
/// both quotation marks become entities.
[[nodiscard]] std::string escapedForHtml(std::string_view text);

/// ASCII letters in the other case; every other byte as it is.
[[nodiscard]] std::string asciiLowercase(std::string_view text);
[[nodiscard]] bool equalsIgnoringAsciiCase(std::string_view left, std::string_view right);

/// The number the text starts with, after spaces and an optional sign; 0 when it starts with none.
/// Numbers beyond 64 bits stop at the nearest end of the range.
[[nodiscard]] std::int64_t leadingInteger(std::string_view text);

/// Replaces every non-overlapping occurrence of `what`, from left to right; an empty `what`
/// changes nothing. Linear time.
[[nodiscard]] std::string replacingOccurrences(std::string_view text, std::string_view what,
                                               std::string_view with);

/// "1 file", "3 files", "1,200 files".
[[nodiscard]] std::string countText(std::uint64_t count, std::string_view one,
                                    std::string_view many);

/// Two lower-case hexadecimal digits for each byte.
[[nodiscard]] std::string hexadecimalText(const Data& bytes);

/// The text without the white space at its end.
[[nodiscard]] std::string withoutTrailingBlanks(std::string text);

/// The value of a line NAME=value or NAME="value" (os-release(5), machine-info(5)); absent when
/// there is no such line or it is empty.
[[nodiscard]] std::optional<std::string> assignedValue(std::string_view assignments,
                                                       std::string_view name);

/// Text and data are both bytes; these change only the type.
[[nodiscard]] Data dataFromText(std::string_view text);
[[nodiscard]] std::string textFromData(const Data& bytes);
[[nodiscard]] inline std::string_view viewOfData(const Data& bytes)
{
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

} // namespace stowline::platform
#pragma GCC visibility pop
