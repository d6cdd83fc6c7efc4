#include "stowline/service/WebMethodCatalogue.h"

#include "stowline/service/PartHeaders.h"
#include "stowline/service/Placeholders.h"

namespace stowline {

std::span<const WebMethodNeeds> webMethodCatalogue()
{
    using enum ResultPath;
    using namespace placeholder;
    static const std::vector<WebMethodNeeds> methods{
        {"Authenticate", {username, password}, 0, mustBeAbsent},
        {"CreateAccount", {firstName, username, password, emailId}, 0, isNeeded},
        {"CreateTrialAccount",
         {firstName, username, password, email, customerTypeCode, isSealGuard, secretQuestion,
          answer, referalCode},
         0,
         isNeeded},
        {"EncryptString", {sourceString}, 0, isNeeded},
        {"DecryptString", {sourceString}, 0, isNeeded},
        {"GetAccountUsedSpace", {username, password}, 0, isNeeded},
        {"GetAccountInfo",
         {username, password, installationId, osBits, systemName, productName, productVersion,
          osVersion},
         0,
         mayBe},
        {"GetPhyPath", {username, strRegistryId}, 1, isNeeded},
        {"getenckey", {username, password}, 1, isNeeded},
        {"PreparePackagedFilesForProtection",
         {username, password, packagePath, packageByteCount},
         1,
         isNeeded},
        {"GetAccountSystems", {username, password, serverName}, 0, mustBeAbsent},
        {"GetAccountFilesAndFolders",
         {username, password, serverName, systemName, path, sortField, sortDirection, startIndex,
          pageSize},
         0,
         mustBeAbsent},
        {"GetFileVersions", {username, password, serverName, fileId}, 0, mustBeAbsent},
        {"SearchFilesEx",
         {username, password, serverName, systemName, path, searchInSubfolders, fileName, fileType,
          fileExtensions, sortField, sortDirection, startIndex, pageSize},
         0,
         mustBeAbsent},
        {"getMetaDataAboutFilesToRecover",
         {strArrInp, timeOfRecovery, uname, errorMessage},
         1,
         mayBe},
        {"DeleteFilesInBulk", {uname, fileListId}, 1, isNeeded},
        {"ProtectFile",
         {username, password, systemName, path, fileName, uniqueId, sessionKey, localTime,
          originalFileSizeInBytes, serverPath},
         1,
         isNeeded},
        {"protect2",
         {username, password, actualFileName, actualFilePath, actualFileSize, encryptedFileName,
          encryptedFilePath, encryptedFileSize, clientDate, isDelta, systemName, cacheFileSize,
          uniqueKey, iIsCompressed, lngFileSizeInBytesFromClient, lngBaselinePkForThisDelta},
         1,
         isNeeded},
        {"GetRestoreTicket", {username, password}, 1, isNeeded, true},
        {"GetDeletedFiles",
         {username, password, systemName, path, since, startIndex, pageSize},
         1,
         isNeeded,
         true},
        {"UndeleteFiles", {username, password, systemName, path, since}, 1, isNeeded, true},
        {"GetSettings", {username, authToken, systemName}, 0, isNeeded},
        {"SendBackupSummaryReport",
         {username, password, reportDate, accountUsername, machineName, backupDate,
          numberOfFilesNotChanged, numberOfFilesBackedUp, numberOfFilesNotBackedUp,
          totalNumberOfFilesProcessed, totalDataTransfered},
         0,
         isNeeded},
        {"sendEmail",
         {strToAddress, strFromAddress, strSubject, strBody, blnIsHtmlFormat},
         0,
         isNeeded},
    };
    return methods;
}

std::span<const WebRequestNeeds> webRequestCatalogue()
{
    using namespace placeholder;
    static const std::vector<WebRequestNeeds> requests{
        {"GetServerPartInfo",
         {base64FileName, guid, base64Username, base64ServerDirPath},
         1,
         {partHeader::status}},
        {"UploadFilePart",
         {base64FileName, guid, base64Username, base64ServerDirPath, portionSize},
         1,
         {partHeader::status}},
        {"DownloadFilePart",
         {base64Username, ticket, versionId, offset, length},
         1,
         {partHeader::status, partHeader::reason, partHeader::checksum, partHeader::versionSize,
          partHeader::digest},
         true},
    };
    return requests;
}

std::span<const TemplateNeeds> templateCatalogue()
{
    using namespace placeholder;
    static const std::vector<TemplateNeeds> templates{
        {"BeginDeleteFolders", {username, password, systemName, path}, 1},
        {"CheckDeleteFolders", {username, password, processGuid}, 1},
        {"BeginCancelDeleteFolders", {username, password, processGuid}, 1},
        {"LogEvent",
         {eventType, username, authToken, systemName, backupDuration, clientVersion, clientDate,
          isScheduled, errorFilesCount, errorFilesSize, totalFilesCount, totalFilesSize,
          unchangedFilesCount, unchangedFilesSize, uploadedFilesCount, uploadedFilesSize},
         0},
    };
    return templates;
}

} // namespace stowline
