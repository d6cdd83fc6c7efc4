// stowline verify
#include "cli/commands/Commands.h"
#include "cli/shared/Amounts.h"
#include "cli/shared/HumanText.h"
#include "cli/shared/Interruption.h"
#include "cli/shared/Output.h"
#include "cli/shared/Progress.h"
#include "cli/shared/RunOptions.h"
#include "stowline/backup/VerifyRun.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

namespace stowline::cli {

namespace {

struct Options {
    RunOptions run;
    bool readsAll = false;
    std::string sample;
    std::size_t jobs = 4;
    std::uint64_t bytesPerSecond = 0;
};

class Observer : public backup::VerifyObserver {
public:
    void found(const backup::VerifyFinding& finding) override
    {
        progress_.clear();
        output().complain(finding.sentence);
        if (output().isJson())
            output().item(finding.sentence, "file",
                          {{"path", finding.path},
                           {"state", std::string(backup::nameOf(finding.kind))},
                           {"first_run", finding.firstRun},
                           {"last_run", finding.lastRun}});
    }

    void clear() { progress_.clear(); }

private:
    ProgressDisplay progress_;
};

ExitStatus verify(const Options& options)
{
    const auto fraction = options.sample.empty() ? std::optional(options.readsAll ? 1.0 : 0.0)
                                                 : parseShare(options.sample);
    if (!fraction)
        return output().fail(ExitStatus::usage, "--sample takes a percentage such as 5%, not \"" +
                                                    options.sample + "\".");
    const auto choice = options.run.open();
    if (!choice)
        return choice.status();
    const Interruptible interruptible;
    Observer observer;
    const auto sum = backup::runVerify({.choice = *choice,
                                        .fractionRead = *fraction,
                                        .jobs = options.jobs,
                                        .bytesPerSecond = options.bytesPerSecond},
                                       observer, Interruptible::stopRequest());
    observer.clear();
    const ExitStatus status = statusOf(sum.end);
    noteOrigin(sum.origin);
    if (sum.run == 0)
        return output().fail(status, sentenceFor(sum.end, sum.sentence));
    if (status != ExitStatus::done)
        output().complain(sum.sentence);
    output().note(fmt::format("{}: {} checked, of which {} read; {} missing, {} damaged.",
                              runText(sum.origin), countText(sum.checked, "file", "files"),
                              countText(sum.read, "was", "were"), sum.missing, sum.damaged));
    Fields fields{{"run", sum.run},         {"checked", sum.checked}, {"missing", sum.missing},
                  {"damaged", sum.damaged}, {"unknown", sum.unknown}, {"read", sum.read},
                  {"bytes", sum.bytes}};
    std::ranges::copy(originFields(sum.origin), std::back_inserter(fields));
    if (!output().isJson())
        return output().finish(status);
    if (!sum.sentence.empty())
        fields.emplace_back("message", sum.sentence);
    return output().finish(status, fields);
}

} // namespace

void declareVerify(const Command& app)
{
    auto options = std::make_shared<Options>();
    const Command command =
        app.addCommand("verify", "Check that the service has all that a run needs");
    const auto read =
        command.addFlag("--read", options->readsAll, "Fetch the files and check their bytes");
    command.addOption("--sample", options->sample, "Do that with a share of them only, such as 5%")
        .excludes(read);
    options->run.declareAt(command);
    command.addOption("-j,--jobs", options->jobs, "Files to fetch at the same time")
        .between(1, 64)
        .showsDefault();
    command
        .addOption("--bwlimit", options->bytesPerSecond,
                   "Bytes a second to fetch at most, such as 500k")
        .asSize();
    options->run.declare(command, "--machine");
    command.runs([options] { return verify(*options); });
}

} // namespace stowline::cli
