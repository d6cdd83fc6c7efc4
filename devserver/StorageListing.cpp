// What is stored, listed and searched.
#include "devserver/Storage.h"
#include "devserver/StoragePaths.h"

#include <fmt/format.h>

#include <algorithm>

namespace stowline::devserver {

namespace {

using Lock = std::lock_guard<std::recursive_mutex>;

/// A pattern for LIKE, with "\" before what has a meaning there.
std::string likePattern(const std::string& text)
{
    const bool hasWildcards = text.find_first_of("*?") != std::string::npos;
    std::string pattern;
    for (const char c : text) {
        if (c == '*' || c == '?') {
            pattern += c == '*' ? '%' : '_';
            continue;
        }
        if (c == '%' || c == '_' || c == '\\')
            pattern += '\\';
        pattern += c;
    }
    return hasWildcards ? pattern : "%" + pattern + "%";
}

std::optional<std::string> columnFor(const std::string& sortField)
{
    if (sortField.empty() || sortField == "Name")
        return "name";
    if (sortField == "Size")
        return "size";
    if (sortField == "Modified")
        return "modified";
    return std::nullopt;
}

StoredItem itemFrom(SQLite::Statement& row)
{
    return {.id = row.getColumn(0).getInt64(),
            .systemName = row.getColumn(1).getString(),
            .folder = row.getColumn(2).getString(),
            .name = row.getColumn(3).getString(),
            .isFolder = row.getColumn(4).getInt() != 0,
            .isPackage = row.getColumn(5).getInt() != 0,
            .size = static_cast<std::uint64_t>(row.getColumn(6).getInt64()),
            .modified = row.getColumn(7).getString(),
            .checksum = static_cast<std::uint32_t>(row.getColumn(8).getInt64()),
            .versions = row.getColumn(9).getInt64()};
}

constexpr const char* kItemColumns =
    "id, system_name, folder, name, is_folder, is_package, size, modified, checksum, versions";

constexpr const char* kVersionQuery =
    "SELECT v.id, v.item_id, i.system_name, i.folder, i.name, v.size, v.client_date, v.stored_at,"
    " v.server_file, v.checksum, v.is_delta, v.baseline, v.list_id, v.stored_size, v.digest"
    " FROM versions v JOIN items i ON i.id = v.item_id WHERE ";

StoredVersion versionFrom(SQLite::Statement& row)
{
    const std::int64_t size = row.getColumn(5).getInt64();
    const std::int64_t storedSize = row.getColumn(13).getInt64(); // -1: of before it was kept
    return {.id = row.getColumn(0).getInt64(),
            .fileId = row.getColumn(1).getInt64(),
            .systemName = row.getColumn(2).getString(),
            .folder = row.getColumn(3).getString(),
            .name = row.getColumn(4).getString(),
            .size = static_cast<std::uint64_t>(size),
            .clientDate = row.getColumn(6).getString(),
            .storedAt = row.getColumn(7).getString(),
            .serverFile = row.getColumn(8).getString(),
            .checksum = static_cast<std::uint32_t>(row.getColumn(9).getInt64()),
            .isDelta = row.getColumn(10).getInt() != 0,
            .baselineVersion = row.getColumn(11).getInt64(),
            .listId = row.getColumn(12).getString(),
            .storedSize = static_cast<std::uint64_t>(storedSize < 0 ? size : storedSize),
            .digest = row.getColumn(14).getString()};
}

} // namespace

void Storage::notePackage(const std::string& userName, const std::string& path, std::uint64_t bytes)
{
    const Lock lock(mutex_);
    SQLite::Statement insert(database_, "INSERT INTO packages (user_name, path, bytes)"
                                        " VALUES (?,?,?) ON CONFLICT DO UPDATE SET"
                                        " bytes = excluded.bytes");
    insert.bind(1, userName);
    insert.bind(2, normalized(path));
    insert.bind(3, static_cast<std::int64_t>(bytes));
    insert.exec();
}

std::uint64_t Storage::usedBytes(const std::string& userName)
{
    const Lock lock(mutex_);
    SQLite::Statement query(database_,
                            "SELECT CAST(total(CASE WHEN stored_size < 0 THEN size ELSE"
                            " stored_size END) AS INTEGER) FROM versions WHERE user_name = ?");
    query.bind(1, userName);
    query.executeStep();
    return static_cast<std::uint64_t>(query.getColumn(0).getInt64()) + graceBytes(userName);
}

std::vector<std::string> Storage::systems(const std::string& userName)
{
    const Lock lock(mutex_);
    SQLite::Statement query(database_, "SELECT DISTINCT system_name FROM items WHERE user_name = ?"
                                       " ORDER BY system_name");
    query.bind(1, userName);
    std::vector<std::string> names;
    while (query.executeStep())
        names.push_back(query.getColumn(0).getString());
    return names;
}

ItemPage Storage::page(const ItemQuery& query, const std::string& condition,
                       const std::vector<std::string>& arguments)
{
    const std::string direction = query.isAscending ? "ASC" : "DESC";
    const auto bindAll = [&arguments](SQLite::Statement& statement) {
        for (std::size_t i = 0; i < arguments.size(); ++i)
            statement.bind(static_cast<int>(i + 1), arguments[i]);
    };
    const Lock lock(mutex_);
    SQLite::Statement count(database_, "SELECT count(*) FROM items WHERE " + condition);
    bindAll(count);
    count.executeStep();
    ItemPage page{.items = {}, .totalCount = count.getColumn(0).getInt64()};
    SQLite::Statement rows(
        database_, fmt::format("SELECT {} FROM items WHERE {} ORDER BY {} {},"
                               " name {}, id LIMIT {} OFFSET {}",
                               kItemColumns, condition, columnFor(query.sortField).value_or("name"),
                               direction, direction, std::max<std::int64_t>(query.pageSize, 0),
                               std::max<std::int64_t>(query.startIndex, 0)));
    bindAll(rows);
    while (rows.executeStep())
        page.items.push_back(itemFrom(rows));
    return page;
}

std::optional<ItemPage> Storage::folder(const ItemQuery& query)
{
    if (!columnFor(query.sortField))
        return std::nullopt;
    return page(query, "user_name = ? AND system_name = ? AND folder = ?",
                {query.userName, query.systemName, normalized(query.folder)});
}

std::optional<ItemPage> Storage::search(const ItemQuery& query, const std::string& text,
                                        const std::string& extensions)
{
    if (!columnFor(query.sortField))
        return std::nullopt;
    const std::string folder = normalized(query.folder);
    std::string condition = "user_name = ?1 AND (?2 = '' OR system_name = ?2)"
                            " AND (folder = ?3 OR substr(folder, 1, length(?3) + 1) = ?3 || '/')"
                            " AND is_folder = 0 AND name LIKE ?4 ESCAPE '\\'";
    std::vector<std::string> arguments{query.userName, query.systemName, folder, likePattern(text)};
    std::string alternatives;
    for (std::size_t start = 0; !extensions.empty() && start <= extensions.size();) {
        const std::size_t end = std::min(extensions.find(',', start), extensions.size());
        arguments.push_back("%." + likePattern(extensions.substr(start, end - start) + "*"));
        arguments.back().pop_back(); // an extension ends the name
        alternatives += fmt::format("{}name LIKE ?{} ESCAPE '\\'",
                                    alternatives.empty() ? "" : " OR ", arguments.size());
        start = end + 1;
    }
    if (!alternatives.empty())
        condition += " AND (" + alternatives + ")";
    return page(query, condition, arguments);
}

std::vector<StoredVersion> Storage::versions(const std::string& userName, std::int64_t fileId)
{
    const Lock lock(mutex_);
    SQLite::Statement query(database_, std::string(kVersionQuery) +
                                           " v.user_name = ? AND v.item_id = ? ORDER BY v.id DESC");
    query.bind(1, userName);
    query.bind(2, fileId);
    std::vector<StoredVersion> found;
    while (query.executeStep())
        found.push_back(versionFrom(query));
    return found;
}

std::optional<StoredVersion> Storage::version(const std::string& userName, std::int64_t versionId)
{
    const Lock lock(mutex_);
    SQLite::Statement query(database_,
                            std::string(kVersionQuery) + " v.user_name = ? AND v.id = ?");
    query.bind(1, userName);
    query.bind(2, versionId);
    return query.executeStep() ? std::optional(versionFrom(query)) : std::nullopt;
}

std::optional<StoredVersion> Storage::versionAt(const std::string& serverFile)
{
    const Lock lock(mutex_);
    KeptStatement query(statements_, std::string(kVersionQuery) + " v.server_file = ?");
    query->bind(1, serverFile);
    return query->executeStep() ? std::optional(versionFrom(*query)) : std::nullopt;
}

std::vector<std::string> Storage::listIdsBelow(const std::string& userName,
                                               const std::string& systemName,
                                               const std::string& folder)
{
    const std::string path = normalized(folder);
    const Lock lock(mutex_);
    SQLite::Statement query(database_,
                            "SELECT v.list_id FROM versions v JOIN items i ON i.id = v.item_id"
                            " WHERE v.user_name = ?1 AND i.system_name = ?2 AND (i.folder = ?3 OR"
                            " substr(i.folder, 1, length(?3) + 1) = ?3 || '/') ORDER BY v.id DESC");
    query.bind(1, userName);
    query.bind(2, systemName);
    query.bind(3, path);
    std::vector<std::string> lists;
    while (query.executeStep())
        lists.push_back(query.getColumn(0).getString());
    return lists;
}

} // namespace stowline::devserver
