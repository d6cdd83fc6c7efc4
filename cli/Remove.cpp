// stowline rm
#include "cli/Commands.h"
#include "cli/Confirmation.h"
#include "cli/Output.h"
#include "cli/Session.h"
#include "stowline/service/WebServiceBroker.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace stowline::cli {

namespace {

struct RemoveOptions {
    SessionOptions session;
    Confirmation confirmation;
    std::vector<std::string> versionLists;
};

ExitStatus removeVersions(const RemoveOptions& options)
{
    const auto session = options.session.open({"DeleteFilesInBulk"});
    if (!session)
        return session.error();
    const auto refused = options.confirmation.refusal(
        fmt::format("the versions of the lists {}", fmt::join(options.versionLists, ", ")));
    if (refused)
        return *refused;
    std::size_t deleted = 0;
    for (const std::string& list : options.versionLists) {
        if (WebServiceBroker::deleteFileVersionWithFileListID(list, session->username,
                                                              session->server))
            ++deleted;
        else
            output().complain("The service did not delete the versions of the list " + list + ".");
    }
    if (deleted == options.versionLists.size())
        return output().finish(ExitStatus::done, {{"deleted", std::to_string(deleted)}});
    return output().finish(deleted == 0 ? ExitStatus::refused : ExitStatus::someItemsFailed,
                           {{"deleted", std::to_string(deleted)}});
}

} // namespace

void declareRemove(CLI::App& app, Chosen& chosen)
{
    auto options = std::make_shared<RemoveOptions>();
    CLI::App* command = app.add_subcommand("rm", "Delete stored versions");
    command
        ->add_option("--version", options->versionLists,
                     "List of versions to delete, as \"versions\" shows it; may be given again")
        ->required();
    options->confirmation.declare(*command);
    options->session.declare(*command);
    command->callback(
        [options, &chosen] { chosen = [options] { return removeVersions(*options); }; });
}

} // namespace stowline::cli
