// Numbers that a text is, as a whole.
#pragma once

#include <optional>
#include <string_view>

#pragma GCC visibility push(default)
namespace stowline::platform {

/// A real number as C writes it ("2", "-0.5", "1e3", "inf", "nan"), whatever the locale.
/// @return absent when anything but one number is there, blanks and "+" too, or it is out of range
[[nodiscard]] std::optional<double> realNumber(std::string_view text);

} // namespace stowline::platform
#pragma GCC visibility pop
