// Where this run's log goes.
#pragma once

#include "cli/shared/CommandLine.h"

#include <string>

namespace stowline::cli {

struct LogOptions {
    bool toFile = false;
    bool verbose = false;
    bool isCommandVerbose = false; ///< the command names its items with -v: no log is shown
    std::string level = "info";
};

void declareLogging(const Command& app, LogOptions& options);

/// Adds the sinks that were asked for: rolling files in the state folder, standard error. A folder
/// that cannot be made is told, and the run goes on without files.
void startLogging(const LogOptions& options);

/// Whether -v was given.
[[nodiscard]] bool namesItems();

} // namespace stowline::cli
