#include "devserver/BrowseService.h"

#include "devserver/Parameters.h"

#include <fmt/format.h>

namespace stowline::devserver {

namespace {

constexpr std::int64_t kLargestPage = 10000;

/// An answer that is only a result map with a code.
Dictionary refusal(const std::string& method, const char* code)
{
    return {{method + "Result", Dictionary{{"Code", code}}}};
}

bool isSignedIn(const AccountServiceContext& context, const Dictionary& parameters)
{
    return context.accounts.signIn(text(parameters, "userName"), text(parameters, "password"))
        .has_value();
}

Dictionary fileInfo(const StoredItem& item)
{
    return {{"Name", item.name},
            {"FileID", std::to_string(item.id)},
            {"IsFolder", item.isFolder ? "true" : "false"},
            {"Size", std::to_string(item.size)},
            {"Path", item.folder},
            {"SystemName", item.systemName},
            {"Modified", item.modified},
            {"Checksum", fmt::format("{:08x}", item.checksum)},
            {"Versions", std::to_string(item.versions)},
            {"IsPackage", item.isPackage ? "true" : "false"}};
}

Dictionary pageAnswer(const std::string& method, const std::optional<ItemPage>& page)
{
    if (!page)
        return refusal(method, "InvalidSortField");
    Array entries;
    for (const StoredItem& item : page->items)
        entries.emplace_back(fileInfo(item));
    Dictionary answer = refusal(method, "Success");
    answer.emplace("items", Dictionary{{"FileInfo", std::move(entries)}});
    answer.emplace("totalCount", std::to_string(page->totalCount));
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
        return refusal("GetAccountSystems", "InvalidUserNameOrPassword");
    Array systems;
    for (const std::string& name : context.storage.systems(text(parameters, "userName")))
        systems.emplace_back(Dictionary{{"SystemName", name}});
    Dictionary answer = refusal("GetAccountSystems", "Success");
    answer.emplace("systems", Dictionary{{"SystemInfo", std::move(systems)}});
    return answer;
}

Dictionary getFilesAndFolders(const AccountServiceContext& context, const Dictionary& parameters)
{
    constexpr const char* method = "GetAccountFilesAndFolders";
    if (!isSignedIn(context, parameters))
        return refusal(method, "InvalidUserNameOrPassword");
    return pageAnswer(method, context.storage.folder(queryFrom(parameters)));
}

Dictionary searchFiles(const AccountServiceContext& context, const Dictionary& parameters)
{
    constexpr const char* method = "SearchFilesEx";
    if (!isSignedIn(context, parameters))
        return refusal(method, "InvalidUserNameOrPassword");
    return pageAnswer(method,
                      context.storage.search(queryFrom(parameters), text(parameters, "fileName"),
                                             text(parameters, "fileExtensions")));
}

Dictionary getFileVersions(const AccountServiceContext& context, const Dictionary& parameters)
{
    constexpr const char* method = "GetFileVersions";
    if (!isSignedIn(context, parameters))
        return refusal(method, "InvalidUserNameOrPassword");
    Array versions;
    for (const StoredVersion& version :
         context.storage.versions(text(parameters, "userName"), number(parameters, "fileID")))
        versions.emplace_back(Dictionary{{"VersionID", std::to_string(version.id)},
                                         {"Size", std::to_string(version.size)},
                                         {"Date", version.clientDate},
                                         {"StoredAt", version.storedAt},
                                         {"Checksum", fmt::format("{:08x}", version.checksum)},
                                         {"IsDelta", version.isDelta ? "true" : "false"},
                                         {"BaselineKey", std::to_string(version.baselineVersion)},
                                         {"FileListID", version.listId}});
    if (versions.empty())
        return refusal(method, "NoSuchFile");
    Dictionary answer = refusal(method, "Success");
    answer.emplace("fileVersions", Dictionary{{"FileVersion", std::move(versions)}});
    return answer;
}

std::vector<Field> signedIn(std::vector<Field> more)
{
    std::vector<Field> fields{{.name = "userName"}, {.name = "password"}, {.name = "serverName"}};
    fields.insert(fields.end(), more.begin(), more.end());
    return fields;
}

Field resultField(const std::string& method)
{
    return {.name = method + "Result", .parts = {{.name = "Code"}}};
}

Field itemsField()
{
    return {.name = "items",
            .parts = {{.name = "FileInfo",
                       .isList = true,
                       .parts = {{.name = "Name"},
                                 {.name = "FileID"},
                                 {.name = "IsFolder"},
                                 {.name = "Size"},
                                 {.name = "Path"},
                                 {.name = "SystemName"},
                                 {.name = "Modified"},
                                 {.name = "Checksum"},
                                 {.name = "Versions"},
                                 {.name = "IsPackage"}}}}};
}

Field versionsField()
{
    return {.name = "fileVersions",
            .parts = {{.name = "FileVersion",
                       .isList = true,
                       .parts = {{.name = "VersionID"},
                                 {.name = "Size"},
                                 {.name = "Date"},
                                 {.name = "StoredAt"},
                                 {.name = "Checksum"},
                                 {.name = "IsDelta"},
                                 {.name = "BaselineKey"},
                                 {.name = "FileListID"}}}}};
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
    return {
        "BrowseService",
        "/BrowseService.asmx",
        "http://stowline.example/browse",
        {{"GetAccountSystems",
          "Names of the machines that have files stored.",
          signedIn({}),
          {resultField("GetAccountSystems"),
           {.name = "systems",
            .parts = {{.name = "SystemInfo", .isList = true, .parts = {{.name = "SystemName"}}}}}},
          with(context, getAccountSystems)},
         {"GetAccountFilesAndFolders",
          "One page of a folder.",
          listing,
          {resultField("GetAccountFilesAndFolders"), itemsField(), {.name = "totalCount"}},
          with(context, getFilesAndFolders)},
         {"GetFileVersions",
          "The versions of a file, newest first.",
          signedIn({{.name = "fileID"}}),
          {resultField("GetFileVersions"), versionsField()},
          with(context, getFileVersions)},
         {"SearchFilesEx",
          "One page of the files whose names match.",
          searching,
          {resultField("SearchFilesEx"), itemsField(), {.name = "totalCount"}},
          with(context, searchFiles)}}};
}

} // namespace stowline::devserver
