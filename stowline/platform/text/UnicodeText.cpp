#include "stowline/platform/text/UnicodeText.h"

#include "stowline/platform/text/IcuText.h"
#include "stowline/platform/text/Text.h"

#include <unicode/locid.h>
#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <cstdint>
#include <limits>

namespace stowline::platform {

namespace {

std::string toUtf8(const icu::UnicodeString& text)
{
    std::string result;
    text.toUTF8String(result);
    return result;
}

} // namespace

bool isUppercaseLetter(char32_t codePoint)
{
    const auto category = u_charType(static_cast<UChar32>(codePoint));
    return category == U_UPPERCASE_LETTER || category == U_TITLECASE_LETTER;
}

std::string lowercased(std::string_view text)
{
    return toUtf8(icuText(text).toLower(icu::Locale::getRoot()));
}

std::string uppercased(std::string_view text)
{
    return toUtf8(icuText(text).toUpper(icu::Locale::getRoot()));
}

std::string capitalized(std::string_view text)
{
    const icu::UnicodeString whole = icuText(text);
    const std::int32_t first = whole.moveIndex32(0, 1);
    return toUtf8(whole.tempSubString(0, first).toUpper(icu::Locale::getRoot()) +
                  whole.tempSubString(first).toLower(icu::Locale::getRoot()));
}

bool equalsIgnoringCase(std::string_view left, std::string_view right)
{
    return icuText(left).caseCompare(icuText(right), U_FOLD_CASE_DEFAULT) == 0;
}

bool isLetter(char32_t codePoint)
{
    return (U_GET_GC_MASK(static_cast<UChar32>(codePoint)) & (U_GC_L_MASK | U_GC_M_MASK)) != 0;
}

bool isLetterOrNumber(char32_t codePoint)
{
    return isLetter(codePoint) ||
           (U_GET_GC_MASK(static_cast<UChar32>(codePoint)) & U_GC_N_MASK) != 0;
}

std::string withoutCharacters(std::string_view text, const std::function<bool(char32_t)>& isDropped)
{
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
    const auto length = static_cast<std::int64_t>(text.size());
    std::string kept;
    for (std::int64_t at = 0; at < length;) {
        const std::int64_t start = at;
        UChar32 codePoint = 0;
        U8_NEXT(bytes, at, length, codePoint);
        if (codePoint < 0 || !isDropped(static_cast<char32_t>(codePoint)))
            kept.append(text, static_cast<std::size_t>(start),
                        static_cast<std::size_t>(at - start));
    }
    return kept;
}

std::size_t utf16Length(std::string_view text)
{
    return static_cast<std::size_t>(icuText(text).length());
}

std::string utf16Piece(std::string_view text, std::size_t from, std::size_t count)
{
    constexpr std::size_t most = std::numeric_limits<std::int32_t>::max();
    return toUtf8(icuText(text).tempSubString(static_cast<std::int32_t>(std::min(from, most)),
                                              static_cast<std::int32_t>(std::min(count, most))));
}

std::u32string codePointsOf(std::string_view text)
{
    const icu::UnicodeString whole = icuText(text);
    std::u32string codePoints;
    for (std::int32_t at = 0; at < whole.length(); at = whole.moveIndex32(at, 1))
        codePoints.push_back(static_cast<char32_t>(whole.char32At(at)));
    return codePoints;
}

std::string textOf(std::u32string_view codePoints)
{
    std::string text;
    for (const char32_t codePoint : codePoints)
        appendUtf8(text, codePoint);
    return text;
}

} // namespace stowline::platform
