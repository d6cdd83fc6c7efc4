#include "cli/commands/BackupForgetting.h"

#include "cli/commands/ForgetWords.h"
#include "cli/shared/Grace.h"
#include "cli/shared/Interruption.h"
#include "stowline/service/WebServiceBroker.h"

#include <algorithm>

namespace stowline::cli {

namespace {

using backup::ForgetEnd;

class Observer : public backup::ForgetObserver {
public:
    bool mayForget(const backup::ForgetPlan& /*plan*/) override { return true; }
    void note(const std::string& sentence) override { output().note(sentence); }
};

/// What can go on by itself after a later run.
bool isForLater(ForgetEnd end)
{
    return end == ForgetEnd::held || end == ForgetEnd::locked || end == ForgetEnd::temporary;
}

bool isOver(ForgetEnd end)
{
    return end == ForgetEnd::done || end == ForgetEnd::someLeft;
}

} // namespace

std::string ForgettingOutcome::state() const
{
    if (!isAsked)
        return "";
    if (isSuspended())
        return "suspended";
    if (!wasBegun)
        return "not-done";
    switch (summary.end) {
    case ForgetEnd::done:
        return "done";
    case ForgetEnd::someLeft:
        return "some-left";
    case ForgetEnd::interrupted:
        return "interrupted";
    default:
        return isForLater(summary.end) ? "later" : "failed";
    }
}

ExitStatus ForgettingOutcome::statusAfter(ExitStatus ofBackup) const
{
    return wasBegun && summary.end == ForgetEnd::interrupted
               ? Interruptible::request().value_or(ExitStatus::interrupted)
               : ofBackup;
}

std::string ForgettingOutcome::sentences() const
{
    if (!wasBegun || (!isOver(summary.end) && !hasChanged(summary)))
        return {};
    std::string text = doneSentence(summary);
    if (hasChanged(summary) && isOver(summary.end))
        text += "\n" + spaceSentence(summary);
    for (const std::string& sentence : restSentences(summary))
        text += "\n" + sentence;
    return text;
}

std::string ForgettingOutcome::complaint() const
{
    if (!isAsked)
        return {};
    if (isSuspended()) {
        std::string text;
        for (const backup::RunLoss& loss : losses)
            text += sentenceOf(loss) + " ";
        return text +
               "That is more than 30 %, or not known: no runs are forgotten by themselves "
               "until a person confirms it. " +
               confirmationHint(profile);
    }
    if (!wasBegun)
        return "No runs were forgotten, for not all went well: earlier ones may hold what this one "
               "could not store.";
    if (summary.end == ForgetEnd::done)
        return {};
    return (hasChanged(summary) ? "Not all was forgotten: " : "No runs were forgotten: ") +
           summary.sentence;
}

Fields ForgettingOutcome::fields() const
{
    const backup::ForgetSummary& sum = summary;
    Fields fields{{"forgetting", state()},
                  {"forgotten_runs", sum.forgotten},
                  {"kept_runs", sum.plan.keptRuns},
                  {"deleted_versions", sum.deletedVersions},
                  {"deleted_bytes", sum.deletedBytes},
                  {"left_versions", sum.leftVersions},
                  {"unconfirmed_losses", std::uint64_t{losses.size()}}};
    if (sum.usedBefore)
        fields.emplace_back("used_before", *sum.usedBefore);
    if (sum.usedAfter)
        fields.emplace_back("used_after", *sum.usedAfter);
    return fields;
}

void ForgettingOutcome::addTo(RunFigures& figures) const
{
    if (!isAsked)
        return;
    using State = RunFigures::Forgetting;
    figures.forgettingText = sentences();
    if (const std::string why = complaint(); !why.empty())
        figures.forgettingText += (figures.forgettingText.empty() ? "" : "\n") + why;
    const std::string word = state();
    if (word == "suspended")
        figures.forgetting = State::suspended;
    else if (word == "done")
        figures.forgetting = State::done;
    else
        figures.forgetting = word == "failed" || word == "some-left" ? State::failed : State::later;
    if (isSuspended()) {
        figures.goneItems = losses.back().gone;
        figures.goneOfItems = losses.back().items;
    }
    figures.deletedVersions = summary.deletedVersions;
    figures.deletedBytes = summary.deletedBytes;
    figures.leftVersions = summary.leftVersions;
    figures.forgottenRuns = summary.forgotten;
    figures.keptRuns = summary.plan.keptRuns;
    if (summary.usedBefore && summary.usedAfter)
        figures.givenBackBytes =
            summary.usedBefore.value() - std::min(*summary.usedBefore, *summary.usedAfter);
}

void ForgettingFlags::declare(const Command& command)
{
    declareKeepRules(command, keep_,
                     "When nothing failed, forget runs of this profile and delete what only they "
                     "held, as \"stowline forget\" does, but keep this many of the newest");
}

ForgettingOutcome ForgettingFlags::forgetAfter(const backup::BackupRequest& request,
                                               const backup::BackupSummary& summary,
                                               const SelfTestOutcome& selfTest,
                                               const Session& session) const
{
    ForgettingOutcome outcome;
    if (!keep_.areAny() || request.isDryRun)
        return outcome;
    outcome.isAsked = true;
    outcome.profile = request.identity.profile;
    outcome.losses = summary.losses;
    const bool isGood = summary.end == backup::BackupEnd::done && !selfTest.hasFoundLoss() &&
                        selfTest.statusAfter(ExitStatus::done) == ExitStatus::done;
    const bool isPossible = WebServiceBroker::isRestoringConfigured(); // else that is the reason
    if (!isPossible)
        outcome.losses.clear();
    if (!isGood || outcome.isSuspended() || Interruptible::request())
        return outcome;
    outcome.wasBegun = true;
    Observer observer;
    output().note("Forgetting runs by the rules of this profile …");
    outcome.summary =
        backup::runForget({.account = request.account,
                           .identity = request.identity,
                           .stateFolder = request.stateFolder,
                           .keep = keep_,
                           .isUnattended = true,
                           .budgetPerStep = request.budgetPerStep,
                           .registersWithProtectFile = request.registersWithProtectFile},
                          observer, Interruptible::stopRequest());
    outcome.losses = outcome.summary.plan.losses;
    if (hasChanged(outcome.summary) && isOver(outcome.summary.end))
        noteGrace(session);
    return outcome;
}

} // namespace stowline::cli
