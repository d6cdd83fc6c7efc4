// UTF-8 as ICU takes it. For the files that wrap ICU only.
#pragma once

#include <unicode/unistr.h>

#include <string_view>

namespace stowline::platform {

/// Bytes that are not UTF-8 become U+FFFD.
[[nodiscard]] inline icu::UnicodeString icuText(std::string_view text)
{
    return icu::UnicodeString::fromUTF8({text.data(), static_cast<std::int32_t>(text.size())});
}

} // namespace stowline::platform
