// Deleting a folder of a backed-up computer, which takes the service its time.
#include "stowline/service/Operation.h"
#include "stowline/service/OptionalValues.h"
#include "stowline/service/Placeholders.h"
#include "stowline/service/ServiceAnswer.h"
#include "stowline/service/TagReading.h"
#include "stowline/service/WebServiceBroker.h"
#include "stowline/util/StringMethods.h"

namespace stowline {

namespace {

bool isAccepted(const std::optional<std::string>& answer)
{
    const auto code = answer ? elementText(*answer, "Code") : std::nullopt;
    return code && isSuccessCode(*code);
}

SubstitutionMap processParams(std::optional<std::string_view> username,
                              std::optional<std::string_view> password,
                              std::optional<std::string_view> processGuid)
{
    SubstitutionMap params;
    setIfPresent(params, placeholder::username, username);
    setIfPresent(params, placeholder::password, password);
    setIfPresent(params, placeholder::processGuid, processGuid);
    return params;
}

} // namespace

std::optional<std::string> WebServiceBroker::beginDeleteFolderForUsername(
    std::optional<std::string_view> username, std::optional<std::string_view> password,
    std::optional<std::string_view> systemName, std::optional<std::string_view> path,
    std::string_view backupServer)
{
    return runOperation(
        "beginDeleteFolderForUsername:password:systemName:path:backupServer:", nullptr,
        std::nullopt, [&](const Operation& operation) -> std::optional<std::string> {
            SubstitutionMap params;
            setIfPresent(params, placeholder::username, username);
            setIfPresent(params, placeholder::password, password);
            setIfPresent(params, placeholder::systemName, systemName);
            setIfPresent(params, placeholder::path, path);
            const auto answer =
                sendTemplateRequestWithName("BeginDeleteFolders", params, "", {backupServer});
            if (!answer)
                return std::nullopt;
            auto processGuid =
                isAccepted(answer) ? elementText(*answer, "ProcessGuid") : std::nullopt;
            if (!processGuid)
                operation.failUntold(FailureKind::refusedByService,
                                     "The service did not begin to delete the folder.");
            return processGuid;
        });
}

bool WebServiceBroker::checkDeleteFolderForUsername(std::optional<std::string_view> username,
                                                    std::optional<std::string_view> password,
                                                    std::optional<std::string_view> processGuid,
                                                    std::string_view backupServer)
{
    return runOperation("checkDeleteFolderForUsername:password:processGuid:backupServer:", nullptr,
                        true, [&](const Operation& /*operation*/) -> bool {
                            const auto answer = sendTemplateRequestWithName(
                                "CheckDeleteFolders",
                                processParams(username, password, processGuid), "", {backupServer});
                            if (!isAccepted(answer))
                                return true;
                            for (const char* name : {"ProcessIsCompleted", "ProcessIsCancelled"}) {
                                const auto text = elementText(*answer, name);
                                if (!text || StringMethods::TW_parseBool(*text))
                                    return true;
                            }
                            return false;
                        });
}

void WebServiceBroker::cancelDeleteFolderForUsername(std::optional<std::string_view> username,
                                                     std::optional<std::string_view> password,
                                                     std::optional<std::string_view> processGuid,
                                                     std::string_view backupServer)
{
    runOperation("cancelDeleteFolderForUsername:password:processGuid:backupServer:", nullptr,
                 [&](const Operation& /*operation*/) {
                     (void)sendTemplateRequestWithName(
                         "BeginCancelDeleteFolders", processParams(username, password, processGuid),
                         "", {backupServer});
                 });
}

} // namespace stowline
