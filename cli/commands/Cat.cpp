// stowline cat
#include "cli/commands/Commands.h"
#include "cli/shared/Interruption.h"
#include "cli/shared/Output.h"
#include "cli/shared/RunOptions.h"
#include "stowline/backup/RestoreRun.h"
#include "stowline/platform/processes/StandardStreams.h"

namespace stowline::cli {

namespace {

struct Options {
    RunOptions run;
    std::string path;
};

ExitStatus cat(const Options& options)
{
    if (output().isJson())
        return output().fail(ExitStatus::usage,
                             "cat prints the file's bytes; it has no JSON form.");
    const auto choice = options.run.open();
    if (!choice)
        return choice.status();
    const Interruptible interruptible;
    bool isBroken = false;
    const auto summary = backup::readStoredFile(
        *choice, storedPathFor(options.path),
        [&isBroken](std::string_view bytes) {
            isBroken = !platform::writeToStandardOutput(bytes);
            return !isBroken;
        },
        Interruptible::stopRequest());
    if (isBroken)
        return output().fail(ExitStatus::failed, "The file cannot be written to standard output.");
    return finishReading(summary.end, summary.sentence, summary.origin);
}

} // namespace

void declareCat(const Command& app)
{
    auto options = std::make_shared<Options>();
    const Command command = app.addCommand("cat", "Print a stored file");
    command.addOption("PATH", options->path, "Stored file").required();
    options->run.declareAt(command);
    options->run.declare(command, "--machine");
    command.runs([options] { return cat(*options); });
}

} // namespace stowline::cli
