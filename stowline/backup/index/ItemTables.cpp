#include "stowline/backup/index/ItemTables.h"

#include "stowline/backup/index/ItemColumns.h"
#include "stowline/backup/index/PathKey.h"
#include "stowline/backup/index/StatementUse.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <sqlite3.h>

#include <utility>

namespace stowline::backup {

namespace {

constexpr int kChangesInBatch = 5000;
constexpr std::chrono::seconds kBatchTime{1};

// Columns of itemsOfFolder_ before those of the item.
constexpr int kNameColumn = 0;
constexpr int kFirstItemColumn = 1;

// Parameters of putItem_ before those of the item.
constexpr int kFirstItemParameter = 5;

std::string putItemText()
{
    std::string places;
    for (int i = 0; i < itemColumnCount(); ++i)
        places += ", ?";
    return "INSERT INTO items (folder, name, changed_run, confirmed_run, " + itemColumns() +
           ") VALUES (?, ?, ?, ?" + places +
           ") ON CONFLICT (folder, name) DO UPDATE SET changed_run = excluded.changed_run,"
           " confirmed_run = CASE WHEN version IS excluded.version AND digest IS excluded.digest"
           " THEN max(confirmed_run, excluded.confirmed_run) ELSE excluded.confirmed_run END, " +
           itemColumnsFromExcluded();
}

void bindBytes(SQLite::Statement& statement, int at, std::string_view bytes)
{
    // An empty blob, not NULL.
    statement.bindNoCopy(at, bytes.empty() ? "" : bytes.data(), static_cast<int>(bytes.size()));
}

} // namespace

ItemIndex::Tables::Tables(IndexFile opened)
    : file(std::move(opened)), notes(*file.database), database_(*file.database),
      folderByPath_(database_, "SELECT id, changed_run FROM folders WHERE path = ?"),
      foldersBetween_(database_, "SELECT id, path FROM folders WHERE path >= ?1 AND path < ?3"
                                 " AND (?2 OR path > ?1) AND changed_run > ?4"
                                 " ORDER BY path LIMIT ?5"),
      insertFolder_(database_, "INSERT INTO folders (path, changed_run) VALUES (?, ?)"),
      setFolderChanged_(database_,
                        "UPDATE folders SET changed_run = max(changed_run, ?) WHERE id = ?"),
      itemByName_(database_,
                  "SELECT " + itemColumns() + " FROM items WHERE folder = ? AND name = ?"),
      itemsOfFolder_(database_, "SELECT name, " + itemColumns() +
                                    " FROM items WHERE folder = ? AND name > ?"
                                    " AND changed_run > ? AND (? OR kind IS NOT NULL)"
                                    " ORDER BY name LIMIT ?"),
      putItem_(database_, putItemText()),
      removeItem_(database_, "UPDATE items SET changed_run = ?, confirmed_run = 0, " +
                                 itemColumnsAsNull() +
                                 " WHERE folder = ? AND name = ? AND kind IS NOT NULL"),
      removeItemsOfFolders_(database_, "UPDATE items SET changed_run = ?, confirmed_run = 0, " +
                                           itemColumnsAsNull() +
                                           " WHERE folder IN (SELECT id FROM folders WHERE"
                                           " path >= ? AND path < ?) AND kind IS NOT NULL"),
      setFoldersChanged_(database_, "UPDATE folders SET changed_run = max(changed_run, ?)"
                                    " WHERE path >= ? AND path < ?"),
      confirm_(database_, "UPDATE items SET confirmed_run = ? WHERE folder = ? AND name = ?"
                          " AND content_kind IS NOT NULL"),
      noteEmptied_(database_, "INSERT INTO emptied (folder, name, run)"
                              " SELECT folder, name, ? FROM items WHERE folder = ? AND name = ?"
                              " AND content_kind IS NOT NULL AND size > 0"
                              " ON CONFLICT (folder, name) DO UPDATE SET run = excluded.run"),
      furtherNames_(database_, "SELECT folders.path, items.name, " + itemColumns("items.") +
                                   " FROM items JOIN folders ON folders.id = items.folder"
                                   " WHERE same_file_as IS NOT NULL AND (same_file_as = ?1"
                                   " OR same_file_as > ?2 AND same_file_as < ?3)")
{
    // An index of before has none yet.
    database_.exec("CREATE INDEX IF NOT EXISTS further_names ON items (same_file_as)"
                   " WHERE same_file_as IS NOT NULL");
}

std::optional<ItemIndex::Tables::Folder> ItemIndex::Tables::findFolder(std::string_view path)
{
    if (lastFolder_ && lastFolder_->path == path)
        return lastFolder_;
    const StatementUse use(folderByPath_);
    const std::string key = pathKey(path);
    bindBytes(folderByPath_, 1, key);
    if (!folderByPath_.executeStep())
        return std::nullopt;
    lastFolder_ = Folder{folderByPath_.getColumn(0).getInt64(), std::string(path),
                         folderByPath_.getColumn(1).getInt64()};
    return lastFolder_;
}

std::optional<StoredItem> ItemIndex::Tables::find(std::string_view path)
{
    const auto folder = findFolder(parentOf(path));
    if (!folder)
        return std::nullopt;
    const StatementUse use(itemByName_);
    itemByName_.bind(1, folder->id);
    bindBytes(itemByName_, 2, nameOf(path));
    if (!itemByName_.executeStep() || !holdsItem(itemByName_, 0))
        return std::nullopt;
    return itemOfRow(itemByName_, 0, std::string(path));
}

std::vector<ItemIndex::Tables::Row>
ItemIndex::Tables::rowsIn(std::int64_t folder, std::string_view path, const Selection& selection)
{
    const StatementUse use(itemsOfFolder_);
    itemsOfFolder_.bind(1, folder);
    bindBytes(itemsOfFolder_, 2, selection.after);
    itemsOfFolder_.bind(3, selection.changedAfter);
    itemsOfFolder_.bind(4, selection.withGone ? 1 : 0);
    itemsOfFolder_.bind(5, selection.atMost);
    std::vector<Row> rows;
    while (itemsOfFolder_.executeStep()) {
        Row& row = rows.emplace_back();
        row.name = itemsOfFolder_.getColumn(kNameColumn).getString();
        if (holdsItem(itemsOfFolder_, kFirstItemColumn))
            row.item = itemOfRow(itemsOfFolder_, kFirstItemColumn, pathOfRow(path, row.name));
    }
    return rows;
}

std::vector<ItemIndex::Tables::Folder>
ItemIndex::Tables::foldersFrom(std::string_view key, bool withKey, std::string_view end,
                               std::int64_t changedAfter, std::int64_t atMost)
{
    const StatementUse use(foldersBetween_);
    bindBytes(foldersBetween_, 1, key);
    foldersBetween_.bind(2, withKey ? 1 : 0);
    bindBytes(foldersBetween_, 3, end);
    foldersBetween_.bind(4, changedAfter);
    foldersBetween_.bind(5, atMost);
    std::vector<Folder> folders;
    while (foldersBetween_.executeStep())
        folders.push_back({foldersBetween_.getColumn(0).getInt64(),
                           pathOfKey(foldersBetween_.getColumn(1).getString())});
    return folders;
}

ItemIndex::Tables::Folder ItemIndex::Tables::madeFolder(std::string_view path, std::int64_t run)
{
    if (auto folder = findFolder(path)) {
        noteChange(*folder, run);
        return *folder;
    }
    const StatementUse use(insertFolder_);
    const std::string key = pathKey(path);
    bindBytes(insertFolder_, 1, key);
    insertFolder_.bind(2, run);
    insertFolder_.exec();
    lastFolder_ = Folder{database_.getLastInsertRowid(), std::string(path), run};
    return *lastFolder_;
}

void ItemIndex::Tables::noteChange(Folder& folder, std::int64_t run)
{
    if (folder.changedRun >= run)
        return;
    const StatementUse use(setFolderChanged_);
    setFolderChanged_.bind(1, run);
    setFolderChanged_.bind(2, folder.id);
    setFolderChanged_.exec();
    folder.changedRun = run;
    lastFolder_ = folder;
}

std::vector<StoredItem> ItemIndex::Tables::furtherNamesOf(std::string_view path, bool andBelow)
{
    constexpr int folderColumn = 0;
    constexpr int nameColumn = 1;
    constexpr int itemColumn = 2;
    const std::string first(path);
    const std::string begin = path == "/" ? first : first + "/";
    const std::string end = begin.substr(0, begin.size() - 1) + char('/' + 1);
    const StatementUse use(furtherNames_);
    bindBytes(furtherNames_, 1, first);
    bindBytes(furtherNames_, 2, andBelow ? begin : end);
    bindBytes(furtherNames_, 3, end);
    std::vector<StoredItem> items;
    while (furtherNames_.executeStep())
        items.push_back(
            itemOfRow(furtherNames_, itemColumn,
                      pathOfRow(pathOfKey(furtherNames_.getColumn(folderColumn).getString()),
                                furtherNames_.getColumn(nameColumn).getString())));
    return items;
}

void ItemIndex::Tables::put(const StoredItem& item, std::int64_t run)
{
    begin();
    const Folder folder = madeFolder(parentOf(item.item.path), run);
    if (!item.content || item.item.size == 0) { // few of those that change
        const StatementUse useOther(noteEmptied_);
        noteEmptied_.bind(1, run);
        noteEmptied_.bind(2, folder.id);
        bindBytes(noteEmptied_, 3, nameOf(item.item.path));
        noteEmptied_.exec();
    }
    const StatementUse use(putItem_);
    putItem_.bind(1, folder.id);
    bindBytes(putItem_, 2, nameOf(item.item.path));
    putItem_.bind(3, run);
    putItem_.bind(4, item.content ? static_cast<std::int64_t>(item.content->run) : 0);
    bindItem(putItem_, kFirstItemParameter, item);
    putItem_.exec();
    if (item.item.kind != ItemKind::folder)
        removeBelow(item.item.path, run);
}

void ItemIndex::Tables::remove(std::string_view path, std::int64_t run)
{
    begin();
    if (auto folder = findFolder(parentOf(path))) {
        const StatementUse use(removeItem_);
        removeItem_.bind(1, run);
        removeItem_.bind(2, folder->id);
        bindBytes(removeItem_, 3, nameOf(path));
        if (removeItem_.exec() > 0)
            noteChange(*folder, run);
    }
    removeBelow(path, run);
}

void ItemIndex::Tables::removeBelow(std::string_view path, std::int64_t run)
{
    const KeyRange keys = keysAtAndBelow(path);
    const StatementUse use(removeItemsOfFolders_);
    removeItemsOfFolders_.bind(1, run);
    bindBytes(removeItemsOfFolders_, 2, keys.first);
    bindBytes(removeItemsOfFolders_, 3, keys.end);
    if (removeItemsOfFolders_.exec() == 0)
        return;
    const StatementUse useOther(setFoldersChanged_);
    setFoldersChanged_.bind(1, run);
    bindBytes(setFoldersChanged_, 2, keys.first);
    bindBytes(setFoldersChanged_, 3, keys.end);
    setFoldersChanged_.exec();
}

void ItemIndex::Tables::setConfirmed(std::string_view path, std::int64_t run)
{
    const auto folder = findFolder(parentOf(path));
    if (!folder)
        return;
    begin();
    const StatementUse use(confirm_);
    confirm_.bind(1, run);
    confirm_.bind(2, folder->id);
    bindBytes(confirm_, 3, nameOf(path));
    confirm_.exec();
}

void ItemIndex::Tables::forgetVanished(std::int64_t upToRun)
{
    begin();
    lastFolder_.reset();
    SQLite::Statement forget(database_,
                             "DELETE FROM items WHERE kind IS NULL AND changed_run <= ?");
    forget.bind(1, upToRun);
    forget.exec();
    database_.exec("DELETE FROM folders WHERE NOT EXISTS"
                   " (SELECT 1 FROM items WHERE items.folder = folders.id)");
    notes.forgetVanished(upToRun);
}

void ItemIndex::Tables::setPosition(const IndexPosition& position)
{
    begin();
    SQLite::Statement set(database_, "UPDATE about SET run = ?, digest = ?");
    set.bind(1, static_cast<std::int64_t>(position.run));
    set.bind(2, position.digest);
    set.exec();
    if (position.run == 0)
        return;
    noteKnownRecord(position);
    SQLite::Statement forget(database_, "DELETE FROM emptied WHERE run <= ?");
    forget.bind(1, static_cast<std::int64_t>(position.run));
    forget.exec();
}

void ItemIndex::Tables::noteKnownRecord(const IndexPosition& record)
{
    begin();
    SQLite::Statement note(database_, "INSERT INTO records (run, digest) VALUES (?, ?)"
                                      " ON CONFLICT (run) DO UPDATE SET digest = excluded.digest");
    note.bind(1, static_cast<std::int64_t>(record.run));
    note.bind(2, record.digest);
    note.exec();
}

void ItemIndex::Tables::forgetKnownRecords()
{
    begin();
    database_.exec("DELETE FROM records");
}

void ItemIndex::Tables::clear()
{
    begin();
    lastFolder_.reset();
    database_.exec("DELETE FROM items; DELETE FROM folders; DELETE FROM emptied;"
                   " UPDATE about SET run = 0, digest = ''");
    notes.clear();
    forgetKnownRecords();
}

void ItemIndex::Tables::begin()
{
    const auto now = std::chrono::steady_clock::now();
    if (inBatch_ && (changesInBatch_ >= kChangesInBatch || now - batchBegan_ >= kBatchTime))
        commit();
    ++changesInBatch_;
    if (inBatch_)
        return;
    database_.exec("BEGIN IMMEDIATE");
    inBatch_ = true;
    batchBegan_ = now;
}

void ItemIndex::Tables::commit()
{
    if (!inBatch_)
        return;
    database_.exec("COMMIT");
    inBatch_ = false;
    changesInBatch_ = 0;
}

void ItemIndex::Tables::abandon() noexcept
{
    // A full disk makes the database give the transaction up itself.
    if (sqlite3_get_autocommit(database_.getHandle()) == 0)
        (void)database_.tryExec("ROLLBACK");
    lastFolder_.reset();
    inBatch_ = false;
    changesInBatch_ = 0;
}

} // namespace stowline::backup
