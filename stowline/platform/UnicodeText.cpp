#include "stowline/platform/UnicodeText.h"

#include "stowline/platform/Text.h"

#include <unicode/locid.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

namespace stowline::platform {

namespace {

icu::UnicodeString fromUtf8(std::string_view text)
{
    return icu::UnicodeString::fromUTF8({text.data(), static_cast<std::int32_t>(text.size())});
}

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
    return toUtf8(fromUtf8(text).toLower(icu::Locale::getRoot()));
}

std::string uppercased(std::string_view text)
{
    return toUtf8(fromUtf8(text).toUpper(icu::Locale::getRoot()));
}

std::string capitalized(std::string_view text)
{
    const icu::UnicodeString whole = fromUtf8(text);
    const std::int32_t first = whole.moveIndex32(0, 1);
    return toUtf8(whole.tempSubString(0, first).toUpper(icu::Locale::getRoot()) +
                  whole.tempSubString(first).toLower(icu::Locale::getRoot()));
}

bool equalsIgnoringCase(std::string_view left, std::string_view right)
{
    return fromUtf8(left).caseCompare(fromUtf8(right), U_FOLD_CASE_DEFAULT) == 0;
}

std::u32string codePointsOf(std::string_view text)
{
    const icu::UnicodeString whole = fromUtf8(text);
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
