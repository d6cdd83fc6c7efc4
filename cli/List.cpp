// stowline ls
#include "cli/Commands.h"
#include "cli/Output.h"
#include "cli/RemoteItem.h"
#include "cli/RemotePages.h"
#include "stowline/service/WebServiceBroker.h"
#include "stowline/util/General.h"

#include <CLI/CLI.hpp>

namespace stowline::cli {

namespace {

struct ListOptions {
    SessionOptions session;
    RemoteListing listing;
    std::string path;
    bool isDescending = false;
};

ExitStatus list(const ListOptions& options)
{
    const auto session = options.session.open({"GetAccountFilesAndFolders"});
    if (!session)
        return session.status();
    RemoteListing listing = options.listing;
    listing.path = remotePathFor(options.path);
    listing.isAscending = !options.isDescending;
    std::optional<Error> error;
    const auto total = forEachInFolder(
        *session, listing, [](const Dictionary& entry) { showRemoteItem(entry, false); }, &error);
    if (!total)
        return refusal("The folder cannot be listed", error);
    if (*total == 0 && listing.path != "/")
        return output().fail(ExitStatus::notFound, "Nothing is stored of " + options.path +
                                                       " of the machine " + listing.systemName +
                                                       ".");
    return output().finish(ExitStatus::done);
}

} // namespace

void declareList(CLI::App& app, Chosen& chosen)
{
    auto options = std::make_shared<ListOptions>();
    CLI::App* command = app.add_subcommand("ls", "List a folder as it is stored");
    command->add_option("PATH", options->path, "Folder of the machine")->required();
    command->add_option("--system", options->listing.systemName, "The machine")
        ->default_val(General::localHostName());
    command->add_option("--sort", options->listing.sortField, "Name, Size or Modified")
        ->check(CLI::IsMember({"Name", "Size", "Modified"}))
        ->capture_default_str();
    command->add_flag("-r,--reverse", options->isDescending, "Largest or last first");
    command->add_option("--page-size", options->listing.pageSize, "Entries to ask for at once")
        ->check(CLI::Range(1, 10000))
        ->capture_default_str();
    command->add_option("--limit", options->listing.limit, "Entries to show at most")
        ->check(CLI::PositiveNumber);
    options->session.declare(*command);
    command->callback([options, &chosen] { chosen = [options] { return list(*options); }; });
}

} // namespace stowline::cli
