#include "devserver/GraceMethods.h"

#include "devserver/Answers.h"
#include "devserver/Parameters.h"
#include "stowline/platform/text/Numbers.h"

#include <algorithm>

namespace stowline::devserver {

namespace {

constexpr std::int64_t kLargestPage = 10000;
constexpr std::int64_t kMostAtOnce = 2000; ///< brought back by one call

constexpr const char* kCode = "Code";
constexpr const char* kFiles = "files";
constexpr const char* kDeletedFile = "DeletedFile";

const std::vector<FieldOf<DeletedVersion>>& versionFields()
{
    using Deleted = const DeletedVersion&;
    static const std::vector<FieldOf<DeletedVersion>> fields{
        {"VersionID", [](Deleted deleted) { return std::to_string(deleted.version.id); }},
        {"SystemName", [](Deleted deleted) { return deleted.version.systemName; }},
        {"Path", [](Deleted deleted) { return deleted.version.folder; }},
        {"Name", [](Deleted deleted) { return deleted.version.name; }},
        {"Size", [](Deleted deleted) { return std::to_string(deleted.version.size); }},
        {"StoredAt", [](Deleted deleted) { return deleted.version.storedAt; }},
        {"DeletedAt", &DeletedVersion::deletedAt},
        {"KeptUntil", &DeletedVersion::keptUntil}};
    return fields;
}

struct DeletedFigures {
    std::int64_t count;
    std::uint64_t bytes;
    std::int64_t graceSeconds;
    std::int64_t left;
};

const std::vector<FieldOf<DeletedFigures>>& figureFields()
{
    static const std::vector<FieldOf<DeletedFigures>> fields{
        {"TotalCount", &DeletedFigures::count},
        {"TotalSize", &DeletedFigures::bytes},
        {"GraceSeconds", &DeletedFigures::graceSeconds},
        {"Left", &DeletedFigures::left}};
    return fields;
}

const std::vector<FieldOf<Undeletion>>& undeletionFields()
{
    static const std::vector<FieldOf<Undeletion>> fields{{"Undeleted", &Undeletion::broughtBack},
                                                         {"UndeletedSize", &Undeletion::bytes},
                                                         {"Remaining", &Undeletion::remaining},
                                                         {"Left", &Undeletion::left},
                                                         {"Lost", &Undeletion::lost},
                                                         {"Forgetting", &Undeletion::forgetting}};
    return fields;
}

/// Seconds since 1970, without which all is meant.
std::int64_t sinceIn(const Dictionary& parameters)
{
    const std::string given = text(parameters, "since");
    const auto seconds = platform::wholeNumber<std::int64_t>(given);
    if (!given.empty() && !seconds)
        throw ServiceFault("Client", "\"since\" must be seconds since 1970");
    return seconds.value_or(0);
}

DeletedQuery queryFrom(const Dictionary& parameters)
{
    return {.userName = text(parameters, "userName"),
            .systemName = text(parameters, "systemName"),
            .path = text(parameters, "path"),
            .since = sinceIn(parameters)};
}

Value getDeletedFiles(const AccountServiceContext& context, const Dictionary& parameters)
{
    requireSignIn(context, parameters);
    DeletedQuery query = queryFrom(parameters);
    query.startIndex = number(parameters, "startIndex");
    query.pageSize = std::min(number(parameters, "pageSize"), kLargestPage);
    const DeletedPage page = context.storage.deletedVersions(query);
    Array files;
    for (const DeletedVersion& deleted : page.versions)
        files.emplace_back(told(versionFields(), deleted));
    Dictionary answer{{kCode, "Success"}, {kFiles, Dictionary{{kDeletedFile, std::move(files)}}}};
    answer.merge(told(figureFields(), {page.totalCount, page.totalBytes,
                                       context.storage.grace().count(), page.left}));
    return answer;
}

Value undeleteFiles(const AccountServiceContext& context, const Dictionary& parameters)
{
    requireSignIn(context, parameters);
    Dictionary answer{{kCode, "Success"}};
    answer.merge(
        told(undeletionFields(), context.storage.undelete(queryFrom(parameters), kMostAtOnce)));
    return answer;
}

} // namespace

std::vector<ServiceMethod> graceMethods(const AccountServiceContext& context)
{
    const std::vector<Field> meant{{.name = "userName"},
                                   {.name = "password"},
                                   {.name = "systemName"},
                                   {.name = "path"},
                                   {.name = "since"}};
    std::vector<Field> paged = meant;
    paged.insert(paged.end(), {{.name = "startIndex"}, {.name = "pageSize"}});
    std::vector<Field> listed{
        {.name = kCode},
        {.name = kFiles,
         .parts = {{.name = kDeletedFile, .isList = true, .parts = described(versionFields())}}}};
    const std::vector<Field> figures = described(figureFields());
    listed.insert(listed.end(), figures.begin(), figures.end());
    std::vector<Field> broughtBack = described(undeletionFields());
    broughtBack.insert(broughtBack.begin(), {.name = kCode});
    return {{"GetDeletedFiles",
             "One page of what was deleted and is still kept, the oldest version first; of one"
             " machine or of all, at and below a path, since a moment.",
             paged,
             {{.name = "GetDeletedFilesResult", .parts = listed}},
             with(context, getDeletedFiles)},
            {"UndeleteFiles",
             "Brings back what was deleted and is still kept, up to two thousand versions a call:"
             " to be called again while something remains.",
             meant,
             {{.name = "UndeleteFilesResult", .parts = broughtBack}},
             with(context, undeleteFiles)}};
}

} // namespace stowline::devserver
