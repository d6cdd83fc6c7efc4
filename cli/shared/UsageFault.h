// What is wrong with a command line.
#pragma once

#include <string>

namespace CLI {
class App;
class ParseError;
} // namespace CLI

namespace stowline::cli {

/// A sentence that names the word at fault and what would be right.
/// @param app as it stands after the parsing that ended with the fault
[[nodiscard]] std::string usageSentence(const CLI::App& app, const CLI::ParseError& fault);

} // namespace stowline::cli
