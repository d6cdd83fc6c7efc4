// Sending a file part by part, and registering it once it is there.
#include "stowline/logging/LogMacros.h"
#include "stowline/platform/text/Text.h"
#include "stowline/platform/text/UnicodeText.h"
#include "stowline/platform/time/DateText.h"
#include "stowline/service/FilledUrl.h"
#include "stowline/service/WebServiceBroker.h"
#include "stowline/service/WebServicesSettings.h"
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
    return {{"<<BASE64FILENAME>>", inBase64(filename)},
            {"<<GUID>>", guid},
            {"<<BASE64USERNAME>>", inBase64(username)},
            {"<<BASE64SERVERDIRPATH>>", inBase64(serverUploadPath)}};
}

struct StepAnswer {
    std::optional<Dictionary> headers; ///< when the request was answered
    std::string status;                ///< "Status" as the log shows it
    bool isAccepted = false;
};

/// Sends one of the two requests to a backup server and reads its "Status".
StepAnswer send(std::string_view requestName, std::string_view backupServer,
                const SubstitutionMap& substitutions, std::optional<std::string_view> body,
                ErrorSlot error)
{
    const Dictionary entry =
        WebServicesSettings::webRequestInfo(requestName).value_or(Dictionary());
    const std::array<platform::FormatArgument, 1> server{backupServer};
    std::optional<Error> wrong;
    StepAnswer answer;
    const auto received = WebServiceBroker::sendWebRequestWithURL(
        filledUrl(entry, server), requestName, substitutions, body, &answer.headers, &wrong);
    if (!received) {
        if (wrong)
            STOWLINE_LOG_ERROR("Web request error: %@", wrong->localizedDescription());
        if (error)
            *error = wrong;
        return {};
    }
    if (!answer.headers)
        answer.headers.emplace();
    const std::string* status = findString(*answer.headers, "Status");
    answer.isAccepted = status && StringMethods::TW_parseBool(*status);
    answer.status = platform::FormatArgument(status ? status->c_str() : nullptr).text();
    return answer;
}

std::optional<Dictionary> headersIfAccepted(StepAnswer answer)
{
    return answer.isAccepted ? std::move(answer.headers) : std::nullopt;
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
try {
    if (!filename || !knownByGuid || !forUsername || !withServerUploadPath || !onBackupServer)
        return std::nullopt;
    StepAnswer answer =
        send(kPartInfo, *onBackupServer,
             headerValues(*filename, *knownByGuid, *forUsername, *withServerUploadPath),
             std::nullopt, error);
    if (!answer.headers)
        return std::nullopt;
    STOWLINE_LOG_INFO("\nWebServiceBroker.getServerFileInfoForclientFilemane. Status = %@",
                      answer.status);
    STOWLINE_LOG_INFO("\nresultDictionary = %@", Value(*answer.headers));
    return headersIfAccepted(std::move(answer));
} catch (const std::bad_alloc&) {
    platform::storeNoMemory(error, kServiceErrorDomain, kServiceErrorCode);
    return std::nullopt;
}

std::optional<Dictionary> WebServiceBroker::uploadForUser(
    std::string_view username, std::string_view data, std::string_view filePathname,
    std::uint64_t partSizeBytes, std::string_view toBackupServer, std::string_view serverUploadPath,
    std::string_view idForServerLogs, ErrorSlot error, std::string_view ticket)
try {
    if (error)
        error->reset();
    SubstitutionMap values =
        headerValues(filePathname, idForServerLogs, username, serverUploadPath);
    values.emplace("<<TICKET>>", ticket);
    values.emplace("<<PORTIONSIZE>>", platform::formatText("%qu", partSizeBytes));
    StepAnswer answer = send(kUploadPart, toBackupServer, values, data, error);
    if (!answer.headers)
        return std::nullopt;
    STOWLINE_LOG_INFO("\nWebServiceBroker.uploadDataForUser. Status = %@", answer.status);
    STOWLINE_LOG_INFO("\nresultDictionary = %@", Value(*answer.headers));
    return headersIfAccepted(std::move(answer));
} catch (const std::bad_alloc&) {
    platform::storeNoMemory(error, kServiceErrorDomain, kServiceErrorCode);
    return std::nullopt;
}

bool WebServiceBroker::protectUploadedFileForUser(
    std::string_view username, std::string_view password, std::string_view backupServer,
    std::string_view localSystem, std::string_view localVolume, std::string_view localDirectory,
    std::string_view localFilename, std::string_view uploadPathGuidComponent,
    std::string_view sessionKey, Date localTime, std::uint64_t origFileSizeBytes,
    std::string_view fullServerFilePath, ErrorSlot outError)
try {
    const std::string path = "\\\\" + std::string(localVolume) +
                             platform::replacingOccurrences(localDirectory, "/", "\\");
    const SubstitutionMap params{
        {"<<USERNAME>>", username},
        {"<<PASSWORD>>", password},
        {"<<SYSTEMNAME>>", localSystem},
        {"<<PATH>>", path},
        {"<<FILENAME>>", localFilename},
        {"<<UNIQUEID>>", uploadPathGuidComponent},
        {"<<SESSIONKEY>>", sessionKey},
        {"<<LOCALTIME>>", DateMethods::TW_ISO8601DateTimeFromDate(localTime)},
        {"<<ORIGINALFILESIZEINBYTES>>", origFileSizeBytes},
        {"<<SERVERPATH>>", fullServerFilePath}};
    const auto result =
        invokeSOAPMethodWithName("ProtectFile", {}, params, outError, "", {backupServer});
    STOWLINE_LOG_INFO("\nWebServiceBroker.protectUploadedFileForUser. result = %@", result);
    return result.has_value();
} catch (const std::bad_alloc&) {
    platform::storeNoMemory(outError, kServiceErrorDomain, kServiceErrorCode);
    return false;
}

bool WebServiceBroker::protect2UploadedFileForUser(
    std::string_view username, std::string_view password, std::string_view backupServer,
    std::string_view actualName, std::string_view actualPath, std::uint64_t actualSize,
    std::string_view encryptedName, std::uint64_t encryptedSize, std::string_view encryptedPath,
    Date clientDate, bool isDelta, std::string_view systemName, std::uint64_t cacheFileSize,
    std::string_view uniqueKey, bool iIsCompressed, std::uint64_t lngFileSizeInBytesFromClient,
    std::int64_t lngBaselinePkForThisDelta, ErrorSlot error)
try {
    const SubstitutionMap params{{"<<USERNAME>>", username},
                                 {"<<PASSWORD>>", password},
                                 {"<<ACTUALFILE_NAME>>", actualName},
                                 {"<<ACTUALFILE_PATH>>", actualPath},
                                 {"<<ACTUALFILE_SIZE>>", actualSize},
                                 {"<<ENCRYPTEDFILE_NAME>>", encryptedName},
                                 {"<<ENCRYPTEDFILE_PATH>>", encryptedPath},
                                 {"<<ENCRYPTEDFILE_SIZE>>", encryptedSize},
                                 {"<<CLIENTDATE>>", clientTimeString(clientDate)},
                                 {"<<ISDELTA>>", bit(isDelta)},
                                 {"<<SYSTEMNAME>>", systemName},
                                 {"<<CACHEFILESIZE>>", cacheFileSize},
                                 {"<<UNIQUEKEY>>", uniqueKey},
                                 {"<<IISCOMPRESSED>>", bit(iIsCompressed)},
                                 {"<<LNGFILESIZEINBYTESFROMCLIENT>>", lngFileSizeInBytesFromClient},
                                 {"<<LNGBASELINEPKFORTHISDELTA>>", lngBaselinePkForThisDelta}};
    const auto result = invokeSOAPMethodWithName("protect2", {}, params, error, "", {backupServer});
    return result && result->string() && platform::lowercased(*result->string()) == "success";
} catch (const std::bad_alloc&) {
    platform::storeNoMemory(error, kServiceErrorDomain, kServiceErrorCode);
    return false;
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
