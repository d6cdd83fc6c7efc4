#include "cli/commands/BackupFlags.h"

#include "cli/commands/BackupReport.h"
#include "cli/shared/Interruption.h"
#include "cli/shared/Output.h"
#include "cli/shared/RunOptions.h"
#include "stowline/platform/files/Files.h"
#include "stowline/platform/network/LineCost.h"
#include "stowline/platform/threads/StopRequest.h"
#include "stowline/util/General.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace stowline::cli {

void BackupFlags::declare(const Command& command)
{
    command.addOption("--system", systemName, "Name of this machine on the service")
        .defaultsTo(General::localHostName());
    command.addOption("--profile", profile, "Name of the profile; each has its own runs")
        .showsDefault();
    command.addOption("--part-size", partBytes, "Bytes to send at once, such as 4m")
        .asSize()
        .between(std::uint64_t{4096}, std::uint64_t{1} << 32);
    command.addOption("--bwlimit", bytesPerSecond, "Bytes a second to send at most, such as 500k")
        .asSize();
    command.addOption("-j,--jobs", jobs, "Files to upload at the same time")
        .between(1, 64)
        .showsDefault();
    command
        .addOption("--retry-time", retrySeconds,
                   "Seconds to keep trying one part, registration or question; once they are used "
                   "up, each one that follows is tried only once, until one succeeds; the sign-in "
                   "is tried for at most four")
        .between(0.0, 86400.0)
        .showsDefault();
    command.addOption("--allow-changing", allowChanging,
                      "Files that match this pattern (as of --exclude, or of a whole path) may "
                      "change while they are read without the run ending with status 3; may be "
                      "given again");
    command.addOption("--register-with", registration, "Web method that registers the files")
        .oneOf({"protect2", "ProtectFile"})
        .showsDefault();
    command.addFlag("--not-metered", notMetered,
                    "Leave the run out (status 5) while the network goes over a line that is paid "
                    "for by volume, by NetworkManager's word; where that does not run it is not "
                    "known, and the run begins");
    command.addFlag("-n,--dry-run", isDryRun, "Say what would be done, and do nothing");
    hooks.declare(command);
    reports.declare(command);
}

backup::BackupRequest BackupFlags::request(const Session& session) const
{
    backup::BackupRequest request;
    request.account = {.username = session.username,
                       .password = session.password,
                       .server = session.server,
                       .systemName = systemName};
    request.identity = backup::identityOfThisUser();
    request.identity.profile = profile;
    request.stateFolder = platform::stateFolder().value_or("");
    request.jobs = jobs;
    request.bytesPerSecond = bytesPerSecond;
    request.partBytes = partBytes;
    request.budgetPerStep = std::chrono::duration_cast<std::chrono::steady_clock::duration>(
        std::chrono::duration<double>(retrySeconds));
    request.allowChanging = allowChanging;
    request.isDryRun = isDryRun;
    request.registersWithProtectFile = registration != "protect2";
    return request;
}

namespace {

/// A stop is a stop: what could not be told now is kept, and told after the next run.
std::string whyNothingIsTold()
{
    return Interruptible::request() ? "the backup was interrupted" : "";
}

/// Whether what ended the output shows that the service cannot be reached.
bool isServiceAway()
{
    return isOutOfReach(platform::failureKindNamed(output().failure().cause));
}

/// The backup of an account that is signed in, its second command and what is told of it.
ExitStatus backUpSignedIn(const Session& session, const BackupFlags& flags, Date begun,
                          const std::function<void(backup::BackupRequest& request)>& more)
{
    backup::BackupRequest request = flags.request(session);
    more(request);
    const Interruptible interruptible;
    BackupReport report(request);
    backup::BackupSummary summary =
        backup::runBackup(request, report, Interruptible::stopRequest());
    const SelfTestOutcome selfTest = flags.selfTest.testAfter(request, summary);
    report.setSelfTest(selfTest);
    const ForgettingOutcome forgetting =
        flags.forgetting.forgetAfter(request, summary, selfTest, session);
    report.setForgetting(forgetting);
    const bool isDone = summary.end == backup::BackupEnd::done;
    const std::string fault = flags.runAfter(
        summary, forgetting.statusAfter(selfTest.statusAfter(BackupReport::statusFor(summary))));
    if (!flags.isDryRun && summary.end != backup::BackupEnd::locked) {
        auto figures =
            figuresOf(summary, session.username, flags.systemName, begun, report.failures());
        figures.profile = flags.profile;
        figures.afterFault = fault;
        selfTest.addTo(figures);
        forgetting.addTo(figures);
        const BackupSubject subject = flags.subject(session.username, request);
        const bool isWhole =
            !request.resumesOnly && summary.failed == 0 && !selfTest.hasFoundLoss();
        if (selfTest.wasBegun)
            keepSelfTest(flags.profile, subject, selfTest.isProof(), platform::currentDate());
        if (isWhole && isDone)
            keepLastGoodRun(flags.profile, subject, begun);
        figures.overdue = flags.alert.sentencesFor(lastSuccesses(flags.profile, subject));
        report.setOverdue(figures.overdue);
        if (!Interruptible::request())
            showOnDesktop(figures.overdue);
        keepLastRun(figures);
        const StopScope scope(Interruptible::stopRequest());
        flags.reports.tell({.username = session.username,
                            .password = session.password,
                            .whyNot = whyNothingIsTold()},
                           figures);
    }
    return report.finish(summary);
}

} // namespace

BackupSubject BackupFlags::subject(const std::string& account,
                                   const backup::BackupRequest& request) const
{
    BackupSubject subject{.account = account, .machine = systemName, .paths = {}};
    for (const std::string& path : request.paths)
        subject.paths.push_back(storedPathFor(path));
    if (request.streamDescriptor >= 0)
        subject.paths.push_back("standard input: " + request.streamName);
    return subject;
}

bool BackupFlags::isLeftOut() const
{
    if (!notMetered || isDryRun)
        return false;
    const platform::LineCost cost = platform::lineCost();
    if (cost == platform::LineCost::unknown)
        output().note("It is not known whether the line is paid for by volume (--not-metered): "
                      "NetworkManager does not answer. The run begins.");
    return cost == platform::LineCost::byVolume;
}

std::string BackupFlags::runAfter(backup::BackupSummary& summary, ExitStatus status) const
{
    std::string fault = isDryRun ? "" : hooks.after(status);
    if (fault.empty())
        return fault;
    if (summary.end == backup::BackupEnd::done || summary.end == backup::BackupEnd::someFailed) {
        summary.end = backup::BackupEnd::someFailed;
        summary.sentence += (summary.sentence.empty() ? "" : " ") + fault;
    } else {
        output().complain(fault);
    }
    return fault;
}

ExitStatus backUp(const SessionOptions& options, BackupFlags& flags,
                  const std::function<void(backup::BackupRequest& request)>& more)
{
    if (!platform::stateFolder())
        return output().fail(ExitStatus::failed,
                             "The folder for the state of backups was not found. Please set "
                             "XDG_STATE_HOME to a folder that you may write to.");
    if (!flags.reports.readToken())
        return output().finish(ExitStatus::usage);
    const Date begun = platform::currentDate();
    backup::BackupRequest named;
    more(named);
    const BackupSubject subject = flags.subject(options.username(), named);
    const auto runAfter = [&flags](ExitStatus status) {
        const Interruptible interruptible;
        std::string fault = flags.isDryRun ? "" : flags.hooks.after(status);
        if (!fault.empty())
            output().complain(fault);
        return fault;
    };
    // A run that ended before it began is the last one all the same, and no good one.
    const auto tellOfEnd = [&](std::string sentence, std::string afterFault, ReportSender sender) {
        if (flags.isDryRun)
            return;
        const Interruptible interruptible;
        const RunFigures figures{
            .username = options.username(),
            .machine = flags.systemName,
            .profile = flags.profile,
            .begun = begun,
            .sentence = std::move(sentence),
            .afterFault = std::move(afterFault),
            .overdue = flags.alert.sentencesFor(lastSuccesses(flags.profile, subject))};
        for (const std::string& late : figures.overdue)
            output().complain(late);
        showOnDesktop(figures.overdue);
        keepLastRun(figures);
        const StopScope scope(Interruptible::stopRequest());
        if (sender.whyNot.empty())
            sender.whyNot = whyNothingIsTold();
        flags.reports.tell(std::move(sender), figures);
    };
    if (flags.isLeftOut()) {
        std::vector<std::string> sentences =
            flags.alert.sentencesFor(lastSuccesses(flags.profile, subject));
        const auto status = sentences.empty() ? ExitStatus::temporary : ExitStatus::overdue;
        showOnDesktop(sentences);
        sentences.insert(sentences.begin(), "Nothing was backed up: the line is paid for by volume "
                                            "(--not-metered).");
        return output().fail(status, fmt::format("{}", fmt::join(sentences, " ")));
    }
    std::string fault;
    if (const auto status = flags.isDryRun ? std::nullopt : flags.hooks.before(fault)) {
        std::string afterFault = runAfter(*status);
        const ExitStatus ended = output().fail(*status, fault);
        ReportSender sender{.username = options.username(), .password = {}, .whyNot = {}};
        if (flags.reports.needsPassword() && !Interruptible::request())
            sender.password = options.readPassword();
        tellOfEnd(fault, std::move(afterFault), std::move(sender));
        return ended;
    }
    const auto session =
        options.open({"GetPhyPath", "GetAccountFilesAndFolders", flags.registration.c_str(),
                      "PreparePackagedFilesForProtection"},
                     flags.retrySeconds);
    if (session)
        return backUpSignedIn(*session, flags, begun, more);
    const std::string& cause = output().failure().sentence;
    std::string afterFault = runAfter(session.status());
    tellOfEnd(cause.empty() ? "It ended before it began: there was no password."
                            : "It ended before it began. " + cause,
              std::move(afterFault),
              {.username = options.username(),
               .password = {},
               .whyNot = isServiceAway() ? kOutOfReach : ""});
    return session.status();
}

} // namespace stowline::cli
