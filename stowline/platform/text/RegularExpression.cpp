#include "stowline/platform/text/RegularExpression.h"

#include "stowline/platform/text/IcuText.h"

#include <unicode/regex.h>

#include <limits>

namespace stowline::platform {

namespace {

/// In ICU's unit, ten thousand steps of the match engine: about a millisecond each.
constexpr std::int32_t kMostTime = 1000;
constexpr std::int32_t kMostMemory = 8 << 20;

} // namespace

bool matchesWhole(std::string_view text, std::string_view pattern)
{
    constexpr std::size_t most = std::numeric_limits<std::int32_t>::max();
    if (text.size() > most || pattern.size() > most)
        return false;
    const icu::UnicodeString subject = icuText(text);
    UErrorCode status = U_ZERO_ERROR;
    icu::RegexMatcher matcher(icuText(pattern), subject, 0, status);
    matcher.setTimeLimit(kMostTime, status);
    matcher.setStackLimit(kMostMemory, status);
    const UBool matched = matcher.matches(status);
    return U_SUCCESS(status) && matched;
}

} // namespace stowline::platform
