// Following the deletion of a folder.
#pragma once

#include "cli/shared/Session.h"

#include <chrono>
#include <string>

namespace stowline::cli {

struct FolderRemovalOptions {
    std::string systemName;
    std::string path; ///< as the user gave it
    double pollSeconds = 1;
    double followSeconds = 3600;
};

/// Starts the deletion, follows it, and ends the output. Ctrl-C asks the service to cancel and goes
/// on following; a second one leaves at once.
[[nodiscard]] ExitStatus removeFolder(const Session& session, const FolderRemovalOptions& options);

} // namespace stowline::cli
