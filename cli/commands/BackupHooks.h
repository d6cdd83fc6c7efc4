// The commands that a user has run before and after a backup.
#pragma once

#include "cli/shared/CommandLine.h"
#include "cli/shared/ExitStatus.h"

#include <optional>
#include <string>

namespace stowline::cli {

/// --before, --after and --hook-time.
class BackupHooks {
public:
    void declare(const Command& command);

    /// Runs the first command; Ctrl-C ends it.
    /// @return absent when the backup may begin; else the status, with `sentence` to say
    [[nodiscard]] std::optional<ExitStatus> before(std::string& sentence) const;

    /// Runs the second command, which finds in STOWLINE_EXIT_STATUS what the run came to. Ctrl-C
    /// ends it, unless the run itself was ended by that: then it is let finish. While an
    /// Interruptible exists.
    /// @return a sentence when it failed; else empty
    [[nodiscard]] std::string after(ExitStatus status) const;

private:
    std::string before_;
    std::string after_;
    double seconds_ = 3600;
};

} // namespace stowline::cli
