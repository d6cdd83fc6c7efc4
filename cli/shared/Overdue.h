// When the last good run, or the last proof of what is stored, is too long ago.
#pragma once

#include "cli/shared/CommandLine.h"
#include "cli/shared/Successes.h"
#include "stowline/platform/time/Date.h"

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace stowline::cli {

/// What this machine knows of the last successes of some backups of a profile.
struct LastSuccesses {
    std::optional<Date> goodRun;
    std::optional<Date> selfTest; ///< the first that was ever asked for; absent: none was
    std::optional<Date> proof;    ///< the last self-test that found everything in order
    bool isOfPaths = false;       ///< the good run is one of certain paths
};

/// Notes that a self-test ended, and whether it was a proof; reads it, and the last good run. A
/// self-test says something of all paths of its account and machine.
void keepSelfTest(const std::string& profile, const BackupSubject& subject, bool isProof,
                  Date ended);
[[nodiscard]] LastSuccesses lastSuccesses(const std::string& profile, const BackupSubject& subject);

/// What is longer ago than it should be, a sentence without its full stop each. A proof is only
/// wanted where a self-test was ever asked for, and not before the first of them is that old. What
/// is dated more than a day after now tells nothing of how long ago it was, so it is overdue.
[[nodiscard]] std::vector<std::string> overdue(const LastSuccesses& last,
                                               std::chrono::seconds alertAfter, Date now);

/// Tells the person of it on the desktop, where a session is there; never more than seconds are
/// lost, and nothing is said where that cannot be done.
void showOnDesktop(const std::vector<std::string>& overdue);

/// The option --alert-after.
class AlertFlag {
public:
    /// @param help what the command does about it
    void declare(const Command& command, const std::string& help);
    [[nodiscard]] bool isAsked() const { return !span_.empty(); }

    /// What is overdue by these successes; nothing when it was not asked for. Sentences.
    [[nodiscard]] std::vector<std::string> sentencesFor(const LastSuccesses& last) const;

private:
    std::string span_;
};

} // namespace stowline::cli
