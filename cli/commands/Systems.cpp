// stowline systems
#include "cli/commands/Commands.h"
#include "cli/shared/Output.h"
#include "cli/shared/Session.h"
#include "stowline/service/FailureWatch.h"
#include "stowline/service/WebServiceBroker.h"

namespace stowline::cli {

namespace {

ExitStatus systems(const SessionOptions& options)
{
    const auto session = options.open({"GetAccountSystems"});
    if (!session)
        return session.status();
    const FailureWatch watch;
    const auto names = WebServiceBroker::getAccountSystemsForUsername(
        session->username, session->password, session->server, nullptr);
    if (!names)
        return refusal("The machines cannot be listed", watch.failure());
    if (!names->empty())
        output().heading("MACHINE");
    for (const Value& name : *names)
        output().item(onOneLine(name.text()), "system", {{"name", name.text()}});
    return output().finish(ExitStatus::done);
}

} // namespace

void declareSystems(const Command& app)
{
    auto options = std::make_shared<SessionOptions>();
    const Command command = app.addCommand("systems", "List the machines that have files stored");
    options->declare(command);
    command.runs([options] { return systems(*options); });
}

} // namespace stowline::cli
