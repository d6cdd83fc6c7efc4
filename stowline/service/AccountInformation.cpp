// What the application needs to know of a signed-in account and its backup server.
#include "stowline/platform/desktop/OperatingSystem.h"
#include "stowline/platform/text/Text.h"
#include "stowline/service/FailureWatch.h"
#include "stowline/service/Operation.h"
#include "stowline/service/Placeholders.h"
#include "stowline/service/ServiceAnswer.h"
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
{
    return runOperation("usedSpaceInKbForAccount:withPassword:", nullptr, std::nullopt,
                        [&](const Operation& /*operation*/) -> std::optional<std::int64_t> {
                            const SubstitutionMap params{{placeholder::username, username},
                                                         {placeholder::password, withPassword}};
                            const auto result =
                                invokeSOAPMethodWithName("GetAccountUsedSpace", {}, params);
                            if (!result)
                                return std::nullopt;
                            return platform::leadingInteger(result->text());
                        });
}

std::optional<Value> WebServiceBroker::getAccountInfoForUsername2(std::string_view username,
                                                                  std::string_view withPassword)
{
    return runOperation(
        "getAccountInfoForUsername2:withPassword:", nullptr, std::nullopt,
        [&](const Operation& /*operation*/) -> std::optional<Value> {
            const SubstitutionMap params{
                {placeholder::username, username},
                {placeholder::password, withPassword},
                {placeholder::installationId, General::hardwareId().value_or("")},
                {placeholder::osBits, kBitWidth},
                {placeholder::systemName, General::localHostName()},
                {placeholder::productName, General::productName().value_or("")},
                {placeholder::productVersion, General::productVersion().value_or("")},
                {placeholder::osVersion, platform::operatingSystemVersion()}};
            return invokeSOAPMethodWithName("GetAccountInfo", {}, params);
        });
}

std::optional<std::string> WebServiceBroker::getUploadServerPathForUsername(
    std::optional<std::string_view> username, std::optional<std::string_view> onBackupServer,
    std::optional<std::string_view> usingGuidUploadPath)
{
    return runOperation(
        "getUploadServerPathForUsername:onBackupServer:usingGuidUploadPath:", nullptr, std::nullopt,
        [&](const Operation& /*operation*/) -> std::optional<std::string> {
            if (!username || !onBackupServer || !usingGuidUploadPath)
                return std::nullopt;
            const SubstitutionMap params{{placeholder::username, *username},
                                         {placeholder::strRegistryId, *usingGuidUploadPath}};
            return nonEmptyText(
                invokeSOAPMethodWithName("GetPhyPath", {}, params, nullptr, "", {*onBackupServer}));
        });
}

std::optional<std::string> WebServiceBroker::getEncKeyForUserName(std::string_view username,
                                                                  std::string_view password,
                                                                  std::string_view backupServer)
{
    return runOperation("getEncKeyForUserName:password:backupServer:", nullptr, std::nullopt,
                        [&](const Operation& /*operation*/) -> std::optional<std::string> {
                            const SubstitutionMap params{{placeholder::username, username},
                                                         {placeholder::password, password}};
                            return nonEmptyText(invokeSOAPMethodWithName(
                                "getenckey", {}, params, nullptr, "", {backupServer}));
                        });
}

bool WebServiceBroker::preparePackagedFilesForProtectionForUserName(
    std::string_view username, std::string_view password, std::string_view backupServer,
    std::string_view packagePath, const Value& packageSize, ErrorSlot error)
{
    return runOperation(
        "preparePackagedFilesForProtectionForUserName:password:backupServer:packagePath:"
        "packageSize:error:",
        error, false, [&](const Operation& operation) -> bool {
            constexpr std::string_view method = "PreparePackagedFilesForProtection";
            const FailureWatch watch;
            const SubstitutionMap params{{placeholder::username, username},
                                         {placeholder::password, password},
                                         {placeholder::packagePath, packagePath},
                                         {placeholder::packageByteCount, packageSize.text()}};
            std::optional<Error> callsOwn;
            const auto result =
                invokeSOAPMethodWithName(method, {}, params, &callsOwn, "", {backupServer});
            const std::string message =
                platform::formatText("WebMethod %@ returned %@ result", method, result);
            OPERATION_LOG_INFO(operation, "%@", message);
            if (saysSuccess(result))
                return true;
            if (callsOwn)
                operation.fail(*callsOwn);
            else
                operation.fail(result ? FailureKind::refusedByService : watch.kind(), message);
            return false;
        });
}

} // namespace stowline
