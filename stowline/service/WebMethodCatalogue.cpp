#include "stowline/service/WebMethodCatalogue.h"

namespace stowline {

std::span<const WebMethodNeeds> webMethodCatalogue()
{
    using enum ResultPath;
    static const std::vector<WebMethodNeeds> methods{
        {"Authenticate", {"<<USERNAME>>", "<<PASSWORD>>"}, 0, mustBeAbsent},
        {"CreateAccount",
         {"<<FIRSTNAME>>", "<<USERNAME>>", "<<PASSWORD>>", "<<EMAILID>>"},
         0,
         isNeeded},
        {"CreateTrialAccount",
         {"<<FIRSTNAME>>", "<<USERNAME>>", "<<PASSWORD>>", "<<EMAIL>>", "<<CUSTOMERTYPECODE>>",
          "<<ISSEALGUARD>>", "<<SECRETQUESTION>>", "<<ANSWER>>", "<<REFERALCODE>>"},
         0,
         isNeeded},
        {"EncryptString", {"<<SOURCESTRING>>"}, 0, isNeeded},
        {"DecryptString", {"<<SOURCESTRING>>"}, 0, isNeeded},
        {"GetAccountUsedSpace", {"<<USERNAME>>", "<<PASSWORD>>"}, 0, isNeeded},
        {"GetAccountInfo",
         {"<<USERNAME>>", "<<PASSWORD>>", "<<INSTALLATIONID>>", "<<OSBITS>>", "<<SYSTEMNAME>>",
          "<<PRODUCTNAME>>", "<<PRODUCTVERSION>>", "<<OSVERSION>>"},
         0,
         mayBe},
        {"GetPhyPath", {"<<USERNAME>>", "<<STRREGISTRYID>>"}, 1, isNeeded},
        {"getenckey", {"<<USERNAME>>", "<<PASSWORD>>"}, 1, isNeeded},
        {"PreparePackagedFilesForProtection",
         {"<<USERNAME>>", "<<PASSWORD>>", "<<PACKAGEPATH>>", "<<PACKAGEBYTECOUNT>>"},
         1,
         isNeeded},
        {"GetAccountSystems", {"<<USERNAME>>", "<<PASSWORD>>", "<<SERVERNAME>>"}, 0, mustBeAbsent},
        {"GetAccountFilesAndFolders",
         {"<<USERNAME>>", "<<PASSWORD>>", "<<SERVERNAME>>", "<<SYSTEMNAME>>", "<<PATH>>",
          "<<SORTFIELD>>", "<<SORTDIRECTION>>", "<<STARTINDEX>>", "<<PAGESIZE>>"},
         0,
         mustBeAbsent},
        {"GetFileVersions",
         {"<<USERNAME>>", "<<PASSWORD>>", "<<SERVERNAME>>", "<<FILEID>>"},
         0,
         mustBeAbsent},
        {"SearchFilesEx",
         {"<<USERNAME>>", "<<PASSWORD>>", "<<SERVERNAME>>", "<<SYSTEMNAME>>", "<<PATH>>",
          "<<SEARCHINSUBFOLDERS>>", "<<FILENAME>>", "<<FILETYPE>>", "<<FILEEXTENSIONS>>",
          "<<SORTFIELD>>", "<<SORTDIRECTION>>", "<<STARTINDEX>>", "<<PAGESIZE>>"},
         0,
         mustBeAbsent},
        {"getMetaDataAboutFilesToRecover",
         {"<<STRARRINP>>", "<<TIMEOFRECOVERY>>", "<<UNAME>>", "<<ERRORMESSAGE>>"},
         1,
         mayBe},
        {"DeleteFilesInBulk", {"<<UNAME>>", "<<FILELISTID>>"}, 1, isNeeded},
        {"ProtectFile",
         {"<<USERNAME>>", "<<PASSWORD>>", "<<SYSTEMNAME>>", "<<PATH>>", "<<FILENAME>>",
          "<<UNIQUEID>>", "<<SESSIONKEY>>", "<<LOCALTIME>>", "<<ORIGINALFILESIZEINBYTES>>",
          "<<SERVERPATH>>"},
         1,
         isNeeded},
        {"protect2",
         {"<<USERNAME>>", "<<PASSWORD>>", "<<ACTUALFILE_NAME>>", "<<ACTUALFILE_PATH>>",
          "<<ACTUALFILE_SIZE>>", "<<ENCRYPTEDFILE_NAME>>", "<<ENCRYPTEDFILE_PATH>>",
          "<<ENCRYPTEDFILE_SIZE>>", "<<CLIENTDATE>>", "<<ISDELTA>>", "<<SYSTEMNAME>>",
          "<<CACHEFILESIZE>>", "<<UNIQUEKEY>>", "<<IISCOMPRESSED>>",
          "<<LNGFILESIZEINBYTESFROMCLIENT>>", "<<LNGBASELINEPKFORTHISDELTA>>"},
         1,
         isNeeded},
        {"GetRestoreTicket", {"<<USERNAME>>", "<<PASSWORD>>"}, 1, isNeeded, true},
        {"GetSettings", {"<<USERNAME>>", "<<AUTHTOKEN>>", "<<SYSTEMNAME>>"}, 0, isNeeded},
        {"SendBackupSummaryReport",
         {"<<USERNAME>>", "<<PASSWORD>>", "<<REPORTDATE>>", "<<ACCOUNTUSERNAME>>",
          "<<MACHINENAME>>", "<<BACKUPDATE>>", "<<NUMBEROFFILESNOTCHANGED>>",
          "<<NUMBEROFFILESBACKEDUP>>", "<<NUMBEROFFILESNOTBACKEDUP>>",
          "<<TOTALNUMBEROFFILESPROCESSED>>", "<<TOTALDATATRANSFERED>>"},
         0,
         isNeeded},
        {"sendEmail",
         {"<<STRTOADDRESS>>", "<<STRFROMADDRESS>>", "<<STRSUBJECT>>", "<<STRBODY>>",
          "<<BLNISHTMLFORMAT>>"},
         0,
         isNeeded},
    };
    return methods;
}

std::span<const WebRequestNeeds> webRequestCatalogue()
{
    static const std::vector<WebRequestNeeds> requests{
        {"GetServerPartInfo",
         {"<<BASE64FILENAME>>", "<<GUID>>", "<<BASE64USERNAME>>", "<<BASE64SERVERDIRPATH>>"},
         1,
         {"Status"}},
        {"UploadFilePart",
         {"<<BASE64FILENAME>>", "<<GUID>>", "<<BASE64USERNAME>>", "<<BASE64SERVERDIRPATH>>",
          "<<PORTIONSIZE>>"},
         1,
         {"Status"}},
        {"DownloadFilePart",
         {"<<BASE64USERNAME>>", "<<TICKET>>", "<<VERSIONID>>", "<<OFFSET>>", "<<LENGTH>>"},
         1,
         {"Status", "X-Reason", "X-Checksum", "X-VersionSize", "X-Digest"},
         true},
    };
    return requests;
}

std::span<const TemplateNeeds> templateCatalogue()
{
    static const std::vector<TemplateNeeds> templates{
        {"BeginDeleteFolders", {"<<USERNAME>>", "<<PASSWORD>>", "<<SYSTEMNAME>>", "<<PATH>>"}, 1},
        {"CheckDeleteFolders", {"<<USERNAME>>", "<<PASSWORD>>", "<<PROCESSGUID>>"}, 1},
        {"BeginCancelDeleteFolders", {"<<USERNAME>>", "<<PASSWORD>>", "<<PROCESSGUID>>"}, 1},
        {"LogEvent",
         {"<<EVENTTYPE>>", "<<USERNAME>>", "<<AUTHTOKEN>>", "<<SYSTEMNAME>>", "<<BACKUPDURATION>>",
          "<<CLIENTVERSION>>", "<<CLIENTDATE>>", "<<ISSCHEDULED>>", "<<ERRORFILESCOUNT>>",
          "<<ERRORFILESSIZE>>", "<<TOTALFILESCOUNT>>", "<<TOTALFILESSIZE>>",
          "<<UNCHANGEDFILESCOUNT>>", "<<UNCHANGEDFILESSIZE>>", "<<UPLOADEDFILESCOUNT>>",
          "<<UPLOADEDFILESSIZE>>"},
         0},
    };
    return templates;
}

} // namespace stowline
