// stowline doctor
#include "cli/commands/Commands.h"
#include "cli/shared/Amounts.h"
#include "cli/shared/HumanText.h"
#include "cli/shared/Output.h"
#include "cli/shared/Overdue.h"
#include "cli/shared/Progress.h"
#include "cli/shared/RunFigures.h"
#include "cli/shared/ScheduleUnits.h"
#include "cli/shared/Secret.h"
#include "cli/shared/ServiceFailure.h"
#include "cli/shared/Session.h"
#include "stowline/platform/desktop/Bundle.h"
#include "stowline/platform/files/Files.h"
#include "stowline/platform/text/Text.h"
#include "stowline/platform/values/PropertyList.h"
#include "stowline/service/Diagnosis.h"
#include "stowline/service/FailureWatch.h"
#include "stowline/service/SettingsCheck.h"
#include "stowline/service/WebServiceBroker.h"
#include "stowline/service/WebServicesSettings.h"
#include "stowline/util/General.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cstdlib>
#include <iterator>

namespace stowline::cli {

namespace {

namespace fs = std::filesystem;

constexpr const char* kLastRun = "last-run"; ///< a subject

struct DoctorOptions {
    std::string server;
    std::string profile = backup::ChainIdentity().profile;
    std::string alertAfter; ///< empty: not asked
    std::string username;
    SecretOptions password;
};

Finding checkBundle()
{
    const std::string folder = platform::Bundle::folder().string();
    const auto version = General::productVersion();
    if (!version)
        return {"bundle", false,
                infoFault("has no version") +
                    " Please install the program again, or name the folder with --bundle."};
    return {"bundle", true,
            General::productName().value_or("?") + " " + *version + " in " + folder};
}

Finding checkSettingsFile()
{
    const auto file = WebServicesSettings::file();
    const auto bytes = file ? platform::readFile(*file) : std::nullopt;
    if (!bytes)
        return {"settings", false,
                file ? file->string() + " cannot be read. Please install the program again."
                     : unnamedSettingsFault()};
    const auto faults = checkSettings(*bytes);
    if (!faults.empty())
        return {"settings", false,
                fmt::format("{} has {}; \"stowline settings check\" lists them.", file->string(),
                            countText(faults.size(), "fault", "faults"))};
    return {"settings", true,
            file->string() + (configuresRestoring(*bytes) ? "" : "; restoring is not configured") +
                (configuresUndeleting(*bytes) ? "" : "; undeleting is not configured")};
}

Finding checkProxy(const std::string& server)
{
    std::string set;
    for (const char* variable : {"http_proxy", "https_proxy", "HTTPS_PROXY", "all_proxy",
                                 "ALL_PROXY", "no_proxy", "NO_PROXY"}) {
        // The value may hold a password, so only the name is shown.
        if (std::getenv(variable))
            set += (set.empty() ? "" : ", ") + std::string(variable);
    }
    if (!set.empty())
        return {"proxy", true, "set by " + set};
    return {"proxy", true,
            desktopNamesAProxy(server) ? "the desktop's" : "none set in the environment"};
}

Finding checkFolder(const std::string& subject, const std::optional<fs::path>& folder)
{
    if (!folder)
        return {subject, false, "The home folder was not found. Please set HOME."};
    const fs::path probe = *folder / ".doctor";
    std::error_code fault;
    const bool writable =
        platform::makePrivateFolder(*folder) && platform::writeFileAtomically(probe, "");
    fs::remove(probe, fault);
    if (!writable)
        return {subject, false,
                folder->string() + " cannot be written to. Please check its owner "
                                   "and mode."};
    return {subject, true, folder->string()};
}

/// What a run writes besides the service: index, journal, the copy of a changing file.
Finding checkDisk(std::optional<fs::path> folder)
{
    constexpr double least = 200e6;
    std::error_code fault;
    while (folder && !folder->empty() && !fs::exists(*folder, fault))
        folder = folder->parent_path();
    const auto space = folder ? fs::space(*folder, fault) : fs::space_info();
    if (!folder || fault)
        return {"disk", false,
                "How much space is free for the state of backups is not known. Please look at "
                "the disk of the state folder."};
    const auto free = static_cast<double>(space.available);
    if (free < least)
        return {"disk", false,
                fmt::format("Only {} is free in {}. Please make room: a backup keeps its index "
                            "there, and copies of files that change.",
                            bytesText(free), folder->string())};
    return {"disk", true, bytesText(free) + " free for the state of backups"};
}

constexpr const char* kSchedule = "schedule"; ///< a subject

/// @param name what tells it from the schedules of other profiles, before the text
Finding checkUnits(const platform::UserUnits& units, const std::string& name)
{
    if (!units.isActive())
        return {kSchedule, false,
                name + "It is installed, but the service manager does not run it. Please install "
                       "it again: \"stowline schedule install\"."};
    return {kSchedule, true, name + "next run: " + units.property("NextElapseUSecRealtime")};
}

/// The schedule of the profile that is asked for, and those of all others.
std::vector<Finding> checkSchedules(const std::string& profile)
{
    std::vector<Finding> findings;
    const auto others = otherScheduledProfiles(profile);
    const auto nameOf = [](const std::string& of) { return "profile " + onOneLine(of) + ": "; };
    if (const auto units = scheduleUnits(profile); units && units->areOurs())
        findings.push_back(checkUnits(*units, others.empty() ? "" : nameOf(profile)));
    else
        findings.push_back({kSchedule, true,
                            (others.empty() ? "" : nameOf(profile)) +
                                "none; \"stowline schedule install\" makes one"});
    for (const std::string& other : others) {
        if (const auto units = scheduleUnits(other))
            findings.push_back(checkUnits(*units, nameOf(other)));
    }
    return findings;
}

Finding checkLastRun(const DoctorOptions& options)
{
    const BackupSubject subject{.account = options.username, .machine = {}, .paths = {}};
    const auto last = lastGoodRun(options.profile, subject);
    const std::string text = last ? "last run without failures: " + localTimeText(*last)
                                  : "no run without failures is known on this machine";
    const auto alertAfter = parseSpan(options.alertAfter);
    LastSuccesses successes = lastSuccesses(options.profile, subject);
    const auto late = alertAfter ? overdue(successes, *alertAfter, platform::currentDate())
                                 : std::vector<std::string>();
    if (!late.empty()) {
        showOnDesktop(late);
        successes.goodRun = platform::currentDate(); // what is left is late for want of a proof
        const bool isProofLate = !overdue(successes, *alertAfter, platform::currentDate()).empty();
        return {kLastRun, false,
                fmt::format("{}. Please run \"stowline backup{}\" and see what it says.",
                            fmt::join(late, "; "), isProofLate ? " --self-test 4%,200M" : "")};
    }
    return {kLastRun, true, text};
}

/// Whether the account's backup server is there and says where uploads go. Sends no file.
Finding checkUpload(const std::string& username, const std::string& server)
{
    for (const std::string& address : serviceAddresses(server)) {
        if (const Finding found = lookAtAddress(address); !found.isWell)
            return {"upload", false, "The backup server " + server + ": " + found.text};
    }
    const FailureWatch watch; // the operation itself says nothing
    if (!WebServiceBroker::getUploadServerPathForUsername(username, server, ""))
        return {
            "upload", false,
            "The backup server " + server + " does not say where uploads go. " +
                (watch.failure() ? failureSentence(*watch.failure()) : "Please try again later.")};
    return {"upload", true, server + " says where uploads go"};
}

/// Whether leave to read what is stored is given. Reads none of it.
Finding checkRestoring(const std::string& username, const std::string& password,
                       const std::string& server)
{
    if (!WebServiceBroker::isRestoringConfigured())
        return {"restoring", true,
                "not configured: nothing that is stored can be read back with these settings"};
    std::optional<Error> error;
    if (!WebServiceBroker::restoreTicketForUsername(username, password, server, &error))
        return {"restoring", false,
                "The service gives no leave to read what is stored. " +
                    (error ? failureSentence(*error) : "Please try again later.")};
    return {"restoring", true, "the service gives leave to read what is stored"};
}

Finding checkSignIn(const std::string& username, const std::string& password,
                    std::optional<Dictionary>& answer)
{
    std::optional<Error> error;
    answer = WebServiceBroker::authenticateForUsername(username, password, &error);
    if (!answer)
        return {"account", false,
                error ? failureSentence(*error)
                      : "The sign-in got no answer. Please try again later."};
    const auto isSignedIn = saysSignedIn(*answer);
    if (!isSignedIn)
        return {"account", false,
                "The answer to the sign-in does not say whether the user is signed in. Please "
                "check the address: another service may be there."};
    if (!*isSignedIn)
        return {"account", false,
                "The service refused the sign-in. Please check user name and password."};
    return {"account", true, username + " can sign in"};
}

/// What only an account can see. Nothing when no password is given: it is not asked for.
std::vector<Finding> checkAccount(const DoctorOptions& options)
{
    const auto password = options.username.empty() ? std::nullopt : options.password.readIfGiven();
    if (!password)
        return {};
    std::optional<Dictionary> answer;
    std::vector<Finding> findings{checkSignIn(options.username, *password, answer)};
    if (!findings.front().isWell)
        return findings;
    const std::string server = platform::findText(*answer, "backupServerName");
    if (server.empty()) {
        findings.push_back({"upload", false,
                            "The answer to the sign-in names no backup server. Please ask the "
                            "provider."});
        return findings;
    }
    findings.push_back(checkUpload(options.username, server));
    findings.push_back(checkRestoring(options.username, *password, server));
    return findings;
}

/// What can be looked at without a service.
std::vector<Finding> examineMachine(const DoctorOptions& options)
{
    std::vector<Finding> findings{
        checkProxy(options.server), checkFolder("configuration", platform::configurationFolder()),
        checkFolder("state", platform::stateFolder()), checkDisk(platform::stateFolder())};
    std::ranges::move(checkSchedules(options.profile), std::back_inserter(findings));
    findings.push_back(checkLastRun(options));
    return findings;
}

std::vector<Finding> examine(const DoctorOptions& options)
{
    const std::string& server = options.server;
    std::vector<Finding> findings{checkBundle(), checkSettingsFile(), lookAtHelper(),
                                  lookAtNetwork()};
    if (settingsNameNoService()) { // that is said; what needs a service could only fail
        std::ranges::move(examineMachine(options), std::back_inserter(findings));
        return findings;
    }
    const auto lettered = addressesOfLetteredLengths(server);
    for (const std::string& address : serviceAddresses(server)) {
        findings.push_back(lookAtAddress(address));
        const bool isReached = findings.back().isWell;
        if (isReached)
            findings.push_back(lookAtClock(address).value_or(
                Finding{"clock", true, "not known: " + address + " does not tell its time"}));
        const auto request = lettered.find(address);
        if (!isReached || request == lettered.end())
            continue;
        if (auto finding = lookAtLetteredLength(address, request->second))
            findings.push_back(std::move(*finding));
    }
    std::ranges::move(examineMachine(options), std::back_inserter(findings));
    std::ranges::move(checkAccount(options), std::back_inserter(findings));
    return findings;
}

ExitStatus doctor(const DoctorOptions& options)
{
    std::size_t unwell = 0;
    bool isOverdue = false;
    for (const Finding& finding : examine(options)) {
        unwell += finding.isWell ? 0 : 1;
        isOverdue = isOverdue || (!finding.isWell && finding.subject == kLastRun);
        output().item(
            fmt::format("{:<5} {:<13} {}", finding.isWell ? "ok" : "FAULT", finding.subject,
                        finding.text),
            "finding",
            {{"subject", finding.subject}, {"ok", finding.isWell}, {"message", finding.text}});
    }
    if (unwell == 0)
        return output().finish(ExitStatus::done);
    // For monitoring: everything works, and yet there was no good run for too long.
    const bool isOnlyOverdue = isOverdue && unwell == 1;
    return output().fail(isOnlyOverdue ? ExitStatus::overdue : ExitStatus::failed,
                         countText(unwell, "fault was", "faults were") +
                             " found; each line says what to do.");
}

} // namespace

void declareDoctor(const Command& app)
{
    auto options = std::make_shared<DoctorOptions>();
    const Command command =
        app.addCommand("doctor", "Check settings, helper, network, certificates, clock, folders, "
                                 "disk, schedule, the last run, and, when a password is given, "
                                 "the account and the ways to store and to restore");
    command.addOption("--server", options->server,
                      "Check this backup server too (\"stowline signin\" prints it)");
    command.addOption("--profile", options->profile, "Profile whose schedule and runs are checked")
        .showsDefault();
    command
        .addOption("--alert-after", options->alertAfter,
                   "Time (36h, 3d, 2w; a number alone is days) after which it is a fault that no "
                   "run has finished without failures or, if there were self-tests, that none "
                   "found everything in order; when that is the only fault the status is 9")
        .accepts(faultInSpan);
    command.addOption("-u,--username", options->username, "User name").fromVariable();
    options->password.declare(command, "password", "STOWLINE_PASSWORD");
    command.runs([options] { return doctor(*options); });
}

} // namespace stowline::cli
