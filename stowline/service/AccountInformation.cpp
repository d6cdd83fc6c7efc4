// What the application needs to know of a signed-in account and its backup server.
#include "stowline/logging/LogMacros.h"
#include "stowline/platform/desktop/OperatingSystem.h"
#include "stowline/platform/text/Text.h"
#include "stowline/platform/text/UnicodeText.h"
#include "stowline/service/WebServiceBroker.h"
#include "stowline/util/General.h"

namespace stowline {

namespace {

/// The machine's bit width as the service knows it; there is no other.
constexpr const char* kBitWidth = "x64";

std::optional<std::string> nonEmptyText(const std::optional<Value>& result)
{
    if (!result || !result->string() || result->string()->empty())
        return std::nullopt;
    return *result->string();
}

} // namespace

std::optional<std::int64_t> WebServiceBroker::usedSpaceInKbForAccount(std::string_view username,
                                                                      std::string_view withPassword)
try {
    const SubstitutionMap params{{"<<USERNAME>>", username}, {"<<PASSWORD>>", withPassword}};
    const auto result = invokeSOAPMethodWithName("GetAccountUsedSpace", {}, params);
    if (!result)
        return std::nullopt;
    return platform::leadingInteger(result->text());
} catch (const std::bad_alloc&) {
    return std::nullopt;
}

std::optional<Value> WebServiceBroker::getAccountInfoForUsername2(std::string_view username,
                                                                  std::string_view withPassword)
try {
    const SubstitutionMap params{{"<<USERNAME>>", username},
                                 {"<<PASSWORD>>", withPassword},
                                 {"<<INSTALLATIONID>>", General::hardwareId().value_or("")},
                                 {"<<OSBITS>>", kBitWidth},
                                 {"<<SYSTEMNAME>>", General::localHostName()},
                                 {"<<PRODUCTNAME>>", General::productName().value_or("")},
                                 {"<<PRODUCTVERSION>>", General::productVersion().value_or("")},
                                 {"<<OSVERSION>>", platform::operatingSystemVersion()}};
    return invokeSOAPMethodWithName("GetAccountInfo", {}, params);
} catch (const std::bad_alloc&) {
    return std::nullopt;
}

std::optional<std::string> WebServiceBroker::getUploadServerPathForUsername(
    std::optional<std::string_view> username, std::optional<std::string_view> onBackupServer,
    std::optional<std::string_view> usingGuidUploadPath)
try {
    if (!username || !onBackupServer || !usingGuidUploadPath)
        return std::nullopt;
    const SubstitutionMap params{{"<<USERNAME>>", *username},
                                 {"<<STRREGISTRYID>>", *usingGuidUploadPath}};
    return nonEmptyText(
        invokeSOAPMethodWithName("GetPhyPath", {}, params, nullptr, "", {*onBackupServer}));
} catch (const std::bad_alloc&) {
    return std::nullopt;
}

std::optional<std::string> WebServiceBroker::getEncKeyForUserName(std::string_view username,
                                                                  std::string_view password,
                                                                  std::string_view backupServer)
try {
    const SubstitutionMap params{{"<<USERNAME>>", username}, {"<<PASSWORD>>", password}};
    return nonEmptyText(
        invokeSOAPMethodWithName("getenckey", {}, params, nullptr, "", {backupServer}));
} catch (const std::bad_alloc&) {
    return std::nullopt;
}

bool WebServiceBroker::preparePackagedFilesForProtectionForUserName(
    std::string_view username, std::string_view password, std::string_view backupServer,
    std::string_view packagePath, const Value& packageSize, ErrorSlot error)
try {
    constexpr std::string_view method = "PreparePackagedFilesForProtection";
    const SubstitutionMap params{{"<<USERNAME>>", username},
                                 {"<<PASSWORD>>", password},
                                 {"<<PACKAGEPATH>>", packagePath},
                                 {"<<PACKAGEBYTECOUNT>>", packageSize.text()}};
    const auto result = invokeSOAPMethodWithName(method, {}, params, error, "", {backupServer});
    const std::string message =
        platform::formatText("WebMethod %@ returned %@ result", method, result);
    STOWLINE_LOG_INFO("%@", message);
    if (result && result->string() && platform::lowercased(*result->string()) == "success")
        return true;
    if (error && !*error)
        *error =
            platform::makeError(std::string(kServiceErrorDomain), kServiceErrorCode, message,
                                result ? FailureKind::refusedByService : FailureKind::helperFailed);
    return false;
} catch (const std::bad_alloc&) {
    platform::storeNoMemory(error, kServiceErrorDomain, kServiceErrorCode);
    return false;
}

} // namespace stowline
