#include "cli/shared/ServiceFailure.h"

#include "cli/shared/Output.h"
#include "stowline/net/Reachability.h"
#include "stowline/platform/desktop/Bundle.h"
#include "stowline/service/WebServiceBroker.h"
#include "stowline/service/WebServicesSettings.h"

#include <fmt/format.h>

namespace stowline::cli {

std::optional<ExitStatus> settingsFailure(const std::string& webMethod)
{
    const auto name = platform::Bundle::infoString("TW_WebServicesSettingsFilename");
    if (!name)
        return output().fail(ExitStatus::settingsInvalid,
                             fmt::format("{} is missing or does not name the settings file "
                                         "(TW_WebServicesSettingsFilename).",
                                         (platform::Bundle::folder() / "Info.plist").string()));
    const std::string file = (platform::Bundle::resourceFolder() / *name).string();
    if (!WebServicesSettings::settingsDictionary())
        return output().fail(ExitStatus::settingsInvalid,
                             fmt::format("The settings {} cannot be read. \"stowline settings "
                                         "check\" tells why.",
                                         file));
    if (!WebServicesSettings::webMethodInfo(webMethod))
        return output().fail(ExitStatus::settingsInvalid,
                             fmt::format("The settings {} have no entry \"{}\" under "
                                         "\"WebServices\". Please add it.",
                                         file, webMethod));
    return std::nullopt;
}

ExitStatus callFailure(const std::optional<Error>& error)
{
    if (!error)
        return output().fail(ExitStatus::temporary,
                             "The service did not answer. Please try again later.");
    if (error->code == kFaultErrorCode)
        return output().fail(ExitStatus::temporary, "The service could not handle the call (" +
                                                        error->localizedDescription() +
                                                        "). Please try again later.");
    const auto host = WebServicesSettings::reachabilityHost();
    if (!Reachability::isHostReachable(host))
        return output().fail(ExitStatus::hostUnreachable,
                             fmt::format("{} ({})", error->localizedDescription(),
                                         host.value_or("no ReachabilityHost in the settings")));
    return output().fail(ExitStatus::failed, error->localizedDescription());
}

} // namespace stowline::cli
