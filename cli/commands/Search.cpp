// stowline search
#include "cli/commands/Commands.h"
#include "cli/shared/Output.h"
#include "cli/shared/RemoteItem.h"
#include "cli/shared/RemotePages.h"
#include "cli/shared/RunOptions.h"
#include "cli/shared/StoredItems.h"
#include "stowline/service/FailureWatch.h"
#include "stowline/util/General.h"

#include <utility>

namespace stowline::cli {

namespace {

struct SearchOptions {
    SessionOptions session;
    RemoteListing listing;
    std::string text;
    std::string folder;
    std::string at;
    ChainOptions chain;
};

/// As a run found it.
ExitStatus searchAt(const SearchOptions& options, const Session& session)
{
    const std::string& machine = options.listing.systemName;
    const auto choice = runChoiceFor(session, machine.empty() ? General::localHostName() : machine,
                                     options.at, options.chain);
    if (!choice)
        return choice.status();
    return searchStored(*choice, options.folder.empty() ? "/" : storedPathFor(options.folder),
                        options.text, options.listing.limit);
}

ExitStatus search(const SearchOptions& options)
{
    const auto session = options.session.open({"SearchFilesEx"});
    if (!session)
        return session.status();
    if (!options.at.empty())
        return searchAt(options, *session);
    RemoteListing listing = options.listing;
    listing.path = options.folder.empty() ? "" : remotePathFor(options.folder);
    const FailureWatch watch;
    std::optional<Error> error;
    bool isFirst = true;
    const auto show = [&isFirst](const Dictionary& entry) {
        if (std::exchange(isFirst, false))
            showRemoteHeading();
        showRemoteItem(entry, true);
    };
    const auto total = forEachMatch(*session, listing, options.text, show, &error);
    if (!total)
        return refusal("The search failed", error ? error : watch.failure());
    if (*total == 0)
        return output().fail(ExitStatus::notFound, "No stored file with such a name was found.");
    return output().finish(ExitStatus::done);
}

} // namespace

void declareSearch(const Command& app)
{
    auto options = std::make_shared<SearchOptions>();
    const Command command = app.addCommand("search", "Find stored files by their names");
    command.addOption("TEXT", options->text, "Part of a name, or a whole one with * and ?")
        .required();
    command.addOption("--in", options->folder, "Folder to search in and below");
    command.addOption("--system", options->listing.systemName,
                      "The machine; all when left out, with --at this one");
    command.addOption("--limit", options->listing.limit, "Files to show at most").positive();
    declareAt(command, options->at);
    options->chain.declare(command);
    options->session.declare(command);
    command.runs([options] { return search(*options); });
}

} // namespace stowline::cli
