// A backup as people and programs see it: items, progress, the summary.
#pragma once

#include "cli/commands/BackupForgetting.h"
#include "cli/commands/BackupSelfTest.h"
#include "cli/shared/ExitStatus.h"
#include "stowline/backup/BackupRun.h"

#include <chrono>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace stowline::cli {

/// Shows a run while it goes on, and ends the output with what it came to. Any thread.
class BackupReport : public backup::BackupObserver {
public:
    explicit BackupReport(const backup::BackupRequest& request) : request_(request) {}

    void itemDone(const backup::ItemReport& report) override;
    void progress(const backup::BackupProgress& progress) override;
    void note(const std::string& sentence) override;

    /// What failed and what changed while it was read, a sentence each. After the run.
    [[nodiscard]] const std::vector<std::string>& failures() const { return failures_; }

    /// What it would end with.
    [[nodiscard]] static ExitStatus statusFor(const backup::BackupSummary& summary);

    /// What the self-test after the run came to.
    void setSelfTest(SelfTestOutcome outcome) { selfTest_ = std::move(outcome); }
    /// What forgetting after the run came to.
    void setForgetting(ForgettingOutcome outcome) { forgetting_ = std::move(outcome); }
    /// Which success is too long ago, a sentence each; a run that is done otherwise ends with that.
    void setOverdue(std::vector<std::string> sentences) { overdue_ = std::move(sentences); }

    [[nodiscard]] ExitStatus finish(const backup::BackupSummary& summary);

private:
    void nameItem(const backup::ItemReport& report);
    void clearProgress();
    void tellFailures(const backup::BackupSummary& summary);
    [[nodiscard]] std::string keepFailures() const;

    const backup::BackupRequest& request_;
    SelfTestOutcome selfTest_;
    ForgettingOutcome forgetting_;
    std::vector<std::string> overdue_;
    std::mutex mutex_;
    std::vector<std::string> failures_; ///< a sentence each
    std::chrono::steady_clock::time_point begun_ = std::chrono::steady_clock::now();
    std::optional<std::chrono::steady_clock::time_point> shown_;
    bool isLineShown_ = false;
};

/// What the command ends with after a run, or after work on what runs left, that ended so.
[[nodiscard]] ExitStatus statusOf(backup::BackupEnd end);

/// How far a run is, at most so many characters wide: percent, items, bytes, rate, time left, what
/// is done just now. The time left goes by what is the slower of items and bytes.
[[nodiscard]] std::string backupProgressLine(const backup::BackupProgress& progress,
                                             std::chrono::duration<double> elapsed,
                                             std::size_t columns);

/// The summary as sentences.
[[nodiscard]] std::string backupSentences(const backup::BackupSummary& summary);

} // namespace stowline::cli
