// Asking before something is deleted.
#pragma once

#include "cli/shared/CommandLine.h"
#include "cli/shared/ExitStatus.h"

#include <optional>
#include <string>

namespace stowline::cli {

/// "--yes" and "--dry-run" of a command that deletes.
class Confirmation {
public:
    void declare(const Command& command);

    /// Asks on the terminal, unless --yes was given. With --dry-run says what would be done.
    /// @param what "the upload of /a/b" as it stands after "Delete "
    /// @return absent when it may be done; else the status of the output, which is ended
    [[nodiscard]] std::optional<ExitStatus> refusal(const std::string& what) const;

private:
    bool isGiven_ = false;
    bool isDryRun_ = false;
};

} // namespace stowline::cli
