// The terminal a person sits at.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace stowline::platform {

/// Asks on the process's terminal (not standard input) and reads a line without showing it.
/// @return absent when there is no terminal or the person ended the input.
[[nodiscard]] std::optional<std::string> readHiddenLine(std::string_view prompt);

/// Shows typing again if readHiddenLine() is under way. For a program that ends meanwhile.
void restoreTerminal();

} // namespace stowline::platform
