// Reporting to central monitoring.
#include "stowline/logging/LogMacros.h"
#include "stowline/platform/time/LocalTime.h"
#include "stowline/service/OptionalValues.h"
#include "stowline/service/WebServiceBroker.h"
#include "stowline/util/General.h"

namespace stowline {

namespace {

/// What an answer names when the token is not taken (any more).
constexpr std::string_view kTokenFault = "InvalidAuthenticationTokenFault";

/// The clock on the wall; the zone is not told.
std::string clientDate(Date moment)
{
    const platform::CalendarTime time = platform::localTime(moment);
    return platform::formatText("%d-%02d-%02dT%02d:%02d:%02d", time.year, time.month, time.day,
                                time.hour, time.minute, time.second);
}

std::string decimal(std::uint64_t number)
{
    return platform::formatText("%qu", number);
}

} // namespace

std::optional<Dictionary> WebServiceBroker::centralMonitoringGetSettingsForUserName(
    std::optional<std::string_view> userName, std::optional<std::string_view> authToken,
    std::optional<std::string_view> systemName)
try {
    SubstitutionMap params;
    setIfPresent(params, "<<USERNAME>>", userName);
    setIfPresent(params, "<<AUTHTOKEN>>", authToken);
    setIfPresent(params, "<<SYSTEMNAME>>", systemName);
    const auto result = invokeSOAPMethodWithName("GetSettings", {}, params);
    if (!result || !result->dictionary())
        return std::nullopt;
    return *result->dictionary();
} catch (const std::bad_alloc&) {
    return std::nullopt;
}

bool WebServiceBroker::centralMonitoringLogEvent(
    std::string_view event, std::string_view userName, std::string_view authToken,
    std::string_view systemName, std::int32_t duration, std::uint64_t errFilesCount,
    std::uint64_t errFilesSize, std::uint64_t totalFilesCount, std::uint64_t totalFilesSize,
    std::uint64_t unchangedFilesCount, std::uint64_t unchangedFilesSize,
    std::uint64_t uploadedFilesCount, std::uint64_t uploadedFilesSize)
try {
    const SubstitutionMap params{
        {"<<EVENTTYPE>>", event},
        {"<<USERNAME>>", userName},
        {"<<AUTHTOKEN>>", authToken},
        {"<<SYSTEMNAME>>", systemName},
        {"<<BACKUPDURATION>>", platform::formatText("%d", duration)},
        {"<<CLIENTVERSION>>", General::productVersion().value_or("")},
        {"<<CLIENTDATE>>", clientDate(platform::currentDate())},
        {"<<ISSCHEDULED>>", General::isScheduledLaunch() ? "true" : "false"},
        {"<<ERRORFILESCOUNT>>", decimal(errFilesCount)},
        {"<<ERRORFILESSIZE>>", decimal(errFilesSize)},
        {"<<TOTALFILESCOUNT>>", decimal(totalFilesCount)},
        {"<<TOTALFILESSIZE>>", decimal(totalFilesSize)},
        {"<<UNCHANGEDFILESCOUNT>>", decimal(unchangedFilesCount)},
        {"<<UNCHANGEDFILESSIZE>>", decimal(unchangedFilesSize)},
        {"<<UPLOADEDFILESCOUNT>>", decimal(uploadedFilesCount)},
        {"<<UPLOADEDFILESSIZE>>", decimal(uploadedFilesSize)}};
    const auto answer = sendTemplateRequestWithName("LogEvent", params, "", {});
    STOWLINE_LOG_INFO("LogEvent method result:\n%@", answer);
    return answer && answer->find(kTokenFault) == std::string::npos;
} catch (const std::bad_alloc&) {
    return false;
}

} // namespace stowline
