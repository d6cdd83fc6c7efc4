// stowline runs
#include "cli/commands/Commands.h"
#include "cli/shared/HumanText.h"
#include "cli/shared/Interruption.h"
#include "cli/shared/Output.h"
#include "cli/shared/Overdue.h"
#include "cli/shared/Progress.h"
#include "cli/shared/RunOptions.h"
#include "stowline/backup/RunHistory.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

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

/// What was named: "  /home", "  /home and 2 others".
std::string pathsText(const std::vector<std::string>& paths)
{
    if (paths.empty())
        return "";
    const std::string first = "  " + onOneLine(paths.front());
    return paths.size() == 1 ? first
                             : first + " and " + countText(paths.size() - 1, "other", "others");
}

void show(const backup::RunEntry& run)
{
    const backup::RunProof proof = run.proof.value_or(backup::RunProof());
    const char* state = backup::nameOf(run.state);
    const std::string failed = run.failed == 0 ? "" : fmt::format("; {} failed", run.failed);
    output().item(fmt::format("{:>8}  {:<23}  {:10}  {:>12}  {:>10} new  {:>10} in all{}{}{}",
                              run.run, momentText(run.begun), state,
                              countText(run.items, "item", "items"),
                              bytesText(static_cast<double>(run.newBytes)),
                              bytesText(static_cast<double>(run.bytes)), failed, proofText(run),
                              pathsText(run.paths)),
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
                   {"record_damaged", proof.isDamaged},
                   {"path", run.paths.empty() ? std::string() : run.paths.front()},
                   {"paths", static_cast<std::uint64_t>(run.paths.size())}});
}

struct RunsOptions {
    RunOptions run;
    AlertFlag alert;
};

/// Also of another machine: by what the service has, not by what this machine remembers.
Date beganAt(const backup::RunEntry& run)
{
    return Date(std::chrono::seconds(run.begun.seconds));
}

ExitStatus runs(const RunsOptions& options)
{
    const auto choice = options.run.open();
    if (!choice)
        return choice.status();
    const Interruptible interruptible;
    LastSuccesses last;
    bool isTestedHere = false;
    const auto take = [&](const backup::RunEntry& run) {
        show(run);
        isTestedHere = isTestedHere || run.proof;
        if (run.state == backup::RunState::finished && run.failed == 0)
            last.goodRun = beganAt(run);
    };
    const auto end = backup::listRuns(*choice, take, Interruptible::stopRequest());
    constexpr std::size_t namedByTheNote = 3;
    if (end.origin.otherChains.size() > namedByTheNote) {
        for (const std::string& chain : end.origin.otherChains)
            output().note("Also under this name: " + chain);
    }
    if (isTestedHere && choice->identity) {
        const LastSuccesses known = lastSuccesses(
            choice->identity->profile, {choice->account.username, choice->account.systemName, {}});
        last.selfTest = known.selfTest;
        last.proof = known.proof;
    }
    const auto late = options.alert.sentencesFor(last);
    if (end.end != backup::ReadEnd::done || late.empty())
        return finishReading(end.end, end.sentence, end.origin);
    noteOrigin(end.origin);
    showOnDesktop(late);
    return output().fail(ExitStatus::overdue, fmt::format("{}", fmt::join(late, " ")));
}

} // namespace

void declareRuns(const Command& app)
{
    auto options = std::make_shared<RunsOptions>();
    const Command command = app.addCommand("runs", "List the backup runs of a machine");
    options->run.declare(command, "--machine");
    options->alert.declare(command,
                           "after which it is told that no run has finished without failures or, "
                           "if there were self-tests, that none found everything in order; the "
                           "status is 9 then");
    command.runs([options] { return runs(*options); });
}

} // namespace stowline::cli
