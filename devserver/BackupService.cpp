#include "devserver/BackupService.h"

#include "devserver/Parameters.h"
#include "devserver/PartEndpoint.h"
#include "stowline/platform/desktop/Cryptography.h"
#include "stowline/platform/text/Text.h"

#include <fmt/format.h>

namespace stowline::devserver {

namespace {

Dictionary getPhyPath(const AccountServiceContext& context, const Dictionary& parameters)
{
    const std::string user = text(parameters, "userName");
    const auto account = context.accounts.details(user);
    return {{"GetPhyPathResult", account
                                     ? context.storage.uploadPath(user, account->number,
                                                                  text(parameters, "strRegistryId"))
                                     : std::string()}};
}

Dictionary getEncryptionKey(const AccountServiceContext& context, const Dictionary& parameters)
{
    requireSignIn(context, parameters);
    return {
        {"getenckeyResult", platform::keyedDigest("account key of " + text(parameters, "userName"),
                                                  context.encryptionKey)}};
}

Dictionary preparePackage(const AccountServiceContext& context, const Dictionary& parameters)
{
    requireSignIn(context, parameters);
    const std::string path = text(parameters, "packagePath");
    if (path.empty())
        return {{"PreparePackagedFilesForProtectionResult", "InvalidPath"}};
    context.storage.notePackage(text(parameters, "userName"), path,
                                unsignedNumber(parameters, "packageByteCount"));
    return {{"PreparePackagedFilesForProtectionResult", "Success"}};
}

/// "\\Volume\folder\" as "/Volume/folder".
std::string fromBackslashes(const std::string& path)
{
    const std::string slashed = platform::replacingOccurrences(path, "\\", "/");
    const auto start = slashed.find_first_not_of('/');
    return start == std::string::npos ? "" : "/" + slashed.substr(start);
}

Dictionary protectFile(const AccountServiceContext& context, const Dictionary& parameters)
{
    requireSignIn(context, parameters);
    const std::string serverFile = text(parameters, "serverPath");
    const auto slash = serverFile.rfind('/');
    const std::uint64_t size = unsignedNumber(parameters, "originalFileSizeInBytes");
    const std::string code = context.storage.registerFile(
        {.place = {text(parameters, "userName"),
                   slash == std::string::npos ? "" : serverFile.substr(0, slash + 1),
                   slash == std::string::npos ? serverFile : serverFile.substr(slash + 1)},
         .systemName = text(parameters, "systemName"),
         .folder = fromBackslashes(text(parameters, "path")),
         .name = text(parameters, "fileName"),
         .size = size,
         .uploadedSize = size,
         .clientDate = text(parameters, "localTime")});
    // The client takes any result for a success.
    if (code != "Success")
        throw ServiceFault("Client", "The file is not registered: " + code);
    return {{"ProtectFileResult", code}};
}

Dictionary protect2(const AccountServiceContext& context, const Dictionary& parameters)
{
    requireSignIn(context, parameters);
    const std::string key = text(parameters, "uniqueKey");
    const auto checksum = numberIn(key, "crc32", 16);
    return {{"protect2Result",
             context.storage.registerFile(
                 {.place = {text(parameters, "userName"), text(parameters, "encryptedFilePath"),
                            text(parameters, "encryptedFileName")},
                  .systemName = text(parameters, "systemName"),
                  .folder = text(parameters, "actualFilePath"),
                  .name = text(parameters, "actualFileName"),
                  .size = unsignedNumber(parameters, "actualFileSize"),
                  .uploadedSize = unsignedNumber(parameters, "encryptedFileSize"),
                  .checksum = checksum ? std::optional(static_cast<std::uint32_t>(*checksum))
                                       : std::nullopt,
                  .clientDate = text(parameters, "clientDate"),
                  .isDelta = text(parameters, "isDelta") == "1",
                  .isCompressed = text(parameters, "iIsCompressed") == "1",
                  .baselineVersion = number(parameters, "lngBaselinePkForThisDelta")})}};
}

const char* nameOf(ContentState state)
{
    switch (state) {
    case ContentState::whole:
        return "Whole";
    case ContentState::missing:
        return "Missing";
    case ContentState::damaged:
        return "Damaged";
    }
    return "";
}

Dictionary metaData(const StoredVersion& version, ContentState state)
{
    return {{"VersionID", std::to_string(version.id)},
            {"FileID", std::to_string(version.fileId)},
            {"SystemName", version.systemName},
            {"Path", version.folder},
            {"Name", version.name},
            {"Size", std::to_string(version.size)},
            {"Checksum", fmt::format("{:08x}", version.checksum)},
            {"ServerPath", version.serverFile},
            {"IsDelta", version.isDelta ? "true" : "false"},
            {"BaselineKey", std::to_string(version.baselineVersion)},
            {"State", nameOf(state)},
            {"StoredSize", std::to_string(version.storedSize)},
            {"Digest", version.digest}};
}

constexpr std::string_view kReadAll = "read:"; ///< asks for all content to be read

/// The chosen versions, each with the versions that it is a delta against.
Array metaDataOf(Storage& storage, const std::string& user, std::string_view numbers, bool readsAll)
{
    Array files;
    for (std::size_t start = 0; start <= numbers.size();) {
        const std::size_t end = std::min(numbers.find(',', start), numbers.size());
        std::int64_t wanted = platform::leadingInteger(numbers.substr(start, end - start));
        while (const auto version = storage.version(user, wanted)) {
            files.emplace_back(metaData(*version, storage.contentState(*version, readsAll)));
            if (!version->isDelta || version->baselineVersion >= version->id)
                break;
            wanted = version->baselineVersion;
        }
        start = end + 1;
    }
    return files;
}

/// Versions that there are not are left out of the answer.
Dictionary metaDataToRecover(const AccountServiceContext& context, const Dictionary& parameters)
{
    const std::string chosen = text(parameters, "strArrInp");
    const bool readsAll = chosen.starts_with(kReadAll);
    const std::string_view numbers =
        std::string_view(chosen).substr(readsAll ? kReadAll.size() : 0);
    Array files = metaDataOf(context.storage, text(parameters, "uName"), numbers, readsAll);
    const char* code = files.empty() ? "NoSuchVersion" : "Success";
    return {
        {"getMetaDataAboutFilesToRecoverResult",
         Dictionary{{"Code", code}, {"files", Dictionary{{"FileMetaData", std::move(files)}}}}}};
}

Dictionary getRestoreTicket(const AccountServiceContext& context, const Dictionary& parameters)
{
    requireSignIn(context, parameters);
    if (!context.tickets)
        throw ServiceFault("Server", "This service gives no tickets");
    return {{"GetRestoreTicketResult",
             Dictionary{{"Ticket", context.tickets->give(text(parameters, "userName"))},
                        {"SecondsToLive", std::to_string(context.tickets->lifetime().count())}}}};
}

Dictionary deleteFiles(const AccountServiceContext& context, const Dictionary& parameters)
{
    const bool isDeleted =
        context.storage.deleteVersion(text(parameters, "uName"), text(parameters, "fileListId"));
    return {{"DeleteFilesInBulkResult", isDeleted ? "true" : "false"}};
}

Dictionary coded(const std::string& method, const char* code)
{
    return {{method + "Result", Dictionary{{"Code", code}}}};
}

Dictionary beginDeletion(const AccountServiceContext& context, Deletions& deletions,
                         const Dictionary& parameters)
{
    constexpr const char* method = "BeginDeleteFolders";
    requireSignIn(context, parameters);
    const auto guid = deletions.begin(text(parameters, "userName"), text(parameters, "systemName"),
                                      text(parameters, "path"));
    if (!guid)
        return coded(method, "NoSuchFolder");
    Dictionary answer = coded(method, "Success");
    answer.emplace("ProcessGuid", *guid);
    return answer;
}

Dictionary checkDeletion(const AccountServiceContext& context, Deletions& deletions,
                         const Dictionary& parameters)
{
    constexpr const char* method = "CheckDeleteFolders";
    requireSignIn(context, parameters);
    const auto state =
        deletions.state(text(parameters, "userName"), text(parameters, "processGuid"));
    if (!state)
        return coded(method, "NoSuchProcess");
    Dictionary answer = coded(method, "Success");
    answer.emplace("ProcessIsCompleted", state->isCompleted ? "true" : "false");
    answer.emplace("ProcessIsCancelled", state->isCancelled ? "true" : "false");
    answer.emplace("DeletedVersions", std::to_string(state->deleted));
    answer.emplace("AllVersions", std::to_string(state->versions));
    return answer;
}

Dictionary cancelDeletion(const AccountServiceContext& context, Deletions& deletions,
                          const Dictionary& parameters)
{
    requireSignIn(context, parameters);
    deletions.cancel(text(parameters, "userName"), text(parameters, "processGuid"));
    return coded("BeginCancelDeleteFolders", "Success");
}

std::vector<ServiceMethod> deletionMethods(const AccountServiceContext& context,
                                           Deletions& deletions)
{
    const auto onDeletions = [&context, &deletions](auto method) {
        return [&context, &deletions, method](const Dictionary& parameters) {
            return method(context, deletions, parameters);
        };
    };
    const std::vector<Field> process{
        {.name = "userName"}, {.name = "password"}, {.name = "processGuid"}};
    const auto result = [](const std::string& method) {
        return Field{.name = method + "Result", .parts = {{.name = "Code"}}};
    };
    return {{"BeginDeleteFolders",
             "Starts the deletion of a folder.",
             {{.name = "userName"}, {.name = "password"}, {.name = "systemName"}, {.name = "path"}},
             {result("BeginDeleteFolders"), {.name = "ProcessGuid"}},
             onDeletions(beginDeletion)},
            {"CheckDeleteFolders",
             "How far a deletion is.",
             process,
             {result("CheckDeleteFolders"),
              {.name = "ProcessIsCompleted"},
              {.name = "ProcessIsCancelled"},
              {.name = "DeletedVersions"},
              {.name = "AllVersions"}},
             onDeletions(checkDeletion)},
            {"BeginCancelDeleteFolders",
             "Asks for a deletion to be cancelled.",
             process,
             {result("BeginCancelDeleteFolders")},
             onDeletions(cancelDeletion)}};
}

std::vector<ServiceMethod> accountMethods(const AccountServiceContext& context)
{
    return {{"GetPhyPath",
             "The path below which a client uploads.",
             {{.name = "userName"}, {.name = "strRegistryId"}},
             {{.name = "GetPhyPathResult"}},
             with(context, getPhyPath)},
            {"getenckey",
             "The account's encryption key.",
             {{.name = "userName"}, {.name = "password"}},
             {{.name = "getenckeyResult"}},
             with(context, getEncryptionKey)},
            {"PreparePackagedFilesForProtection",
             "Announces a package whose files are about to be protected.",
             {{.name = "userName"},
              {.name = "password"},
              {.name = "packagePath"},
              {.name = "packageByteCount"}},
             {{.name = "PreparePackagedFilesForProtectionResult"}},
             with(context, preparePackage)}};
}

std::vector<ServiceMethod> registrationMethods(const AccountServiceContext& context)
{
    return {{"ProtectFile",
             "Registers an uploaded file.",
             {{.name = "userName"},
              {.name = "password"},
              {.name = "systemName"},
              {.name = "path"},
              {.name = "fileName"},
              {.name = "uniqueId"},
              {.name = "sessionKey"},
              {.name = "localTime"},
              {.name = "originalFileSizeInBytes"},
              {.name = "serverPath"}},
             {{.name = "ProtectFileResult"}},
             with(context, protectFile)},
            {"protect2",
             "Registers an uploaded file, with its size and date on the client.",
             {{.name = "userName"},
              {.name = "password"},
              {.name = "actualFileName"},
              {.name = "actualFilePath"},
              {.name = "actualFileSize"},
              {.name = "encryptedFileName"},
              {.name = "encryptedFilePath"},
              {.name = "encryptedFileSize"},
              {.name = "clientDate"},
              {.name = "isDelta"},
              {.name = "systemName"},
              {.name = "cacheFileSize"},
              {.name = "uniqueKey"},
              {.name = "iIsCompressed"},
              {.name = "lngFileSizeInBytesFromClient"},
              {.name = "lngBaselinePkForThisDelta"}},
             {{.name = "protect2Result"}},
             with(context, protect2)}};
}

std::vector<ServiceMethod> restoreMethods(const AccountServiceContext& context)
{
    return {{"getMetaDataAboutFilesToRecover",
             "What is needed to recover versions, given by their numbers with commas between, and"
             " how their content is; after read: all of it is read for that.",
             {{.name = "strArrInp"},
              {.name = "timeOfRecovery"},
              {.name = "uName"},
              {.name = "errorMessage", .nillable = true}},
             {{.name = "getMetaDataAboutFilesToRecoverResult",
               .parts = {{.name = "Code"},
                         {.name = "files",
                          .parts = {{.name = "FileMetaData",
                                     .isList = true,
                                     .parts = {{.name = "VersionID"},
                                               {.name = "FileID"},
                                               {.name = "SystemName"},
                                               {.name = "Path"},
                                               {.name = "Name"},
                                               {.name = "Size"},
                                               {.name = "Checksum"},
                                               {.name = "ServerPath"},
                                               {.name = "IsDelta"},
                                               {.name = "BaselineKey"},
                                               {.name = "State"},
                                               {.name = "StoredSize"},
                                               {.name = "Digest"}}}}}}}},
             with(context, metaDataToRecover)},
            {"GetRestoreTicket",
             "Leave to read the account's content for some time.",
             {{.name = "userName"}, {.name = "password"}},
             {{.name = "GetRestoreTicketResult",
               .parts = {{.name = "Ticket"}, {.name = "SecondsToLive"}}}},
             with(context, getRestoreTicket)},
            {"DeleteFilesInBulk",
             "Deletes the versions of a list.",
             {{.name = "uName"}, {.name = "fileListId"}},
             {{.name = "DeleteFilesInBulkResult"}},
             with(context, deleteFiles)}};
}

} // namespace

Service backupService(const AccountServiceContext& context, Deletions& deletions)
{
    Service service{"BackupService", "/BackupService.asmx", "http://stowline.example/backup", {}};
    for (const auto& methods : {accountMethods(context), registrationMethods(context),
                                restoreMethods(context), deletionMethods(context, deletions)})
        service.methods.insert(service.methods.end(), methods.begin(), methods.end());
    return service;
}

} // namespace stowline::devserver
