#include "devserver/BrowseService.h"

#include "devserver/Answers.h"
#include "devserver/Parameters.h"

namespace stowline::devserver {

namespace {

constexpr std::int64_t kLargestPage = 10000;

/// An element that holds elements of one kind, any number of them.
struct ListName {
    const char* list;
    const char* entry;
};
constexpr ListName kSystems{"systems", "SystemInfo"};
constexpr ListName kItems{"items", "FileInfo"};
constexpr ListName kVersions{"fileVersions", "FileVersion"};
constexpr const char* kSystemName = "SystemName";
constexpr const char* kTotalCount = "totalCount";

Field described(const ListName& name, std::vector<Field> parts)
{
    return {.name = name.list,
            .parts = {{.name = name.entry, .isList = true, .parts = std::move(parts)}}};
}

void add(Dictionary& answer, const ListName& name, Array entries)
{
    answer.emplace(name.list, Dictionary{{name.entry, std::move(entries)}});
}

bool isSignedIn(const AccountServiceContext& context, const Dictionary& parameters)
{
    return context.accounts.signIn(text(parameters, "userName"), text(parameters, "password"))
        .has_value();
}

const std::vector<FieldOf<StoredItem>>& itemFields()
{
    static const std::vector<FieldOf<StoredItem>> fields{
        {"Name", &StoredItem::name},
        {"FileID", &StoredItem::id},
        {"IsFolder", truthOf(&StoredItem::isFolder)},
        {"Size", &StoredItem::size},
        {"Path", &StoredItem::folder},
        {kSystemName, &StoredItem::systemName},
        {"Modified", &StoredItem::modified},
        {"Checksum", checksumOf(&StoredItem::checksum)},
        {"Versions", &StoredItem::versions},
        {"IsPackage", truthOf(&StoredItem::isPackage)}};
    return fields;
}

const std::vector<FieldOf<StoredVersion>>& versionFields()
{
    static const std::vector<FieldOf<StoredVersion>> fields{
        {"VersionID", &StoredVersion::id},
        {"Size", &StoredVersion::size},
        {"Date", &StoredVersion::clientDate},
        {"StoredAt", &StoredVersion::storedAt},
        {"Checksum", checksumOf(&StoredVersion::checksum)},
        {"IsDelta", truthOf(&StoredVersion::isDelta)},
        {"BaselineKey", &StoredVersion::baselineVersion},
        {"FileListID", &StoredVersion::listId}};
    return fields;
}

Dictionary pageAnswer(const std::string& method, const std::optional<ItemPage>& page)
{
    if (!page)
        return coded(method, "InvalidSortField");
    Array entries;
    for (const StoredItem& item : page->items)
        entries.emplace_back(told(itemFields(), item));
    Dictionary answer = coded(method, "Success");
    add(answer, kItems, std::move(entries));
    answer.emplace(kTotalCount, std::to_string(page->totalCount));
    return answer;
}

ItemQuery queryFrom(const Dictionary& parameters)
{
    return {.userName = text(parameters, "userName"),
            .systemName = text(parameters, "systemName"),
            .folder = text(parameters, "path"),
            .sortField = text(parameters, "sortField"),
            .isAscending = text(parameters, "sortDirection") != "Descending",
            .startIndex = number(parameters, "startIndex"),
            .pageSize = std::min(number(parameters, "pageSize"), kLargestPage)};
}

Dictionary getAccountSystems(const AccountServiceContext& context, const Dictionary& parameters)
{
    if (!isSignedIn(context, parameters))
        return coded("GetAccountSystems", "InvalidUserNameOrPassword");
    Array systems;
    for (const std::string& name : context.storage.systems(text(parameters, "userName")))
        systems.emplace_back(Dictionary{{kSystemName, name}});
    Dictionary answer = coded("GetAccountSystems", "Success");
    add(answer, kSystems, std::move(systems));
    return answer;
}

Dictionary getFilesAndFolders(const AccountServiceContext& context, const Dictionary& parameters)
{
    constexpr const char* method = "GetAccountFilesAndFolders";
    if (!isSignedIn(context, parameters))
        return coded(method, "InvalidUserNameOrPassword");
    return pageAnswer(method, context.storage.folder(queryFrom(parameters)));
}

Dictionary searchFiles(const AccountServiceContext& context, const Dictionary& parameters)
{
    constexpr const char* method = "SearchFilesEx";
    if (!isSignedIn(context, parameters))
        return coded(method, "InvalidUserNameOrPassword");
    return pageAnswer(method,
                      context.storage.search(queryFrom(parameters), text(parameters, "fileName"),
                                             text(parameters, "fileExtensions")));
}

Dictionary getFileVersions(const AccountServiceContext& context, const Dictionary& parameters)
{
    constexpr const char* method = "GetFileVersions";
    if (!isSignedIn(context, parameters))
        return coded(method, "InvalidUserNameOrPassword");
    Array versions;
    for (const StoredVersion& version :
         context.storage.versions(text(parameters, "userName"), number(parameters, "fileID")))
        versions.emplace_back(told(versionFields(), version));
    if (versions.empty())
        return coded(method, "NoSuchFile");
    Dictionary answer = coded(method, "Success");
    add(answer, kVersions, std::move(versions));
    return answer;
}

std::vector<Field> signedIn(std::vector<Field> more)
{
    std::vector<Field> fields{{.name = "userName"}, {.name = "password"}, {.name = "serverName"}};
    fields.insert(fields.end(), more.begin(), more.end());
    return fields;
}

} // namespace

Service browseService(const AccountServiceContext& context)
{
    const std::vector<Field> paging{{.name = "sortField"},
                                    {.name = "sortDirection"},
                                    {.name = "startIndex"},
                                    {.name = "pageSize"}};
    std::vector<Field> listing = signedIn({{.name = "systemName"}, {.name = "path"}});
    listing.insert(listing.end(), paging.begin(), paging.end());
    std::vector<Field> searching = signedIn({{.name = "systemName"},
                                             {.name = "path"},
                                             {.name = "searchInSubfolders"},
                                             {.name = "fileName"},
                                             {.name = "fileType"},
                                             {.name = "fileExtensions"}});
    searching.insert(searching.end(), paging.begin(), paging.end());
    return {"BrowseService",
            "/BrowseService.asmx",
            "http://stowline.example/browse",
            {{"GetAccountSystems",
              "Names of the machines that have files stored.",
              signedIn({}),
              {codedResult("GetAccountSystems"), described(kSystems, {{.name = kSystemName}})},
              with(context, getAccountSystems)},
             {"GetAccountFilesAndFolders",
              "One page of a folder.",
              listing,
              {codedResult("GetAccountFilesAndFolders"),
               described(kItems, described(itemFields())),
               {.name = kTotalCount}},
              with(context, getFilesAndFolders)},
             {"GetFileVersions",
              "The versions of a file, newest first.",
              signedIn({{.name = "fileID"}}),
              {codedResult("GetFileVersions"), described(kVersions, described(versionFields()))},
              with(context, getFileVersions)},
             {"SearchFilesEx",
              "One page of the files whose names match.",
              searching,
              {codedResult("SearchFilesEx"),
               described(kItems, described(itemFields())),
               {.name = kTotalCount}},
              with(context, searchFiles)}}};
}

} // namespace stowline::devserver
