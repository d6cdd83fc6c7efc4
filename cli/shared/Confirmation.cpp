#include "cli/shared/Confirmation.h"

#include "cli/shared/Output.h"
#include "stowline/platform/processes/Terminal.h"

namespace stowline::cli {

void Confirmation::declare(const Command& command)
{
    command.addFlag("--yes", isGiven_, "Do not ask").notInFile();
    command.addFlag("-n,--dry-run", isDryRun_, "Say what would be done");
}

std::optional<ExitStatus> Confirmation::wantOfAnybody(const std::string& what) const
{
    if (isDryRun_ || isGiven_ || platform::standardErrorIsTerminal())
        return std::nullopt;
    return output().fail(ExitStatus::usage, "There is nobody to ask whether to delete " + what +
                                                ". Please give --yes.");
}

bool Confirmation::isGranted(const std::string& question) const
{
    if (isGiven_)
        return true;
    const auto answer = platform::readLineFromTerminal(onOneLine(question) + " [y/N] ");
    return answer && (*answer == "y" || *answer == "Y" || *answer == "yes");
}

std::optional<ExitStatus> Confirmation::refusal(const std::string& what) const
{
    if (isDryRun_) {
        output().note("Would delete " + what + ".");
        return output().finish(ExitStatus::done);
    }
    if (isGiven_)
        return std::nullopt;
    const auto answer =
        platform::standardErrorIsTerminal()
            ? platform::readLineFromTerminal("Delete " + onOneLine(what) + "? [y/N] ")
            : std::nullopt;
    if (!answer)
        return output().fail(ExitStatus::usage, "There is nobody to ask whether to delete " + what +
                                                    ". Please give --yes.");
    if (*answer == "y" || *answer == "Y" || *answer == "yes")
        return std::nullopt;
    return output().fail(ExitStatus::failed, "Nothing was deleted.");
}

} // namespace stowline::cli
