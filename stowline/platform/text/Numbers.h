// Numbers that a text is, as a whole.
#pragma once

#include <charconv>
#include <concepts>
#include <optional>
#include <string_view>
#include <system_error>

#pragma GCC visibility push(default)
namespace stowline::platform {

/// A whole number: digits, and before them "-" where the type is signed.
/// @return absent when anything but one number is there (blanks, "+", "0x", nothing at all), or it
///         is out of the type's range
template <std::integral Number>
[[nodiscard]] std::optional<Number> wholeNumber(std::string_view text, int base = 10)
{
    Number number = 0;
    const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), number, base);
    if (fault != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return number;
}

/// A real number as C writes it ("2", "-0.5", "1e3", "inf", "nan"), whatever the locale.
/// @return absent when anything but one number is there, blanks and "+" too, or it is out of range
[[nodiscard]] std::optional<double> realNumber(std::string_view text);

} // namespace stowline::platform
#pragma GCC visibility pop
