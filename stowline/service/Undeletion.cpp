// Listing what was deleted and is still kept, and bringing it back.
#include "stowline/platform/text/Numbers.h"
#include "stowline/platform/text/Text.h"
#include "stowline/service/Operation.h"
#include "stowline/service/Placeholders.h"
#include "stowline/service/ServiceAnswer.h"
#include "stowline/service/SettingsTables.h"
#include "stowline/service/WebServiceBroker.h"

namespace stowline {

namespace {

constexpr std::string_view kList = "GetDeletedFiles";
constexpr std::string_view kUndelete = "UndeleteFiles";

SubstitutionMap paramsFor(std::string_view username, std::string_view password,
                          std::string_view systemName, std::string_view path,
                          std::optional<std::int64_t> since)
{
    return {{placeholder::username, username},
            {placeholder::password, password},
            {placeholder::systemName, systemName},
            {placeholder::path, path},
            {placeholder::since, since ? std::to_string(*since) : std::string()}};
}

/// Calls a method and judges its answer by its code.
std::optional<Dictionary> acceptedAnswer(const Operation& operation, std::string_view method,
                                         const SubstitutionMap& params,
                                         std::string_view backupServer)
{
    operation.clearError();
    if (!WebServiceBroker::isUndeletingConfigured()) {
        operation.fail(FailureKind::invalidSettings, kUndeletingNotConfiguredMessage);
        return std::nullopt;
    }
    std::optional<Error> error;
    const auto result =
        WebServiceBroker::invokeSOAPMethodWithName(method, {}, params, &error, "", {backupServer});
    if (error)
        operation.fail(*error);
    if (!result)
        return std::nullopt;
    const Dictionary* answer = result->dictionary();
    const std::string* code = answer ? findString(*answer, "Code") : nullptr;
    if (code && isSuccessCode(*code))
        return *answer;
    if (code)
        operation.fail(FailureKind::refusedByService, WebServiceBroker::messageFromCode(*code));
    else
        operation.fail(FailureKind::unreadableAnswer,
                       "The service's answer to " + std::string(method) + " holds no result code.");
    return std::nullopt;
}

/// A number that must be there, and be nothing else.
std::optional<std::uint64_t> numberIn(const Operation& operation, const Dictionary& answer,
                                      std::string_view name)
{
    const std::string* digits = findString(answer, name);
    const auto number = digits ? platform::wholeNumber<std::uint64_t>(*digits) : std::nullopt;
    if (!number)
        operation.fail(FailureKind::unreadableAnswer,
                       "The service's answer about what was deleted has no number \"" +
                           std::string(name) + "\".");
    return number;
}

DeletedFile fileFrom(const Dictionary& entry)
{
    return {.versionId = platform::findText(entry, "VersionID"),
            .systemName = platform::findText(entry, "SystemName"),
            .folder = platform::findText(entry, "Path"),
            .name = platform::findText(entry, "Name"),
            .size =
                platform::wholeNumber<std::uint64_t>(platform::findText(entry, "Size")).value_or(0),
            .deletedAt = platform::findText(entry, "DeletedAt"),
            .keptUntil = platform::findText(entry, "KeptUntil")};
}

/// Several entries are a list, a single one is a map.
std::vector<DeletedFile> filesIn(const Dictionary& answer)
{
    const auto entries = platform::valueAtKeyPath(Value(answer), "files.DeletedFile");
    std::vector<DeletedFile> files;
    if (entries && entries->dictionary())
        files.push_back(fileFrom(*entries->dictionary()));
    const Array* list = entries ? entries->array() : nullptr;
    for (const Value& entry : list ? *list : Array()) {
        if (const Dictionary* fields = entry.dictionary())
            files.push_back(fileFrom(*fields));
    }
    return files;
}

} // namespace

bool WebServiceBroker::isUndeletingConfigured()
{
    return orEmpty(
        [] { return settingsTables::webMethod(kList) && settingsTables::webMethod(kUndelete); });
}

std::optional<DeletedFiles> WebServiceBroker::deletedFilesForUsername(
    std::string_view username, std::string_view password, std::string_view systemName,
    std::string_view path, std::optional<std::int64_t> since, std::int64_t startIndex,
    std::int64_t pageSize, std::string_view backupServer, ErrorSlot error)
{
    return runOperation(
        "deletedFilesForUsername:password:systemName:path:since:startIndex:pageSize:backupServer:"
        "error:",
        error, std::nullopt, [&](const Operation& operation) -> std::optional<DeletedFiles> {
            SubstitutionMap params = paramsFor(username, password, systemName, path, since);
            params.emplace(placeholder::startIndex, startIndex);
            params.emplace(placeholder::pageSize, pageSize);
            const auto answer = acceptedAnswer(operation, kList, params, backupServer);
            if (!answer)
                return std::nullopt;
            const auto count = numberIn(operation, *answer, "TotalCount");
            const auto size = numberIn(operation, *answer, "TotalSize");
            const auto grace = numberIn(operation, *answer, "GraceSeconds");
            const auto left = numberIn(operation, *answer, "Left");
            if (!count || !size || !grace || !left)
                return std::nullopt;
            return DeletedFiles{filesIn(*answer), *count, *size, *grace, *left};
        });
}

std::optional<UndeletedFiles>
WebServiceBroker::undeleteFilesForUsername(std::string_view username, std::string_view password,
                                           std::string_view systemName, std::string_view path,
                                           std::optional<std::int64_t> since,
                                           std::string_view backupServer, ErrorSlot error)
{
    return runOperation(
        "undeleteFilesForUsername:password:systemName:path:since:backupServer:error:", error,
        std::nullopt, [&](const Operation& operation) -> std::optional<UndeletedFiles> {
            const auto answer = acceptedAnswer(
                operation, kUndelete, paramsFor(username, password, systemName, path, since),
                backupServer);
            if (!answer)
                return std::nullopt;
            const auto undeleted = numberIn(operation, *answer, "Undeleted");
            const auto size = numberIn(operation, *answer, "UndeletedSize");
            const auto remaining = numberIn(operation, *answer, "Remaining");
            const auto left = numberIn(operation, *answer, "Left");
            const auto lost = numberIn(operation, *answer, "Lost");
            const auto forgetting = numberIn(operation, *answer, "Forgetting");
            if (!undeleted || !size || !remaining || !left || !lost || !forgetting)
                return std::nullopt;
            return UndeletedFiles{*undeleted, *size, *remaining, *left, *lost, *forgetting};
        });
}

} // namespace stowline
