// --self-test: what a backup restores of what is stored, to prove that it can.
#pragma once

#include "cli/shared/CommandLine.h"
#include "cli/shared/Output.h"
#include "cli/shared/RunFigures.h"
#include "stowline/backup/BackupRun.h"
#include "stowline/backup/SelfTestRun.h"

#include <string>
#include <vector>

namespace stowline::cli {

/// What a self-test after a backup came to. One that was not asked for says nothing.
struct SelfTestOutcome {
    bool isAsked = false;
    bool wasBegun = false; ///< else the backup had not come to its end
    backup::SelfTestSummary summary;
    std::vector<std::string> findings; ///< the first of them, a sentence each

    /// Everything that was chosen is what was stored, and there was something to choose, or nothing
    /// to test; and nothing else is known to be lost.
    [[nodiscard]] bool isProof() const;
    /// What is stored, or lies on this machine, is not what it should be, as this self-test or an
    /// earlier one found: the run is not a good one.
    [[nodiscard]] bool hasFoundLoss() const;
    /// What the command ends with when the backup would have ended with another status.
    [[nodiscard]] ExitStatus statusAfter(ExitStatus ofBackup) const;
    /// For people: what was tested and what is proven; then why not more. Empty: not asked for.
    [[nodiscard]] std::string sentences() const;
    /// What went wrong, as a sentence; empty when nothing did.
    [[nodiscard]] std::string complaint() const;
    [[nodiscard]] Fields fields() const;
    /// For the reports about the run.
    void addTo(RunFigures& figures) const;
};

/// The option.
class SelfTestFlag {
public:
    void declare(const Command& command);

    /// Tests after a backup that came to its end, as far as it was told to.
    [[nodiscard]] SelfTestOutcome testAfter(const backup::BackupRequest& request,
                                            const backup::BackupSummary& summary) const;

private:
    std::string amount_;
};

} // namespace stowline::cli
