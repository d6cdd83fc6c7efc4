// stowline rm
#include "cli/commands/Commands.h"
#include "cli/commands/FolderRemoval.h"
#include "cli/shared/Confirmation.h"
#include "cli/shared/Grace.h"
#include "cli/shared/Output.h"
#include "cli/shared/RemoteItem.h"
#include "cli/shared/ServiceFailure.h"
#include "cli/shared/Session.h"
#include "stowline/backup/BackupRun.h"
#include "stowline/platform/files/Files.h"
#include "stowline/service/FailureWatch.h"
#include "stowline/service/WebServiceBroker.h"
#include "stowline/util/General.h"

#include <fmt/format.h>

namespace stowline::cli {

namespace {

struct RemoveOptions {
    SessionOptions session;
    Confirmation confirmation;
    std::vector<std::string> versionLists;
    FolderRemovalOptions folder;
};

/// The next backup must not take for stored what is deleted here.
void noteDeletion()
{
    if (const auto folder = platform::stateFolder())
        backup::noteDeletedVersions(*folder);
}

ExitStatus removeVersions(const RemoveOptions& options)
{
    const auto session = options.session.open({"DeleteFilesInBulk"});
    if (!session)
        return session.status();
    const auto refused = options.confirmation.refusal(
        fmt::format("the versions of the lists {}", fmt::join(options.versionLists, ", ")));
    if (refused)
        return *refused;
    const FailureWatch watch;
    std::optional<Error> failure;
    std::size_t deleted = 0;
    std::vector<std::string> left;
    for (const std::string& list : options.versionLists) {
        if (WebServiceBroker::deleteFileVersionWithFileListID(list, session->username,
                                                              session->server))
            ++deleted;
        else {
            left.push_back(list);
            failure = watch.failure();
        }
    }
    if (deleted > 0) {
        noteDeletion();
        noteGrace(*session);
    }
    if (deleted == 0)
        return callFailure(failure,
                           fmt::format("The service did not delete the versions of the lists {}.",
                                       fmt::join(left, ", ")),
                           "please check with \"stowline versions\" what is left.");
    for (const std::string& list : left)
        output().complain("The service is not known to have deleted the versions of the list " +
                          list + ".");
    if (deleted == options.versionLists.size())
        return output().finish(ExitStatus::done, {{"deleted_versions", deleted}});
    return output().finish(ExitStatus::someItemsFailed, {{"deleted_versions", deleted}});
}

/// Whether the service says that it has nothing below a folder; not where it cannot be asked.
bool isNothingThere(const Session& session, const FolderRemovalOptions& folder)
{
    std::int64_t count = 0;
    std::optional<Error> error;
    const auto page = WebServiceBroker::getAccountFilesAndFoldersForUserName(
        session.username, session.password, session.server, folder.systemName,
        remotePathFor(folder.path), "Name", true, 0, 1, &count, &error);
    return page && !error && page->empty() && count == 0;
}

ExitStatus removeWholeFolder(const RemoveOptions& options)
{
    const auto session = options.session.open({"GetAccountFilesAndFolders"});
    if (!session)
        return session.status();
    if (isNothingThere(*session, options.folder))
        return output().fail(ExitStatus::notFound,
                             "Nothing is stored below " + options.folder.path + " of the machine " +
                                 options.folder.systemName +
                                 ". \"stowline ls\" shows what there is; the versions of one file "
                                 "are deleted with --version.");
    const auto refused =
        options.confirmation.refusal("everything stored of " + options.folder.path +
                                     " of the machine " + options.folder.systemName);
    if (refused)
        return *refused;
    // Also where it is not known whether the service began.
    noteDeletion();
    return removeFolder(*session, options.folder);
}

ExitStatus remove(const RemoveOptions& options)
{
    if (options.folder.path.empty() == options.versionLists.empty())
        return output().fail(ExitStatus::usage,
                             "Please name a folder, or lists of versions with --version.");
    return options.folder.path.empty() ? removeVersions(options) : removeWholeFolder(options);
}

} // namespace

void declareRemove(const Command& app)
{
    auto options = std::make_shared<RemoveOptions>();
    const Command command = app.addCommand(
        "rm", "Delete a stored folder, following it and cancelling on Ctrl-C; or stored versions");
    command.addOption("PATH", options->folder.path, "Folder of the machine");
    command.addOption("--system", options->folder.systemName, "The machine")
        .defaultsTo(General::localHostName());
    command
        .addOption("--version", options->versionLists,
                   "List of versions to delete, as \"versions\" shows it; may be given again")
        .notInFile();
    command.addOption("--poll", options->folder.pollSeconds, "Seconds between two status checks")
        .between(0.01, 3600.0)
        .showsDefault();
    command
        .addOption("--follow-time", options->folder.followSeconds,
                   "Follow the deletion for at most this many seconds")
        .notNegative()
        .showsDefault();
    options->confirmation.declare(command);
    options->session.declare(command);
    command.runs([options] { return remove(*options); });
}

} // namespace stowline::cli
