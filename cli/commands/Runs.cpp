// stowline runs
#include "cli/commands/Commands.h"
#include "cli/shared/HumanText.h"
#include "cli/shared/Interruption.h"
#include "cli/shared/Output.h"
#include "cli/shared/Progress.h"
#include "cli/shared/RunOptions.h"
#include "stowline/backup/RunHistory.h"

#include <fmt/format.h>

namespace stowline::cli {

namespace {

/// What self-tests know of a run; empty when they know nothing.
std::string proofText(const backup::RunEntry& run)
{
    if (!run.proof)
        return "";
    const backup::RunProof& proof = *run.proof;
    if (proof.isDamaged)
        return "; its record is DAMAGED";
    std::string text =
        "; proven " + (proof.proven ? momentText(*proof.proven)
                                    : fmt::format("{} of {}", proof.provenFiles,
                                                  countText(proof.files, "file", "files")));
    if (proof.lostFiles > 0)
        text += fmt::format("; {} LOST", proof.lostFiles);
    return text;
}

void show(const backup::RunEntry& run)
{
    const backup::RunProof proof = run.proof.value_or(backup::RunProof());
    const char* state = backup::nameOf(run.state);
    const std::string failed = run.failed == 0 ? "" : fmt::format("; {} failed", run.failed);
    output().item(fmt::format("{:>8}  {}  {:10}  {:>12}  {:>10} new  {:>10} in all{}{}", run.run,
                              momentText(run.begun), state, countText(run.items, "item", "items"),
                              bytesText(static_cast<double>(run.newBytes)),
                              bytesText(static_cast<double>(run.bytes)), failed, proofText(run)),
                  "run",
                  {{"run", run.run},
                   {"time", momentField(run.begun)},
                   {"ended", run.ended ? momentField(*run.ended) : std::string()},
                   {"state", std::string(state)},
                   {"items", run.items},
                   {"failed", run.failed},
                   {"new_bytes", run.newBytes},
                   {"bytes", run.bytes},
                   {"proven", proof.proven ? momentField(*proof.proven) : std::string()},
                   {"proof_files", proof.files},
                   {"proof_proven_files", proof.provenFiles},
                   {"proof_lost_files", proof.lostFiles},
                   {"record_damaged", proof.isDamaged}});
}

ExitStatus runs(const RunOptions& options)
{
    const auto choice = options.open();
    if (!choice)
        return choice.status();
    const Interruptible interruptible;
    const auto end = backup::listRuns(*choice, show, Interruptible::stopRequest());
    constexpr std::size_t namedByTheNote = 3;
    if (end.origin.otherChains.size() > namedByTheNote) {
        for (const std::string& chain : end.origin.otherChains)
            output().note("Also under this name: " + chain);
    }
    return finishReading(end.end, end.sentence, end.origin);
}

} // namespace

void declareRuns(const Command& app)
{
    auto options = std::make_shared<RunOptions>();
    const Command command = app.addCommand("runs", "List the backup runs of a machine");
    options->declare(command, "--machine");
    command.runs([options] { return runs(*options); });
}

} // namespace stowline::cli
