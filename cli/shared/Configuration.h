// Where options come from besides the command line: the environment, and the configuration file.
#pragma once

#include "cli/shared/ConfigurationEntries.h"

#include <CLI/App.hpp>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace stowline::cli {

/// Lets options come from "config.toml" in the configuration folder, or the file of --config. An
/// option's environment variable comes before the file, and a flag before both.
///
/// A name in a table [COMMAND] is an option of this command; one above all tables is an option of
/// the program, or of every command that has it; one in a table [profile.NAME] is an option of
/// "backup" with --profile NAME, and "paths" there is its PATH. A text that is not TOML, a name
/// that no option has and a value that the option does not take end the reading of the command line
/// with a sentence: file, line, column, and what may have been meant.
void declareConfiguration(CLI::App& app);

/// The file's path, whether it is there or not; empty when there is no home folder to look in.
[[nodiscard]] std::string configurationFile(const CLI::App& app);

/// Everything that is wrong with such a text, by its places; a text that is not TOML has one
/// problem. Any environment and command line.
[[nodiscard]] std::vector<ConfigurationProblem> problemsInConfiguration(CLI::App& app,
                                                                        std::string_view text);

/// Names of the profiles in the file that was read; none when none was.
[[nodiscard]] const std::vector<std::string>& configuredProfiles();

/// Whether the file that was read says something of an option of "backup", or of "paths", for runs
/// with a profile: in the profile's table, in [backup], or above all tables.
[[nodiscard]] bool isConfiguredForBackup(const std::string& profile, const std::string& name);

/// Whether the command line names another file than the user's own.
[[nodiscard]] bool isConfigurationNamed(const CLI::App& app);

/// Why the configuration file that is there was not read; absent when it was, or when there is
/// none. After the command line has been read.
[[nodiscard]] std::optional<std::string> unreadConfiguration(const CLI::App& app);

/// What to say of the user's own file when somebody else may write what stands in it: it may name
/// commands and places. Absent when nobody may, and for a file of --config, which was chosen.
[[nodiscard]] std::optional<std::string> untrustedConfiguration(const CLI::App& app);

} // namespace stowline::cli
