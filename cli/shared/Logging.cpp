#include "cli/shared/Logging.h"

#include "cli/shared/Output.h"
#include "cli/shared/VerboseLogger.h"
#include "stowline/logging/DDFileLogger.h"
#include "stowline/logging/DDLog.h"
#include "stowline/logging/DDTTYLogger.h"
#include "stowline/logging/LevelFilter.h"
#include "stowline/platform/files/Files.h"
#include "stowline/platform/processes/Terminal.h"

namespace stowline::cli {

namespace {

bool isVerbose = false;

void logToFiles(std::int32_t flags)
{
    const auto state = platform::stateFolder();
    if (!state || !platform::makePrivateFolder(*state / "logs")) {
        output().complain("No log file is kept: the folder " +
                          (state ? (*state / "logs").string() : "of the user's state") +
                          " cannot be created. Please check its owner and mode.");
        return;
    }
    const auto logger = std::make_shared<DDFileLogger>(
        std::make_shared<DDLogFileManagerDefault>((*state / "logs").string()));
    logger->setLogFormatter(std::make_shared<LevelFilterLogFormatter>(
        flags, std::make_shared<DDLogFileFormatterDefault>()));
    DDLog::addLogger(logger);
}

/// The terminal's sink is silent elsewhere, where scripts still want to see what was asked for.
std::shared_ptr<DDLogger> standardErrorLogger()
{
    if (platform::standardErrorIsTerminal())
        return DDTTYLogger::sharedInstance();
    return std::make_shared<VerboseLogger>();
}

} // namespace

bool namesItems()
{
    return isVerbose;
}

void declareLogging(const Command& app, LogOptions& options)
{
    app.addFlag("-v,--verbose", options.verbose,
                "Show the log on standard error; of backup and uploads, name each item instead")
        .fromVariable();
    app.addFlag("--log-file", options.toFile,
                "Keep the log in files in the state folder ($XDG_STATE_HOME/stowline/logs)")
        .fromVariable();
    app.addOption("--log-level", options.level, "Least severe lines to log")
        .fromVariable()
        .oneOf(logLevelNames())
        .showsDefault();
}

void startLogging(const LogOptions& options)
{
    const std::int32_t flags = logLevelNamed(options.level);
    if (options.toFile)
        logToFiles(flags);
    isVerbose = options.verbose;
    if (!options.verbose || options.isCommandVerbose)
        return;
    const auto logger = standardErrorLogger();
    logger->setLogFormatter(std::make_shared<LevelFilterLogFormatter>(flags));
    DDLog::addLogger(logger);
}

} // namespace stowline::cli
