// The configuration file.
#pragma once

#include <CLI/App.hpp>

namespace stowline::cli {

/// Lets options come from "config.toml" in the configuration folder, or the file of --config. An
/// option's environment variable comes before the file, and a flag before both.
void declareConfiguration(CLI::App& app);

} // namespace stowline::cli
