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

    /// Of a command that asks only in the middle of its work: whether somebody will be there to be
    /// asked, or nobody need be. @param what as below
    /// @return absent when it is so; else the status of the output, which is ended
    [[nodiscard]] std::optional<ExitStatus> wantOfAnybody(const std::string& what) const;
    /// Asks on the terminal, unless --yes was given. Ends, as a no, when this thread is asked to
    /// stop (StopScope).
    [[nodiscard]] bool isGranted(const std::string& question) const;
    [[nodiscard]] bool isDryRun() const { return isDryRun_; }
    /// Whether --yes was given, so that nobody is asked.
    [[nodiscard]] bool isGiven() const { return isGiven_; }

    /// Asks on the terminal, unless --yes was given. With --dry-run says what would be done.
    /// @param what "the upload of /a/b" as it stands after "Delete "
    /// @return absent when it may be done; else the status of the output, which is ended
    [[nodiscard]] std::optional<ExitStatus> refusal(const std::string& what) const;

private:
    bool isGiven_ = false;
    bool isDryRun_ = false;
};

} // namespace stowline::cli
