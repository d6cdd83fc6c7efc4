// A command that a user named, run for what it prints.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#pragma GCC visibility push(default)
namespace stowline::platform {

/// Runs a command and hands back what it wrote to standard output. Its words are told apart as a
/// shell does, by blanks, quotation marks and backslashes, and what a word "#..." begins is a
/// comment; but no shell has a hand in it: nothing is expanded. Its standard input is empty;
/// standard error is inherited.
/// @return absent when the line is not of that form (a quotation mark without its other), the
///         program cannot be run, fails, or takes longer than the limit
[[nodiscard]] std::optional<std::string> outputOfCommand(const std::string& line,
                                                         std::chrono::milliseconds limit);

} // namespace stowline::platform
#pragma GCC visibility pop
