// Where options come from besides the command line: the environment, and the configuration file.
#pragma once

#include <CLI/App.hpp>

#include <optional>
#include <string>

namespace stowline::cli {

/// Lets options come from "config.toml" in the configuration folder, or the file of --config. An
/// option's environment variable comes before the file, and a flag before both.
///
/// A name in a table [COMMAND] is an option of this command; one above all tables is an option of
/// the program, or of every command that has it. A text that is not TOML and a name that no option
/// has end the reading of the command line with a sentence: file, line, column, and what may have
/// been meant.
void declareConfiguration(CLI::App& app);

/// Why the configuration file that is there was not read; absent when it was, or when there is
/// none. After the command line has been read.
[[nodiscard]] std::optional<std::string> unreadConfiguration(const CLI::App& app);

} // namespace stowline::cli
