// Listing, searching and deleting what is stored, and what a restore needs.
#include "stowline/platform/text/Text.h"
#include "stowline/platform/time/LocalTime.h"
#include "stowline/service/Operation.h"
#include "stowline/service/OptionalValues.h"
#include "stowline/service/Placeholders.h"
#include "stowline/service/ServiceAnswer.h"
#include "stowline/service/WebServiceBroker.h"
#include "stowline/util/StringMethods.h"

namespace stowline {

namespace {

/// Calls a method and judges its answer by the code of its result map. The slot holds the error
/// afterwards, or nothing.
/// @return the answer; absent unless it is accepted
std::optional<Dictionary> acceptedAnswer(const Operation& operation, std::string_view method,
                                         const SubstitutionMap& params)
{
    operation.clearError();
    std::optional<Error> error;
    const auto answer = WebServiceBroker::invokeSOAPMethodWithName(method, {}, params, &error);
    if (error)
        operation.fail(*error);
    if (!answer)
        return std::nullopt;
    const auto code = platform::valueAtKeyPath(*answer, std::string(method) + "Result.Code");
    if (saysSuccess(code))
        return *answer->dictionary();
    if (code)
        operation.failRefused(code->text(), WebServiceBroker::messageFromCode(code->text()));
    else
        operation.failUntold(FailureKind::unreadableAnswer, "The service's answer to " +
                                                                std::string(method) +
                                                                " holds no result code.");
    return std::nullopt;
}

enum class Entries { areStrings, areMaps };

/// Several entries are an array as it is, a single one becomes an array of one, none an empty one.
Array listAt(const Dictionary& answer, std::string_view keyPath, Entries entries)
{
    const auto found = platform::valueAtKeyPath(answer, keyPath);
    if (!found)
        return {};
    if (const Array* list = found->array())
        return *list;
    const bool isEntry = entries == Entries::areStrings ? found->string() != nullptr
                                                        : found->dictionary() != nullptr;
    return isEntry ? Array{*found} : Array{};
}

/// Stores a number that the text starts with; text that starts with none changes nothing.
void readTotalCount(const Dictionary& answer, std::int64_t* totalCount)
{
    const Value* count = find(answer, "totalCount");
    if (!totalCount || !count)
        return;
    const std::string text = count->text();
    const auto start = text.find_first_not_of(" \t\r\n");
    const auto digits = start == std::string::npos
                            ? start
                            : start + (text[start] == '-' || text[start] == '+' ? 1 : 0);
    if (digits < text.size() && text[digits] >= '0' && text[digits] <= '9')
        *totalCount = platform::leadingInteger(std::string_view(text).substr(start));
}

/// The end of every browsing operation.
std::optional<Array> listOf(const std::optional<Dictionary>& answer, std::string_view keyPath,
                            Entries entries, std::int64_t* totalCount)
{
    if (!answer)
        return std::nullopt;
    readTotalCount(*answer, totalCount);
    return listAt(*answer, keyPath, entries);
}

/// The moment as the recovery wants it: the local clock, with the day American fashion.
std::string timeOfRecovery(Date moment)
{
    const platform::CalendarTime time = platform::localTime(moment);
    return platform::formatText("%02d/%02d/%d %02d:%02d:%02d", time.month, time.day, time.year,
                                time.hour, time.minute, time.second);
}

} // namespace

std::optional<Array> WebServiceBroker::getAccountSystemsForUsername(
    std::optional<std::string_view> username, std::optional<std::string_view> password,
    std::optional<std::string_view> backupServer, ErrorSlot error)
{
    return runOperation("getAccountSystemsForUsername:password:backupServer:error:", error,
                        std::nullopt, [&](const Operation& operation) -> std::optional<Array> {
                            SubstitutionMap params;
                            setIfPresent(params, placeholder::username, username);
                            setIfPresent(params, placeholder::password, password);
                            setIfPresent(params, placeholder::serverName, backupServer);
                            return listOf(acceptedAnswer(operation, "GetAccountSystems", params),
                                          "systems.SystemInfo.SystemName", Entries::areStrings,
                                          nullptr);
                        });
}

std::optional<Array> WebServiceBroker::getAccountFilesAndFoldersForUserName(
    std::optional<std::string_view> username, std::optional<std::string_view> password,
    std::optional<std::string_view> backupServer, std::optional<std::string_view> systemName,
    std::optional<std::string_view> path, std::optional<std::string_view> sortField, bool ascending,
    std::int64_t startIndex, std::int64_t pageSize, std::int64_t* totalCountRes, ErrorSlot error)
{
    return runOperation(
        "getAccountFilesAndFoldersForUserName:password:backupServer:systemName:path:sortField:"
        "ascending:startIndex:pageSize:totalCountRes:error:",
        error, std::nullopt, [&](const Operation& operation) -> std::optional<Array> {
            SubstitutionMap params{
                {placeholder::sortDirection, ascending ? "Ascending" : "Descending"},
                {placeholder::startIndex, startIndex},
                {placeholder::pageSize, pageSize}};
            setIfPresent(params, placeholder::username, username);
            setIfPresent(params, placeholder::password, password);
            setIfPresent(params, placeholder::serverName, backupServer);
            setIfPresent(params, placeholder::systemName, systemName);
            setIfPresent(params, placeholder::path, path);
            setIfPresent(params, placeholder::sortField, sortField);
            return listOf(acceptedAnswer(operation, "GetAccountFilesAndFolders", params),
                          "items.FileInfo", Entries::areMaps, totalCountRes);
        });
}

std::optional<Array> WebServiceBroker::getFileVersionsForUsername(
    std::optional<std::string_view> username, std::optional<std::string_view> password,
    std::optional<std::string_view> backupServer, std::int64_t fileID, ErrorSlot error)
{
    return runOperation("getFileVersionsForUsername:password:backupServer:fileID:error:", error,
                        std::nullopt, [&](const Operation& operation) -> std::optional<Array> {
                            SubstitutionMap params{{placeholder::fileId, fileID}};
                            setIfPresent(params, placeholder::username, username);
                            setIfPresent(params, placeholder::password, password);
                            setIfPresent(params, placeholder::serverName, backupServer);
                            return listOf(acceptedAnswer(operation, "GetFileVersions", params),
                                          "fileVersions.FileVersion", Entries::areMaps, nullptr);
                        });
}

std::optional<Array> WebServiceBroker::searchFilesForUsername(
    std::optional<std::string_view> username, std::optional<std::string_view> password,
    std::optional<std::string_view> backupServer, std::optional<std::string_view> systemName,
    std::optional<std::string_view> rootPath, std::optional<std::string_view> searchString,
    std::int64_t startIndex, std::int64_t count, std::int64_t* totalCountRes, ErrorSlot error)
{
    return runOperation(
        "searchFilesForUsername:password:backupServer:systemName:rootPath:"
        "searchString:startIndex:count:totalCountRes:error:",
        error, std::nullopt, [&](const Operation& operation) -> std::optional<Array> {
            SubstitutionMap params{{placeholder::systemName, systemName.value_or("")},
                                   {placeholder::path, rootPath.value_or("")},
                                   {placeholder::searchInSubfolders, "1"},
                                   {placeholder::fileType, ""},
                                   {placeholder::fileExtensions, ""},
                                   {placeholder::sortField, "Name"},
                                   {placeholder::sortDirection, "Ascending"},
                                   {placeholder::startIndex, startIndex},
                                   {placeholder::pageSize, count}};
            setIfPresent(params, placeholder::username, username);
            setIfPresent(params, placeholder::password, password);
            setIfPresent(params, placeholder::serverName, backupServer);
            setIfPresent(params, placeholder::fileName, searchString);
            return listOf(acceptedAnswer(operation, "SearchFilesEx", params), "items.FileInfo",
                          Entries::areMaps, totalCountRes);
        });
}

std::optional<Value> WebServiceBroker::getMetaDataAboutFilesToRecoverForFileVersion(
    const Value& fileVersion, std::string_view userName, std::string_view backupServer,
    std::string_view errorMessage, ErrorSlot /*error: never written*/)
{
    return runOperation(
        "getMetaDataAboutFilesToRecoverForFileVersion:userName:backupServer:errorMessage:error:",
        nullptr, std::nullopt, [&](const Operation& /*operation*/) -> std::optional<Value> {
            const SubstitutionMap params{
                {placeholder::strArrInp, fileVersion},
                {placeholder::timeOfRecovery, timeOfRecovery(platform::currentDate())},
                {placeholder::uname, userName},
                {placeholder::errorMessage, errorMessage}};
            return invokeSOAPMethodWithName("getMetaDataAboutFilesToRecover", {}, params, nullptr,
                                            "", {backupServer});
        });
}

bool WebServiceBroker::deleteFileVersionWithFileListID(std::string_view fileListID,
                                                       std::string_view userName,
                                                       std::string_view backupServer)
{
    return runOperation("deleteFileVersionWithFileListID:userName:backupServer:", nullptr, false,
                        [&](const Operation& /*operation*/) -> bool {
                            const SubstitutionMap params{{placeholder::uname, userName},
                                                         {placeholder::fileListId, fileListID}};
                            const auto result = invokeSOAPMethodWithName(
                                "DeleteFilesInBulk", {}, params, nullptr, "", {backupServer});
                            return result && result->string() &&
                                   StringMethods::TW_parseBool(*result->string());
                        });
}

} // namespace stowline
