// Sending a file part by part, and registering it once it is there.
#include "stowline/platform/text/Text.h"
#include "stowline/platform/time/DateText.h"
#include "stowline/service/FilledUrl.h"
#include "stowline/service/Operation.h"
#include "stowline/service/PartHeaders.h"
#include "stowline/service/Placeholders.h"
#include "stowline/service/ServiceAnswer.h"
#include "stowline/service/SettingsTables.h"
#include "stowline/service/WebRequest.h"
#include "stowline/service/WebServiceBroker.h"
#include "stowline/util/Base64.h"
#include "stowline/util/DateMethods.h"
#include "stowline/util/StringMethods.h"

#include <array>

namespace stowline {

namespace {

constexpr std::string_view kPartInfo = "GetServerPartInfo";
constexpr std::string_view kUploadPart = "UploadFilePart";

/// Header values take one line, so names may be of any length and any bytes.
std::string inBase64(std::string_view bytes)
{
    return Base64::base64EncodingWithLineLength(bytes, 0);
}

/// What both steps put into their headers.
SubstitutionMap headerValues(std::string_view filename, std::string_view guid,
                             std::string_view username, std::string_view serverUploadPath)
{
    return {{placeholder::base64FileName, inBase64(filename)},
            {placeholder::guid, guid},
            {placeholder::base64Username, inBase64(username)},
            {placeholder::base64ServerDirPath, inBase64(serverUploadPath)}};
}

/// Why a server that did not say "true" said so, for those who watch.
void tellRefusal(const Operation& operation, const platform::HttpResponseMessage& response)
{
    const FailureKind kind = platform::kindOfStatus(response.statusCode);
    operation.failUntold(kind == FailureKind::unreadableAnswer ? FailureKind::refusedByService
                                                               : kind,
                         "The backup server did not take the request: " + response.statusLine);
}

/// Whether a part says where in its file it begins: a server that has it takes it no second time.
bool namesItsPlace(std::string_view identifier)
{
    return identifier.find(";offset=") != std::string_view::npos;
}

/// A request to a backup server.
struct PartRequest {
    std::string_view name;
    std::string_view backupServer;
    const SubstitutionMap& substitutions;
    std::optional<std::string_view> body;
    bool mayArriveTwice = false;
};

/// Sends one of the two requests to a backup server and reads its "Status".
/// @param logFormat of the line that shows the status
/// @return the listed headers; absent when the server says no and when the request failed
std::optional<Dictionary> acceptedHeaders(const Operation& operation, const PartRequest& request,
                                          std::string_view logFormat)
{
    const Dictionary entry = settingsTables::webRequest(request.name).value_or(Dictionary());
    const std::array<platform::FormatArgument, 1> server{request.backupServer};
    std::optional<Error> wrong;
    const auto answer = performWebRequest({.url = filledUrl(entry, server),
                                           .name = request.name,
                                           .substitutions = request.substitutions,
                                           .body = request.body,
                                           .mayArriveTwice = request.mayArriveTwice},
                                          &wrong);
    if (!answer) {
        if (wrong) {
            OPERATION_LOG_ERROR(operation, "Web request error: %@", wrong->localizedDescription());
            operation.fail(*wrong);
        }
        return std::nullopt;
    }
    operation.clearError(); // that there is none tells a "no" from a failure
    const std::string* status = findString(answer->listedHeaders, partHeader::status);
    OPERATION_LOG_INFO(operation, logFormat, status ? status->c_str() : nullptr);
    OPERATION_LOG_INFO(operation, "\nresultDictionary = %@", Value(answer->listedHeaders));
    if (status && StringMethods::TW_parseBool(*status))
        return answer->listedHeaders;
    if (answer->response)
        tellRefusal(operation, *answer->response);
    return std::nullopt;
}

const char* bit(bool truth)
{
    return truth ? "1" : "0";
}

} // namespace

std::optional<Dictionary> WebServiceBroker::getServerFileInfoForClientFilename(
    std::optional<std::string_view> filename, std::optional<std::string_view> knownByGuid,
    std::optional<std::string_view> forUsername,
    std::optional<std::string_view> withServerUploadPath,
    std::optional<std::string_view> onBackupServer, ErrorSlot error)
{
    return runOperation(
        "getServerFileInfoForClientFilename:knownByGuid:forUsername:withServerUploadPath:"
        "onBackupServer:error:",
        error, std::nullopt, [&](const Operation& operation) -> std::optional<Dictionary> {
            if (!filename || !knownByGuid || !forUsername || !withServerUploadPath ||
                !onBackupServer)
                return std::nullopt;
            const SubstitutionMap values =
                headerValues(*filename, *knownByGuid, *forUsername, *withServerUploadPath);
            return acceptedHeaders(
                operation, {kPartInfo, *onBackupServer, values, std::nullopt},
                "\nWebServiceBroker.getServerFileInfoForclientFilemane. Status = %@");
        });
}

std::optional<Dictionary> WebServiceBroker::uploadForUser(
    std::string_view username, std::string_view data, std::string_view filePathname,
    std::uint64_t partSizeBytes, std::string_view toBackupServer, std::string_view serverUploadPath,
    std::string_view idForServerLogs, ErrorSlot error, std::string_view ticket)
{
    return runOperation(
        "uploadForUser:data:filePathname:partSizeBytes:toBackupServer:serverUploadPath:"
        "idForServerLogs:error:",
        error, std::nullopt, [&](const Operation& operation) -> std::optional<Dictionary> {
            operation.clearError();
            SubstitutionMap values =
                headerValues(filePathname, idForServerLogs, username, serverUploadPath);
            values.emplace(placeholder::ticket, ticket);
            values.emplace(placeholder::portionSize, partSizeBytes);
            return acceptedHeaders(
                operation,
                {kUploadPart, toBackupServer, values, data, namesItsPlace(idForServerLogs)},
                "\nWebServiceBroker.uploadDataForUser. Status = %@");
        });
}

bool WebServiceBroker::protectUploadedFileForUser(
    std::string_view username, std::string_view password, std::string_view backupServer,
    std::string_view localSystem, std::string_view localVolume, std::string_view localDirectory,
    std::string_view localFilename, std::string_view uploadPathGuidComponent,
    std::string_view sessionKey, Date localTime, std::uint64_t origFileSizeBytes,
    std::string_view fullServerFilePath, ErrorSlot outError)
{
    return runOperation(
        "protectUploadedFileForUser:password:backupServer:localSystem:localVolume:localDirectory:"
        "localFilename:uploadPathGuidComponent:sessionKey:localTime:origFileSizeBytes:"
        "fullServerFilePath:outError:",
        outError, false, [&](const Operation& operation) -> bool {
            const std::string path = "\\\\" + std::string(localVolume) +
                                     platform::replacingOccurrences(localDirectory, "/", "\\");
            const SubstitutionMap params{
                {placeholder::username, username},
                {placeholder::password, password},
                {placeholder::systemName, localSystem},
                {placeholder::path, path},
                {placeholder::fileName, localFilename},
                {placeholder::uniqueId, uploadPathGuidComponent},
                {placeholder::sessionKey, sessionKey},
                {placeholder::localTime, DateMethods::TW_ISO8601DateTimeFromDate(localTime)},
                {placeholder::originalFileSizeInBytes, origFileSizeBytes},
                {placeholder::serverPath, fullServerFilePath}};
            const auto result =
                invokeSOAPMethodWithName("ProtectFile", {}, params, outError, "", {backupServer});
            OPERATION_LOG_INFO(
                operation, "\nWebServiceBroker.protectUploadedFileForUser. result = %@", result);
            return result.has_value();
        });
}

bool WebServiceBroker::protect2UploadedFileForUser(
    std::string_view username, std::string_view password, std::string_view backupServer,
    std::string_view actualName, std::string_view actualPath, std::uint64_t actualSize,
    std::string_view encryptedName, std::uint64_t encryptedSize, std::string_view encryptedPath,
    Date clientDate, bool isDelta, std::string_view systemName, std::uint64_t cacheFileSize,
    std::string_view uniqueKey, bool iIsCompressed, std::uint64_t lngFileSizeInBytesFromClient,
    std::int64_t lngBaselinePkForThisDelta, ErrorSlot error)
{
    return runOperation(
        "protect2UploadedFileForUser:password:backupServer:actualName:actualPath:actualSize:"
        "encryptedName:encryptedSize:encryptedPath:clientDate:isDelta:systemName:cacheFileSize:"
        "uniqueKey:iIsCompressed:lngFileSizeInBytesFromClient:lngBaselinePkForThisDelta:error:",
        error, false, [&](const Operation& operation) -> bool {
            const SubstitutionMap params{
                {placeholder::username, username},
                {placeholder::password, password},
                {placeholder::actualFileName, actualName},
                {placeholder::actualFilePath, actualPath},
                {placeholder::actualFileSize, actualSize},
                {placeholder::encryptedFileName, encryptedName},
                {placeholder::encryptedFilePath, encryptedPath},
                {placeholder::encryptedFileSize, encryptedSize},
                {placeholder::clientDate, clientTimeString(clientDate)},
                {placeholder::isDelta, bit(isDelta)},
                {placeholder::systemName, systemName},
                {placeholder::cacheFileSize, cacheFileSize},
                {placeholder::uniqueKey, uniqueKey},
                {placeholder::iIsCompressed, bit(iIsCompressed)},
                {placeholder::lngFileSizeInBytesFromClient, lngFileSizeInBytesFromClient},
                {placeholder::lngBaselinePkForThisDelta, lngBaselinePkForThisDelta}};
            const auto result =
                invokeSOAPMethodWithName("protect2", {}, params, error, "", {backupServer});
            if (saysSuccess(result))
                return true;
            if (result)
                operation.failUntold(FailureKind::refusedByService,
                                     "The service did not register the file: " + result->text());
            return false;
        });
}

Error WebServiceBroker::uploadErrorWith(const std::optional<Dictionary>& responseDictionary,
                                        std::string_view uploadFileInfo,
                                        std::string_view additionalInfo)
{
    std::optional<Value> response;
    if (responseDictionary)
        response = *responseDictionary;
    return platform::makeError(
        std::string(kServiceErrorDomain), kServiceErrorCode,
        platform::formatText("Upload error. Client file part: %@. Server response dictionary: %@. "
                             "Additional info: %@",
                             uploadFileInfo, response, additionalInfo));
}

std::string WebServiceBroker::clientTimeString(Date date)
{
    const auto day = std::chrono::floor<std::chrono::days>(date);
    const std::chrono::year_month_day calendar(day);
    const std::chrono::hh_mm_ss time(std::chrono::floor<std::chrono::seconds>(date - day));
    return platform::formatText("%d-%02d-%02d %02d:%02d:%02d", static_cast<int>(calendar.year()),
                                static_cast<unsigned>(calendar.month()),
                                static_cast<unsigned>(calendar.day()), time.hours().count(),
                                time.minutes().count(), time.seconds().count());
}

} // namespace stowline
