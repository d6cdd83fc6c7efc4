// Listing what was deleted and is still kept, and bringing it back.
#include "devserver/DeletedColumns.h"
#include "devserver/StandingRecords.h"
#include "devserver/Storage.h"
#include "devserver/StoragePaths.h"
#include "stowline/platform/files/ContentFile.h"

#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <set>

namespace stowline::devserver {

namespace {

using Lock = std::lock_guard<std::recursive_mutex>;

/// Rows of deleted_versions, named "d", that a query means: ?1 user, ?2 machine, ?3 path, ?4 since.
constexpr const char* kMeant =
    "d.user_name = ?1 AND (?2 = '' OR d.system_name = ?2) AND d.deleted_at >= ?4 AND (?3 = '' OR"
    " d.folder = ?3 OR substr(d.folder, 1, length(?3) + 1) = ?3 || '/' OR"
    " d.folder || '/' || d.name = ?3)";

/// Whether a row "d" is of the records of runs, and whether it is a note of one's forgetting.
constexpr const char* kIsRecord = "d.folder GLOB '/=stowline=/records/*'";
constexpr const char* kIsNote =
    "d.folder GLOB '/=stowline=/records/*' AND d.name GLOB '*-forgotten'";

/// Of those that are meant, once staying records are known. A delta needs its base.
constexpr const char* kCanComeBack =
    "d.id NOT IN (SELECT id FROM temp.staying) AND (d.is_delta = 0 OR EXISTS (SELECT 1 FROM"
    " versions b WHERE b.id = d.baseline) OR EXISTS (SELECT 1 FROM deleted_versions b WHERE"
    " b.id = d.baseline AND b.deleted_at >= ?4))";

/// A word for a content, of a table of versions.
constexpr const char* kContentWord = "size || ' ' || checksum || ' ' || digest";

void bindMeant(SQLite::Statement& statement, const DeletedQuery& query)
{
    statement.bind(1, query.userName);
    statement.bind(2, query.systemName);
    statement.bind(3, normalized(query.path));
    statement.bind(4, query.since);
}

DeletedVersion versionIn(SQLite::Statement& row)
{
    DeletedVersion found;
    found.version.id = row.getColumn(0).getInt64();
    found.version.fileId = row.getColumn(1).getInt64();
    found.version.systemName = row.getColumn(2).getString();
    found.version.folder = row.getColumn(3).getString();
    found.version.name = row.getColumn(4).getString();
    found.version.size = static_cast<std::uint64_t>(row.getColumn(5).getInt64());
    found.version.clientDate = row.getColumn(6).getString();
    found.version.storedAt = row.getColumn(7).getString();
    found.version.listId = row.getColumn(8).getString();
    const std::int64_t storedSize = row.getColumn(9).getInt64();
    found.version.storedSize =
        storedSize < 0 ? found.version.size : static_cast<std::uint64_t>(storedSize);
    found.deletedAt = row.getColumn(10).getString();
    found.keptUntil = row.getColumn(11).getString();
    return found;
}

} // namespace

/// Notes in temp.staying which records of those that are meant cannot come back when all come back
/// in turn: what was deleted first comes first, so that of two chains under one name the one comes
/// that a person removed before, and the other once that one is removed again.
void Storage::findStayingRecords(const DeletedQuery& query)
{
    database_.exec("CREATE TEMP TABLE IF NOT EXISTS staying (id INTEGER PRIMARY KEY) STRICT;"
                   "DELETE FROM temp.staying");
    SQLite::Statement deleted(
        database_, fmt::format("SELECT d.system_name, d.folder, d.name, d.id, {} FROM"
                               " deleted_versions d WHERE {} AND {} ORDER BY d.system_name,"
                               " d.folder, d.deleted_at, d.id",
                               kContentWord, kMeant, kIsRecord));
    bindMeant(deleted, query);
    SQLite::Statement stay(database_, "INSERT INTO temp.staying VALUES (?)");
    SQLite::Statement live(
        database_, fmt::format("SELECT i.name, v.id, {} FROM items i JOIN (SELECT id, item_id, {}"
                               " AS word FROM versions) v ON v.item_id = i.id WHERE"
                               " i.user_name = ? AND i.system_name = ? AND i.folder = ?",
                               "v.word", kContentWord));
    std::pair<std::string, std::string> chain;
    StandingRecords standing;
    while (deleted.executeStep()) {
        std::pair<std::string, std::string> of{deleted.getColumn(0).getString(),
                                               deleted.getColumn(1).getString()};
        if (of != chain) {
            chain = std::move(of);
            standing = {};
            live.reset();
            live.bind(1, query.userName);
            live.bind(2, chain.first);
            live.bind(3, chain.second);
            while (live.executeStep())
                standing.take({live.getColumn(0).getString(), live.getColumn(1).getInt64(),
                               live.getColumn(2).getString()});
        }
        const ChainRecord record{deleted.getColumn(2).getString(), deleted.getColumn(3).getInt64(),
                                 deleted.getColumn(4).getString()};
        if (standing.canTake(record)) {
            standing.take(record);
            continue;
        }
        stay.reset();
        stay.bind(1, record.version);
        stay.exec();
    }
}

DeletedPage Storage::deletedVersions(const DeletedQuery& query)
{
    const Lock lock(mutex_);
    findStayingRecords(query);
    SQLite::Statement sum(
        database_,
        fmt::format("SELECT count(*) FILTER (WHERE {1}), CAST(total(CASE WHEN d.stored_size < 0"
                    " THEN d.size ELSE d.stored_size END) FILTER (WHERE {1}) AS INTEGER),"
                    " count(*) FILTER (WHERE NOT ({2})) FROM deleted_versions d WHERE {0}",
                    kMeant, kCanComeBack, kIsNote));
    bindMeant(sum, query);
    sum.executeStep();
    DeletedPage page{.versions = {},
                     .totalCount = sum.getColumn(0).getInt64(),
                     .totalBytes = static_cast<std::uint64_t>(sum.getColumn(1).getInt64())};
    page.left = sum.getColumn(2).getInt64() - page.totalCount;
    SQLite::Statement rows(
        database_,
        fmt::format("SELECT d.id, d.item_id, d.system_name, d.folder, d.name, d.size,"
                    " d.client_date, d.stored_at, d.list_id, d.stored_size,"
                    " datetime(d.deleted_at, 'unixepoch'),"
                    " datetime(max(d.kept_until, d.due + ?5), 'unixepoch')"
                    " FROM deleted_versions d WHERE {} AND {} ORDER BY d.id LIMIT ?6 OFFSET ?7",
                    kMeant, kCanComeBack));
    bindMeant(rows, query);
    rows.bind(5, secondsNow() - passGrace());
    rows.bind(6, std::max<std::int64_t>(query.pageSize, 0));
    rows.bind(7, std::max<std::int64_t>(query.startIndex, 0));
    while (rows.executeStep())
        page.versions.push_back(versionIn(rows));
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
        SQLite::Statement insert(
            database_, "INSERT INTO items (user_name, system_name, folder, name,"
                       " is_folder, is_package) VALUES (?1, ?2, ?3, ?4, 1, EXISTS (SELECT 1"
                       " FROM packages WHERE user_name = ?1 AND path = ?3 || '/' || ?4))"
                       " ON CONFLICT DO NOTHING");
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

/// Whether the content of a deleted version is there, as far as that is known without reading it.
/// What was set aside as lost was read once.
bool Storage::isKept(const std::string& serverFile, std::int64_t storedSize,
                     const std::string& damagedAs) const
{
    if (serverFile.find(".lost-") != std::string::npos)
        return false;
    const auto file = platform::ContentFile::open(contentFile(serverFile));
    if (!file || (!damagedAs.empty() && file->stamp() == damagedAs))
        return false;
    return storedSize < 0 || file->size() == static_cast<std::uint64_t>(storedSize);
}

/// Goes through what can come back, the oldest version first, so that a delta follows its base.
void Storage::choose(const DeletedQuery& query, bool isOfRecords, std::int64_t atMost,
                     Choice& choice)
{
    // In the order of their numbers, whatever else there is: or each batch would sort all.
    SQLite::Statement rows(
        database_, fmt::format("SELECT d.id, CASE WHEN d.stored_size < 0 THEN d.size ELSE"
                               " d.stored_size END, d.server_file, d.stored_size,"
                               " CASE WHEN d.is_whole = 0 THEN d.stamp ELSE '' END,"
                               " CASE WHEN d.is_delta = 1 THEN d.baseline ELSE -1 END"
                               " FROM deleted_versions d NOT INDEXED WHERE {} AND {} AND {} {}"
                               " ORDER BY d.id",
                               kMeant, kCanComeBack, isOfRecords ? "" : "NOT", kIsRecord));
    bindMeant(rows, query);
    while (rows.executeStep()) {
        const std::int64_t id = rows.getColumn(0).getInt64();
        if (static_cast<std::int64_t>(choice.versions.size()) == atMost) {
            if (++choice.more == atMost)
                return; // enough to be called again for
        } else if (choice.lost.contains(rows.getColumn(5).getInt64()) ||
                   !isKept(rows.getColumn(2).getString(), rows.getColumn(3).getInt64(),
                           rows.getColumn(4).getString())) {
            choice.lost.insert(id);
        } else {
            choice.versions.emplace_back(id,
                                         static_cast<std::uint64_t>(rows.getColumn(1).getInt64()));
        }
    }
}

Undeletion Storage::undelete(const DeletedQuery& query, std::int64_t atMost)
{
    const Lock lock(mutex_);
    // Who is told that something is back must find it after a loss of power too.
    database_.exec("PRAGMA synchronous = FULL");
    const auto backToNormal = std::shared_ptr<void>(
        nullptr, [this](void*) { (void)database_.tryExec("PRAGMA synchronous = NORMAL"); });
    SQLite::Transaction transaction(database_);
    findStayingRecords(query);
    Choice choice;
    for (const bool isOfRecords : {false, true}) {
        if (choice.more < atMost)
            choose(query, isOfRecords, atMost, choice);
    }
    Undeletion result{.remaining = choice.more};
    for (const auto& [id, bytes] : choice.versions) {
        if (bringBack(id)) {
            ++result.broughtBack;
            result.bytes += bytes;
        }
    }
    if (result.remaining == 0) {
        result.lost = static_cast<std::int64_t>(choice.lost.size());
        SQLite::Statement rest(
            database_, fmt::format("SELECT count(*) FROM deleted_versions d WHERE {} AND NOT ({})",
                                   kMeant, kIsNote));
        bindMeant(rest, query);
        rest.executeStep();
        result.left = rest.getColumn(0).getInt64() - result.lost;
    }
    transaction.commit();
    if (result.remaining == 0)
        result.forgetting = endForgetting(query, result.left + result.lost == 0);
    return result;
}

/// Takes away the notes that runs are being forgotten, where all is back that was deleted since
/// they were written; else the next forgetting would delete it again. Not where some of that was
/// taken away since: then the run is not whole any more.
/// @return how many stay
std::int64_t Storage::endForgetting(const DeletedQuery& query, bool isAllBack)
{
    std::vector<std::string> over;
    std::int64_t staying = 0;
    {
        SQLite::Statement notes(database_,
                                "SELECT v.list_id, CAST(strftime('%s', v.stored_at) AS INTEGER) >="
                                " max(?3, (SELECT dropped + 1 FROM grace_clock)) FROM items i JOIN "
                                "versions v ON v.item_id = i.id WHERE i.user_name = ?1 AND"
                                " (?2 = '' OR i.system_name = ?2) AND i.folder GLOB"
                                " '/=stowline=/records/*' AND i.name GLOB '[0-9]*-forgotten'");
        notes.bind(1, query.userName);
        notes.bind(2, query.systemName);
        notes.bind(3, query.since);
        while (notes.executeStep()) {
            if (isAllBack && normalized(query.path).empty() && notes.getColumn(1).getInt() != 0)
                over.push_back(notes.getColumn(0).getString());
            else
                ++staying;
        }
    }
    for (const std::string& list : over)
        (void)deleteVersion(query.userName, list);
    return staying;
}

} // namespace stowline::devserver
