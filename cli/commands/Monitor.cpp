// stowline monitor settings, stowline monitor event
#include "cli/commands/Commands.h"
#include "cli/shared/FailureStatus.h"
#include "cli/shared/Output.h"
#include "cli/shared/Reporting.h"
#include "cli/shared/ServiceFailure.h"
#include "cli/shared/Session.h"
#include "stowline/service/FailureSentence.h"
#include "stowline/service/FailureWatch.h"
#include "stowline/service/WebServiceBroker.h"
#include "stowline/util/General.h"

namespace stowline::cli {

namespace {

struct MonitorOptions {
    std::string username;
    std::string systemName;
    std::string event;
    SecretOptions token;
    bool isDryRun = false;

    void declare(const Command& command)
    {
        declareUsername(command, username);
        command.addOption("--system", systemName, "Name of this machine")
            .defaultsTo(General::localHostName());
        token.declare(command, "monitor-token", "STOWLINE_MONITOR_TOKEN");
    }
};

ExitStatus showSettings(const MonitorOptions& options)
{
    if (const auto failure = settingsFailure("GetSettings"))
        return *failure;
    const auto token = options.token.read("Monitoring token: ");
    if (!token)
        return output().finish(ExitStatus::usage);
    const FailureWatch watch;
    const auto settings = WebServiceBroker::centralMonitoringGetSettingsForUserName(
        options.username, *token, options.systemName);
    if (!settings && watch.kind() == platform::FailureKind::fault) // also for a token that is over
        return output().fail(statusFor(platform::FailureKind::fault),
                             sentenceFor(FailureKind::fault, "the service") +
                                 " Is the token still valid?",
                             platform::nameOf(platform::FailureKind::fault));
    if (!settings)
        return callFailure(watch.failure(),
                           "Central monitoring gave no settings. Is the token still valid?");
    Fields fields;
    for (const auto& [name, value] : *settings)
        fields.emplace_back(name, value.text());
    return output().finish(ExitStatus::done, fields);
}

ExitStatus logEvent(const MonitorOptions& options)
{
    const auto token = options.token.read("Monitoring token: ");
    if (!token)
        return output().finish(ExitStatus::usage);
    if (options.isDryRun)
        return output().finish(ExitStatus::done);
    RunFigures figures = lastRun().value_or(RunFigures());
    figures.username = options.username;
    figures.machine = options.systemName;
    const Sending sending = sendEvent(*token, options.event, figures);
    if (!sending.isDone)
        return callFailure(sending.failure,
                           "Central monitoring did not take the event. Is the token still valid?");
    return output().finish(ExitStatus::done, {{"event", options.event}});
}

} // namespace

void declareMonitor(const Command& app)
{
    const Command command = app.addCommand("monitor", "Central monitoring: settings, event");
    command.needsSubcommand();
    auto settingsOptions = std::make_shared<MonitorOptions>();
    const Command settings =
        command.addCommand("settings", "Show what central monitoring expects of this machine");
    settingsOptions->declare(settings);
    settings.runs([settingsOptions] { return showSettings(*settingsOptions); });
    auto eventOptions = std::make_shared<MonitorOptions>();
    const Command event =
        command.addCommand("event", "Report an event, with the figures of the last backup");
    event.addOption("EVENT", eventOptions->event, "Kind of event, such as BackupStarted")
        .required();
    event.addFlag("-n,--dry-run", eventOptions->isDryRun, "Send nothing");
    eventOptions->declare(event);
    event.runs([eventOptions] { return logEvent(*eventOptions); });
}

} // namespace stowline::cli
