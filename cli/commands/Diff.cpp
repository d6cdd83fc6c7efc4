// stowline diff
#include "cli/commands/Commands.h"
#include "cli/shared/HumanText.h"
#include "cli/shared/Interruption.h"
#include "cli/shared/Output.h"
#include "cli/shared/RunOptions.h"
#include "stowline/backup/RunHistory.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

namespace stowline::cli {

namespace {

struct Options {
    RunOptions run;
    std::int64_t from = 0;
    std::int64_t to = 0;
};

struct Counts {
    std::uint64_t came = 0;
    std::uint64_t went = 0;
    std::uint64_t excluded = 0;
    std::uint64_t changed = 0;
    std::uint64_t metadata = 0;
};

void show(const backup::RunDifference& difference, Counts& counts)
{
    using Kind = backup::RunDifference::Kind;
    (difference.kind == Kind::came       ? counts.came
     : difference.kind == Kind::went     ? counts.went
     : difference.kind == Kind::excluded ? counts.excluded
     : difference.kind == Kind::changed  ? counts.changed
                                         : counts.metadata) += 1;
    const std::string kind = backup::nameOf(difference.kind);
    const std::string& path = difference.item.item.path;
    output().item(fmt::format("{:8}  {}", kind, onOneLine(path)), "difference",
                  {{"path", path}, {"change", kind}, {"bytes", difference.item.item.size}});
}

ExitStatus diff(const Options& options)
{
    const auto choice = options.run.open();
    if (!choice)
        return choice.status();
    const Interruptible interruptible;
    Counts counts;
    const auto end = backup::forEachDifference(
        *choice, static_cast<std::uint64_t>(options.from), static_cast<std::uint64_t>(options.to),
        [&counts](const backup::RunDifference& difference) { show(difference, counts); },
        Interruptible::stopRequest());
    if (end.end != backup::ReadEnd::done)
        return finishReading(end.end, end.sentence, end.origin);
    noteOrigin(end.origin);
    if (counts.excluded > 0)
        output().note(fmt::format(
            "{} of run {} {} left out of run {} by its rules; whether {} gone is not known.",
            countText(counts.excluded, "item", "items"), options.from,
            counts.excluded == 1 ? "is" : "are", options.to,
            counts.excluded == 1 ? "it is" : "they are"));
    Fields fields{{"came", counts.came},
                  {"went", counts.went},
                  {"excluded", counts.excluded},
                  {"changed", counts.changed},
                  {"metadata", counts.metadata}};
    if (output().isJson()) { // people were told in sentences
        std::ranges::copy(lackFields(end.earlierLack, "earlier_"), std::back_inserter(fields));
        std::ranges::copy(lackFields(end.origin.lack), std::back_inserter(fields));
    }
    return output().finish(ExitStatus::done, fields);
}

} // namespace

void declareDiff(const Command& app)
{
    auto options = std::make_shared<Options>();
    const Command command = app.addCommand("diff", "Show what changed from one run to another");
    command.addOption("RUN", options->from, "Number of the earlier run").required().positive();
    command.addOption("RUN2", options->to, "Number of the later run").required().positive();
    options->run.declare(command, "--machine");
    command.runs([options] { return diff(*options); });
}

} // namespace stowline::cli
