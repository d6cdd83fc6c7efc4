// stowline schedule install, remove, status
#include "cli/commands/Commands.h"
#include "cli/shared/Configuration.h"
#include "cli/shared/HumanText.h"
#include "cli/shared/Output.h"
#include "cli/shared/RunFigures.h"
#include "cli/shared/ScheduleUnits.h"
#include "stowline/backup/BackupRun.h"
#include "stowline/platform/desktop/Bundle.h"
#include "stowline/platform/desktop/ServiceUnits.h"
#include "stowline/platform/network/LineCost.h"
#include "stowline/platform/processes/CommandOutput.h"
#include "stowline/platform/text/Numbers.h"
#include "stowline/platform/time/DateText.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

namespace stowline::cli {

namespace {

namespace fs = std::filesystem;
using platform::UserUnits;

struct Options {
    std::string daily;
    std::string profile = backup::ChainIdentity().profile;
    std::string username;
    std::string passwordFile;
    std::string passwordCommand;
    bool onMainsOnly = false;
    bool notMetered = false;
    bool isDryRun = false;
    std::vector<std::string> paths;
};

/// What is said of the whole program and counts for the scheduled run too.
struct Surroundings {
    CLI::App& program;
    const std::string& bundle;
};

std::string wholePath(const std::string& path)
{
    std::error_code unknown;
    return fs::absolute(path, unknown).lexically_normal().string();
}

/// "02:30"
std::optional<std::pair<int, int>> timeOfDay(const std::string& text)
{
    const auto hour = platform::wholeNumber<int>(text.substr(0, text.find(':')));
    const auto minute = text.size() == 5 && text[2] == ':'
                            ? platform::wholeNumber<int>(text.substr(3))
                            : std::nullopt;
    if (!hour || !minute || *hour > 23 || *minute > 59)
        return std::nullopt;
    return std::pair(*hour, *minute);
}

std::string faultInTimeOfDay(const std::string& text)
{
    return timeOfDay(text) ? "" : "This must be a time of day such as 02:30, not \"" + text + "\"";
}

ExitStatus nameTooLong()
{
    return output().fail(ExitStatus::usage,
                         "The profile's name is too long for the name of a unit.");
}

/// A run that nobody sits beside must find everything that it would ask for.
std::optional<std::string> whatIsMissing(const Options& options)
{
    const auto isConfigured = [&](const char* key) {
        return isConfiguredForBackup(options.profile, key);
    };
    if (options.paths.empty() && !isConfigured("paths") && !isConfigured("files-from"))
        return fmt::format("Please name what to back up: PATH, or \"paths\" in [profile.{}] of the "
                           "configuration file.",
                           options.profile);
    if (options.username.empty() && !isConfigured("username"))
        return "The scheduled run needs a user name. Please give --username.";
    if (options.passwordFile.empty() && options.passwordCommand.empty() &&
        !isConfigured("password-file") && !isConfigured("password-command"))
        return "The scheduled run has no terminal to ask for the password, and the password itself "
               "is not kept. Please give --password-file or --password-command, here or in the "
               "configuration file.";
    return std::nullopt;
}

/// The scheduled command, in whole paths: it runs in the home folder.
std::vector<std::string> commandFor(const Options& options, const Surroundings& around)
{
    std::vector<std::string> words{(platform::Bundle::executableFolder() / "stowline").string(),
                                   "--no-progress"};
    const auto add = [&words](const std::string& option, const std::string& value) {
        if (!value.empty())
            words.push_back(option + "=" + value); // a value may begin with a dash
    };
    if (isConfigurationNamed(around.program))
        add("--config", wholePath(configurationFile(around.program)));
    add("--bundle", around.bundle.empty() ? "" : wholePath(around.bundle));
    words.emplace_back("backup");
    add("--profile", options.profile);
    add("--username", options.username);
    add("--password-file", options.passwordFile.empty() ? "" : wholePath(options.passwordFile));
    add("--password-command", options.passwordCommand);
    if (options.notMetered)
        words.emplace_back("--not-metered");
    if (!options.paths.empty())
        words.emplace_back("--");
    std::ranges::transform(options.paths, std::back_inserter(words), wholePath);
    return words;
}

/// The service manager's environment is not that of this terminal.
std::vector<std::pair<std::string, std::string>> variablesOfFolders()
{
    std::vector<std::pair<std::string, std::string>> variables;
    for (const char* name : {"XDG_CONFIG_HOME", "XDG_STATE_HOME"}) {
        if (const char* value = std::getenv(name); value && *value == '/')
            variables.emplace_back(name, value);
    }
    return variables;
}

std::string shellLine(const std::vector<std::string>& words)
{
    std::string line;
    for (const std::string& word : words) {
        std::string quoted = "'";
        for (const char c : word)
            quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
        line += (line.empty() ? "" : " ") + quoted + "'";
    }
    return line;
}

ExitStatus noManager(const std::vector<std::string>& command)
{
    return output().fail(
        ExitStatus::failed,
        "Nothing was installed: the service manager of this user (\"systemctl --user\") does not "
        "answer. Please log in to a session that has one, or have another scheduler, as cron, "
        "run: " +
            shellLine(command));
}

/// Undoes what came of an installation that failed: the earlier schedule comes back, or nothing
/// stays. @return what is to be said of that; empty when there is nothing to say
std::string undone(const platform::UserUnits& units,
                   const std::optional<platform::UnitTexts>& earlier)
{
    if (!earlier)
        return units.remove() ? ""
                              : " Part of it is left; \"stowline schedule remove\" takes it "
                                "away.";
    if (units.write(*earlier) && units.enable())
        return " The earlier schedule is in place again.";
    return " The earlier schedule may not run any more: please look with \"stowline schedule "
           "status\".";
}

ExitStatus install(const Options& options, const Surroundings& around)
{
    const auto time = timeOfDay(options.daily).value();
    if (const auto missing = whatIsMissing(options))
        return output().fail(ExitStatus::usage, *missing);
    const auto units = scheduleUnits(options.profile);
    if (!units)
        return nameTooLong();
    const auto command = commandFor(options, around);
    const auto texts =
        platform::unitTexts({.description = "Backup with Stowline, profile " + options.profile,
                             .command = command,
                             .variables = variablesOfFolders(),
                             .hour = time.first,
                             .minute = time.second,
                             .onMainsOnly = options.onMainsOnly});
    if (!texts)
        return output().fail(ExitStatus::usage,
                             "A unit of the service manager cannot hold a name that is not UTF-8. "
                             "Please name a folder above it, or a file with --files-from in the "
                             "configuration.");
    const auto timer = units->file(".timer");
    if (!timer)
        return output().fail(ExitStatus::failed, "The home folder was not found. Please set HOME.");
    if (options.isDryRun) {
        output().item(texts->service + "\n" + texts->timer, "units",
                      {{"service", texts->service}, {"timer", texts->timer}});
        return output().finish(ExitStatus::done);
    }
    if (units->isForeign())
        return output().fail(ExitStatus::failed,
                             timer->string() + " or the service beside it was not written by this "
                                               "command. Please move them away.");
    if (!UserUnits::isManagerThere())
        return noManager(command);
    const auto earlier = units->texts();
    if (!units->write(*texts))
        return output().fail(ExitStatus::failed,
                             timer->string() +
                                 " or the service beside it cannot be written. The schedule was "
                                 "not installed." +
                                 undone(*units, earlier));
    if (!units->enable())
        return output().fail(ExitStatus::failed,
                             fmt::format("The schedule was not installed: the service manager did "
                                         "not start {}.{}",
                                         timer->filename().string(), undone(*units, earlier)));
    output().note(fmt::format(
        "Backups run daily at {}. \"stowline schedule status\" shows the next and the last run.",
        options.daily));
    for (const std::string& path : options.paths) {
        std::error_code unknown;
        if (fs::symlink_status(path, unknown).type() == fs::file_type::not_found)
            output().note(fmt::format("There is nothing at {} now. A run that finds nothing at a "
                                      "path fails, and says so.",
                                      wholePath(path)));
    }
    output().note("They run while you are logged in; \"loginctl enable-linger\" lets them run when "
                  "you are not.");
    if (options.notMetered && platform::lineCost() == platform::LineCost::unknown)
        output().note(
            "Whether a line is paid for by volume is not known on this machine, as long as "
            "NetworkManager does not answer: runs begin on any line.");
    return output().finish(ExitStatus::done, {{"timer", timer->string()}});
}

ExitStatus notInstalled(const std::string& profile)
{
    const auto others = otherScheduledProfiles(profile);
    return output().fail(ExitStatus::notFound,
                         fmt::format("No schedule is installed for the profile \"{}\".{}", profile,
                                     others.empty() ? ""
                                                    : fmt::format(" Others are (--profile): {}.",
                                                                  fmt::join(others, ", "))));
}

ExitStatus remove(const std::string& profile, bool isDryRun)
{
    const auto units = scheduleUnits(profile);
    if (!units)
        return nameTooLong();
    if (!units->areOurs() || units->isForeign())
        return notInstalled(profile);
    if (isDryRun)
        return output().finish(ExitStatus::done, {{"timer", units->file(".timer")->string()}});
    if (!units->remove())
        return output().fail(ExitStatus::failed,
                             "Part of the schedule is left: " + units->file(".timer")->string() +
                                 ". Please check the owner and the mode of its folder.");
    return output().finish(ExitStatus::done, {{"removed", units->file(".timer")->string()}});
}

/// "2026-11-22 02:31, 3 files stored, 1 failed", of the last run of a profile.
std::string lastRunText(const RunFigures& figures)
{
    const std::string why = figures.sentence.empty() ? figures.afterFault : figures.sentence;
    return fmt::format("{}: {} stored, {} failed{}", localTimeText(figures.begun),
                       countText(figures.backedUp, "file", "files"),
                       countText(figures.failed, "item", "items"), why.empty() ? "" : "; " + why);
}

ExitStatus status(const std::string& profile)
{
    const auto units = scheduleUnits(profile);
    if (!units)
        return nameTooLong();
    if (!units->areOurs())
        return notInstalled(profile);
    Fields fields{{"timer", units->file(".timer")->string()}};
    if (const auto last = lastRun(profile))
        fields.emplace_back("last", output().isJson() ? platform::internetTimeText(last->begun)
                                                      : lastRunText(*last));
    if (const auto good = lastGoodRun(profile))
        fields.emplace_back("last_good", output().isJson() ? platform::internetTimeText(*good)
                                                           : localTimeText(*good));
    if (!units->isActive())
        return output().fail(ExitStatus::failed,
                             "The schedule is installed, but the service manager does not run it. "
                             "Please try \"systemctl --user status " +
                                 units->file(".timer")->filename().string() +
                                 "\", or install it again.");
    if (const auto others = otherScheduledProfiles(profile); !others.empty())
        output().note(fmt::format("This is the profile \"{}\". Others have a schedule too "
                                  "(--profile): {}.",
                                  profile, fmt::join(others, ", ")));
    fields.emplace_back("next", units->property("NextElapseUSecRealtime"));
    return output().finish(ExitStatus::done, fields);
}

void declareProfile(const Command& command, std::string& profile)
{
    command.addOption("--profile", profile, "Name of the profile; each has its own runs")
        .showsDefault();
}

void declareInstall(const Command& schedule, const Surroundings& around)
{
    auto options = std::make_shared<Options>();
    const Command command = schedule.addCommand(
        "install", "Have the user's own service manager (systemd) run \"stowline backup\" daily; a "
                   "run that was missed while the machine was off or asleep is made up for");
    command.addOption("PATH", options->paths,
                      "Files and folders; the profile's when nothing is named");
    command.addOption("--daily", options->daily, "Time of day, such as 02:30")
        .accepts(faultInTimeOfDay)
        .required();
    declareProfile(command, options->profile);
    command.addOption("-u,--username", options->username, "User name").fromVariable();
    const auto file = command.addOption("--password-file", options->passwordFile,
                                        "File that the run reads the password from");
    command
        .addOption("--password-command", options->passwordCommand,
                   "Command (no shell) that prints the password for the run")
        .accepts(platform::faultInCommand)
        .excludes(file);
    command.addFlag("--on-mains", options->onMainsOnly,
                    "Skip a run while the machine is on battery power");
    command.addFlag(
        "--not-metered", options->notMetered,
        "Leave a run out while the network goes over a line that is paid for by volume, "
        "as far as NetworkManager knows it");
    command.addFlag("-n,--dry-run", options->isDryRun, "Show the units, and install nothing");
    command.runs([options, around] { return install(*options, around); });
}

} // namespace

void declareSchedule(const Command& app, CLI::App& program, const std::string& bundle)
{
    const Command schedule = app.addCommand("schedule", "Daily backups");
    schedule.needsSubcommand();
    declareInstall(schedule, {program, bundle});
    auto profile = std::make_shared<Options>();
    const Command removal = schedule.addCommand("remove", "Take away what install made");
    declareProfile(removal, profile->profile);
    removal.addFlag("-n,--dry-run", profile->isDryRun, "Say what would be removed");
    removal.runs([profile] { return remove(profile->profile, profile->isDryRun); });
    auto asked = std::make_shared<Options>();
    const Command state = schedule.addCommand("status", "The last and the next run");
    declareProfile(state, asked->profile);
    state.runs([asked] { return status(asked->profile); });
}

} // namespace stowline::cli
