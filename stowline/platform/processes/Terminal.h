// The terminal a person sits at.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#pragma GCC visibility push(default)
namespace stowline::platform {

/// Whether the stream is a terminal, and how many characters wide it is (80 when it does not say).
[[nodiscard]] bool standardErrorIsTerminal();
[[nodiscard]] std::size_t standardErrorColumns();

/// Asks on the process's terminal (not standard input) and reads a line without showing it.
/// @return absent when there is no terminal or the person ended the input.
[[nodiscard]] std::optional<std::string> readHiddenLine(std::string_view prompt);

/// Asks on the process's terminal and reads a line, shown as it is typed. What was typed before the
/// question is thrown away.
/// @return absent as above, and when this thread is asked to stop (StopScope)
[[nodiscard]] std::optional<std::string> readLineFromTerminal(std::string_view prompt);

enum class TerminalWait { no, forReturn };

/// Writes a text to the process's terminal; when asked to, also a prompt, and waits for Return or
/// the end of the input.
/// @return false when there is no terminal.
[[nodiscard]] bool tellOnTerminal(std::string_view text, std::string_view prompt,
                                  TerminalWait wait);

/// Shows typing again if readHiddenLine() is under way. For a program that ends meanwhile.
void restoreTerminal();

} // namespace stowline::platform
#pragma GCC visibility pop
