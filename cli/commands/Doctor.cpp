// stowline doctor
#include "cli/commands/Commands.h"
#include "cli/shared/Output.h"
#include "stowline/net/Reachability.h"
#include "stowline/platform/desktop/Bundle.h"
#include "stowline/platform/files/Files.h"
#include "stowline/platform/http/HttpExchange.h"
#include "stowline/platform/processes/ChildProcess.h"
#include "stowline/platform/text/Url.h"
#include "stowline/service/SettingsCheck.h"
#include "stowline/service/WebServicesSettings.h"
#include "stowline/util/General.h"

#include <fmt/format.h>

#include <cstdlib>
#include <set>

namespace stowline::cli {

namespace {

namespace fs = std::filesystem;

constexpr std::chrono::seconds kPatience{10};

/// One line of the report: what was looked at, whether it is well, what was found and what to do.
struct Finding {
    std::string subject;
    bool isWell = true;
    std::string text;
};

std::optional<fs::path> settingsFile()
{
    const auto name = platform::Bundle::infoString("TW_WebServicesSettingsFilename");
    return name ? std::optional(platform::Bundle::resourceFolder() / *name) : std::nullopt;
}

Finding checkBundle()
{
    const std::string folder = platform::Bundle::folder().string();
    const auto version = General::productVersion();
    if (!version)
        return {"bundle", false,
                folder + "/Info.plist is missing or has no version. Please install again, or name "
                         "the folder with --bundle."};
    return {"bundle", true,
            General::productName().value_or("?") + " " + *version + " in " + folder};
}

Finding checkSettingsFile()
{
    const auto file = settingsFile();
    const auto bytes = file ? platform::readFile(*file) : std::nullopt;
    if (!bytes)
        return {"settings", false,
                file ? file->string() + " cannot be read. Please install again."
                     : "Info.plist does not name the settings file "
                       "(TW_WebServicesSettingsFilename)."};
    const auto faults = checkSettings(*bytes);
    if (!faults.empty())
        return {"settings", false,
                fmt::format("{} has {} fault(s); \"stowline settings check\" lists them.",
                            file->string(), faults.size())};
    return {"settings", true,
            file->string() + (configuresRestoring(*bytes) ? "" : "; restoring is not configured")};
}

/// Without an argument the helper ends with status 255 and says nothing.
Finding checkHelper()
{
    const fs::path tool = platform::Bundle::executableFolder() / "WebServiceCaller";
    const auto answer = platform::captureOutput({tool.string()}, kPatience);
    constexpr int expected = 255;
    if (!answer || answer->exit.bySignal || answer->exit.status != expected)
        return {"helper", false, tool.string() + " cannot be run. Please install again."};
    return {"helper", true, tool.string()};
}

Finding checkReachability()
{
    const auto host = WebServicesSettings::reachabilityHost();
    if (!host)
        return {"network", false, "The settings name no ReachabilityHost."};
    if (!Reachability::isHostReachable(host))
        return {"network", false,
                "There is no way to " + *host + ". Please check the Internet connection."};
    return {"network", true, "There is a way to " + *host};
}

std::set<std::string> serviceAddresses()
{
    std::set<std::string> addresses;
    const auto& settings = WebServicesSettings::settingsDictionary();
    const Dictionary* methods =
        settings ? platform::findDictionary(*settings, "WebServices") : nullptr;
    for (const auto& [name, entry] : methods ? *methods : Dictionary()) {
        const Dictionary* fields = entry.dictionary();
        const std::string* url = fields ? platform::findString(*fields, "URL") : nullptr;
        const auto origin = url ? platform::originOf(*url) : std::nullopt;
        if (origin)
            addresses.insert(
                fmt::format("{}://{}:{}/", origin->scheme, origin->host, origin->port));
    }
    return addresses;
}

/// Any answer will do: it shows that connection and certificate are in order.
Finding checkAddress(const std::string& address)
{
    const std::string subject = address.starts_with("https") ? "tls" : "http";
    platform::HttpExchange exchange({.method = "GET", .url = address}, {});
    if (!exchange.wait(kPatience))
        return {subject, false, address + " does not answer within 10 seconds."};
    const auto outcome = exchange.takeOutcome();
    if (!outcome.response)
        return {subject, false,
                outcome.failure + " Please check the address in the settings, the proxy and the "
                                  "system's certificates."};
    return {subject, true, address + " answers"};
}

Finding checkProxy()
{
    std::string set;
    for (const char* variable : {"http_proxy", "https_proxy", "HTTPS_PROXY", "all_proxy",
                                 "ALL_PROXY", "no_proxy", "NO_PROXY"}) {
        // The value may hold a password, so only the name is shown.
        if (std::getenv(variable))
            set += (set.empty() ? "" : ", ") + std::string(variable);
    }
    return {"proxy", true, set.empty() ? "none set in the environment" : "set by " + set};
}

Finding checkFolder(const std::string& subject, const std::optional<fs::path>& folder)
{
    if (!folder)
        return {subject, false, "There is no home folder. Please set HOME."};
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

std::vector<Finding> examine()
{
    std::vector<Finding> findings{checkBundle(), checkSettingsFile(), checkHelper(),
                                  checkReachability()};
    for (const std::string& address : serviceAddresses())
        findings.push_back(checkAddress(address));
    findings.push_back(checkProxy());
    findings.push_back(checkFolder("configuration", platform::configurationFolder()));
    findings.push_back(checkFolder("state", platform::stateFolder()));
    return findings;
}

ExitStatus doctor()
{
    std::size_t unwell = 0;
    for (const Finding& finding : examine()) {
        unwell += finding.isWell ? 0 : 1;
        output().item(
            fmt::format("{:<5} {:<13} {}", finding.isWell ? "ok" : "FAULT", finding.subject,
                        finding.text),
            "finding",
            {{"subject", finding.subject}, {"ok", finding.isWell}, {"message", finding.text}});
    }
    if (unwell == 0)
        return output().finish(ExitStatus::done);
    return output().fail(ExitStatus::failed, fmt::format("{} thing(s) to mend.", unwell));
}

} // namespace

void declareDoctor(const Command& app)
{
    app.addCommand("doctor", "Look over settings, helper, network, certificates and folders")
        .runs(doctor);
}

} // namespace stowline::cli
