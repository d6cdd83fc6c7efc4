// The names of the placeholders that templates and headers of the settings may hold.
#pragma once

namespace stowline::placeholder {

// Spelt as the settings spell them. The catalogue says which of them each operation fills.

// Who asks.
inline constexpr const char* username = "<<USERNAME>>";
inline constexpr const char* password = "<<PASSWORD>>";
inline constexpr const char* uname = "<<UNAME>>";
inline constexpr const char* authToken = "<<AUTHTOKEN>>";
inline constexpr const char* ticket = "<<TICKET>>";
inline constexpr const char* base64Username = "<<BASE64USERNAME>>";

// Accounts.
inline constexpr const char* firstName = "<<FIRSTNAME>>";
inline constexpr const char* emailId = "<<EMAILID>>";
inline constexpr const char* email = "<<EMAIL>>";
inline constexpr const char* customerTypeCode = "<<CUSTOMERTYPECODE>>";
inline constexpr const char* isSealGuard = "<<ISSEALGUARD>>";
inline constexpr const char* secretQuestion = "<<SECRETQUESTION>>";
inline constexpr const char* answer = "<<ANSWER>>";
inline constexpr const char* referalCode = "<<REFERALCODE>>";
inline constexpr const char* sourceString = "<<SOURCESTRING>>";

// The machine and the program on it.
inline constexpr const char* installationId = "<<INSTALLATIONID>>";
inline constexpr const char* osBits = "<<OSBITS>>";
inline constexpr const char* osVersion = "<<OSVERSION>>";
inline constexpr const char* productName = "<<PRODUCTNAME>>";
inline constexpr const char* productVersion = "<<PRODUCTVERSION>>";
inline constexpr const char* strRegistryId = "<<STRREGISTRYID>>";
inline constexpr const char* systemName = "<<SYSTEMNAME>>";

// What is stored, and how it is listed.
inline constexpr const char* serverName = "<<SERVERNAME>>";
inline constexpr const char* path = "<<PATH>>";
inline constexpr const char* fileName = "<<FILENAME>>";
inline constexpr const char* fileId = "<<FILEID>>";
inline constexpr const char* fileType = "<<FILETYPE>>";
inline constexpr const char* fileExtensions = "<<FILEEXTENSIONS>>";
inline constexpr const char* searchInSubfolders = "<<SEARCHINSUBFOLDERS>>";
inline constexpr const char* sortField = "<<SORTFIELD>>";
inline constexpr const char* sortDirection = "<<SORTDIRECTION>>";
inline constexpr const char* startIndex = "<<STARTINDEX>>";
inline constexpr const char* pageSize = "<<PAGESIZE>>";
inline constexpr const char* since = "<<SINCE>>";
inline constexpr const char* processGuid = "<<PROCESSGUID>>";

// Getting back and deleting.
inline constexpr const char* strArrInp = "<<STRARRINP>>";
inline constexpr const char* timeOfRecovery = "<<TIMEOFRECOVERY>>";
inline constexpr const char* errorMessage = "<<ERRORMESSAGE>>";
inline constexpr const char* fileListId = "<<FILELISTID>>";
inline constexpr const char* versionId = "<<VERSIONID>>";
inline constexpr const char* offset = "<<OFFSET>>";
inline constexpr const char* length = "<<LENGTH>>";

// Uploads.
inline constexpr const char* base64FileName = "<<BASE64FILENAME>>";
inline constexpr const char* guid = "<<GUID>>";
inline constexpr const char* base64ServerDirPath = "<<BASE64SERVERDIRPATH>>";
inline constexpr const char* portionSize = "<<PORTIONSIZE>>";
inline constexpr const char* packagePath = "<<PACKAGEPATH>>";
inline constexpr const char* packageByteCount = "<<PACKAGEBYTECOUNT>>";
inline constexpr const char* uniqueId = "<<UNIQUEID>>";
inline constexpr const char* sessionKey = "<<SESSIONKEY>>";
inline constexpr const char* localTime = "<<LOCALTIME>>";
inline constexpr const char* originalFileSizeInBytes = "<<ORIGINALFILESIZEINBYTES>>";
inline constexpr const char* serverPath = "<<SERVERPATH>>";
inline constexpr const char* actualFileName = "<<ACTUALFILE_NAME>>";
inline constexpr const char* actualFilePath = "<<ACTUALFILE_PATH>>";
inline constexpr const char* actualFileSize = "<<ACTUALFILE_SIZE>>";
inline constexpr const char* encryptedFileName = "<<ENCRYPTEDFILE_NAME>>";
inline constexpr const char* encryptedFilePath = "<<ENCRYPTEDFILE_PATH>>";
inline constexpr const char* encryptedFileSize = "<<ENCRYPTEDFILE_SIZE>>";
inline constexpr const char* clientDate = "<<CLIENTDATE>>";
inline constexpr const char* isDelta = "<<ISDELTA>>";
inline constexpr const char* cacheFileSize = "<<CACHEFILESIZE>>";
inline constexpr const char* uniqueKey = "<<UNIQUEKEY>>";
inline constexpr const char* iIsCompressed = "<<IISCOMPRESSED>>";
inline constexpr const char* lngFileSizeInBytesFromClient = "<<LNGFILESIZEINBYTESFROMCLIENT>>";
inline constexpr const char* lngBaselinePkForThisDelta = "<<LNGBASELINEPKFORTHISDELTA>>";

// Reports.
inline constexpr const char* reportDate = "<<REPORTDATE>>";
inline constexpr const char* accountUsername = "<<ACCOUNTUSERNAME>>";
inline constexpr const char* machineName = "<<MACHINENAME>>";
inline constexpr const char* backupDate = "<<BACKUPDATE>>";
inline constexpr const char* numberOfFilesNotChanged = "<<NUMBEROFFILESNOTCHANGED>>";
inline constexpr const char* numberOfFilesBackedUp = "<<NUMBEROFFILESBACKEDUP>>";
inline constexpr const char* numberOfFilesNotBackedUp = "<<NUMBEROFFILESNOTBACKEDUP>>";
inline constexpr const char* totalNumberOfFilesProcessed = "<<TOTALNUMBEROFFILESPROCESSED>>";
inline constexpr const char* totalDataTransfered = "<<TOTALDATATRANSFERED>>";
inline constexpr const char* strToAddress = "<<STRTOADDRESS>>";
inline constexpr const char* strFromAddress = "<<STRFROMADDRESS>>";
inline constexpr const char* strSubject = "<<STRSUBJECT>>";
inline constexpr const char* strBody = "<<STRBODY>>";
inline constexpr const char* blnIsHtmlFormat = "<<BLNISHTMLFORMAT>>";

// Monitoring.
inline constexpr const char* eventType = "<<EVENTTYPE>>";
inline constexpr const char* backupDuration = "<<BACKUPDURATION>>";
inline constexpr const char* clientVersion = "<<CLIENTVERSION>>";
inline constexpr const char* isScheduled = "<<ISSCHEDULED>>";
inline constexpr const char* errorFilesCount = "<<ERRORFILESCOUNT>>";
inline constexpr const char* errorFilesSize = "<<ERRORFILESSIZE>>";
inline constexpr const char* totalFilesCount = "<<TOTALFILESCOUNT>>";
inline constexpr const char* totalFilesSize = "<<TOTALFILESSIZE>>";
inline constexpr const char* unchangedFilesCount = "<<UNCHANGEDFILESCOUNT>>";
inline constexpr const char* unchangedFilesSize = "<<UNCHANGEDFILESSIZE>>";
inline constexpr const char* uploadedFilesCount = "<<UPLOADEDFILESCOUNT>>";
inline constexpr const char* uploadedFilesSize = "<<UPLOADEDFILESSIZE>>";

} // namespace stowline::placeholder
