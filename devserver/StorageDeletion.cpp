// Deleting versions, keeping them for their days of grace, and taking them away after.
#include "devserver/DeletedColumns.h"
#include "devserver/Storage.h"
#include "devserver/StoragePaths.h"
#include "stowline/platform/files/ContentFile.h"
#include "stowline/platform/text/Text.h"

#include <fmt/format.h>

namespace stowline::devserver {

namespace {

using Lock = std::lock_guard<std::recursive_mutex>;

constexpr std::chrono::hours kMostAtOnce{2}; ///< of the days of grace that may pass unseen

std::string nameAside(const std::string& serverFile, std::int64_t version)
{
    return fmt::format("{}.deleted-{}", serverFile, version);
}

/// The same as columns of a table "v".
std::string ofVersions()
{
    return "v." + platform::replacingOccurrences(
                      platform::replacingOccurrences(kContentColumns, " ", ""), ",", ", v.");
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
    platform::synchronizeFolder(content.parent_path());
}

/// @param deletedAt of a version that cannot come back any more
void noteDropped(SQLite::Database& database, std::int64_t deletedAt)
{
    SQLite::Statement note(database, "UPDATE grace_clock SET dropped = max(dropped, ?)");
    note.bind(1, deletedAt);
    note.exec();
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

/// What set a content aside may have ended, or the machine lost its power, before the row said so.
void Storage::takeBackAside()
{
    std::vector<std::pair<std::int64_t, std::string>> found;
    SQLite::Statement rows(database_, "SELECT id, server_file FROM deleted_versions");
    while (rows.executeStep()) {
        std::string aside = nameAside(rows.getColumn(1).getString(), rows.getColumn(0).getInt64());
        if (std::filesystem::is_regular_file(contentFile(aside)))
            found.emplace_back(rows.getColumn(0).getInt64(), std::move(aside));
    }
    for (const auto& [id, aside] : found) {
        SQLite::Statement update(database_,
                                 "UPDATE deleted_versions SET server_file = ? WHERE id = ?");
        update.bind(1, aside);
        update.bind(2, id);
        update.exec();
    }
}

bool Storage::deleteVersion(const std::string& userName, const std::string& listId)
{
    const Lock lock(mutex_);
    SQLite::Transaction transaction(database_);
    if (grace_.count() > 0) {
        SQLite::Statement keep(
            database_,
            fmt::format(
                "INSERT INTO deleted_versions (id, item_id, user_name, system_name, folder,"
                " name, {0}, deleted_at, kept_until, due) SELECT v.id, i.id, v.user_name, "
                "i.system_name,"
                " i.folder, i.name, {1}, ?1, ?1 + ?4, ?5 + ?4 FROM versions v JOIN items i ON"
                " i.id = v.item_id WHERE v.user_name = ?2 AND v.list_id = ?3",
                kContentColumns, ofVersions()));
        keep.bind(1, secondsNow());
        keep.bind(2, userName);
        keep.bind(3, listId);
        keep.bind(4, static_cast<std::int64_t>(grace_.count()));
        keep.bind(5, passGrace());
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
    if (grace_.count() == 0)
        noteDropped(database_, secondsNow());
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
    const std::string aside = nameAside(serverFile, id);
    giveAnotherName(contentFile(serverFile), contentFile(aside));
    SQLite::Statement update(database_, "UPDATE deleted_versions SET server_file = ? WHERE id = ?");
    update.bind(1, aside);
    update.bind(2, id);
    update.exec();
}

/// Lets the time pass that went by since the last call, but not what is not time that this service
/// has seen. @return seconds that passed in all
std::int64_t Storage::passGrace()
{
    SQLite::Statement pass(
        database_,
        "INSERT INTO grace_clock (id, seen, passed) VALUES"
        " (1, ?1, 0) ON CONFLICT DO UPDATE SET passed = passed + min(max(?1 - seen, 0), ?2),"
        " seen = ?1 RETURNING passed");
    pass.bind(1, secondsNow());
    pass.bind(2, static_cast<std::int64_t>(std::chrono::seconds(kMostAtOnce).count()));
    pass.executeStep();
    const std::int64_t passed = pass.getColumn(0).getInt64();
    pass.executeStep(); // to its end, or it is not done
    return passed;
}

/// @param passed of the days of grace, in all
bool Storage::dropDeletedVersion(std::int64_t id, std::int64_t passed)
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
                                        " server_file = ? AND due <= ? AND kept_until <= ?"
                                        " RETURNING deleted_at");
    remove.bind(1, id);
    remove.bind(2, serverFile);
    remove.bind(3, passed);
    remove.bind(4, secondsNow());
    SQLite::Transaction transaction(database_);
    if (!remove.executeStep())
        return false; // brought back meanwhile
    noteDropped(database_, remove.getColumn(0).getInt64());
    remove.executeStep(); // to its end, or it is not done
    transaction.commit();
    std::error_code unimportant; // content without a version is nobody's
    std::filesystem::remove(contentFile(serverFile), unimportant);
    return true;
}

std::size_t Storage::dropDeleted()
{
    std::int64_t passed = 0;
    std::vector<std::int64_t> over;
    {
        const Lock lock(mutex_);
        passed = passGrace();
        SQLite::Statement query(database_, "SELECT id FROM deleted_versions WHERE due <= ? AND"
                                           " kept_until <= ?"
                                           " ORDER BY id DESC"); // deltas before their base
        query.bind(1, passed);
        query.bind(2, secondsNow());
        while (query.executeStep())
            over.push_back(query.getColumn(0).getInt64());
    }
    std::size_t dropped = 0;
    for (const std::int64_t id : over)
        dropped += dropDeletedVersion(id, passed) ? 1 : 0;
    return dropped;
}

} // namespace stowline::devserver
