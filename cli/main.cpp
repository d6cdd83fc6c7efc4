// stowline: the reference host program.
#include "cli/commands/Commands.h"
#include "cli/shared/Configuration.h"
#include "cli/shared/Interruption.h"
#include "cli/shared/Logging.h"
#include "cli/shared/Output.h"
#include "cli/shared/Progress.h"
#include "cli/shared/UsageFault.h"
#include "stowline/platform/desktop/Bundle.h"
#include "stowline/platform/desktop/NotificationCenter.h"
#include "stowline/platform/processes/Signals.h"
#include "stowline/platform/processes/StandardStreams.h"
#include "stowline/service/ProviderSettings.h"
#include "stowline/service/WebServiceBroker.h"
#include "stowline/service/WebServicesSettings.h"
#include "stowline/util/General.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <system_error>

namespace {

using namespace stowline;
namespace fs = std::filesystem;

struct GlobalOptions {
    bool json = false;
    bool quiet = false;
    cli::LogOptions log;
    bool noProgress = false;
    bool noNursery = false;
    std::string bundle;
};

void declareGlobals(const cli::Command& command, GlobalOptions& options)
{
    command.addFlag("--json", options.json, "Print JSON lines; the last one is the result")
        .fromVariable();
    command.addFlag("-q,--quiet", options.quiet, "Print results and faults only").fromVariable();
    cli::declareLogging(command, options.log);
    command.addFlag("--no-progress", options.noProgress, "Show no progress").fromVariable();
    command
        .addFlag("--no-nursery", options.noNursery,
                 "Start the helper program again for each call to the service")
        .fromVariable();
    command
        .addOption("--bundle", options.bundle,
                   "Folder with Info.plist and Resources to use instead of the program's own")
        .fromVariable();
    command.needsSubcommand();
}

void declareSubcommands(const cli::Command& command, const GlobalOptions& options,
                        CLI::App& program)
{
    cli::declareConnect(command, options.bundle);
    cli::declareDisconnect(command, options.bundle);
    cli::declareSignUp(command);
    cli::declareSignIn(command);
    cli::declareAccount(command);
    cli::declareBackup(command);
    cli::declareSchedule(command, program, options.bundle);
    cli::declareUploads(command);
    cli::declareRestore(command);
    cli::declareCat(command);
    cli::declareRuns(command);
    cli::declareDiff(command);
    cli::declareVerify(command);
    cli::declareSystems(command);
    cli::declareList(command);
    cli::declareSearch(command);
    cli::declareVersions(command);
    cli::declareRestoreInfo(command);
    cli::declareRemove(command);
    cli::declareForget(command);
    cli::declareUndelete(command);
    cli::declareMonitor(command);
    cli::declareReport(command);
    cli::declareEmail(command);
    cli::declareEncryption(command);
    cli::declareChecksum(command);
    cli::declareCopy(command);
    cli::declarePaths(command);
    cli::declareLinks(command);
    cli::declareSettings(command);
    cli::declareConfig(command, program);
    cli::declareDoctor(command);
}

/// pthread_create(3), EAGAIN.
constexpr const char* kNoThread =
    "The system has no threads left: too many processes are running. Please "
    "end some, or raise \"ulimit -u\".";

void apply(const GlobalOptions& options)
{
    std::error_code fault;
    cli::output().useJson(options.json);
    cli::output().beQuiet(options.quiet);
    if (options.noProgress)
        cli::forbidProgress();
    if (!options.bundle.empty())
        platform::Bundle::useFolder(options.bundle);
    else if (const auto kept = keptProviderSettings(); kept && fs::is_regular_file(*kept, fault))
        WebServicesSettings::useFile(*kept);
    WebServiceBroker::useNursery(!options.noNursery);
    cli::startLogging(options.log);
}

/// --json as the arguments say it, for faults of the arguments themselves.
bool wantsJson(int count, char** words)
{
    return std::any_of(words, words + count,
                       [](const char* word) { return std::string_view(word) == "--json"; });
}

int usageFault(const CLI::App& app, const CLI::ParseError& fault, bool json)
{
    if (fault.get_exit_code() == 0)
        return app.exit(fault); // help or version was asked for
    cli::output().useJson(json);
    return static_cast<int>(
        cli::output().fail(cli::ExitStatus::usage, cli::usageSentence(app, fault)));
}

} // namespace

int main(int count, char** words)
{
    platform::takeStandardDescriptors();
    platform::keepMemoryPrivate();
    platform::holdTerminationSignals();
    platform::outliveFileLimits();
    if (!cli::watchForTermination())
        return static_cast<int>(cli::output().fail(cli::ExitStatus::temporary, kNoThread));
    (void)General::launchTime();
    CLI::App app("Backs up to an online backup service.", "stowline");
    GlobalOptions options;
    cli::Chosen chosen;
    const cli::Command command(app, chosen);
    declareGlobals(command, options);
    app.set_version_flag("--version", [] { return General::productVersion().value_or("unknown"); });
    cli::declareConfiguration(app);
    app.fallthrough();
    declareSubcommands(command, options, app);
    try {
        app.parse(count, words);
    } catch (const CLI::ParseError& fault) {
        return usageFault(app, fault, wantsJson(count, words));
    }
    if (const auto fault = cli::unreadConfiguration(app))
        return static_cast<int>(cli::output().fail(cli::ExitStatus::usage, *fault));
    cli::output().setCommand(app.get_subcommands().front()->get_name());
    const std::string name = app.get_subcommands().front()->get_name();
    options.log.isCommandVerbose = name == "backup" || name == "uploads";
    apply(options);
    auto status = cli::ExitStatus::temporary;
    try {
        status = chosen();
    } catch (const std::system_error& fault) {
        if (fault.code() != std::errc::resource_unavailable_try_again)
            throw; // which is an error of this program
        cli::output().fail(status, kNoThread);
    }
    platform::NotificationCenter::shared().post(
        {platform::kApplicationWillTerminateNotification, "", {}});
    return static_cast<int>(status);
}
