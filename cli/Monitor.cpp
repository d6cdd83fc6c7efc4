// stowline monitor settings, stowline monitor event
#include "cli/Commands.h"
#include "cli/Output.h"
#include "cli/Reporting.h"
#include "cli/ServiceFailure.h"
#include "stowline/service/WebServiceBroker.h"
#include "stowline/util/General.h"

#include <CLI/CLI.hpp>

namespace stowline::cli {

namespace {

struct MonitorOptions {
    std::string username;
    std::string systemName;
    std::string event;
    SecretOptions token;
    bool isDryRun = false;

    void declare(CLI::App& command)
    {
        command.add_option("-u,--username", username, "User name")
            ->envname("STOWLINE_USERNAME")
            ->required();
        command.add_option("--system", systemName, "Name of this machine")
            ->default_val(General::localHostName());
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
    const auto settings = WebServiceBroker::centralMonitoringGetSettingsForUserName(
        options.username, *token, options.systemName);
    if (!settings)
        return output().fail(ExitStatus::refused,
                             "Central monitoring gave no settings. Is the token still good?");
    std::vector<std::pair<std::string, std::string>> fields;
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
    const bool isTaken = sendEvent(*token, options.event, figures);
    if (!isTaken)
        return output().fail(ExitStatus::refused, "Central monitoring did not take the event. Is "
                                                  "the token still good?");
    return output().finish(ExitStatus::done, {{"event", options.event}});
}

} // namespace

void declareMonitor(CLI::App& app, Chosen& chosen)
{
    CLI::App* command = app.add_subcommand("monitor", "Central monitoring: settings, event");
    command->require_subcommand(1);
    auto settingsOptions = std::make_shared<MonitorOptions>();
    CLI::App* settings =
        command->add_subcommand("settings", "Show what central monitoring wants of this machine");
    settingsOptions->declare(*settings);
    settings->callback([settingsOptions, &chosen] {
        chosen = [settingsOptions] { return showSettings(*settingsOptions); };
    });
    auto eventOptions = std::make_shared<MonitorOptions>();
    CLI::App* event =
        command->add_subcommand("event", "Report an event, with the figures of the last backup");
    event->add_option("EVENT", eventOptions->event, "Kind of event, as BackupStarted")->required();
    event->add_flag("-n,--dry-run", eventOptions->isDryRun, "Send nothing");
    eventOptions->declare(*event);
    event->callback(
        [eventOptions, &chosen] { chosen = [eventOptions] { return logEvent(*eventOptions); }; });
}

} // namespace stowline::cli
