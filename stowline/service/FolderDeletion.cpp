// Deleting a folder of a backed-up computer, which takes the service its time.
#include "stowline/platform/text/UnicodeText.h"
#include "stowline/service/OptionalValues.h"
#include "stowline/service/TagReading.h"
#include "stowline/service/WebServiceBroker.h"
#include "stowline/util/StringMethods.h"

namespace stowline {

namespace {

bool isAccepted(const std::optional<std::string>& answer)
{
    const auto code = answer ? elementText(*answer, "Code") : std::nullopt;
    return code && platform::lowercased(*code) == "success";
}

SubstitutionMap processParams(std::optional<std::string_view> username,
                              std::optional<std::string_view> password,
                              std::optional<std::string_view> processGuid)
{
    SubstitutionMap params;
    setIfPresent(params, "<<USERNAME>>", username);
    setIfPresent(params, "<<PASSWORD>>", password);
    setIfPresent(params, "<<PROCESSGUID>>", processGuid);
    return params;
}

} // namespace

std::optional<std::string> WebServiceBroker::beginDeleteFolderForUsername(
    std::optional<std::string_view> username, std::optional<std::string_view> password,
    std::optional<std::string_view> systemName, std::optional<std::string_view> path,
    std::string_view backupServer)
try {
    SubstitutionMap params;
    setIfPresent(params, "<<USERNAME>>", username);
    setIfPresent(params, "<<PASSWORD>>", password);
    setIfPresent(params, "<<SYSTEMNAME>>", systemName);
    setIfPresent(params, "<<PATH>>", path);
    const auto answer =
        sendTemplateRequestWithName("BeginDeleteFolders", params, "", {backupServer});
    return isAccepted(answer) ? elementText(*answer, "ProcessGuid") : std::nullopt;
} catch (const std::bad_alloc&) {
    return std::nullopt;
}

bool WebServiceBroker::checkDeleteFolderForUsername(std::optional<std::string_view> username,
                                                    std::optional<std::string_view> password,
                                                    std::optional<std::string_view> processGuid,
                                                    std::string_view backupServer)
try {
    const auto answer = sendTemplateRequestWithName(
        "CheckDeleteFolders", processParams(username, password, processGuid), "", {backupServer});
    if (!isAccepted(answer))
        return true;
    for (const char* name : {"ProcessIsCompleted", "ProcessIsCancelled"}) {
        const auto text = elementText(*answer, name);
        if (!text || StringMethods::TW_parseBool(*text))
            return true;
    }
    return false;
} catch (const std::bad_alloc&) {
    return false;
}

void WebServiceBroker::cancelDeleteFolderForUsername(std::optional<std::string_view> username,
                                                     std::optional<std::string_view> password,
                                                     std::optional<std::string_view> processGuid,
                                                     std::string_view backupServer)
try {
    (void)sendTemplateRequestWithName("BeginCancelDeleteFolders",
                                      processParams(username, password, processGuid), "",
                                      {backupServer});
} catch (const std::bad_alloc&) {
    // nothing to hand back
}

} // namespace stowline
