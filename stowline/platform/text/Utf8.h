// UTF-8 taken apart and put together, by ICU's macros, which need none of its libraries. For the
// files of stowline/platform only.
#pragma once

#include <unicode/utf8.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace stowline::platform {

/// A code point and the bytes it took; length 0 for what is not UTF-8 (RFC 3629).
struct Utf8Character {
    char32_t codePoint = 0;
    std::size_t length = 0;
};

/// The character that a text begins with, which is not empty.
[[nodiscard]] inline Utf8Character firstUtf8Character(std::string_view text)
{
    std::size_t length = 0;
    UChar32 codePoint = 0;
    U8_NEXT(text.data(), length, text.size(), codePoint);
    return codePoint < 0 ? Utf8Character()
                         : Utf8Character{static_cast<char32_t>(codePoint), length};
}

/// Whether the byte goes on with a character that began before it.
[[nodiscard]] inline bool continuesUtf8Character(char byte)
{
    return U8_IS_TRAIL(byte);
}

} // namespace stowline::platform
