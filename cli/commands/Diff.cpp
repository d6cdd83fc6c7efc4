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
#include <map>
#include <utility>

namespace stowline::cli {

namespace {

struct Options {
    RunOptions run;
    std::int64_t from = 0;
    std::int64_t to = 0;
};

using Kind = backup::RunDifference::Kind;
using Counts = std::map<Kind, std::uint64_t>;

void show(const backup::RunDifference& difference, Counts& counts)
{
    ++counts[difference.kind];
    const std::string kind = backup::nameOf(difference.kind);
    const std::string& path = difference.item.item.path;
    const backup::ItemSight& sight = difference.sight;
    output().item(fmt::format("{:10}  {}", kind, onOneLine(path)), "difference",
                  {{"path", path},
                   {"change", kind},
                   {"bytes", difference.item.item.size},
                   {"seen_run", sight.run},
                   {"seen", sight.run == 0 ? std::string() : momentField(sight.begun)}});
}

/// What is in one run and not in the other without saying what was there.
void noteUnknown(const Options& options, const Counts& counts)
{
    const auto note = [&counts](Kind kind, std::int64_t in, const std::string& one,
                                const std::string& many) {
        if (const auto count = counts.find(kind); count != counts.end())
            output().note(fmt::format("{} of run {} {} not known.",
                                      countText(count->second, "item", "items"), in,
                                      count->second == 1 ? one : many));
    };
    const auto leftOut = [](std::int64_t run, const char* verb) {
        return fmt::format("{} left out of run {} by its rules; whether ", verb, run);
    };
    const std::int64_t from = options.from;
    const std::int64_t to = options.to;
    note(Kind::excluded, from, leftOut(to, "is") + "it is gone is",
         leftOut(to, "are") + "they are gone is");
    note(Kind::included, to, leftOut(from, "was") + "it was there then is",
         leftOut(from, "were") + "they were there then is");
    note(Kind::firstSeen, to,
         fmt::format("is where no run had looked by run {}; whether it was there then is", from),
         fmt::format("are where no run had looked by run {}; whether they were there then is",
                     from));
    note(Kind::unseen, from,
         fmt::format("is where no run has looked until run {}; whether it is gone is", to),
         fmt::format("are where no run has looked until run {}; whether they are gone is", to));
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
    noteUnknown(options, counts);
    Fields fields;
    for (const auto& [kind, name] :
         {std::pair(Kind::came, "came"), std::pair(Kind::went, "went"),
          std::pair(Kind::included, "included"), std::pair(Kind::firstSeen, "first_seen"),
          std::pair(Kind::unseen, "unseen"), std::pair(Kind::excluded, "excluded"),
          std::pair(Kind::changed, "changed"), std::pair(Kind::metadata, "metadata")})
        fields.emplace_back(name, counts[kind]);
    if (output().isJson()) { // people were told in sentences
        fields.emplace_back("trust", backup::nameOf(end.origin.trust));
        fields.emplace_back("earlier_trust", backup::nameOf(end.earlierTrust));
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
