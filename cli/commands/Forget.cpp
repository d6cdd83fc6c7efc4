// stowline forget
#include "cli/commands/Commands.h"
#include "cli/shared/Confirmation.h"
#include "cli/shared/Grace.h"
#include "cli/shared/HumanText.h"
#include "cli/shared/Interruption.h"
#include "cli/shared/Output.h"
#include "cli/shared/Progress.h"
#include "cli/shared/RunOptions.h"
#include "cli/shared/Session.h"
#include "stowline/backup/ForgetRun.h"
#include "stowline/platform/files/Files.h"
#include "stowline/util/General.h"

#include <fmt/format.h>

#include <algorithm>

namespace stowline::cli {

namespace {

using backup::ForgetEnd;

constexpr std::size_t kRunsInAQuestion = 5;

struct Options {
    SessionOptions session;
    Confirmation confirmation;
    backup::KeepRules keep;
    std::string systemName;
    std::string profile = "default";
    double retrySeconds = 300;
    std::string registration = "protect2";
};

ExitStatus statusOf(ForgetEnd end)
{
    switch (end) {
    case ForgetEnd::done:
        return ExitStatus::done;
    case ForgetEnd::someLeft:
        return ExitStatus::someItemsFailed;
    case ForgetEnd::held:
    case ForgetEnd::temporary:
        return ExitStatus::temporary;
    case ForgetEnd::unreadable:
    case ForgetEnd::rolledBack:
        return ExitStatus::checksumMismatch;
    case ForgetEnd::notFound:
        return ExitStatus::notFound;
    case ForgetEnd::badRequest:
        return ExitStatus::usage;
    case ForgetEnd::locked:
        return ExitStatus::locked;
    case ForgetEnd::interrupted:
        return Interruptible::request().value_or(ExitStatus::interrupted);
    case ForgetEnd::refused:
        return ExitStatus::refused;
    case ForgetEnd::notConfigured:
        return ExitStatus::settingsInvalid;
    case ForgetEnd::declined:
    case ForgetEnd::stateFolder:
    case ForgetEnd::failed:
        break;
    }
    return ExitStatus::failed;
}

std::string bytesOf(std::uint64_t bytes)
{
    return bytesText(static_cast<double>(bytes));
}

/// "3 runs (1, 2, 5)".
std::string runsText(const backup::ForgetPlan& plan)
{
    std::string numbers;
    for (std::size_t i = 0; i < std::min(plan.runs.size(), kRunsInAQuestion); ++i)
        numbers += (numbers.empty() ? "" : ", ") + std::to_string(plan.runs[i].run);
    if (plan.runs.size() > kRunsInAQuestion)
        numbers += ", …";
    return countText(plan.runs.size(), "run", "runs") +
           (numbers.empty() ? "" : " (" + numbers + ")");
}

/// What is deleted, for people: "12 versions, 3 MB".
std::string versionsText(std::uint64_t versions, std::uint64_t bytes)
{
    return countText(versions, "version", "versions") + ", " + bytesOf(bytes);
}

class Observer : public backup::ForgetObserver {
public:
    explicit Observer(const Confirmation& confirmation) : confirmation_(confirmation) {}

    bool mayForget(const backup::ForgetPlan& plan) override
    {
        const StopScope scope(Interruptible::stopRequest());
        return confirmation_.isGranted(
            plan.runs.empty()
                ? fmt::format("Delete what runs that were forgotten before still hold alone ({})?",
                              versionsText(plan.versions, plan.bytes))
                : fmt::format("Forget {} and delete what only {} ({})?", runsText(plan),
                              plan.runs.size() == 1 ? "it holds" : "they hold",
                              versionsText(plan.versions, plan.bytes)));
    }

    void progress(std::uint64_t deleted, std::uint64_t versions) override
    {
        progress_.update(static_cast<double>(deleted) /
                             static_cast<double>(std::max<std::uint64_t>(versions, 1)),
                         0);
    }

    void note(const std::string& sentence) override { output().note(sentence); }

    void clear() { progress_.clear(); }

private:
    const Confirmation& confirmation_;
    ProgressDisplay progress_;
};

/// The first so many of the runs, which are forgotten, or would be.
void show(const backup::ForgetPlan& plan, std::uint64_t count, bool isDone)
{
    for (std::size_t i = 0; i < std::min<std::uint64_t>(count, plan.runs.size()); ++i) {
        const backup::RunToForget& run = plan.runs[i];
        output().item(fmt::format("{}run {} of {}", isDone ? "forgot " : "would forget ", run.run,
                                  momentText(run.begun)),
                      "run",
                      {{"run", run.run},
                       {"time", momentField(run.begun)},
                       {"stored", run.stored ? momentField(*run.stored) : std::string()},
                       {"state", std::string(isDone ? "forgotten" : "would-forget")}});
    }
}

void tellSpace(const backup::ForgetSummary& sum)
{
    if (!sum.usedBefore || !sum.usedAfter)
        return output().note("How much space the account uses the service does not say.");
    output().note(fmt::format("The service says that the account used {} before and uses {} now.",
                              bytesOf(*sum.usedBefore), bytesOf(*sum.usedAfter)));
}

void tellRest(const backup::ForgetSummary& sum)
{
    if (sum.linkRecords > 0)
        output().note(fmt::format("The {} of {} {}: those of kept runs rest on {}.",
                                  sum.linkRecords == 1 ? "record" : "records",
                                  countText(sum.linkRecords, "forgotten run", "forgotten runs"),
                                  sum.linkRecords == 1 ? "stays" : "stay",
                                  sum.linkRecords == 1 ? "it" : "them"));
    if (sum.unnamedVersions > 0)
        output().note(fmt::format(
            "{} {} only forgotten runs hold cannot be deleted: the service never told their "
            "names.",
            countText(sum.unnamedVersions, "content", "contents"), "that"));
}

Fields fieldsOf(const backup::ForgetSummary& sum, bool isDryRun)
{
    const backup::ForgetPlan& plan = sum.plan;
    Fields fields{{"kept", plan.keptRuns}};
    if (isDryRun) {
        fields.emplace_back("would_forget", static_cast<std::uint64_t>(plan.runs.size()));
        fields.emplace_back("would_delete", plan.versions);
        fields.emplace_back("bytes", plan.bytes);
    } else {
        fields.emplace_back("forgotten", sum.forgotten);
        fields.emplace_back("deleted_versions", sum.deletedVersions);
        fields.emplace_back("bytes", sum.deletedBytes);
        fields.emplace_back("removed_records", sum.removedRecords);
    }
    fields.emplace_back("left", sum.leftVersions);
    fields.emplace_back("unnamed", sum.unnamedVersions);
    fields.emplace_back("links", sum.linkRecords);
    if (sum.usedBefore)
        fields.emplace_back("used_before", *sum.usedBefore);
    if (sum.usedAfter)
        fields.emplace_back("used_after", *sum.usedAfter);
    return fields;
}

ExitStatus finish(const backup::ForgetSummary& sum, const Options& options, const Session& session)
{
    const bool isDryRun = options.confirmation.isDryRun();
    const ExitStatus status = statusOf(sum.end);
    const bool isChanged = sum.forgotten + sum.deletedVersions + sum.removedRecords > 0;
    if (sum.end != ForgetEnd::done && !isChanged)
        return output().fail(status, sum.sentence);
    show(sum.plan, isDryRun ? sum.plan.runs.size() : sum.forgotten, !isDryRun);
    if (isDryRun) {
        output().note(fmt::format("Would forget {}, keep {}, and delete what only forgotten runs "
                                  "hold: {}.",
                                  runsText(sum.plan), countText(sum.plan.keptRuns, "run", "runs"),
                                  versionsText(sum.plan.versions, sum.plan.bytes)));
    } else if (!isChanged) {
        output().note("There is nothing to forget: the rules keep " +
                      countText(sum.plan.keptRuns, "run", "runs") + ".");
    } else {
        output().note(fmt::format("Forgot {}, kept {}; deleted {}.",
                                  countText(sum.forgotten, "run", "runs"),
                                  countText(sum.plan.keptRuns, "run", "runs"),
                                  versionsText(sum.deletedVersions, sum.deletedBytes)));
        if (sum.end == ForgetEnd::done || sum.end == ForgetEnd::someLeft) {
            tellSpace(sum);
            noteGrace(session);
        }
    }
    tellRest(sum);
    if (sum.end != ForgetEnd::done)
        output().complain(sum.sentence);
    Fields fields = fieldsOf(sum, isDryRun);
    if (!output().isJson())
        return output().finish(status);
    if (!sum.sentence.empty())
        fields.emplace_back("message", sum.sentence);
    return output().finish(status, fields);
}

ExitStatus forget(const Options& options)
{
    if (!options.keep.areAny())
        return output().fail(ExitStatus::usage,
                             "Please say which runs to keep: --keep-last, --keep-daily, "
                             "--keep-weekly or --keep-monthly, at least one of them above 0.");
    if (const auto nobody = options.confirmation.wantOfAnybody("what only forgotten runs hold"))
        return *nobody;
    const auto session = options.session.open(
        {"GetAccountSystems", "GetAccountFilesAndFolders", "GetFileVersions", "DeleteFilesInBulk"},
        options.retrySeconds);
    if (!session)
        return session.status();
    const auto stateFolder = platform::stateFolder();
    if (!stateFolder)
        return output().fail(ExitStatus::failed,
                             "There is no home folder to keep the state of backups in.");
    backup::ForgetRequest request{
        .account = {.username = session->username,
                    .password = session->password,
                    .server = session->server,
                    .systemName = options.systemName},
        .identity = backup::identityOfThisUser(),
        .stateFolder = *stateFolder,
        .keep = options.keep,
        .isDryRun = options.confirmation.isDryRun(),
        .budgetPerStep = std::chrono::duration_cast<std::chrono::steady_clock::duration>(
            std::chrono::duration<double>(options.retrySeconds)),
        .registersWithProtectFile = options.registration != "protect2"};
    request.identity.profile = options.profile;
    const Interruptible interruptible;
    Observer observer(options.confirmation);
    const auto summary = backup::runForget(request, observer, Interruptible::stopRequest());
    observer.clear();
    return finish(summary, options, *session);
}

} // namespace

void declareForget(const Command& app)
{
    auto options = std::make_shared<Options>();
    const Command command =
        app.addCommand("forget", "Forget runs of this machine, and delete what only they hold");
    command.addOption("--keep-last", options->keep.last, "Keep this many of the newest runs");
    command.addOption("--keep-daily", options->keep.daily,
                      "Keep the last run of each of the newest days that have one, this many; days "
                      "are those on which the service stored the record of the run");
    command.addOption("--keep-weekly", options->keep.weekly, "The same of weeks, from Monday on");
    command.addOption("--keep-monthly", options->keep.monthly, "The same of months");
    command.addOption("--system", options->systemName, "This machine's name on the service")
        .defaultsTo(General::localHostName());
    command.addOption("--profile", options->profile, "Name of the profile, as backup was told")
        .showsDefault();
    command
        .addOption("--retry-time", options->retrySeconds,
                   "Seconds to try a question or a deletion again before giving up")
        .between(0.0, 86400.0)
        .showsDefault();
    command
        .addOption("--register-with", options->registration,
                   "Web method that registers the notes of what is forgotten, as backup was told")
        .oneOf({"protect2", "ProtectFile"})
        .showsDefault();
    options->confirmation.declare(command);
    options->session.declare(command);
    command.runs([options] { return forget(*options); });
}

} // namespace stowline::cli
