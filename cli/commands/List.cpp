// stowline ls
#include "cli/commands/Commands.h"
#include "cli/shared/Output.h"
#include "cli/shared/RemoteItem.h"
#include "cli/shared/RemotePages.h"
#include "cli/shared/RunOptions.h"
#include "cli/shared/StoredItems.h"
#include "stowline/backup/tree/ItemRecord.h"
#include "stowline/service/FailureWatch.h"
#include "stowline/service/WebServiceBroker.h"
#include "stowline/util/General.h"

#include <algorithm>
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

/// Where nothing is listed: whether the folder above lists the path all the same, as an empty
/// folder or a file, which is shown.
/// @return absent when the question failed
std::optional<bool> isListedAbove(const Session& session, const RemoteListing& listing,
                                  ErrorSlot error)
{
    RemoteListing above = listing;
    above.path = backup::parentOf(listing.path);
    above.limit.reset();
    bool isThere = false;
    const auto look = [&](const Dictionary& entry) {
        if (isThere || platform::findText(entry, "Name") != backup::nameOf(listing.path))
            return;
        isThere = true;
        if (platform::findText(entry, "IsFolder") == "true")
            return;
        showRemoteHeading();
        showRemoteItem(entry, false);
    };
    return forEachInFolder(session, above, look, error) ? std::optional(isThere) : std::nullopt;
}

/// The same of a machine of which nothing is listed.
std::optional<bool> isKnownMachine(const Session& session, const std::string& machine)
{
    const auto names = WebServiceBroker::getAccountSystemsForUsername(
        session.username, session.password, session.server, nullptr);
    if (!names)
        return std::nullopt;
    return std::ranges::any_of(*names, [&](const Value& name) { return name.text() == machine; });
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
    std::optional<Error> error;
    bool isFirst = true;
    const auto show = [&isFirst](const Dictionary& entry) {
        if (std::exchange(isFirst, false))
            showRemoteHeading();
        showRemoteItem(entry, false);
    };
    const auto total = forEachInFolder(*session, listing, show, &error);
    if (!total)
        return refusal("The folder cannot be listed", error ? error : watch.failure());
    if (*total > 0)
        return output().finish(ExitStatus::done);
    const bool isRoot = listing.path == "/";
    const auto isThere = isRoot ? isKnownMachine(*session, listing.systemName)
                                : isListedAbove(*session, listing, &error);
    if (!isThere)
        return refusal("The folder cannot be listed", error ? error : watch.failure());
    if (!*isThere)
        return output().fail(
            ExitStatus::notFound,
            isRoot
                ? "The service knows no machine " + listing.systemName + " in this account."
                : options.path + " of the machine " + listing.systemName +
                      " was not found on the service. Empty folders and links are only shown as a "
                      "run found them (--at).");
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
    command.addFlag("-r,--reverse", options->isDescending, "Largest or latest first");
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
