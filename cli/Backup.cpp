// stowline backup
#include "cli/BackupCommand.h"
#include "cli/Commands.h"
#include "cli/Output.h"

#include <CLI/CLI.hpp>

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

void declareBackup(CLI::App& app, Chosen& chosen)
{
    auto options = std::make_shared<Options>();
    CLI::App* command = app.add_subcommand(
        "backup", "Upload files in parts, go on with what was cut off, register each file");
    command->add_option("PATH", options->paths, "Files and folders")->required();
    command->add_option("--include", options->rules.include,
                        "Only files that match a pattern: of names, or with a slash of paths below "
                        "PATH; may be given again");
    command->add_option("--exclude", options->rules.exclude,
                        "No files and folders that match a pattern; may be given again");
    command->add_flag("--skip-hidden", options->rules.skipsHidden, "No hidden files and folders");
    options->flags.declare(*command);
    options->session.declare(*command);
    command->callback([options, &chosen] { chosen = [options] { return backup(*options); }; });
}

} // namespace stowline::cli
