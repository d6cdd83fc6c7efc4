// Reporting to central monitoring.
#include "stowline/platform/time/LocalTime.h"
#include "stowline/service/Operation.h"
#include "stowline/service/OptionalValues.h"
#include "stowline/service/Placeholders.h"
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

} // namespace

std::optional<Dictionary> WebServiceBroker::centralMonitoringGetSettingsForUserName(
    std::optional<std::string_view> userName, std::optional<std::string_view> authToken,
    std::optional<std::string_view> systemName)
{
    return runOperation("centralMonitoringGetSettingsForUserName:authToken:systemName:", nullptr,
                        std::nullopt, [&](const Operation& operation) -> std::optional<Dictionary> {
                            SubstitutionMap params;
                            setIfPresent(params, placeholder::username, userName);
                            setIfPresent(params, placeholder::authToken, authToken);
                            setIfPresent(params, placeholder::systemName, systemName);
                            const auto result = invokeSOAPMethodWithName("GetSettings", {}, params);
                            if (!result)
                                return std::nullopt;
                            if (result->dictionary())
                                return *result->dictionary();
                            operation.failUntold(
                                FailureKind::unreadableAnswer,
                                "The monitoring service's settings are not a map.");
                            return std::nullopt;
                        });
}

bool WebServiceBroker::centralMonitoringLogEvent(
    std::string_view event, std::string_view userName, std::string_view authToken,
    std::string_view systemName, std::int32_t duration, std::uint64_t errFilesCount,
    std::uint64_t errFilesSize, std::uint64_t totalFilesCount, std::uint64_t totalFilesSize,
    std::uint64_t unchangedFilesCount, std::uint64_t unchangedFilesSize,
    std::uint64_t uploadedFilesCount, std::uint64_t uploadedFilesSize)
{
    return runOperation(
        "centralMonitoringLogEvent:userName:authToken:systemName:duration:errFilesCount:"
        "errFilesSize:totalFilesCount:totalFilesSize:unchangedFilesCount:unchangedFilesSize:"
        "uploadedFilesCount:uploadedFilesSize:",
        nullptr, false, [&](const Operation& operation) -> bool {
            const SubstitutionMap params{
                {placeholder::eventType, event},
                {placeholder::username, userName},
                {placeholder::authToken, authToken},
                {placeholder::systemName, systemName},
                {placeholder::backupDuration, duration},
                {placeholder::clientVersion, General::productVersion().value_or("")},
                {placeholder::clientDate, clientDate(platform::currentDate())},
                {placeholder::isScheduled, General::isScheduledLaunch() ? "true" : "false"},
                {placeholder::errorFilesCount, errFilesCount},
                {placeholder::errorFilesSize, errFilesSize},
                {placeholder::totalFilesCount, totalFilesCount},
                {placeholder::totalFilesSize, totalFilesSize},
                {placeholder::unchangedFilesCount, unchangedFilesCount},
                {placeholder::unchangedFilesSize, unchangedFilesSize},
                {placeholder::uploadedFilesCount, uploadedFilesCount},
                {placeholder::uploadedFilesSize, uploadedFilesSize}};
            const auto answer = sendTemplateRequestWithName("LogEvent", params, "", {});
            OPERATION_LOG_INFO(operation, "LogEvent method result:\n%@", answer);
            if (!answer)
                return false;
            if (answer->find(kTokenFault) == std::string::npos)
                return true;
            operation.failUntold(FailureKind::refusedByService,
                                 "The monitoring service does not accept the token.");
            return false;
        });
}

} // namespace stowline
