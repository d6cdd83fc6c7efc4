// Helpers on strings.
#pragma once

#include "stowline/platform/values/Value.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

/// Free functions on UTF-8 text; reentrant. Letters and digits are Unicode's, of every script.
/// Counts and positions are in UTF-16 units, as the authors of settings count.
#pragma GCC visibility push(default)
namespace stowline::StringMethods {

/// "TRUE" and "YES" are true, "FALSE" and "NO" false, without regard to case and as the whole text.
/// Anything else is true when the integer it starts with, after white space, is not 0.
[[nodiscard]] bool TW_parseBool(std::string_view text);

/// Whether there is a space (U+0020); other white space does not count.
[[nodiscard]] bool TW_hasSpaces(std::string_view text);

/// The text without its letters (and the marks on them); without letters, digits and other numbers;
/// without the characters of the second text. Bytes that are not UTF-8 stay.
[[nodiscard]] std::string TW_stripLetters(std::string_view text);
[[nodiscard]] std::string TW_stripAlphaNumeric(std::string_view text);
[[nodiscard]] std::string TW_stripCharacters(std::string_view text, std::string_view characters);

/// The first characters of a text of more than one; a text of one or none as it is, whatever the
/// count. Half of a character that takes two units becomes U+FFFD.
/// @throws std::out_of_range when the count is beyond the length of a longer text
[[nodiscard]] std::string TW_FirstLetters(std::string_view text, std::size_t count);

/// The text without its first characters.
/// @throws std::out_of_range when the count is beyond the length
[[nodiscard]] std::string TW_TrimFirstLetters(std::string_view text, std::size_t count);

/// The moment that DateMethods::TW_ISO8601DateTimeFromDate() wrote: "2012-03-05T14:07:09.25", in
/// the current time zone. See DateMethods.h for times that a clock change skips or repeats.
/// @return absent for text of any other form, also with something after it, and for days and times
///         that do not exist in any year.
[[nodiscard]] std::optional<Date> TW_dateFromISO8601DateTime(std::string_view text);

/// Makes a text safe as XML element content: "&", "<" and ">" become entities, in that order.
/// Quotation marks and everything else stay, so the result is not for attribute values. Escaping
/// an escaped text escapes it again. Reentrant.
[[nodiscard]] std::string TW_escapeXMLEntities(std::string_view text);

} // namespace stowline::StringMethods
#pragma GCC visibility pop
