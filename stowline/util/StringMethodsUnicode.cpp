// The helpers that need Unicode's tables or the time zone. The helper program uses only those of
// StringMethods.cpp and so starts without these libraries.
#include "stowline/platform/text/Text.h"
#include "stowline/platform/text/UnicodeText.h"
#include "stowline/platform/time/LocalTime.h"
#include "stowline/util/StringMethods.h"

#include <stdexcept>

namespace stowline::StringMethods {

namespace {

void requireWithin(std::size_t count, std::size_t length)
{
    if (count > length)
        throw std::out_of_range("A text of " + std::to_string(length) +
                                " characters has no first " + std::to_string(count) + ".");
}

} // namespace

bool TW_parseBool(std::string_view text)
{
    const std::string word = platform::uppercased(text);
    if (word == "TRUE" || word == "YES")
        return true;
    if (word == "FALSE" || word == "NO")
        return false;
    return platform::leadingInteger(text) != 0;
}

std::string TW_stripLetters(std::string_view text)
{
    return platform::withoutCharacters(text, platform::isLetter);
}

std::string TW_stripAlphaNumeric(std::string_view text)
{
    return platform::withoutCharacters(text, platform::isLetterOrNumber);
}

std::string TW_stripCharacters(std::string_view text, std::string_view characters)
{
    const std::u32string dropped = platform::codePointsOf(characters);
    return platform::withoutCharacters(
        text, [&](char32_t codePoint) { return dropped.find(codePoint) != std::u32string::npos; });
}

std::string TW_FirstLetters(std::string_view text, std::size_t count)
{
    const std::size_t length = platform::utf16Length(text);
    if (length <= 1)
        return std::string(text);
    requireWithin(count, length);
    return platform::utf16Piece(text, 0, count);
}

std::string TW_TrimFirstLetters(std::string_view text, std::size_t count)
{
    const std::size_t length = platform::utf16Length(text);
    requireWithin(count, length);
    return platform::utf16Piece(text, count, length - count);
}

std::optional<Date> TW_dateFromISO8601DateTime(std::string_view text)
{
    const auto time = platform::calendarTimeFromText(text);
    return time ? std::optional(platform::dateFromLocalTime(*time)) : std::nullopt;
}

} // namespace stowline::StringMethods
