// stowline systems
#include "cli/Commands.h"
#include "cli/Output.h"
#include "cli/Session.h"
#include "stowline/service/WebServiceBroker.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

namespace stowline::cli {

namespace {

ExitStatus systems(const SessionOptions& options)
{
    const auto session = options.open({"GetAccountSystems"});
    if (!session)
        return session.status();
    std::optional<Error> error;
    const auto names = WebServiceBroker::getAccountSystemsForUsername(
        session->username, session->password, session->server, &error);
    if (!names)
        return refusal("The machines cannot be listed", error);
    for (const Value& name : *names)
        output().item(name.text(), {{"v", 1}, {"type", "system"}, {"name", name.text()}});
    return output().finish(ExitStatus::done);
}

} // namespace

void declareSystems(CLI::App& app, Chosen& chosen)
{
    auto options = std::make_shared<SessionOptions>();
    CLI::App* command = app.add_subcommand("systems", "List the machines that have files stored");
    options->declare(*command);
    command->callback([options, &chosen] { chosen = [options] { return systems(*options); }; });
}

} // namespace stowline::cli
