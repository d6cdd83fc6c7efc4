#include "cli/commands/BackupHooks.h"

#include "cli/shared/Interruption.h"
#include "stowline/platform/processes/CommandOutput.h"
#include "stowline/platform/text/SystemErrorText.h"

#include <fmt/format.h>

#include <chrono>

namespace stowline::cli {

namespace {

using platform::CommandEnd;

/// What to say of a command that did not succeed, as the end of a sentence.
std::string sentenceFor(const CommandEnd& end, const std::string& command, double seconds)
{
    switch (end.kind) {
    case CommandEnd::Kind::malformed:
        return "is none: " + platform::faultInCommand(command) + ".";
    case CommandEnd::Kind::notStarted:
        return fmt::format("cannot be run: {} ({}).", platform::systemErrorText(end.number),
                           command);
    case CommandEnd::Kind::bySignal:
        return fmt::format("was ended by signal {} ({}).", end.number, command);
    case CommandEnd::Kind::timeOver:
        return fmt::format("took longer than {} second{} (--hook-time) and was ended ({}).",
                           seconds, seconds == 1 ? "" : "s", command);
    case CommandEnd::Kind::stopped:
        return "was interrupted (" + command + ").";
    case CommandEnd::Kind::failed:
    case CommandEnd::Kind::success:
        break;
    }
    return fmt::format("failed with status {} ({}).", end.number, command);
}

CommandEnd run(const std::string& command, const std::vector<std::string>& variables,
               double seconds)
{
    return platform::runCommand(command, variables,
                                std::chrono::duration_cast<std::chrono::milliseconds>(
                                    std::chrono::duration<double>(seconds)));
}

} // namespace

void BackupHooks::declare(const Command& command)
{
    command
        .addOption(
            "--before", before_,
            "Run this command (no shell) before the backup; if it fails, the backup does not "
            "begin. A dry run runs neither this nor --after")
        .accepts(platform::faultInCommand);
    command
        .addOption(
            "--after", after_,
            "Run this command (no shell) after the backup, also after one that failed; "
            "STOWLINE_EXIT_STATUS in its environment holds the backup's status. When the command "
            "fails the backup ends with status 3")
        .accepts(platform::faultInCommand);
    command
        .addOption("--hook-time", seconds_,
                   "Seconds that each of these commands may take before it is ended")
        .between(0.0, 864000.0)
        .showsDefault();
}

std::optional<ExitStatus> BackupHooks::before(std::string& sentence) const
{
    if (before_.empty())
        return std::nullopt;
    const Interruptible interruptible;
    const StopScope scope(Interruptible::stopRequest());
    const CommandEnd end = run(before_, {}, seconds_);
    if (end.kind == CommandEnd::Kind::success)
        return std::nullopt;
    sentence =
        "Nothing was backed up: the command of --before " + sentenceFor(end, before_, seconds_);
    return Interruptible::request().value_or(ExitStatus::failed);
}

std::string BackupHooks::after(ExitStatus status) const
{
    if (after_.empty())
        return {};
    const std::vector<std::string> variables{
        fmt::format("STOWLINE_EXIT_STATUS={}", static_cast<int>(status))};
    std::optional<StopScope> scope;
    if (!Interruptible::request())
        scope.emplace(Interruptible::stopRequest());
    const CommandEnd end = run(after_, variables, seconds_);
    return end.kind == CommandEnd::Kind::success
               ? std::string()
               : "The command of --after " + sentenceFor(end, after_, seconds_);
}

} // namespace stowline::cli
