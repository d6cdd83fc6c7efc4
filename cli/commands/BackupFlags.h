// What the commands that upload have in common.
#pragma once

#include "cli/commands/BackupForgetting.h"
#include "cli/commands/BackupHooks.h"
#include "cli/commands/BackupSelfTest.h"
#include "cli/shared/CommandLine.h"
#include "cli/shared/Overdue.h"
#include "cli/shared/Reporting.h"
#include "cli/shared/Session.h"
#include "stowline/backup/BackupRun.h"

namespace stowline::cli {

/// The options of a run.
struct BackupFlags {
    std::string systemName;
    std::string profile = "default";
    std::uint64_t partBytes = 4U << 20;
    std::uint64_t bytesPerSecond = 0;
    std::size_t jobs = 4;
    double retrySeconds = 300;
    bool isDryRun = false;
    bool notMetered = false;
    std::string registration = "protect2";
    std::vector<std::string> allowChanging;
    BackupHooks hooks;
    ReportFlags reports;
    // Of "backup" alone:
    SelfTestFlag selfTest;
    ForgettingFlags forgetting;
    AlertFlag alert;

    void declare(const Command& command);

    /// Whether --not-metered leaves the run out now. Says where that cannot be known.
    [[nodiscard]] bool isLeftOut() const;

    /// Runs --after, and has the summary say when it failed.
    /// @param status that it is told
    /// @return what is wrong with it; empty when nothing is
    std::string runAfter(backup::BackupSummary& summary, ExitStatus status) const;

    /// What the last good run, and the last self-test, have to be of.
    [[nodiscard]] BackupSubject subject(const std::string& account,
                                        const backup::BackupRequest& request) const;

    /// A request with these, for an account that is signed in.
    [[nodiscard]] backup::BackupRequest request(const Session& session) const;
};

/// Signs in, runs the request, tells of the run where that is wanted, also when it failed, and ends
/// the output.
/// @param more completes the request
[[nodiscard]] ExitStatus backUp(const SessionOptions& options, BackupFlags& flags,
                                const std::function<void(backup::BackupRequest& request)>& more);

} // namespace stowline::cli
