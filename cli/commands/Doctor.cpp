// stowline doctor
#include "cli/commands/Commands.h"
#include "cli/shared/HumanText.h"
#include "cli/shared/Output.h"
#include "cli/shared/ServiceFailure.h"
#include "stowline/platform/desktop/Bundle.h"
#include "stowline/platform/files/Files.h"
#include "stowline/service/Diagnosis.h"
#include "stowline/service/SettingsCheck.h"
#include "stowline/service/WebServicesSettings.h"
#include "stowline/util/General.h"

#include <fmt/format.h>

#include <cstdlib>

namespace stowline::cli {

namespace {

namespace fs = std::filesystem;

Finding checkBundle()
{
    const std::string folder = platform::Bundle::folder().string();
    const auto version = General::productVersion();
    if (!version)
        return {"bundle", false,
                infoFault("has no version") +
                    " Please install again, or name the folder with --bundle."};
    return {"bundle", true,
            General::productName().value_or("?") + " " + *version + " in " + folder};
}

Finding checkSettingsFile()
{
    const auto file = WebServicesSettings::file();
    const auto bytes = file ? platform::readFile(*file) : std::nullopt;
    if (!bytes)
        return {"settings", false,
                file ? file->string() + " cannot be read. Please install again."
                     : unnamedSettingsFault()};
    const auto faults = checkSettings(*bytes);
    if (!faults.empty())
        return {"settings", false,
                fmt::format("{} has {}; \"stowline settings check\" lists them.", file->string(),
                            countText(faults.size(), "fault", "faults"))};
    return {"settings", true,
            file->string() + (configuresRestoring(*bytes) ? "" : "; restoring is not configured")};
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

std::vector<Finding> examine(const std::string& server)
{
    std::vector<Finding> findings{checkBundle(), checkSettingsFile(), lookAtHelper(),
                                  lookAtNetwork()};
    const auto lettered = addressesOfLetteredLengths(server);
    for (const std::string& address : serviceAddresses(server)) {
        findings.push_back(lookAtAddress(address));
        const auto request = lettered.find(address);
        if (!findings.back().isWell || request == lettered.end())
            continue;
        if (auto finding = lookAtLetteredLength(address, request->second))
            findings.push_back(std::move(*finding));
    }
    findings.push_back(checkProxy(server));
    findings.push_back(checkFolder("configuration", platform::configurationFolder()));
    findings.push_back(checkFolder("state", platform::stateFolder()));
    return findings;
}

ExitStatus doctor(const std::string& server)
{
    std::size_t unwell = 0;
    for (const Finding& finding : examine(server)) {
        unwell += finding.isWell ? 0 : 1;
        output().item(
            fmt::format("{:<5} {:<13} {}", finding.isWell ? "ok" : "FAULT", finding.subject,
                        finding.text),
            "finding",
            {{"subject", finding.subject}, {"ok", finding.isWell}, {"message", finding.text}});
    }
    if (unwell == 0)
        return output().finish(ExitStatus::done);
    return output().fail(ExitStatus::failed, countText(unwell, "fault was", "faults were") +
                                                 " found; each line says what to do.");
}

} // namespace

void declareDoctor(const Command& app)
{
    auto server = std::make_shared<std::string>();
    const Command command =
        app.addCommand("doctor", "Check settings, helper, network, certificates and folders");
    command.addOption("--server", *server,
                      "Look at this backup server too, which \"signin\" tells");
    command.runs([server] { return doctor(*server); });
}

} // namespace stowline::cli
