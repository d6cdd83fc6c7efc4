// stowline settings check
#include "cli/commands/Commands.h"
#include "cli/shared/Output.h"
#include "cli/shared/ServiceFailure.h"
#include "cli/shared/SettingsFaults.h"
#include "stowline/platform/files/Files.h"
#include "stowline/service/SettingsCheck.h"
#include "stowline/service/WebServicesSettings.h"

#include <fmt/format.h>

namespace stowline::cli {

namespace {

ExitStatus check(std::string file)
{
    if (file.empty()) {
        const auto place = WebServicesSettings::file();
        if (!place)
            return output().fail(ExitStatus::settingsInvalid, unnamedSettingsFault());
        file = place->string();
    }
    const auto bytes = platform::readFile(file);
    if (!bytes)
        return output().fail(ExitStatus::notFound, "The file " + file + " cannot be read.");
    const auto faults = checkSettings(*bytes);
    showFaults(file, faults);
    if (!faults.empty())
        return output().fail(
            ExitStatus::settingsInvalid,
            fmt::format("{} has {} fault{}.", file, faults.size(), faults.size() == 1 ? "" : "s"));
    output().note(file + " is in order.");
    if (!configuresRestoring(*bytes))
        output().note("Restoring is not configured.");
    if (!configuresUndeleting(*bytes))
        output().note("Undeleting is not configured.");
    return output().finish(ExitStatus::done);
}

} // namespace

void declareSettings(const Command& app)
{
    const Command settings = app.addCommand("settings", "The settings file");
    settings.needsSubcommand();
    auto file = std::make_shared<std::string>();
    const Command command =
        settings.addCommand("check", "List every fault of a settings file with its line");
    command.addOption("FILE", *file, "Settings file; the program's own when not given");
    command.runs([file] { return check(*file); });
}

} // namespace stowline::cli
