// The service layer: every request of the application to the backup service.
#pragma once

#include "stowline/call/WebServiceCallResult.h"
#include "stowline/platform/values/Error.h"
#include "stowline/platform/values/Format.h"
#include "stowline/service/DeletedFiles.h"
#include "stowline/service/FilePart.h"
#include "stowline/soap/TemplateExpansion.h"

#include <concepts>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#pragma GCC visibility push(default)
namespace stowline {

/// Domain of the errors that the service layer makes, and their codes.
inline constexpr std::string_view kServiceErrorDomain = "com.Stowline.Application";
inline constexpr int kServiceErrorCode = 250;
inline constexpr int kFaultErrorCode = 200;

/// Said where content is asked for and the settings do not tell how.
inline constexpr std::string_view kRestoringNotConfiguredMessage =
    "Restoring is not configured: the settings have no \"GetRestoreTicket\" or no "
    "\"DownloadFilePart\". Please ask your provider for settings that do.";

/// Said where what was deleted is asked for and the settings do not tell how.
inline constexpr std::string_view kUndeletingNotConfiguredMessage =
    "Undeleting is not configured: the settings have no \"GetDeletedFiles\" or no "
    "\"UndeleteFiles\". Whether anything deleted can be had back, your provider knows.";

/// What sort of failure an error tells of is its `kind`; programs decide by it, never by the
/// sentence. Code 250 is of the kinds hostUnreachable, unsendableValue, invalidSettings, timeOut,
/// connection, refusedByService and noMemory. Code 200 is of the kind fault when the service
/// answered with one; where there was no SOAP answer, of the kind that says why: connection,
/// nameNotFound, certificate, proxyRefused, refusedRedirect, tooLarge, requestTooLarge, badRequest,
/// unavailable, unreadableAnswer, invalidSettings or unsendableValue; its user-info map then holds
/// under kFailureReasonKey what was found, in words. One of the kind refusedByService holds the
/// service's own code under kServiceCodeKey, where it told one.
///
/// Static operations only; all may be called from any number of threads at once. Those that call a
/// web method block for one SOAP call (at most about 60 seconds and the start of a process), so
/// they belong on worker threads. An error slot may be null; it is written or cleared only where an
/// operation says so.
///
/// They throw nothing, for any reason. One that finds no memory or no thread, or ends in a way that
/// nobody foresaw, ends without a result and stores code 250 in its slot, as long as there is
/// memory for that (kinds noMemory, noThread and unexpected); those that only put texts together
/// hand back an empty one.
///
/// A FailureWatch learns what the slots and results do not tell.
class WebServiceBroker {
public:
    WebServiceBroker() = delete;

    // ---- Accounts (Authentication.cpp) ----

    /// Signs a user in: web method "Authenticate". Safe to repeat.
    /// @param error see invokeSOAPMethodWithName(); nothing of its own
    /// @return the service's whole answer with the HTTP status as decimal text under
    ///         "resStatusCode" ("-1" when there was no HTTP response). Whether the user is signed
    ///         in is the caller's to read from "AuthenticateResult", "accountStatus" and
    ///         "backupServerName", any of which may be missing. Absent when the call failed.
    [[nodiscard]] static std::optional<Dictionary>
    authenticateForUsername(std::string_view username, std::string_view password, ErrorSlot error);

    /// Opens an account: web method "CreateAccount". Not safe to repeat.
    /// @param error see invokeSOAPMethodWithName(); cleared when the service answers, also when it
    ///        refuses
    /// @return true exactly when the service answers "Success" in any mix of cases.
    [[nodiscard]] static bool creatAccountWithFirstname(std::string_view firstname,
                                                        std::string_view username,
                                                        std::string_view password,
                                                        std::string_view emailID, ErrorSlot error);

    /// Opens an account of a customer type, with the referral code of the branded build
    /// (information dictionary, "TW_ReferalCode"): web method "CreateTrialAccount". Not safe to
    /// repeat.
    /// @param error when the service refuses: code 250 with the service's message, else the words
    ///        of its result code
    /// @return true exactly when the answer's "Code" is "success" in any mix of cases.
    [[nodiscard]] static bool createTrialWithFirstname(
        std::string_view firstname, std::string_view username, std::string_view password,
        std::string_view email, std::string_view customerTypeCode, bool isSealGuard,
        std::string_view secretQuestion, std::string_view answer, ErrorSlot error);

    /// Has the service encrypt or decrypt a short text: web methods "EncryptString" and
    /// "DecryptString". The client holds no key. Safe to repeat.
    /// @return the service's text as it comes; absent on any failure.
    [[nodiscard]] static std::optional<Value> encryptString(std::string_view sourceString);
    [[nodiscard]] static std::optional<Value> decryptString(std::string_view sourceString);

    // ---- Account and backup server (AccountInformation.cpp); all safe to repeat ----

    /// Space the account uses: web method "GetAccountUsedSpace".
    /// @return kilobytes as the service counts them; absent when the call failed. Text that does
    ///         not start with a number counts as 0.
    [[nodiscard]] static std::optional<std::int64_t>
    usedSpaceInKbForAccount(std::string_view username, std::string_view withPassword);

    /// Details of the account: web method "GetAccountInfo". Tells the service which installation,
    /// machine, product and operating system asks (always as "x64").
    /// @return the service's result as it comes; absent when the call failed.
    [[nodiscard]] static std::optional<Value>
    getAccountInfoForUsername2(std::string_view username, std::string_view withPassword);

    /// The upload path on a backup server: web method "GetPhyPath". No password is sent.
    /// @param usingGuidUploadPath the identifier the path is made for; may be empty
    /// @return not empty; absent when the call failed or answered nothing, and at once, without a
    ///         call, when an argument is absent.
    [[nodiscard]] static std::optional<std::string>
    getUploadServerPathForUsername(std::optional<std::string_view> username,
                                   std::optional<std::string_view> onBackupServer,
                                   std::optional<std::string_view> usingGuidUploadPath);

    /// The account's encryption key, which the service holds: web method "getenckey". It is neither
    /// kept nor logged here.
    /// @return not empty; absent when the call failed or answered nothing.
    [[nodiscard]] static std::optional<std::string>
    getEncKeyForUserName(std::string_view username, std::string_view password,
                         std::string_view backupServer);

    /// Announces that the files of a package are about to be protected: web method
    /// "PreparePackagedFilesForProtection".
    /// @param packageSize a number, in bytes
    /// @param error the call's own error, which wins; else code 250 with "WebMethod … returned …
    ///        result"
    /// @return true exactly when the service answers "success" in any mix of cases.
    [[nodiscard]] static bool preparePackagedFilesForProtectionForUserName(
        std::string_view username, std::string_view password, std::string_view backupServer,
        std::string_view packagePath, const Value& packageSize, ErrorSlot error);

    // ---- Browsing and restore (Browsing.cpp); all but the deletion are safe to repeat ----
    //
    // The first four judge the answer by the "Code" of its result map. Absent arguments are sent as
    // explicit nils. On return the error slot is always written: with the call's error, with code
    // 250 and the code's words when the service refuses, with nothing otherwise (also when there is
    // neither answer nor error). A list is an array on success, empty when the service sends none.

    /// Names of the computers that have files stored: web method "GetAccountSystems".
    [[nodiscard]] static std::optional<Array>
    getAccountSystemsForUsername(std::optional<std::string_view> username,
                                 std::optional<std::string_view> password,
                                 std::optional<std::string_view> backupServer, ErrorSlot error);

    /// One page of a folder: web method "GetAccountFilesAndFolders".
    /// @param startIndex, pageSize entries from 0, and how many
    /// @param totalCountRes may be null; the folder's whole count, unless the answer has no number
    /// @return maps as the service describes files and folders
    [[nodiscard]] static std::optional<Array> getAccountFilesAndFoldersForUserName(
        std::optional<std::string_view> username, std::optional<std::string_view> password,
        std::optional<std::string_view> backupServer, std::optional<std::string_view> systemName,
        std::optional<std::string_view> path, std::optional<std::string_view> sortField,
        bool ascending, std::int64_t startIndex, std::int64_t pageSize, std::int64_t* totalCountRes,
        ErrorSlot error);

    /// Stored versions of a file: web method "GetFileVersions".
    /// @return maps as the service describes versions
    [[nodiscard]] static std::optional<Array> getFileVersionsForUsername(
        std::optional<std::string_view> username, std::optional<std::string_view> password,
        std::optional<std::string_view> backupServer, std::int64_t fileID, ErrorSlot error);

    /// One page of the files whose names match, in a folder and below it, sorted by name: web
    /// method "SearchFilesEx".
    /// @param systemName, rootPath absent: everywhere (sent as empty text)
    /// @param totalCountRes as above
    [[nodiscard]] static std::optional<Array> searchFilesForUsername(
        std::optional<std::string_view> username, std::optional<std::string_view> password,
        std::optional<std::string_view> backupServer, std::optional<std::string_view> systemName,
        std::optional<std::string_view> rootPath, std::optional<std::string_view> searchString,
        std::int64_t startIndex, std::int64_t count, std::int64_t* totalCountRes, ErrorSlot error);

    /// What is needed to recover versions of files: web method "getMetaDataAboutFilesToRecover".
    /// Tells the service the local time as month/day/year hour:minute:second.
    /// @param fileVersion in the service's form
    /// @param error never written: a failure shows only as an absent result
    /// @return the service's result as it comes
    [[nodiscard]] static std::optional<Value> getMetaDataAboutFilesToRecoverForFileVersion(
        const Value& fileVersion, std::string_view userName, std::string_view backupServer,
        std::string_view errorMessage, ErrorSlot error);

    /// Deletes the versions of a list that the service knows: web method "DeleteFilesInBulk". No
    /// password is sent.
    /// @return the answer read as a boolean; false when there is none.
    [[nodiscard]] static bool deleteFileVersionWithFileListID(std::string_view fileListID,
                                                              std::string_view userName,
                                                              std::string_view backupServer);

    // ---- Deleting folders (FolderDeletion.cpp) ----
    //
    // The deletion is a process on the service: begun here, asked after until it is over, cancelled
    // when wanted. The answers are read as text, tag by tag. There are no error objects. An absent
    // argument leaves its placeholder in the template.

    /// Starts the deletion of a folder: template "BeginDeleteFolders". Not safe to repeat.
    /// @return the process's identifier as it stands in the answer; absent when there is no answer,
    ///         the service refuses, or names none.
    [[nodiscard]] static std::optional<std::string> beginDeleteFolderForUsername(
        std::optional<std::string_view> username, std::optional<std::string_view> password,
        std::optional<std::string_view> systemName, std::optional<std::string_view> path,
        std::string_view backupServer);

    /// Whether to stop asking: template "CheckDeleteFolders". Safe to repeat.
    /// @return true when the process is completed or cancelled, and also when there is no answer or
    ///         it cannot be understood; false while the process runs.
    [[nodiscard]] static bool checkDeleteFolderForUsername(
        std::optional<std::string_view> username, std::optional<std::string_view> password,
        std::optional<std::string_view> processGuid, std::string_view backupServer);

    /// Asks the service to cancel the process: template "BeginCancelDeleteFolders". Safe to repeat.
    /// Only a later check tells whether it is.
    static void cancelDeleteFolderForUsername(std::optional<std::string_view> username,
                                              std::optional<std::string_view> password,
                                              std::optional<std::string_view> processGuid,
                                              std::string_view backupServer);

    // ---- Central monitoring (Monitoring.cpp) ----

    /// What the monitoring service wants of this machine: web method "GetSettings". Safe to repeat.
    /// @return absent when the call failed or its result is not a map.
    [[nodiscard]] static std::optional<Dictionary>
    centralMonitoringGetSettingsForUserName(std::optional<std::string_view> userName,
                                            std::optional<std::string_view> authToken,
                                            std::optional<std::string_view> systemName);

    /// Reports an event of a backup with its figures: template "LogEvent". Tells the product's
    /// version, the local time without its zone, and whether the schedule started the program.
    /// A repetition is another event.
    /// @param duration of the run, as the monitoring service counts it; may be negative
    /// @param errFilesSize, totalFilesSize, unchangedFilesSize, uploadedFilesSize bytes
    /// @return false when the token was refused or nothing came back.
    [[nodiscard]] static bool centralMonitoringLogEvent(
        std::string_view event, std::string_view userName, std::string_view authToken,
        std::string_view systemName, std::int32_t duration, std::uint64_t errFilesCount,
        std::uint64_t errFilesSize, std::uint64_t totalFilesCount, std::uint64_t totalFilesSize,
        std::uint64_t unchangedFilesCount, std::uint64_t unchangedFilesSize,
        std::uint64_t uploadedFilesCount, std::uint64_t uploadedFilesSize);

    // ---- Reports (Reports.cpp) ----

    /// Sends the summary of a backup to be kept for the account: web method
    /// "SendBackupSummaryReport". Whether that succeeded is told only in the log. A repetition is
    /// another report. Absent texts leave their placeholders in the template.
    /// @param reportDate, backupDate sent in the local time zone
    /// @param totalDataTransfered bytes; sent as General::sizeString()
    static void sendBackupReportForUserName(
        std::optional<std::string_view> userName, std::optional<std::string_view> password,
        Date reportDate, std::optional<std::string_view> accountUserName,
        std::optional<std::string_view> machineName, Date backupDate,
        std::int64_t numberOfFilesNotChanged, std::int64_t numberOfFilesBackedUp,
        std::int64_t numberOfFilesNotBackedUp, std::int64_t totalNumberOfFilesProcessed,
        std::uint64_t totalDataTransfered);

    /// Has the service send an e-mail: web method "sendEmail". A repetition is another e-mail.
    /// @param subject, body absent: empty
    /// @return true when the service confirms it (an answer that begins with "1", "t" or "y" in
    ///         either case); false without a call when an address is absent.
    [[nodiscard]] static bool sendEmailTo(std::optional<std::string_view> to,
                                          std::optional<std::string_view> from,
                                          std::optional<std::string_view> subject,
                                          std::optional<std::string_view> body, bool isHTML);

    // ---- Upload (Upload.cpp) ----
    //
    // A file is asked about, sent part by part, and registered. Which bytes form a part, and where
    // to go on after an interruption, is the application's to read from the maps. Nothing is kept
    // between calls.

    /// What a backup server holds of a file: web request "GetServerPartInfo". Safe to repeat.
    /// @param filename, forUsername, withServerUploadPath travel in Base64: any bytes
    /// @param error stored when the request failed, cleared when the server answered, also when it
    ///        says no; untouched when an argument is absent (nothing is sent then)
    /// @return the response headers that the settings list, when the server's "Status" is true.
    [[nodiscard]] static std::optional<Dictionary> getServerFileInfoForClientFilename(
        std::optional<std::string_view> filename, std::optional<std::string_view> knownByGuid,
        std::optional<std::string_view> forUsername,
        std::optional<std::string_view> withServerUploadPath,
        std::optional<std::string_view> onBackupServer, ErrorSlot error);

    /// Sends one part: web request "UploadFilePart". Whether a repetition is safe is the server's
    /// matter: ask it first what it holds.
    /// @param data the part, sent from where it lies
    /// @param error cleared first; stored when the request failed, not when the server says no
    /// @return as above
    /// @param ticket an addition of this project: fills "<<TICKET>>" for services that want one
    ///        (RestoreTicket); not logged, and not taken to another server by a redirect
    [[nodiscard]] static std::optional<Dictionary>
    uploadForUser(std::string_view username, std::string_view data, std::string_view filePathname,
                  std::uint64_t partSizeBytes, std::string_view toBackupServer,
                  std::string_view serverUploadPath, std::string_view idForServerLogs,
                  ErrorSlot error, std::string_view ticket = {});

    /// Registers an uploaded file: web method "ProtectFile". The folder is sent in backslash
    /// notation, led by two backslashes and the volume.
    /// @param localTime sent in the local time zone
    /// @param outError see invokeSOAPMethodWithName()
    /// @return true when any result came back.
    [[nodiscard]] static bool protectUploadedFileForUser(
        std::string_view username, std::string_view password, std::string_view backupServer,
        std::string_view localSystem, std::string_view localVolume, std::string_view localDirectory,
        std::string_view localFilename, std::string_view uploadPathGuidComponent,
        std::string_view sessionKey, Date localTime, std::uint64_t origFileSizeBytes,
        std::string_view fullServerFilePath, ErrorSlot outError);

    /// Registers an uploaded file: web method "protect2".
    /// @param clientDate sent in universal time
    /// @param lngBaselinePkForThisDelta the service's key of the version that a delta is against
    /// @param error see invokeSOAPMethodWithName()
    /// @return true exactly when the service answers "success" in any mix of cases.
    [[nodiscard]] static bool protect2UploadedFileForUser(
        std::string_view username, std::string_view password, std::string_view backupServer,
        std::string_view actualName, std::string_view actualPath, std::uint64_t actualSize,
        std::string_view encryptedName, std::uint64_t encryptedSize, std::string_view encryptedPath,
        Date clientDate, bool isDelta, std::string_view systemName, std::uint64_t cacheFileSize,
        std::string_view uniqueKey, bool iIsCompressed, std::uint64_t lngFileSizeInBytesFromClient,
        std::int64_t lngBaselinePkForThisDelta, ErrorSlot error);

    /// The error to report when an upload goes wrong: code 250.
    /// @param responseDictionary what the server answered, if anything
    /// @param additionalInfo a format ("%@"), filled with the arguments that follow it
    template <class... Arguments>
    [[nodiscard]] static Error formatUploadErrorFromResponseDictionary(
        const std::optional<Dictionary>& responseDictionary, std::string_view uploadFileInfo,
        std::string_view additionalInfo, const Arguments&... arguments)
    {
        try {
            return uploadErrorWith(responseDictionary, uploadFileInfo,
                                   platform::formatText(additionalInfo, arguments...));
        } catch (...) {
            return {.domain = {}, .code = kServiceErrorCode, .userInfo = {}};
        }
    }

    /// A moment in universal time as "2014-03-07 09:05:00".
    [[nodiscard]] static std::string clientTimeString(Date date);

    // ---- Getting content back (Recovery.cpp) ----
    //
    // Additions of this project to the service's operations; a provider's settings may lack them.
    // A signed-in call gives out a ticket, and plain requests with the ticket read parts of stored
    // versions. The ticket is not logged, and a redirect takes it to no other server. Nothing is
    // kept between calls, nothing is repeated here.

    /// Whether the settings have what the two operations below need.
    [[nodiscard]] static bool isRestoringConfigured();

    /// Asks for a ticket: web method "GetRestoreTicket". Safe to repeat; each ticket is another.
    /// @param error see invokeSOAPMethodWithName() (a wrong password is a fault, code 200); code
    /// 250
    ///        when restoring is not configured or the answer holds no ticket
    /// @return absent when the call failed, the service refused or gave no ticket.
    [[nodiscard]] static std::optional<RestoreTicket>
    restoreTicketForUsername(std::string_view username, std::string_view password,
                             std::string_view backupServer, ErrorSlot error);

    /// Reads a part of a stored version: web request "DownloadFilePart". Safe to repeat.
    /// @param versionId as the answers to parts and to questions give it
    /// @param offset of the part's first byte; the version's size gives a part without bytes
    /// @param length bytes wanted; fewer come only at the version's end. At most some 60 MiB, since
    ///        an answer has its limit
    /// @param error cleared first; stored when the outcome is `failed` or `notConfigured`
    /// @return the part with its outcome; bytes that are not what their sender's checksum says are
    ///         never handed out.
    [[nodiscard]] static FilePart
    filePartForUsername(std::string_view username, std::string_view ticket,
                        std::string_view versionId, std::uint64_t offset, std::uint64_t length,
                        std::string_view backupServer, ErrorSlot error);

    // ---- Getting back what was deleted (Undeletion.cpp) ----
    //
    // Additions of this project too. A service with days of grace keeps what was deleted for a
    // while; nothing here shortens them. A path means a file, or a folder with all below it; it is
    // one of the service's, as those of listings. An empty path means everything of the machine,
    // the records of its runs too, and an empty machine all of the account. Moments are seconds
    // since 1970 by the service's clock; absent: whenever it was deleted. The error is cleared
    // first, and stored when nothing comes back: as the call's, or code 250 when undeleting is not
    // configured, the service refuses or its answer cannot be read.

    /// Whether the settings have what the two operations below need.
    [[nodiscard]] static bool isUndeletingConfigured();

    /// Asks for one page of what was deleted: web method "GetDeletedFiles". Safe to repeat.
    /// @param pageSize 0: the figures alone
    [[nodiscard]] static std::optional<DeletedFiles>
    deletedFilesForUsername(std::string_view username, std::string_view password,
                            std::string_view systemName, std::string_view path,
                            std::optional<std::int64_t> since, std::int64_t startIndex,
                            std::int64_t pageSize, std::string_view backupServer, ErrorSlot error);

    /// Brings back what was deleted: web method "UndeleteFiles". Safe to repeat, and to be repeated
    /// while anything remains and comes back.
    [[nodiscard]] static std::optional<UndeletedFiles>
    undeleteFilesForUsername(std::string_view username, std::string_view password,
                             std::string_view systemName, std::string_view path,
                             std::optional<std::int64_t> since, std::string_view backupServer,
                             ErrorSlot error);

    // ---- Plain HTTP requests (WebRequests.cpp) ----

    /// Sends a request that the settings' "WebRequests" describe, in process, and reads its whole
    /// body. The status of the response is not judged. Redirects are followed, but a body goes to
    /// no other server. An answer of more than 64 MiB, headers included, is a failure
    /// (kind tooLarge). A status of 400 and more is logged. Nothing is repeated here.
    /// @param url the request's whole address; the entry's is not read. A host with other letters
    ///        than those of ASCII is looked up and sent in its form in ASCII ("xn--…"); all else is
    ///        sent as it stands
    /// @param requestName key of the table; an entry that is missing is one without any key
    /// @param httpHeaderSubstitutions fill the header templates, unescaped
    /// @param requestBody sent from where it lies; absent and empty send none
    /// @param responseHeaders may be null; cleared first; on success the headers that the entry
    ///        lists, under its spelling (an entry without a list gives an empty map)
    /// @param error cleared first; code 250 for a time-out, an address or header that cannot be
    ///        sent, else the stream's own (domain kHttpErrorDomain)
    /// @return absent when the request failed.
    [[nodiscard]] static std::optional<Data>
    sendWebRequestWithURL(std::string_view url, std::string_view requestName,
                          const SubstitutionMap& httpHeaderSubstitutions,
                          std::optional<std::string_view> requestBody,
                          std::optional<Dictionary>* responseHeaders, ErrorSlot error);

    // ---- Posted templates (TemplateRequests.cpp) ----

    /// Posts a body of the settings' "Templates", filled and with its values escaped as XML, and
    /// hands back the answer's text, whatever its status. At most 60 seconds. Nothing is sent when
    /// there is no way to the service. Failures are told on the console log. Nothing is
    /// repeated here.
    /// @param anyString ignored; callers pass the empty string
    /// @param urlSubstitutions fill the "%@" of the entry's "URL", whose host is then looked up and
    ///        sent in its form in ASCII ("xn--…")
    /// @return absent when there was no answer, or it is not UTF-8.
    [[nodiscard]] static std::optional<std::string>
    sendTemplateRequestWithName(std::string_view name, const SubstitutionMap& params,
                                std::string_view anyString,
                                std::initializer_list<platform::FormatArgument> urlSubstitutions);

    // ---- Calling a web method (Invocation.cpp) ----

    /// Calls a configured web method by name, in a process of its own. Whether a repetition is safe
    /// is the web method's matter; nothing is repeated here.
    ///
    /// Checks that the reachability host answers, fills the method's "URL" and percent-escapes it,
    /// runs WebServiceCaller, and waits for its end.
    /// @param name key of the settings' "WebServices" table and name of the SOAP method
    /// @param headerSubstitutions, paramSubstitutions values for the method's templates
    /// @param error code 250 when the host is not reachable or a value holds a character that
    ///        cannot be sent, code 200 when the service answers with a fault (its text is not
    ///        copied); untouched by every other failure
    /// @param anyString ignored; callers pass the empty string
    /// @param urlSubstitutions fill the "%@" of the method's "URL", whose host is then looked up
    ///        and sent in its form in ASCII ("xn--…")
    /// @return the value at the method's "resultKeyPath" inside the answer, or the whole answer
    ///         when it has none, with the HTTP response under `kWSHTTPResponseMessage`; absent
    ///         when the call failed or the path leads nowhere.
    [[nodiscard]] static std::optional<Value>
    invokeSOAPMethodWithName(std::string_view name,
                             const std::optional<SubstitutionMap>& headerSubstitutions,
                             const std::optional<SubstitutionMap>& paramSubstitutions,
                             ErrorSlot error, std::string_view anyString,
                             std::initializer_list<platform::FormatArgument> urlSubstitutions);

    /// The same for methods whose "URL" has nothing to fill; logs the kind and size of the answer.
    [[nodiscard]] static std::optional<Value> invokeSOAPMethodWithName(
        std::string_view name, const std::optional<SubstitutionMap>& soapHeaderSubstitutions,
        const std::optional<SubstitutionMap>& soapParamSubstitutions, ErrorSlot error = nullptr);

    /// A copy of a result in which the HTTP response is a message again instead of bytes: a
    /// dictionary with "statusLine", "statusCode", "headers" and "body".
    [[nodiscard]] static Dictionary
    prepareIncomingResultDictionary(const WebServiceCallResult& result);

    /// The error for a fault result: code 200. Reads nothing of the fault, so that the service's
    /// inner workings do not reach the user.
    [[nodiscard]] static Error errorFromFaultDictionary(const Dictionary& faultResult);

    /// A result code written in camel case as words: "InvalidUserName" is "Invalid user name".
    [[nodiscard]] static std::string messageFromCode(std::string_view code);

    // ---- The helper program of SOAP calls (Invocation.cpp) ----

    /// Whether the helper program waits, started once, and forks a child for each call (a nursery);
    /// or is started anew for each, as it is unless this says otherwise. Calls do the same either
    /// way. Off, a nursery that waits is given up; calls under way come to their end.
    static void useNursery(bool isUsed);

    /// Has the helper program start and wait before the first call needs it, where a nursery is
    /// used and nothing speaks against it. Does not wait for it. Secrets should have left the
    /// environment before.
    static void beginNursery();

    // ---- Templates (Templates.cpp) ----

    /// See soap::expandTemplate and soap::expandTemplates. An absent map is an empty one. For want
    /// of memory the text is empty, the list absent.
    [[nodiscard]] static std::string expandTemplate(std::string_view templateText,
                                                    const SubstitutionMap& substitutions,
                                                    bool escapeXmlEntities);
    [[nodiscard]] static std::string expandTemplate(std::string_view templateText,
                                                    std::nullopt_t /*noSubstitutions*/,
                                                    bool escapeXmlEntities)
    {
        return expandTemplate(templateText, SubstitutionMap(), escapeXmlEntities);
    }
    // A template, so that a map in braces does not mean this one.
    template <class Map>
    requires std::same_as<Map, std::optional<SubstitutionMap>>
    [[nodiscard]] static std::string
    expandTemplate(std::string_view templateText, const Map& substitutions, bool escapeXmlEntities)
    {
        return substitutions ? expandTemplate(templateText, *substitutions, escapeXmlEntities)
                             : expandTemplate(templateText, std::nullopt, escapeXmlEntities);
    }
    [[nodiscard]] static std::optional<std::vector<std::string>>
    expandTemplates(const std::optional<std::vector<std::string>>& templates,
                    const SubstitutionMap& substitutions, bool escapeXmlEntities);
    [[nodiscard]] static std::optional<std::vector<std::string>>
    expandTemplates(const std::optional<std::vector<std::string>>& templates,
                    std::nullopt_t /*noSubstitutions*/, bool escapeXmlEntities)
    {
        return expandTemplates(templates, SubstitutionMap(), escapeXmlEntities);
    }
    template <class Map>
    requires std::same_as<Map, std::optional<SubstitutionMap>>
    [[nodiscard]] static std::optional<std::vector<std::string>>
    expandTemplates(const std::optional<std::vector<std::string>>& templates,
                    const Map& substitutions, bool escapeXmlEntities)
    {
        return substitutions ? expandTemplates(templates, *substitutions, escapeXmlEntities)
                             : expandTemplates(templates, std::nullopt, escapeXmlEntities);
    }

private:
    [[nodiscard]] static Error uploadErrorWith(const std::optional<Dictionary>& responseDictionary,
                                               std::string_view uploadFileInfo,
                                               std::string_view additionalInfo);
};

} // namespace stowline
#pragma GCC visibility pop
