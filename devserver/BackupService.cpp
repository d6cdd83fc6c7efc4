#include "devserver/BackupService.h"

#include "devserver/Answers.h"
#include "devserver/GraceMethods.h"
#include "devserver/Parameters.h"
#include "devserver/PartEndpoint.h"
#include "stowline/platform/desktop/Cryptography.h"
#include "stowline/platform/text/Text.h"

namespace stowline::devserver {

namespace {

Value getPhyPath(const AccountServiceContext& context, const Dictionary& parameters)
{
    const std::string user = text(parameters, "userName");
    const auto account = context.accounts.details(user);
    return account ? context.storage.uploadPath(user, account->number,
                                                text(parameters, "strRegistryId"))
                   : std::string();
}

Value getEncryptionKey(const AccountServiceContext& context, const Dictionary& parameters)
{
    requireSignIn(context, parameters);
    return platform::keyedDigest("account key of " + text(parameters, "userName"),
                                 context.encryptionKey);
}

Value preparePackage(const AccountServiceContext& context, const Dictionary& parameters)
{
    requireSignIn(context, parameters);
    const std::string path = text(parameters, "packagePath");
    if (path.empty())
        return "InvalidPath";
    context.storage.notePackage(text(parameters, "userName"), path,
                                unsignedNumber(parameters, "packageByteCount"));
    return "Success";
}

/// "\\Volume\folder\" as "/Volume/folder".
std::string fromBackslashes(const std::string& path)
{
    const std::string slashed = platform::replacingOccurrences(path, "\\", "/");
    const auto start = slashed.find_first_not_of('/');
    return start == std::string::npos ? "" : "/" + slashed.substr(start);
}

Value protectFile(const AccountServiceContext& context, const Dictionary& parameters)
{
    requireSignIn(context, parameters);
    const std::string serverFile = text(parameters, "serverPath");
    const auto slash = serverFile.rfind('/');
    const std::uint64_t size = unsignedNumber(parameters, "originalFileSizeInBytes");
    const RegistrationOutcome outcome = context.storage.registerFile(
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
    if (outcome != RegistrationOutcome::success)
        throw ServiceFault("Client", "The file is not registered: " + codeOf(outcome));
    return codeOf(outcome);
}

Value protect2(const AccountServiceContext& context, const Dictionary& parameters)
{
    requireSignIn(context, parameters);
    const std::string key = text(parameters, "uniqueKey");
    const auto checksum = numberIn(key, "crc32", 16);
    return codeOf(context.storage.registerFile(
        {.place = {text(parameters, "userName"), text(parameters, "encryptedFilePath"),
                   text(parameters, "encryptedFileName")},
         .systemName = text(parameters, "systemName"),
         .folder = text(parameters, "actualFilePath"),
         .name = text(parameters, "actualFileName"),
         .size = unsignedNumber(parameters, "actualFileSize"),
         .uploadedSize = unsignedNumber(parameters, "encryptedFileSize"),
         .checksum = checksum ? std::optional(static_cast<std::uint32_t>(*checksum)) : std::nullopt,
         .clientDate = text(parameters, "clientDate"),
         .isDelta = text(parameters, "isDelta") == "1",
         .isCompressed = text(parameters, "iIsCompressed") == "1",
         .baselineVersion = number(parameters, "lngBaselinePkForThisDelta")}));
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

/// A version with how its content was found to be.
struct JudgedVersion : StoredVersion {
    ContentState state;
};

const std::vector<FieldOf<JudgedVersion>>& metaDataFields()
{
    static const std::vector<FieldOf<JudgedVersion>> fields{
        {"VersionID", &JudgedVersion::id},
        {"FileID", &JudgedVersion::fileId},
        {"SystemName", &JudgedVersion::systemName},
        {"Path", &JudgedVersion::folder},
        {"Name", &JudgedVersion::name},
        {"Size", &JudgedVersion::size},
        {"Checksum", checksumOf<JudgedVersion>(&JudgedVersion::checksum)},
        {"ServerPath", &JudgedVersion::serverFile},
        {"IsDelta", truthOf<JudgedVersion>(&JudgedVersion::isDelta)},
        {"BaselineKey", &JudgedVersion::baselineVersion},
        {"State", [](const JudgedVersion& version) { return nameOf(version.state); }},
        {"StoredSize", &JudgedVersion::storedSize},
        {"Digest", &JudgedVersion::digest}};
    return fields;
}

constexpr const char* kCode = "Code";
constexpr const char* kFiles = "files";
constexpr const char* kMetaData = "FileMetaData";

constexpr std::string_view kReadAll = "read:"; ///< asks for all content to be read

/// The chosen versions, each with the versions that it is a delta against.
Array metaDataOf(Storage& storage, const std::string& user, std::string_view numbers, bool readsAll)
{
    Array files;
    for (std::size_t start = 0; start <= numbers.size();) {
        const std::size_t end = std::min(numbers.find(',', start), numbers.size());
        std::int64_t wanted = platform::leadingInteger(numbers.substr(start, end - start));
        while (const auto version = storage.version(user, wanted)) {
            files.emplace_back(
                told(metaDataFields(), {*version, storage.contentState(*version, readsAll)}));
            if (!version->isDelta || version->baselineVersion >= version->id)
                break;
            wanted = version->baselineVersion;
        }
        start = end + 1;
    }
    return files;
}

/// Versions that there are not are left out of the answer.
Value metaDataToRecover(const AccountServiceContext& context, const Dictionary& parameters)
{
    const std::string chosen = text(parameters, "strArrInp");
    const bool readsAll = chosen.starts_with(kReadAll);
    const std::string_view numbers =
        std::string_view(chosen).substr(readsAll ? kReadAll.size() : 0);
    Array files = metaDataOf(context.storage, text(parameters, "uName"), numbers, readsAll);
    const char* code = files.empty() ? "NoSuchVersion" : "Success";
    return Dictionary{{kCode, code}, {kFiles, Dictionary{{kMetaData, std::move(files)}}}};
}

struct GivenTicket {
    std::string ticket;
    std::int64_t secondsToLive;
};

const std::vector<FieldOf<GivenTicket>>& ticketFields()
{
    static const std::vector<FieldOf<GivenTicket>> fields{
        {"Ticket", &GivenTicket::ticket}, {"SecondsToLive", &GivenTicket::secondsToLive}};
    return fields;
}

Value getRestoreTicket(const AccountServiceContext& context, const Dictionary& parameters)
{
    requireSignIn(context, parameters);
    if (!context.tickets)
        throw ServiceFault("Server", "This service issues no tickets");
    return told(ticketFields(), {context.tickets->give(text(parameters, "userName")),
                                 context.tickets->lifetime().count()});
}

Value deleteFiles(const AccountServiceContext& context, const Dictionary& parameters)
{
    const bool isDeleted =
        context.storage.deleteVersion(text(parameters, "uName"), text(parameters, "fileListId"));
    return truthText(isDeleted);
}

constexpr const char* kProcessGuid = "ProcessGuid";

const std::vector<FieldOf<DeletionState>>& deletionFields()
{
    static const std::vector<FieldOf<DeletionState>> fields{
        {"ProcessIsCompleted", truthOf(&DeletionState::isCompleted)},
        {"ProcessIsCancelled", truthOf(&DeletionState::isCancelled)},
        {"DeletedVersions", &DeletionState::deleted},
        {"AllVersions", &DeletionState::versions}};
    return fields;
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
    answer.emplace(kProcessGuid, *guid);
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
    answer.merge(told(deletionFields(), *state));
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
    std::vector<Field> progress = described(deletionFields());
    progress.insert(progress.begin(), codedResult("CheckDeleteFolders"));
    return {{"BeginDeleteFolders",
             "Starts the deletion of a folder.",
             {{.name = "userName"}, {.name = "password"}, {.name = "systemName"}, {.name = "path"}},
             {codedResult("BeginDeleteFolders"), {.name = kProcessGuid}},
             onDeletions(beginDeletion)},
            {"CheckDeleteFolders", "How far a deletion is.", process, progress,
             onDeletions(checkDeletion)},
            {"BeginCancelDeleteFolders",
             "Asks for a deletion to be cancelled.",
             process,
             {codedResult("BeginCancelDeleteFolders")},
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
               .parts = {{.name = kCode},
                         {.name = kFiles,
                          .parts = {{.name = kMetaData,
                                     .isList = true,
                                     .parts = described(metaDataFields())}}}}}},
             with(context, metaDataToRecover)},
            {"GetRestoreTicket",
             "Permission to read the account's content for a limited time.",
             {{.name = "userName"}, {.name = "password"}},
             {{.name = "GetRestoreTicketResult", .parts = described(ticketFields())}},
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
    for (const auto& methods :
         {accountMethods(context), registrationMethods(context), restoreMethods(context),
          deletionMethods(context, deletions), graceMethods(context)})
        service.methods.insert(service.methods.end(), methods.begin(), methods.end());
    return service;
}

} // namespace stowline::devserver
