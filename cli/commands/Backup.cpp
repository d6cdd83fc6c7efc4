// stowline backup
#include "cli/commands/BackupFlags.h"
#include "cli/commands/Commands.h"
#include "cli/shared/Configuration.h"
#include "cli/shared/NearestWord.h"
#include "cli/shared/Output.h"
#include "stowline/backup/tree/TreeRules.h"
#include "stowline/platform/files/Files.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>

namespace stowline::cli {

namespace {

/// How a launch by the schedule is marked; it is not a path, wherever it stands.
constexpr const char* kScheduledLaunch = "scheduled_launch";

struct Options {
    SessionOptions session;
    BackupFlags flags;
    std::vector<std::string> paths;
    std::vector<std::string> filesFrom;
    std::vector<std::string> excludeFrom;
    std::string streamName;
    backup::BackupRequest request; ///< what comes from flags of this command alone
};

/// A file, or standard input for "-".
std::optional<std::string> contentOf(const std::string& file)
{
    return platform::readFile(file == "-" ? "/dev/stdin" : file);
}

std::string unreadable(const std::string& file)
{
    return "The file " + file + " cannot be read.";
}

/// Whether it names something below a folder: not the folder, and nothing beside it.
bool isNameBelow(const std::filesystem::path& name)
{
    const auto normal = name.lexically_normal();
    return normal.is_relative() && normal.has_filename() && normal != "." &&
           *normal.begin() != "..";
}

std::string nothingIsNamed(const std::string& profile)
{
    const auto& known = configuredProfiles();
    const bool isConfigured = std::ranges::find(known, profile) != known.end();
    std::string sentence = "Please name what to back up: PATH, --files-from or --stdin.";
    if (isConfigured)
        sentence = fmt::format("[profile.{}] in the configuration file has no paths. Please add "
                               "them, or name PATH, --files-from or --stdin.",
                               profile);
    else if (profile != backup::ChainIdentity().profile)
        sentence = fmt::format("There is no [profile.{}] in the configuration file.{} Please add "
                               "it with its paths, or name PATH, --files-from or --stdin.",
                               profile, suggestion(profile, known));
    return sentence;
}

/// Everything that is named, in whichever way. @return what is wrong with it; absent when nothing
/// is
std::optional<std::string> faultInLists(Options& options)
{
    // What a service manager passes names nothing, unless there is something of that name.
    std::error_code unknown;
    if (!std::filesystem::exists(std::filesystem::symlink_status(kScheduledLaunch, unknown)))
        std::erase(options.paths, kScheduledLaunch);
    if (!options.streamName.empty() && (!options.paths.empty() || !options.filesFrom.empty())) {
        return "--stdin stores standard input alone, and PATH or --files-from was given too. "
               "Please "
               "run \"stowline backup\" once for each.";
    }
    for (const std::string& file : options.filesFrom) {
        const auto content = contentOf(file);
        if (!content)
            return unreadable(file);
        const auto listed = backup::pathsOfList(*content);
        if (listed.empty()) // what makes the list may have failed, and no backup would say so
            output().note((file == "-" ? "Standard input" : file) +
                          " (--files-from) names nothing.");
        std::ranges::copy(listed, std::back_inserter(options.paths));
    }
    for (const std::string& file : options.excludeFrom) {
        const auto content = contentOf(file);
        if (!content)
            return unreadable(file);
        if (const auto line = backup::TreeRules().excludeLines(*content)) {
            return fmt::format("Line {} of {} is not a pattern.", *line, file);
        }
        options.request.rules.excludeLines += *content + "\n";
    }
    if (auto fault = backup::faultIn(options.request.rules))
        return fault;
    if (!options.streamName.empty() && !isNameBelow(options.streamName)) {
        return "\"" + options.streamName +
               "\" cannot be the name of --stdin. Please give one such as \"dump.sql\" or "
               "\"db/dump.sql\".";
    }
    if (!options.paths.empty() || !options.streamName.empty())
        return std::nullopt;
    if (options.filesFrom.empty())
        return nothingIsNamed(options.flags.profile);
    return "There is nothing to back up: no list of --files-from names a path.";
}

ExitStatus backUpPaths(Options& options)
{
    if (const auto fault = faultInLists(options))
        return output().fail(ExitStatus::usage, *fault);
    return backUp(options.session, options.flags, [&options](backup::BackupRequest& request) {
        const backup::BackupRequest& more = options.request;
        request.paths = options.paths;
        request.rules = more.rules;
        request.ignoresCtime = more.ignoresCtime;
        request.ignoresInode = more.ignoresInode;
        request.trustsNothing = more.trustsNothing;
        request.rebuildsIndex = more.rebuildsIndex;
        request.adoptsChain = more.adoptsChain;
        if (options.streamName.empty())
            return;
        request.streamName = options.streamName;
        request.streamDescriptor = 0;
    });
}

void declareRules(const Command& command, Options& options)
{
    backup::BackupRules& rules = options.request.rules;
    command.addOption("--exclude", rules.exclude,
                      "Leave out what matches this pattern, as in .gitignore: without a slash a "
                      "name at any depth (\"*.o\"), with one a path below PATH (\"/cache\", "
                      "\"src/*.c\"), with one at its end folders only; \"**\" is any number of "
                      "folders; may be given again");
    command.addOption("--exclude-from", options.excludeFrom,
                      "Leave out what matches the patterns of this file, one a line; \"!\" before "
                      "one takes an earlier one back, and any of --exclude, which all come first");
    command.addOption("--include", rules.include,
                      "Take only files that match this pattern; may be given again");
    command.addFlag("--skip-hidden", rules.skipsHidden, "Skip hidden files and folders");
    command.addFlag("--exclude-caches", rules.skipsCaches,
                    "Leave out folders tagged with a CACHEDIR.TAG");
    command.addFlag("--one-file-system", rules.staysOnFileSystem,
                    "Stay on the file system of each PATH");
}

void declareTrust(const Command& command, backup::BackupRequest& request)
{
    command.addFlag("--ignore-ctime", request.ignoresCtime,
                    "Treat a file as unchanged even if its change time (ctime) differs");
    command.addFlag("--ignore-inode", request.ignoresInode,
                    "Treat a file as unchanged whatever its inode is");
    command.addFlag("--trust-nothing,--checksum", request.trustsNothing,
                    "Read every file, and compare its content with the digest of what was stored");
    command.addFlag("--rebuild-index", request.rebuildsIndex,
                    "Rebuild the index of stored items from the service");
    command.addFlag("--adopt", request.adoptsChain,
                    "Take over the backups that another machine made under this name");
}

} // namespace

void declareBackup(const Command& app)
{
    auto options = std::make_shared<Options>();
    const Command command = app.addCommand(
        "backup", "Store what is new or changed, and resume what was interrupted. A file that was "
                  "renamed or moved, alone or with its folder, is sent again under its new name; "
                  "holes of a sparse file are not read, but sent as zeros");
    command.addOption(
        "PATH", options->paths,
        "Files and folders; a link that is named is followed. The paths of the profile "
        "in the configuration file when nothing is named");
    command.addOption("--files-from", options->filesFrom,
                      "Back up the paths in this file (\"-\": standard input), one a line, or "
                      "separated by NUL bytes");
    command.addOption("--stdin", options->streamName,
                      "Back up standard input as a file of this name below /stdin");
    declareRules(command, *options);
    declareTrust(command, options->request);
    options->flags.declare(command);
    options->flags.selfTest.declare(command);
    options->flags.forgetting.declare(command);
    options->flags.alert.declare(
        command, "after which the result, the report and the monitoring event say that no run has "
                 "finished without failures or, if there were self-tests, that none found "
                 "everything in order; when nothing else is wrong the status is 9");
    options->session.declare(command);
    command.runs([options] { return backUpPaths(*options); });
}

} // namespace stowline::cli
