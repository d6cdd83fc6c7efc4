// stowline ls
#include "cli/commands/Commands.h"
#include "cli/shared/Output.h"
#include "cli/shared/RemoteItem.h"
#include "cli/shared/RemotePages.h"
#include "cli/shared/RunOptions.h"
#include "cli/shared/StoredItems.h"
#include "stowline/service/FailureWatch.h"
#include "stowline/service/WebServiceBroker.h"
#include "stowline/util/General.h"

#include <utility>

namespace stowline::cli {

namespace {

struct ListOptions {
    SessionOptions session;
    RemoteListing listing;
    std::string path;
    bool isDescending = false;
    std::string at;
    ChainOptions chain;
};

/// As a run found it.
ExitStatus listAt(const ListOptions& options, const Session& session)
{
    const auto choice =
        runChoiceFor(session, options.listing.systemName, options.at, options.chain);
    if (!choice)
        return choice.status();
    return listStored(*choice, {.path = storedPathFor(options.path),
                                .sortField = options.listing.sortField,
                                .isDescending = options.isDescending,
                                .limit = options.listing.limit});
}

ExitStatus list(const ListOptions& options)
{
    const auto session = options.session.open({"GetAccountFilesAndFolders"});
    if (!session)
        return session.status();
    if (!options.at.empty())
        return listAt(options, *session);
    RemoteListing listing = options.listing;
    listing.path = remotePathFor(options.path);
    listing.isAscending = !options.isDescending;
    const FailureWatch watch;
    bool isFirst = true;
    const auto show = [&isFirst](const Dictionary& entry) {
        if (std::exchange(isFirst, false))
            showRemoteHeading();
        showRemoteItem(entry, false);
    };
    const auto total = forEachInFolder(*session, listing, show, nullptr);
    if (!total)
        return refusal("The folder cannot be listed", watch.failure());
    if (*total == 0 && listing.path != "/")
        return output().fail(ExitStatus::notFound, options.path + " of the machine " +
                                                       listing.systemName +
                                                       " was not found on the service.");
    return output().finish(ExitStatus::done);
}

} // namespace

void declareList(const Command& app)
{
    auto options = std::make_shared<ListOptions>();
    const Command command = app.addCommand("ls", "List a folder as it is stored");
    command.addOption("PATH", options->path, "Folder of the machine").required();
    command.addOption("--system", options->listing.systemName, "The machine")
        .defaultsTo(General::localHostName());
    command.addOption("--sort", options->listing.sortField, "Name, Size or Modified")
        .oneOf({"Name", "Size", "Modified"})
        .showsDefault();
    command.addFlag("-r,--reverse", options->isDescending, "Largest or last first");
    command.addOption("--page-size", options->listing.pageSize, "Entries to ask for at once")
        .between(1, 10000)
        .showsDefault();
    command.addOption("--limit", options->listing.limit, "Entries to show at most").positive();
    declareAt(command, options->at);
    options->chain.declare(command);
    options->session.declare(command);
    command.runs([options] { return list(*options); });
}

} // namespace stowline::cli
