// --keep-last and its like of a backup: runs that are forgotten after a good one.
#pragma once

#include "cli/commands/BackupSelfTest.h"
#include "cli/shared/CommandLine.h"
#include "cli/shared/Output.h"
#include "cli/shared/RunFigures.h"
#include "cli/shared/Session.h"
#include "stowline/backup/BackupRun.h"
#include "stowline/backup/ForgetRun.h"

#include <string>
#include <vector>

namespace stowline::cli {

/// What forgetting after a backup came to. Where no rule was given it says nothing.
struct ForgettingOutcome {
    bool isAsked = false;
    bool wasBegun = false; ///< else the run was not a good one
    std::string profile;
    backup::ForgetSummary summary;
    /// What the backup itself knows to be gone and not confirmed: its run's or an earlier one's.
    std::vector<backup::RunLoss> losses;

    /// A stop is a stop; whatever else keeps runs from being forgotten leaves a good backup good.
    [[nodiscard]] ExitStatus statusAfter(ExitStatus ofBackup) const;
    [[nodiscard]] bool isSuspended() const { return isAsked && !losses.empty(); }
    /// For people: what was forgotten and what space that gave back.
    [[nodiscard]] std::string sentences() const;
    /// Why not, or not all; empty when all was, and where nobody asked.
    [[nodiscard]] std::string complaint() const;
    [[nodiscard]] Fields fields() const;
    /// For the reports about the run.
    void addTo(RunFigures& figures) const;

private:
    [[nodiscard]] std::string state() const;
};

/// The options. Rules that are all 0 are none.
class ForgettingFlags {
public:
    void declare(const Command& command);

    /// Forgets after a good backup, as far as it was told to.
    [[nodiscard]] ForgettingOutcome forgetAfter(const backup::BackupRequest& request,
                                                const backup::BackupSummary& summary,
                                                const SelfTestOutcome& selfTest,
                                                const Session& session) const;

private:
    backup::KeepRules keep_;
};

} // namespace stowline::cli
