// Listing, searching and deleting what is stored, and what a restore needs.
#include "stowline/platform/text/Text.h"
#include "stowline/platform/text/UnicodeText.h"
#include "stowline/platform/time/LocalTime.h"
#include "stowline/service/OptionalValues.h"
#include "stowline/service/WebServiceBroker.h"
#include "stowline/util/StringMethods.h"

#include <charconv>

namespace stowline {

namespace {

std::string decimal(std::int64_t number)
{
    return platform::formatText("%qi", number);
}

/// An answer whose result map says "success".
struct Judged {
    std::optional<Dictionary> answer; ///< absent unless accepted
    std::optional<Error> error;
};

Judged judged(std::string_view method, const SubstitutionMap& params)
{
    Judged outcome;
    const auto answer =
        WebServiceBroker::invokeSOAPMethodWithName(method, {}, params, &outcome.error);
    if (!answer)
        return outcome;
    const auto code = platform::valueAtKeyPath(*answer, std::string(method) + "Result.Code");
    if (code && code->string() && platform::lowercased(*code->string()) == "success")
        outcome.answer = *answer->dictionary();
    else if (!outcome.error && code)
        outcome.error = platform::makeError(std::string(kServiceErrorDomain), kServiceErrorCode,
                                            WebServiceBroker::messageFromCode(code->text()),
                                            FailureKind::refusedByService);
    return outcome;
}

/// Several entries are an array as it is, a single one becomes an array of one, none an empty one.
Array listAt(const Dictionary& answer, std::string_view keyPath, bool singleIsString)
{
    const auto found = platform::valueAtKeyPath(answer, keyPath);
    if (!found)
        return {};
    if (const Array* list = found->array())
        return *list;
    const bool isEntry =
        singleIsString ? found->string() != nullptr : found->dictionary() != nullptr;
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

void storeAlways(ErrorSlot slot, const std::optional<Error>& error)
{
    if (slot)
        *slot = error;
}

/// The end of every browsing operation.
std::optional<Array> listOf(Judged judged, std::string_view keyPath, bool singleIsString,
                            std::int64_t* totalCount, ErrorSlot error)
{
    storeAlways(error, judged.error);
    if (!judged.answer)
        return std::nullopt;
    readTotalCount(*judged.answer, totalCount);
    return listAt(*judged.answer, keyPath, singleIsString);
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
try {
    SubstitutionMap params;
    setIfPresent(params, "<<USERNAME>>", username);
    setIfPresent(params, "<<PASSWORD>>", password);
    setIfPresent(params, "<<SERVERNAME>>", backupServer);
    return listOf(judged("GetAccountSystems", params), "systems.SystemInfo.SystemName", true,
                  nullptr, error);
} catch (const std::bad_alloc&) {
    platform::storeNoMemory(error, kServiceErrorDomain, kServiceErrorCode);
    return std::nullopt;
}

std::optional<Array> WebServiceBroker::getAccountFilesAndFoldersForUserName(
    std::optional<std::string_view> username, std::optional<std::string_view> password,
    std::optional<std::string_view> backupServer, std::optional<std::string_view> systemName,
    std::optional<std::string_view> path, std::optional<std::string_view> sortField, bool ascending,
    std::int64_t startIndex, std::int64_t pageSize, std::int64_t* totalCountRes, ErrorSlot error)
try {
    SubstitutionMap params{{"<<SORTDIRECTION>>", ascending ? "Ascending" : "Descending"},
                           {"<<STARTINDEX>>", decimal(startIndex)},
                           {"<<PAGESIZE>>", decimal(pageSize)}};
    setIfPresent(params, "<<USERNAME>>", username);
    setIfPresent(params, "<<PASSWORD>>", password);
    setIfPresent(params, "<<SERVERNAME>>", backupServer);
    setIfPresent(params, "<<SYSTEMNAME>>", systemName);
    setIfPresent(params, "<<PATH>>", path);
    setIfPresent(params, "<<SORTFIELD>>", sortField);
    return listOf(judged("GetAccountFilesAndFolders", params), "items.FileInfo", false,
                  totalCountRes, error);
} catch (const std::bad_alloc&) {
    platform::storeNoMemory(error, kServiceErrorDomain, kServiceErrorCode);
    return std::nullopt;
}

std::optional<Array> WebServiceBroker::getFileVersionsForUsername(
    std::optional<std::string_view> username, std::optional<std::string_view> password,
    std::optional<std::string_view> backupServer, std::int64_t fileID, ErrorSlot error)
try {
    SubstitutionMap params{{"<<FILEID>>", decimal(fileID)}};
    setIfPresent(params, "<<USERNAME>>", username);
    setIfPresent(params, "<<PASSWORD>>", password);
    setIfPresent(params, "<<SERVERNAME>>", backupServer);
    return listOf(judged("GetFileVersions", params), "fileVersions.FileVersion", false, nullptr,
                  error);
} catch (const std::bad_alloc&) {
    platform::storeNoMemory(error, kServiceErrorDomain, kServiceErrorCode);
    return std::nullopt;
}

std::optional<Array> WebServiceBroker::searchFilesForUsername(
    std::optional<std::string_view> username, std::optional<std::string_view> password,
    std::optional<std::string_view> backupServer, std::optional<std::string_view> systemName,
    std::optional<std::string_view> rootPath, std::optional<std::string_view> searchString,
    std::int64_t startIndex, std::int64_t count, std::int64_t* totalCountRes, ErrorSlot error)
try {
    SubstitutionMap params{{"<<SYSTEMNAME>>", systemName.value_or("")},
                           {"<<PATH>>", rootPath.value_or("")},
                           {"<<SEARCHINSUBFOLDERS>>", "1"},
                           {"<<FILETYPE>>", ""},
                           {"<<FILEEXTENSIONS>>", ""},
                           {"<<SORTFIELD>>", "Name"},
                           {"<<SORTDIRECTION>>", "Ascending"},
                           {"<<STARTINDEX>>", decimal(startIndex)},
                           {"<<PAGESIZE>>", decimal(count)}};
    setIfPresent(params, "<<USERNAME>>", username);
    setIfPresent(params, "<<PASSWORD>>", password);
    setIfPresent(params, "<<SERVERNAME>>", backupServer);
    setIfPresent(params, "<<FILENAME>>", searchString);
    return listOf(judged("SearchFilesEx", params), "items.FileInfo", false, totalCountRes, error);
} catch (const std::bad_alloc&) {
    platform::storeNoMemory(error, kServiceErrorDomain, kServiceErrorCode);
    return std::nullopt;
}

std::optional<Value> WebServiceBroker::getMetaDataAboutFilesToRecoverForFileVersion(
    const Value& fileVersion, std::string_view userName, std::string_view backupServer,
    std::string_view errorMessage, ErrorSlot /*error*/)
try {
    const SubstitutionMap params{{"<<STRARRINP>>", fileVersion},
                                 {"<<TIMEOFRECOVERY>>", timeOfRecovery(platform::currentDate())},
                                 {"<<UNAME>>", userName},
                                 {"<<ERRORMESSAGE>>", errorMessage}};
    std::optional<Error> notHandedOn;
    return invokeSOAPMethodWithName("getMetaDataAboutFilesToRecover", {}, params, &notHandedOn, "",
                                    {backupServer});
} catch (const std::bad_alloc&) {
    return std::nullopt;
}

bool WebServiceBroker::deleteFileVersionWithFileListID(std::string_view fileListID,
                                                       std::string_view userName,
                                                       std::string_view backupServer)
try {
    const SubstitutionMap params{{"<<UNAME>>", userName}, {"<<FILELISTID>>", fileListID}};
    const auto result =
        invokeSOAPMethodWithName("DeleteFilesInBulk", {}, params, nullptr, "", {backupServer});
    return result && result->string() && StringMethods::TW_parseBool(*result->string());
} catch (const std::bad_alloc&) {
    return false;
}

} // namespace stowline
