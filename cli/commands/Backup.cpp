// stowline backup
#include "cli/commands/BackupCommand.h"
#include "cli/commands/Commands.h"
#include "cli/shared/Output.h"

namespace stowline::cli {

namespace {

struct Options {
    SessionOptions session;
    BackupFlags flags;
    std::vector<std::string> paths;
    TreeRules rules;
};

ExitStatus backup(Options& options)
{
    const BackupGuard guard;
    if (!guard.isHeld())
        return guard.failure();
    return backUpTree(options.session, options.flags,
                      [&options] { return walk(options.paths, options.rules); });
}

} // namespace

void declareBackup(const Command& app)
{
    auto options = std::make_shared<Options>();
    const Command command = app.addCommand(
        "backup", "Upload files in parts, go on with what was cut off, register each file");
    command.addOption("PATH", options->paths, "Files and folders").required();
    command.addOption("--include", options->rules.include,
                      "Only files that match a pattern: of names, or with a slash of paths below "
                      "PATH; may be given again");
    command.addOption("--exclude", options->rules.exclude,
                      "No files and folders that match a pattern; may be given again");
    command.addFlag("--skip-hidden", options->rules.skipsHidden, "No hidden files and folders");
    options->flags.declare(command);
    options->session.declare(command);
    command.runs([options] { return backup(*options); });
}

} // namespace stowline::cli
