// stowline-devserver: a small but real backup service for development, on this machine only.
#include "devserver/AccountService.h"
#include "devserver/BackupService.h"
#include "devserver/BrowseService.h"
#include "devserver/BundleWriter.h"
#include "devserver/DataFolder.h"
#include "devserver/FaultPlan.h"
#include "devserver/Housekeeping.h"
#include "devserver/ReportServices.h"
#include "devserver/WebServer.h"
#include "devserver/page/Page.h"
#include "stowline/logging/DDFileLogger.h"
#include "stowline/logging/DDLog.h"
#include "stowline/logging/DDTTYLogger.h"
#include "stowline/logging/LevelFilter.h"
#include "stowline/platform/files/Files.h"
#include "stowline/platform/processes/Signals.h"
#include "stowline/platform/processes/StandardStreams.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <cstdio>
#include <sstream>
#include <thread>

namespace {

using namespace stowline;
namespace fs = std::filesystem;

struct Options {
    int port = 0;
    fs::path data;
    std::optional<fs::path> portFile;
    std::optional<fs::path> bundle;
    std::optional<fs::path> certificate;
    std::optional<fs::path> key;
    std::vector<std::string> faults;
    std::optional<fs::path> tokens;
    int tokenSeconds = 3600;
    int ticketSeconds = 3600;
    bool requiresTicket = false;
    int deletionPause = 20;
    int graceDays = 7;
    std::vector<std::string> administrators;
    std::optional<fs::path> logFolder;
    std::string logLevel = "info";
    bool verbose = false;
};

/// A stream that does not take it has nobody to be told to.
void print(std::FILE* stream, const std::string& line)
{
    (void)std::fputs(line.c_str(), stream);
    (void)std::fflush(stream);
}

int fail(const std::string& sentence)
{
    print(stderr, "stowline-devserver: " + sentence + "\n");
    return 1;
}

void declare(CLI::App& app, Options& options)
{
    app.add_option("--port", options.port, "Port on 127.0.0.1; 0 lets the system choose")
        ->check(CLI::Range(0, 65535));
    app.add_option("--data", options.data, "Folder that keeps the service's data")->required();
    app.add_option("--port-file", options.portFile, "File to write the port to once it listens");
    app.add_option("--bundle", options.bundle,
                   "Folder to write Info.plist, settings and resources to, for hosts to use");
    app.add_option("--tls-certificate", options.certificate, "PEM file; makes the service https");
    app.add_option("--tls-key", options.key, "PEM file with the certificate's key");
    app.add_option("--fault", options.faults,
                   fmt::format("METHOD:N:KIND makes the N-th call of a method fail (N may be *); "
                               "kinds: {}",
                               fmt::join(devserver::faultKindNames(), ", ")));
    app.add_option("--monitoring-tokens", options.tokens,
                   "File with the tokens that central monitoring takes, a line each")
        ->check(CLI::ExistingFile);
    app.add_option("--token-seconds", options.tokenSeconds,
                   "How long a token is good from its first use")
        ->capture_default_str();
    app.add_option("--ticket-seconds", options.ticketSeconds,
                   "How long a ticket for reading content is good")
        ->check(CLI::Range(1, 86400))
        ->capture_default_str();
    app.add_flag("--require-ticket", options.requiresTicket,
                 "Take no part without a ticket either");
    app.add_option("--deletion-pause", options.deletionPause,
                   "Milliseconds that deleting a version takes")
        ->check(CLI::Range(0, 60000))
        ->capture_default_str();
    app.add_option("--grace-days", options.graceDays,
                   "How long what was deleted is kept and can be brought back; 0: not at all")
        ->check(CLI::Range(0, 36500))
        ->capture_default_str();
    app.add_option("--administrator", options.administrators,
                   "User name of an account that is shown every account on the page; may be given "
                   "again");
    app.add_option("--log-folder", options.logFolder, "Folder for rolling log files");
    app.add_option("--log-level", options.logLevel, "Least severe lines to log")
        ->check(CLI::IsMember(logLevelNames()))
        ->capture_default_str();
    app.add_flag("-v,--verbose", options.verbose, "Show the log when standard error is a terminal");
}

void startLogging(const Options& options)
{
    const std::int32_t flags = logLevelNamed(options.logLevel);
    if (options.logFolder) {
        const auto files = std::make_shared<DDFileLogger>(
            std::make_shared<DDLogFileManagerDefault>(fs::absolute(*options.logFolder).string()));
        files->setLogFormatter(std::make_shared<LevelFilterLogFormatter>(
            flags, std::make_shared<DDLogFileFormatterDefault>()));
        DDLog::addLogger(files);
    }
    if (options.verbose) {
        const auto console = DDTTYLogger::sharedInstance();
        console->setLogFormatter(std::make_shared<LevelFilterLogFormatter>(flags));
        DDLog::addLogger(console);
    }
}

/// Tells where the service listens: a line on standard output, the port file, the bundle.
std::optional<std::string> announce(const Options& options, const devserver::WebServer& server,
                                    int port)
{
    if (options.bundle) {
        if (auto fault = devserver::writeBundle(*options.bundle, server.address()))
            return fault;
    }
    if (options.portFile &&
        !platform::writeFileAtomically(*options.portFile, std::to_string(port) + "\n"))
        return "The port cannot be written to " + options.portFile->string() + ".";
    print(stdout, fmt::format("listening {}\n", server.address()));
    return std::nullopt;
}

int run(const Options& options)
{
    devserver::FaultPlan faults;
    for (const std::string& text : options.faults) {
        if (const auto wrong = faults.add(text)) {
            fail(*wrong);
            return 2;
        }
    }
    if (options.certificate.has_value() != options.key.has_value()) {
        fail("Please give --tls-certificate and --tls-key together.");
        return 2;
    }
    if (!devserver::prepareDataFolder(fs::absolute(options.data)))
        return fail("The folder " + options.data.string() + " cannot be made.");

    startLogging(options);
    devserver::Accounts accounts(options.data / "service.sqlite");
    // A name that is nobody's would make whoever opens that account an administrator.
    for (const std::string& name : options.administrators) {
        if (!accounts.details(name))
            return fail(fmt::format("The account \"{}\" was not found. Please open it first, then "
                                    "start the service with --administrator.",
                                    name));
    }
    devserver::Storage storage(options.data, devserver::Storage::Clock::now,
                               std::chrono::days(options.graceDays));
    devserver::Tickets tickets(options.data / "tickets.sqlite", accounts,
                               std::chrono::seconds(options.ticketSeconds));
    devserver::AccountServiceContext context{
        accounts, storage, devserver::encryptionKeyIn(options.data / "encryption.key"), "",
        &tickets};
    devserver::Journal journal(options.data);
    devserver::MonitoringTokens tokens;
    std::istringstream tokenLines(options.tokens ? platform::readFile(*options.tokens).value_or("")
                                                 : std::string());
    for (std::string token; std::getline(tokenLines, token);)
        tokens.add(token, std::chrono::seconds(options.tokenSeconds));
    devserver::Deletions deletions(storage, std::chrono::milliseconds(options.deletionPause));
    const std::vector<devserver::Service> services{
        devserver::accountService(context), devserver::backupService(context, deletions),
        devserver::browseService(context), devserver::monitoringService(journal, tokens),
        devserver::reportService(context, journal)};
    std::optional<devserver::TlsFiles> tls;
    if (options.certificate)
        tls = {*options.certificate, *options.key};
    devserver::WebServer server(services, {storage, tickets, options.requiresTicket}, faults, tls);
    const devserver::Housekeeping housekeeping(storage);
    devserver::Page page({accounts,
                          storage,
                          journal,
                          deletions,
                          {options.administrators.begin(), options.administrators.end()}});
    server.servePage([&page](const auto& request) { return page.answer(request); });
    const auto port = server.bind(options.port);
    if (!port)
        return fail(fmt::format("Port {} is taken. Please choose another, or 0.", options.port));
    const auto settings = devserver::settingsFor(server.address());
    if (!settings)
        return fail("The settings beside this program cannot be read. Please install it again.");
    server.serveSettings(*settings);
    context.backupServerName = fmt::format("127.0.0.1:{}", *port);

    // The port is open from here on: calls wait until they are served.
    if (const auto wrong = announce(options, server, *port))
        return fail(*wrong);
    std::thread serving([&server] { server.run(); });
    platform::awaitTerminationSignal();
    server.stop();
    serving.join();
    DDLog::flushLog();
    return 0;
}

} // namespace

int main(int count, char** words)
{
    platform::takeStandardDescriptors();
    platform::holdTerminationSignals();
    platform::outliveFileLimits();
    Options options;
    CLI::App app("A small backup service for development. It listens on this machine only.",
                 "stowline-devserver");
    declare(app, options);
    try {
        app.parse(count, words);
    } catch (const CLI::ParseError& fault) {
        return app.exit(fault) == 0 ? 0 : 2;
    }
    try {
        return run(options);
    } catch (const std::exception& fault) {
        return fail(fault.what());
    }
}
