// Deleting versions, keeping them for their days of grace, and bringing them back.
#include "devserver/Storage.h"
#include "devserver/StoragePaths.h"
#include "stowline/platform/text/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <memory>

namespace stowline::devserver {

namespace {

using Lock = std::lock_guard<std::recursive_mutex>;

// What versions and deleted ones have in common, in one order.
constexpr const char* kContentColumns =
    "size, client_date, stored_at, server_file, checksum, is_delta, is_packed, baseline, list_id,"
    " stored_size, digest, stamp, is_whole";

/// The same as columns of a table "v".
std::string ofVersions()
{
    return "v." + platform::replacingOccurrences(
                      platform::replacingOccurrences(kContentColumns, " ", ""), ",", ", v.");
}

/// Rows of deleted_versions, named "d", that a query means: ?1 user, ?2 machine, ?3 path, ?4 since.
constexpr const char* kMeant =
    "d.user_name = ?1 AND (?2 = '' OR d.system_name = ?2) AND d.deleted_at >= ?4 AND (?3 = '' OR"
    " d.folder = ?3 OR substr(d.folder, 1, length(?3) + 1) = ?3 || '/' OR"
    " d.folder || '/' || d.name = ?3)";

/// Whether a row "d" is of the records of runs.
constexpr const char* kIsRecord = "d.folder GLOB '/=stowline=/records/*'";

// A record whose chain was begun anew stays deleted: another run has begun since under its number
// or a lower one. So does a note that a run is being forgotten, and a delta without its base. What
// is neither record nor delta costs no question of its own.
constexpr const char* kNumber = "CAST(substr({}name, 1, 8) AS INTEGER)";

std::string canComeBack()
{
    const std::string begunLater =
        fmt::format("name GLOB '[0-9]*-begun' AND {} <= {} AND id > d.id", fmt::format(kNumber, ""),
                    fmt::format(kNumber, "d."));
    return fmt::format(
        "CASE WHEN {0} THEN d.name NOT GLOB '*-forgotten' AND NOT EXISTS (SELECT 1 FROM (SELECT"
        " v.id AS id, i.name AS name FROM items i JOIN versions v ON v.item_id = i.id WHERE"
        " i.user_name = d.user_name AND i.system_name = d.system_name AND i.folder = d.folder"
        " UNION ALL SELECT e.id, e.name FROM deleted_versions e WHERE e.user_name = d.user_name AND"
        " e.system_name = d.system_name AND e.folder = d.folder) WHERE {1}) ELSE 1 END"
        " AND CASE WHEN d.is_delta = 0 THEN 1 ELSE"
        " EXISTS (SELECT 1 FROM versions b WHERE b.id = d.baseline) OR"
        " EXISTS (SELECT 1 FROM deleted_versions b WHERE b.id = d.baseline AND"
        " b.deleted_at >= ?4) END",
        kIsRecord, begunLater);
}

void bindMeant(SQLite::Statement& statement, const DeletedQuery& query)
{
    statement.bind(1, query.userName);
    statement.bind(2, query.systemName);
    statement.bind(3, normalized(query.path));
    statement.bind(4, query.since);
}

/// Has been done when there is such a file, and is in vain when there is no content.
void giveAnotherName(const std::filesystem::path& content, const std::filesystem::path& aside)
{
    namespace fs = std::filesystem;
    if (fs::is_regular_file(fs::symlink_status(aside)) || !fs::exists(fs::symlink_status(content)))
        return;
    std::error_code noLinks; // not every file system has hard links
    fs::create_hard_link(content, aside, noLinks);
    if (noLinks)
        fs::rename(content, aside);
}

} // namespace

void Storage::removeIfEmpty(std::int64_t itemId)
{
    SQLite::Statement remove(database_, "DELETE FROM items WHERE id = ? AND versions = 0 AND"
                                        " NOT EXISTS (SELECT 1 FROM items child WHERE"
                                        " child.user_name = items.user_name AND"
                                        " child.system_name = items.system_name AND"
                                        " child.folder = items.folder || '/' || items.name)"
                                        " RETURNING user_name, system_name, folder");
    remove.bind(1, itemId);
    if (!remove.executeStep())
        return;
    const std::string user = remove.getColumn(0).getString();
    const std::string system = remove.getColumn(1).getString();
    const auto [folder, name] = split(remove.getColumn(2).getString());
    remove.executeStep();
    SQLite::Statement above(database_, "SELECT id FROM items WHERE user_name = ? AND"
                                       " system_name = ? AND folder = ? AND name = ?");
    above.bind(1, user);
    above.bind(2, system);
    above.bind(3, folder);
    above.bind(4, name);
    if (above.executeStep())
        removeIfEmpty(above.getColumn(0).getInt64());
}

/// What a folder's listing shows of a file is what its newest version has.
void Storage::refreshItem(std::int64_t itemId)
{
    SQLite::Statement update(
        database_,
        "UPDATE items SET versions = (SELECT count(*) FROM versions WHERE item_id = items.id),"
        " size = coalesce((SELECT size FROM versions WHERE item_id = items.id ORDER BY id DESC"
        " LIMIT 1), 0), modified = coalesce((SELECT client_date FROM versions WHERE"
        " item_id = items.id ORDER BY id DESC LIMIT 1), ''), checksum = coalesce((SELECT checksum"
        " FROM versions WHERE item_id = items.id ORDER BY id DESC LIMIT 1), 0) WHERE id = ?");
    update.bind(1, itemId);
    update.exec();
}

bool Storage::deleteVersion(const std::string& userName, const std::string& listId)
{
    const Lock lock(mutex_);
    SQLite::Transaction transaction(database_);
    if (grace_.count() > 0) {
        SQLite::Statement keep(
            database_,
            fmt::format("INSERT INTO deleted_versions (id, item_id, user_name, system_name, folder,"
                        " name, {0}, deleted_at) SELECT v.id, i.id, v.user_name, i.system_name,"
                        " i.folder, i.name, {1}, ? FROM versions v JOIN items i ON"
                        " i.id = v.item_id WHERE v.user_name = ? AND v.list_id = ?",
                        kContentColumns, ofVersions()));
        keep.bind(1, secondsNow());
        keep.bind(2, userName);
        keep.bind(3, listId);
        keep.exec();
    }
    SQLite::Statement remove(database_, "DELETE FROM versions WHERE user_name = ? AND list_id = ?"
                                        " AND NOT EXISTS (SELECT 1 FROM versions delta WHERE"
                                        " delta.is_delta = 1 AND delta.baseline = versions.id)"
                                        " RETURNING item_id, server_file");
    remove.bind(1, userName);
    remove.bind(2, listId);
    if (!remove.executeStep())
        return false; // and nothing is kept of what is not deleted
    const std::int64_t item = remove.getColumn(0).getInt64();
    const std::string serverFile = remove.getColumn(1).getString();
    remove.executeStep();
    refreshItem(item);
    removeIfEmpty(item);
    transaction.commit();
    if (grace_.count() == 0) {
        std::error_code unimportant; // content without a version is nobody's
        std::filesystem::remove(contentFile(serverFile), unimportant);
    }
    return true;
}

std::uint64_t Storage::graceBytes(const std::string& userName)
{
    const Lock lock(mutex_);
    SQLite::Statement query(database_,
                            "SELECT CAST(total(CASE WHEN stored_size < 0 THEN size ELSE stored_size"
                            " END) AS INTEGER) FROM deleted_versions WHERE user_name = ?");
    query.bind(1, userName);
    query.executeStep();
    return static_cast<std::uint64_t>(query.getColumn(0).getInt64());
}

/// Another upload begins at the place of a deleted version, which must keep its content. With the
/// content's lock. Whatever ends it in between, the content has the name that its row says.
/// Throws when the content cannot have another name: then it keeps its place.
void Storage::setDeletedAside(const std::string& serverFile)
{
    const Lock lock(mutex_);
    KeptStatement query(statements_, "SELECT id FROM deleted_versions WHERE server_file = ?");
    query->bind(1, serverFile);
    if (!query->executeStep())
        return;
    const std::int64_t id = query->getColumn(0).getInt64();
    query->reset();
    const std::string aside = fmt::format("{}.deleted-{}", serverFile, id);
    giveAnotherName(contentFile(serverFile), contentFile(aside));
    SQLite::Statement update(database_, "UPDATE deleted_versions SET server_file = ? WHERE id = ?");
    update.bind(1, aside);
    update.bind(2, id);
    update.exec();
}

DeletedPage Storage::deletedVersions(const DeletedQuery& query)
{
    const Lock lock(mutex_);
    SQLite::Statement sum(
        database_,
        fmt::format("SELECT count(*), CAST(total(CASE WHEN d.stored_size < 0 THEN d.size ELSE"
                    " d.stored_size END) AS INTEGER) FROM deleted_versions d WHERE {} AND {}",
                    kMeant, canComeBack()));
    bindMeant(sum, query);
    sum.executeStep();
    DeletedPage page{.versions = {},
                     .totalCount = sum.getColumn(0).getInt64(),
                     .totalBytes = static_cast<std::uint64_t>(sum.getColumn(1).getInt64())};
    SQLite::Statement rows(
        database_,
        fmt::format("SELECT d.id, d.item_id, d.system_name, d.folder, d.name, d.size,"
                    " d.client_date, d.stored_at, d.list_id, d.stored_size,"
                    " datetime(d.deleted_at, 'unixepoch'),"
                    " datetime(d.deleted_at + ?5, 'unixepoch')"
                    " FROM deleted_versions d WHERE {} AND {} ORDER BY d.id LIMIT ?6 OFFSET ?7",
                    kMeant, canComeBack()));
    bindMeant(rows, query);
    rows.bind(5, grace_.count());
    rows.bind(6, std::max<std::int64_t>(query.pageSize, 0));
    rows.bind(7, std::max<std::int64_t>(query.startIndex, 0));
    while (rows.executeStep()) {
        DeletedVersion found;
        found.version.id = rows.getColumn(0).getInt64();
        found.version.fileId = rows.getColumn(1).getInt64();
        found.version.systemName = rows.getColumn(2).getString();
        found.version.folder = rows.getColumn(3).getString();
        found.version.name = rows.getColumn(4).getString();
        found.version.size = static_cast<std::uint64_t>(rows.getColumn(5).getInt64());
        found.version.clientDate = rows.getColumn(6).getString();
        found.version.storedAt = rows.getColumn(7).getString();
        found.version.listId = rows.getColumn(8).getString();
        const std::int64_t storedSize = rows.getColumn(9).getInt64();
        found.version.storedSize =
            storedSize < 0 ? found.version.size : static_cast<std::uint64_t>(storedSize);
        found.deletedAt = rows.getColumn(10).getString();
        found.keptUntil = rows.getColumn(11).getString();
        page.versions.push_back(std::move(found));
    }
    return page;
}

/// The file that a deleted version is of: the one of that path now, else one like the one that was,
/// under its number, with the folders above. What is there now keeps its kind.
std::int64_t Storage::itemOfDeleted(SQLite::Statement& deleted)
{
    const std::int64_t number = deleted.getColumn(0).getInt64();
    const std::string user = deleted.getColumn(1).getString();
    const std::string system = deleted.getColumn(2).getString();
    const std::string folder = deleted.getColumn(3).getString();
    for (std::string path = folder; !path.empty();) {
        const auto [above, name] = split(path);
        SQLite::Statement insert(database_,
                                 "INSERT INTO items (user_name, system_name, folder, name,"
                                 " is_folder) VALUES (?,?,?,?,1) ON CONFLICT DO NOTHING");
        insert.bind(1, user);
        insert.bind(2, system);
        insert.bind(3, above);
        insert.bind(4, name);
        path = insert.exec() == 1 ? above : "";
    }
    SQLite::Statement insert(database_,
                             "INSERT INTO items (id, user_name, system_name, folder, name,"
                             " is_folder) VALUES (?,?,?,?,?,0) ON CONFLICT DO NOTHING");
    insert.bind(1, number);
    insert.bind(2, user);
    insert.bind(3, system);
    insert.bind(4, folder);
    insert.bind(5, deleted.getColumn(4).getString());
    insert.exec();
    SQLite::Statement file(database_, "SELECT id FROM items WHERE user_name = ? AND"
                                      " system_name = ? AND folder = ? AND name = ?");
    file.bind(1, user);
    file.bind(2, system);
    file.bind(3, folder);
    file.bind(4, deleted.getColumn(4).getString());
    file.executeStep();
    return file.getColumn(0).getInt64();
}

/// @return false when the version that it is a delta against is not there
bool Storage::bringBack(std::int64_t versionId)
{
    SQLite::Statement deleted(database_, "SELECT item_id, user_name, system_name, folder, name"
                                         " FROM deleted_versions d WHERE id = ? AND (is_delta = 0"
                                         " OR EXISTS (SELECT 1 FROM versions b WHERE"
                                         " b.id = d.baseline))");
    deleted.bind(1, versionId);
    if (!deleted.executeStep())
        return false;
    const std::int64_t item = itemOfDeleted(deleted);
    SQLite::Statement insert(
        database_, fmt::format("INSERT INTO versions (id, item_id, user_name, {0}) SELECT id, ?,"
                               " user_name, {0} FROM deleted_versions WHERE id = ?",
                               kContentColumns));
    insert.bind(1, item);
    insert.bind(2, versionId);
    insert.exec();
    deleted.reset();
    SQLite::Statement remove(database_, "DELETE FROM deleted_versions WHERE id = ?");
    remove.bind(1, versionId);
    remove.exec();
    refreshItem(item);
    return true;
}

Undeletion Storage::undelete(const DeletedQuery& query, std::int64_t atMost)
{
    const Lock lock(mutex_);
    // Who is told that something is back must find it after a loss of power too.
    database_.exec("PRAGMA synchronous = FULL");
    const auto backToNormal = std::shared_ptr<void>(
        nullptr, [this](void*) { (void)database_.tryExec("PRAGMA synchronous = NORMAL"); });
    SQLite::Transaction transaction(database_);
    std::vector<std::pair<std::int64_t, std::uint64_t>> chosen;
    {
        SQLite::Statement rows(
            database_, fmt::format("SELECT d.id, CASE WHEN d.stored_size < 0 THEN d.size ELSE"
                                   " d.stored_size END FROM deleted_versions d WHERE {} AND {}"
                                   " ORDER BY {}, d.id LIMIT ?5",
                                   kMeant, canComeBack(), kIsRecord));
        bindMeant(rows, query);
        rows.bind(5, atMost);
        while (rows.executeStep())
            chosen.emplace_back(rows.getColumn(0).getInt64(),
                                static_cast<std::uint64_t>(rows.getColumn(1).getInt64()));
    }
    Undeletion result;
    for (const auto& [id, bytes] : chosen) {
        if (bringBack(id)) {
            ++result.broughtBack;
            result.bytes += bytes;
        }
    }
    // As a filter: as a value SQLite would work out all of it for every row.
    SQLite::Statement rest(
        database_, fmt::format("SELECT count(*), count(*) FILTER (WHERE {1}) FROM deleted_versions"
                               " d WHERE {0} AND NOT ({2} AND d.name GLOB '*-forgotten')",
                               kMeant, canComeBack(), kIsRecord));
    bindMeant(rest, query);
    rest.executeStep();
    result.remaining = rest.getColumn(1).getInt64();
    result.left = rest.getColumn(0).getInt64() - result.remaining;
    transaction.commit();
    return result;
}

bool Storage::dropDeletedVersion(std::int64_t id, std::int64_t before)
{
    std::string serverFile;
    {
        const Lock lock(mutex_);
        SQLite::Statement query(database_, "SELECT server_file FROM deleted_versions WHERE id = ?");
        query.bind(1, id);
        if (!query.executeStep())
            return false;
        serverFile = query.getColumn(0).getString();
    }
    const std::lock_guard content(contentLock(serverFile));
    const Lock lock(mutex_);
    SQLite::Statement remove(database_, "DELETE FROM deleted_versions WHERE id = ? AND"
                                        " server_file = ? AND deleted_at <= ?");
    remove.bind(1, id);
    remove.bind(2, serverFile);
    remove.bind(3, before);
    if (remove.exec() == 0)
        return false;            // brought back meanwhile
    std::error_code unimportant; // content without a version is nobody's
    std::filesystem::remove(contentFile(serverFile), unimportant);
    return true;
}

std::size_t Storage::dropDeleted()
{
    const std::int64_t before = secondsNow() - grace_.count();
    std::vector<std::int64_t> over;
    {
        const Lock lock(mutex_);
        SQLite::Statement query(database_, "SELECT id FROM deleted_versions WHERE deleted_at <= ?"
                                           " ORDER BY id DESC"); // deltas before their base
        query.bind(1, before);
        while (query.executeStep())
            over.push_back(query.getColumn(0).getInt64());
    }
    std::size_t dropped = 0;
    for (const std::int64_t id : over)
        dropped += dropDeletedVersion(id, before) ? 1 : 0;
    return dropped;
}

} // namespace stowline::devserver
