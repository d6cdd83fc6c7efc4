#include "cli/commands/BackupCommand.h"

#include "cli/shared/Output.h"
#include "stowline/platform/files/Files.h"
#include "stowline/util/General.h"

namespace stowline::cli {

void BackupFlags::declare(const Command& command)
{
    command.addOption("--system", systemName, "Name of this machine on the service")
        .defaultsTo(General::localHostName());
    command.addOption("--part-size", partBytes, "Bytes to send at once, as 4m")
        .asSize()
        .between(std::uint64_t{4096}, std::uint64_t{1} << 32);
    command.addOption("--bwlimit", bytesPerSecond, "Bytes a second to send at most, as 500k")
        .asSize();
    command.addOption("-j,--jobs", jobs, "Files to upload at the same time")
        .between(1, 64)
        .showsDefault();
    command.addOption("--retry-time", retrySeconds, "Seconds to try a part again before giving up")
        .between(0.0, 86400.0)
        .showsDefault();
    command.addFlag("--checksum", comparesChecksums,
                    "Compare checksums too before a file is left out as unchanged");
    command.addOption("--register-with", registration, "Web method that registers the files")
        .oneOf({"protect2", "ProtectFile"})
        .showsDefault();
    command.addFlag("-n,--dry-run", isDryRun, "Say what would be done");
    reports.declare(command);
}

BackupGuard::BackupGuard()
{
    const auto state = platform::stateFolder();
    if (state && platform::makePrivateFolder(*state))
        lock_ = platform::LockFile::take(*state / "backup.lock");
}

ExitStatus BackupGuard::failure() const
{
    const auto state = platform::stateFolder();
    if (!state || !platform::makePrivateFolder(*state))
        return output().fail(ExitStatus::failed,
                             "The folder for the journal cannot be made. Please set "
                             "XDG_STATE_HOME to a folder that you may write to.");
    return output().fail(ExitStatus::locked,
                         "Another backup of this user is running. Please wait for its end.");
}

namespace {

/// What stands between the sign-in and the files.
struct Start {
    std::optional<Session> session;
    std::string serverPath;
    ExitStatus failure = ExitStatus::done; ///< when there is no path
};

Start startOf(const SessionOptions& options, const BackupFlags& flags)
{
    Start start;
    const auto session =
        options.open({"GetPhyPath", "GetAccountFilesAndFolders", flags.registration.c_str(),
                      "PreparePackagedFilesForProtection"});
    if (!session) {
        start.failure = session.status();
        return start;
    }
    start.session = *session;
    if (const auto path = uploadPathFor(*session))
        start.serverPath = *path;
    else
        start.failure = path.status();
    return start;
}

BackupOptions optionsFrom(const BackupFlags& flags)
{
    return {.systemName = flags.systemName,
            .partBytes = flags.partBytes,
            .bytesPerSecond = flags.bytesPerSecond,
            .jobs = flags.jobs,
            .budgetPerStep = std::chrono::duration_cast<Duration>(
                std::chrono::duration<double>(flags.retrySeconds)),
            .comparesChecksums = flags.comparesChecksums,
            .isDryRun = flags.isDryRun,
            .registration = flags.registration == "protect2" ? RegistrationMethod::protect2
                                                             : RegistrationMethod::protectFile};
}

} // namespace

ExitStatus backUpTree(const SessionOptions& options, BackupFlags& flags,
                      const std::function<FileTree()>& findFiles)
{
    if (!flags.reports.readToken())
        return output().finish(ExitStatus::usage);
    const Date begun = platform::currentDate();
    const Start start = startOf(options, flags);
    if (start.serverPath.empty()) {
        flags.reports.tell(
            std::nullopt,
            {.username = options.username(), .machine = flags.systemName, .begun = begun});
        return start.failure;
    }
    const Interruptible interruptible;
    const FileTree tree = findFiles();
    const BackupResult result =
        runBackup(*start.session, start.serverPath, tree, optionsFrom(flags));
    if (!flags.isDryRun) {
        const RunFigures figures =
            figuresOf(result, start.session->username, flags.systemName, begun);
        keepLastRun(figures);
        flags.reports.tell(start.session, figures);
    }
    return finishBackup(result);
}

} // namespace stowline::cli
