// stowline forget
#include "cli/commands/Commands.h"
#include "cli/commands/ForgetWords.h"
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

struct Options {
    SessionOptions session;
    Confirmation confirmation;
    backup::KeepRules keep;
    bool confirmsLosses = false;
    std::vector<std::string> givenUp;
    std::string systemName;
    std::string profile = "default";
    double retrySeconds = 300;
    std::string registration = "protect2";
};

class Observer : public backup::ForgetObserver {
public:
    explicit Observer(const Confirmation& confirmation) : confirmation_(confirmation) {}

    bool mayForget(const backup::ForgetPlan& plan) override
    {
        const StopScope scope(Interruptible::stopRequest());
        std::string losses;
        for (const backup::RunLoss& loss : plan.losses)
            losses += sentenceOf(loss) + " ";
        return confirmation_.isGranted(
            losses +
            (plan.runs.empty()
                 ? fmt::format("Delete what only runs forgotten earlier still hold ({})?",
                               versionsText(plan.versions, plan.bytes))
                 : fmt::format("Forget {} and delete what only {} ({})?", forgottenRunsText(plan),
                               plan.runs.size() == 1 ? "it holds" : "they hold",
                               versionsText(plan.versions, plan.bytes))));
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
    fields.emplace_back("given_up", sum.givenUp);
    fields.emplace_back("confirmed", std::uint64_t{sum.confirmed.size()});
    fields.emplace_back("unconfirmed", std::uint64_t{sum.plan.losses.size()});
    if (sum.usedBefore)
        fields.emplace_back("used_before", *sum.usedBefore);
    if (sum.usedAfter)
        fields.emplace_back("used_after", *sum.usedAfter);
    return fields;
}

/// What is known of losses, and whether they are confirmed.
void tellLosses(const backup::ForgetSummary& sum, const Options& options)
{
    for (const backup::RunLoss& loss : sum.confirmed)
        output().note(sentenceOf(loss) + " That is confirmed.");
    if (sum.end == ForgetEnd::suspended)
        return; // its sentence says so
    for (const backup::RunLoss& loss : sum.plan.losses)
        output().note(sentenceOf(loss));
    if (!sum.plan.losses.empty() && sum.end != ForgetEnd::elsewhere)
        output().note(options.confirmsLosses
                          ? "That would be confirmed."
                          : "Nothing is forgotten by itself until a person confirms it. " +
                                confirmationHint(options.profile));
}

void tellWork(const backup::ForgetSummary& sum, const Options& options, const Session& session)
{
    const bool isDryRun = options.confirmation.isDryRun();
    show(sum.plan, isDryRun ? sum.plan.runs.size() : sum.forgotten, !isDryRun);
    if (isDryRun)
        output().note(fmt::format("Would forget {}, keep {}, and delete what only forgotten runs "
                                  "hold: {}.",
                                  forgottenRunsText(sum.plan),
                                  countText(sum.plan.keptRuns, "run", "runs"),
                                  versionsText(sum.plan.versions, sum.plan.bytes)));
    else
        output().note(doneSentence(sum));
    if (hasChanged(sum) && (sum.end == ForgetEnd::done || sum.end == ForgetEnd::someLeft)) {
        output().note(spaceSentence(sum));
        noteGrace(session);
    }
    for (const std::string& sentence : restSentences(sum))
        output().note(sentence);
}

ExitStatus finish(const backup::ForgetSummary& sum, const Options& options, const Session& session)
{
    const ExitStatus status = statusOf(sum.end);
    std::string sentence = sum.sentence;
    if (sum.end == ForgetEnd::suspended)
        sentence += " " + confirmationHint(options.profile);
    if (sum.givenUp > 0)
        output().note(countText(sum.givenUp, "run is", "runs are") +
                      " given up: no forgetting from this machine waits for it any more, unless it "
                      "gives another sign.");
    tellLosses(sum, options);
    if (sum.end != ForgetEnd::done && !hasChanged(sum))
        return output().fail(status, sentence);
    if (options.keep.areAny())
        tellWork(sum, options, session);
    else if (options.confirmsLosses && sum.confirmed.empty() && sum.plan.losses.empty())
        output().note("There is nothing to confirm.");
    if (sum.end != ForgetEnd::done)
        output().complain(sentence);
    Fields fields = fieldsOf(sum, options.confirmation.isDryRun());
    if (!output().isJson())
        return output().finish(status);
    if (!sentence.empty())
        fields.emplace_back("message", sentence);
    return output().finish(status, fields);
}

ExitStatus forget(const Options& options)
{
    if (!options.keep.areAny() && !options.confirmsLosses && options.givenUp.empty())
        return output().fail(ExitStatus::usage,
                             "Please say which runs to keep: --keep-last, --keep-daily, "
                             "--keep-weekly or --keep-monthly, at least one of them above 0. The "
                             "rules of a profile in the configuration are those of its backups; "
                             "this command does not read them.");
    if (const auto nobody = options.keep.areAny() ? options.confirmation.wantOfAnybody(
                                                        "what only forgotten runs hold")
                                                  : std::nullopt)
        return *nobody;
    const auto session = options.session.open(
        {"GetAccountSystems", "GetAccountFilesAndFolders", "GetFileVersions", "DeleteFilesInBulk"},
        options.retrySeconds);
    if (!session)
        return session.status();
    const auto stateFolder = platform::stateFolder();
    if (!stateFolder)
        return output().fail(ExitStatus::failed, "The home folder was not found. Please set HOME.");
    backup::ForgetRequest request{
        .account = {.username = session->username,
                    .password = session->password,
                    .server = session->server,
                    .systemName = options.systemName},
        .identity = backup::identityOfThisUser(),
        .stateFolder = *stateFolder,
        .keep = options.keep,
        .isUnattended = options.confirmation.isGiven(),
        .confirmsLosses = options.confirmsLosses,
        .givenUp = options.givenUp,
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
    declareKeepRules(command, options->keep, "Keep this many of the newest runs");
    command
        .addFlag("--confirm-gone", options->confirmsLosses,
                 "Say that what runs found gone was meant to go: after a run that found more than "
                 "30 % of the items gone nothing is forgotten by itself, nor with --yes, until "
                 "then; may stand alone")
        .notInFile();
    command
        .addOption("--given-up", options->givenUp,
                   "Say that a run of another machine or profile, \"CHAIN/RUN\", was cut off and "
                   "that no later one will ever end, as of a machine that is gone: nothing waits "
                   "for it any more; from a week after its last sign on; may stand alone")
        .notInFile();
    command.addOption("--system", options->systemName, "This machine's name on the service")
        .defaultsTo(General::localHostName());
    command.addOption("--profile", options->profile, "Name of the profile, as given to backup")
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
