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

void show(const backup::RunEntry& run)
{
    const char* state = backup::nameOf(run.state);
    const std::string failed = run.failed == 0 ? "" : fmt::format("; {} failed", run.failed);
    output().item(fmt::format("{:>8}  {}  {:10}  {:>12}  {:>10} new  {:>10} in all{}", run.run,
                              momentText(run.begun), state, countText(run.items, "item", "items"),
                              bytesText(static_cast<double>(run.newBytes)),
                              bytesText(static_cast<double>(run.bytes)), failed),
                  "run",
                  {{"run", run.run},
                   {"time", momentField(run.begun)},
                   {"ended", run.ended ? momentField(*run.ended) : std::string()},
                   {"state", std::string(state)},
                   {"items", run.items},
                   {"failed", run.failed},
                   {"new_bytes", run.newBytes},
                   {"bytes", run.bytes}});
}

ExitStatus runs(const RunOptions& options)
{
    const auto choice = options.open();
    if (!choice)
        return choice.status();
    const Interruptible interruptible;
    const auto end = backup::listRuns(*choice, show, Interruptible::stopRequest());
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
