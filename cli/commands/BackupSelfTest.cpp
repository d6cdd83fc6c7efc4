#include "cli/commands/BackupSelfTest.h"

#include "cli/shared/Amounts.h"
#include "cli/shared/HumanText.h"
#include "cli/shared/Interruption.h"
#include "cli/shared/Progress.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

namespace stowline::cli {

namespace {

using backup::ReadEnd;
using backup::SelfTestFinding;
using backup::SelfTestSummary;

constexpr std::size_t kFindingsKept = 20;

class Observer : public backup::SelfTestObserver {
public:
    explicit Observer(std::vector<std::string>& findings) : findings_(findings) {}

    void found(const SelfTestFinding& finding) override
    {
        if (findings_.size() < kFindingsKept)
            findings_.push_back(finding.sentence);
        output().complain(finding.sentence);
        if (output().isJson())
            output().item(finding.sentence, "self_test",
                          {{"path", finding.path},
                           {"state", std::string(backup::nameOf(finding.kind))},
                           {"run", finding.run},
                           {"message", finding.sentence}});
    }
    void note(const std::string& sentence) override { output().note(sentence); }

private:
    std::vector<std::string>& findings_;
};

std::string filesText(std::uint64_t count, std::uint64_t bytes)
{
    return fmt::format("{} ({})", countText(count, "file", "files"),
                       bytesText(static_cast<double>(bytes)));
}

/// The state in a word.
std::string stateOf(const SelfTestOutcome& outcome)
{
    if (!outcome.isAsked)
        return "";
    if (!outcome.wasBegun)
        return "not-done";
    switch (outcome.summary.end) {
    case ReadEnd::done:
        return "done";
    case ReadEnd::badContent:
        return "lost";
    case ReadEnd::someFailed:
        if (outcome.summary.differing > 0)
            return "differs";
        return outcome.summary.isLossKnown() ? "still-lost" : "untested";
    case ReadEnd::interrupted:
        return "interrupted";
    default:
        return "not-done";
    }
}

} // namespace

bool SelfTestOutcome::isProof() const
{
    return wasBegun && summary.end == ReadEnd::done;
}

bool SelfTestOutcome::hasFoundLoss() const
{
    return wasBegun && (summary.isLossKnown() || summary.differing > 0);
}

ExitStatus SelfTestOutcome::statusAfter(ExitStatus ofBackup) const
{
    const bool isBackupOver =
        ofBackup == ExitStatus::done || ofBackup == ExitStatus::someItemsFailed;
    if (!wasBegun || !isBackupOver)
        return ofBackup;
    switch (summary.end) {
    case ReadEnd::done:
        return ofBackup;
    case ReadEnd::badContent:
        return ExitStatus::checksumMismatch;
    case ReadEnd::interrupted:
        return Interruptible::request().value_or(ExitStatus::interrupted);
    default:
        return ExitStatus::someItemsFailed;
    }
}

std::string SelfTestOutcome::sentences() const
{
    if (!wasBegun)
        return complaint();
    const SelfTestSummary& sum = summary;
    std::string text = fmt::format(
        "Self-test: {} of {} restored and found to be what was stored, {} of them compared with "
        "this machine's; {} missing, {} damaged, {} different here, {} that could not be tested.",
        filesText(sum.tested, sum.bytes), countText(sum.runs.size(), "run", "runs"), sum.compared,
        sum.missing, sum.damaged, sum.differing, sum.untested);
    if (sum.chosen == 0 && !hasFoundLoss())
        text = "Self-test: nothing was restored.";
    const backup::ProofState& proof = sum.proof;
    if (proof.files > 0)
        text += fmt::format("\nProven within 30 days: {} of the {} that all runs hold.",
                            filesText(proof.provenFiles, proof.provenBytes),
                            filesText(proof.files, proof.bytes));
    if (proof.tooLargeFiles > 0)
        text += fmt::format("\nLarger than --self-test allows, and never tested: {}.",
                            countText(proof.tooLargeFiles, "file", "files"));
    if (proof.noRoomFiles > 0)
        text += fmt::format("\nLarger than the room to restore into, and not tested: {}.",
                            countText(proof.noRoomFiles, "file", "files"));
    if (proof.lostFiles > 0)
        text += fmt::format("\nKnown to be missing or damaged in earlier or this run: {}.",
                            countText(proof.lostFiles, "file", "files"));
    if (proof.damagedRuns > 0)
        text += fmt::format("\nRecords that cannot be read any more: {}.",
                            countText(proof.damagedRuns, "run's", "runs'"));
    return text;
}

std::string SelfTestOutcome::complaint() const
{
    if (isAsked && !wasBegun)
        return "The self-test was not done, because the backup was not finished.";
    return summary.sentence;
}

Fields SelfTestOutcome::fields() const
{
    const SelfTestSummary& sum = summary;
    const backup::ProofState& proof = sum.proof;
    return {{"self_test", stateOf(*this)},
            {"self_test_tested", sum.tested},
            {"self_test_bytes", sum.bytes},
            {"self_test_compared", sum.compared},
            {"self_test_missing", sum.missing},
            {"self_test_damaged", sum.damaged},
            {"self_test_differing", sum.differing},
            {"self_test_untested", sum.untested},
            {"self_test_runs", std::uint64_t{sum.runs.size()}},
            {"proof_files", proof.files},
            {"proof_bytes", proof.bytes},
            {"proof_proven_files", proof.provenFiles},
            {"proof_proven_bytes", proof.provenBytes},
            {"proof_lost_files", proof.lostFiles},
            {"proof_newest_lost_files", proof.newestLostFiles},
            {"proof_too_large_files", proof.tooLargeFiles},
            {"proof_no_room_files", proof.noRoomFiles},
            {"proof_damaged_runs", proof.damagedRuns}};
}

void SelfTestOutcome::addTo(RunFigures& figures) const
{
    if (!isAsked)
        return;
    figures.selfTest = sentences();
    figures.selfTestFindings = findings;
    const SelfTestSummary& sum = summary;
    const std::uint64_t found = sum.missing + sum.damaged + sum.differing;
    const std::uint64_t known = sum.proof.newestLostFiles + (sum.proof.isNewestDamaged ? 1 : 0);
    figures.wasTested = wasBegun;
    figures.isProof = isProof();
    figures.proofFiles = sum.proof.files;
    figures.proofBytes = sum.proof.bytes;
    figures.provenFiles = sum.proof.provenFiles;
    figures.provenBytes = sum.proof.provenBytes;
    if (wasBegun)
        figures.selfTestLost = sum.differing + std::max(sum.missing + sum.damaged, known);
    if (found > 0)
        figures.selfTestTrouble =
            fmt::format("the self-test found {} to differ from what was stored",
                        countText(found, "file", "files"));
    else if (known > 0)
        figures.selfTestTrouble = fmt::format("{} known to be missing or damaged since an earlier "
                                              "self-test",
                                              countText(known, "file is", "files are"));
    else if (!isProof())
        figures.selfTestTrouble = "the self-test was not done";
    if (wasBegun && !summary.sentence.empty() && figures.selfTestFindings.empty())
        figures.selfTestFindings = {summary.sentence};
}

void SelfTestFlag::declare(const Command& command)
{
    command
        .addOption(
            "--self-test", amount_,
            "After the backup restore this share of all that kept runs hold into a temporary "
            "folder, at most so many bytes, and compare it, as 1%,200M: what was proven "
            "longest ago comes first")
        .accepts(faultInSelfTestAmount);
}

SelfTestOutcome SelfTestFlag::testAfter(const backup::BackupRequest& request,
                                        const backup::BackupSummary& summary) const
{
    SelfTestOutcome outcome;
    const auto amount = parseSelfTestAmount(amount_);
    if (!amount || request.isDryRun)
        return outcome;
    outcome.isAsked = true;
    const bool isOver =
        summary.end == backup::BackupEnd::done || summary.end == backup::BackupEnd::someFailed;
    if (!isOver || Interruptible::request())
        return outcome;
    outcome.wasBegun = true;
    Observer observer(outcome.findings);
    output().note("Restoring a sample to test what is stored …");
    outcome.summary = backup::runSelfTest({.choice = {.account = request.account,
                                                      .identity = request.identity,
                                                      .chain = {},
                                                      .stateFolder = request.stateFolder,
                                                      .run = std::nullopt,
                                                      .at = std::nullopt,
                                                      .budgetPerStep = request.budgetPerStep},
                                           .share = amount->share,
                                           .mostBytes = amount->mostBytes,
                                           .jobs = request.jobs,
                                           .bytesPerSecond = request.bytesPerSecond,
                                           .partBytes = request.partBytes,
                                           .ignoresCtime = request.ignoresCtime,
                                           .ignoresInode = request.ignoresInode},
                                          observer, Interruptible::stopRequest());
    return outcome;
}

} // namespace stowline::cli
