#include "cli/commands/ForgetWords.h"

#include "cli/shared/HumanText.h"
#include "cli/shared/Interruption.h"
#include "cli/shared/Progress.h"
#include "stowline/backup/Account.h"

#include <fmt/format.h>

#include <algorithm>

namespace stowline::cli {

namespace {

using backup::ForgetEnd;

constexpr std::size_t kRunsInAList = 5;

std::string bytesOf(std::uint64_t bytes)
{
    return bytesText(static_cast<double>(bytes));
}

} // namespace

void declareKeepRules(const Command& command, backup::KeepRules& keep, const std::string& what)
{
    command.addOption("--keep-last", keep.last, what);
    command.addOption(
        "--keep-daily", keep.daily,
        "Keep the last run of this many of the newest days that have one; a run counts "
        "for the day on which the service stored its record");
    command.addOption("--keep-weekly", keep.weekly, "The same for weeks, which begin on Monday");
    command.addOption("--keep-monthly", keep.monthly, "The same for months");
}

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
    case ForgetEnd::elsewhere:
    case ForgetEnd::suspended:
    case ForgetEnd::declined:
    case ForgetEnd::stateFolder:
    case ForgetEnd::failed:
        break;
    }
    return ExitStatus::failed;
}

std::string forgottenRunsText(const backup::ForgetPlan& plan)
{
    std::string numbers;
    for (std::size_t i = 0; i < std::min(plan.runs.size(), kRunsInAList); ++i)
        numbers += (numbers.empty() ? "" : ", ") + std::to_string(plan.runs[i].run);
    if (plan.runs.size() > kRunsInAList)
        numbers += ", …";
    return countText(plan.runs.size(), "run", "runs") +
           (numbers.empty() ? "" : " (" + numbers + ")");
}

std::string versionsText(std::uint64_t versions, std::uint64_t bytes)
{
    return countText(versions, "version", "versions") + ", " + bytesOf(bytes);
}

bool hasChanged(const backup::ForgetSummary& sum)
{
    return sum.forgotten + sum.deletedVersions + sum.removedRecords > 0;
}

std::string doneSentence(const backup::ForgetSummary& sum)
{
    const std::string kept = countText(sum.plan.keptRuns, "run", "runs");
    if (!hasChanged(sum))
        return "There is nothing to forget: the rules keep " + kept + ".";
    return fmt::format("Forgot {}, kept {}; deleted {}.", countText(sum.forgotten, "run", "runs"),
                       kept, versionsText(sum.deletedVersions, sum.deletedBytes));
}

std::string spaceSentence(const backup::ForgetSummary& sum)
{
    if (!sum.usedBefore || !sum.usedAfter)
        return "How much space the account uses the service does not say.";
    return fmt::format("The service says that the account used {} before and uses {} now.",
                       bytesOf(*sum.usedBefore), bytesOf(*sum.usedAfter));
}

std::vector<std::string> restSentences(const backup::ForgetSummary& sum)
{
    std::vector<std::string> sentences;
    if (sum.linkRecords > 0)
        sentences.push_back(fmt::format(
            "The {} of {} {}: those of kept runs rest on {}.",
            sum.linkRecords == 1 ? "record" : "records",
            countText(sum.linkRecords, "forgotten run", "forgotten runs"),
            sum.linkRecords == 1 ? "stays" : "stay", sum.linkRecords == 1 ? "it" : "them"));
    if (sum.unnamedVersions > 0)
        sentences.push_back(fmt::format(
            "{} that only forgotten runs hold cannot be deleted: the service never told their "
            "names.",
            countText(sum.unnamedVersions, "content", "contents")));
    return sentences;
}

std::string confirmationHint(const std::string& profile)
{
    const bool isDefault = profile == backup::ChainIdentity().profile;
    return fmt::format("If that was meant, please say so: \"stowline forget --confirm-gone{}\". If "
                       "not, earlier runs have what is gone.",
                       isDefault ? "" : " --profile " + profile);
}

} // namespace stowline::cli
