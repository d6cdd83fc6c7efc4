#include "stowline/backup/index/PlaceNotes.h"

#include "stowline/backup/index/PathKey.h"
#include "stowline/backup/index/StatementUse.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <sqlite3.h>

namespace stowline::backup {

namespace {

constexpr const char* kTable = R"sql(
    CREATE TABLE IF NOT EXISTS notes (
        folder      BLOB NOT NULL,
        name        BLOB NOT NULL,
        changed_run INTEGER NOT NULL,
        kind        INTEGER,
        text        BLOB,
        PRIMARY KEY (folder, name)
    ) STRICT, WITHOUT ROWID
)sql";

SQLite::Database& withTable(SQLite::Database& database)
{
    database.exec(kTable);
    return database;
}

void bindBytes(SQLite::Statement& statement, int at, std::string_view bytes)
{
    statement.bind(at, static_cast<const void*>(bytes.empty() ? "" : bytes.data()),
                   static_cast<int>(bytes.size()));
}

void bindPlace(SQLite::Statement& statement, int at, std::string_view path)
{
    bindBytes(statement, at, pathKey(parentOf(path)));
    bindBytes(statement, at + 1, nameOf(path));
}

/// The note of a row whose kind and text stand from a column on; absent: it is gone.
std::optional<PlaceNote> noteOf(const SQLite::Statement& row, int first, std::string path)
{
    const auto kind = row.getColumn(first);
    if (kind.isNull())
        return std::nullopt;
    if (kind.getInt() < 0 || kind.getInt() > static_cast<int>(PlaceNote::Kind::cutOff))
        throw SQLite::Exception("a note of an unknown kind", SQLITE_CORRUPT);
    return PlaceNote{std::move(path), static_cast<PlaceNote::Kind>(kind.getInt()),
                     row.getColumn(first + 1).getString()};
}

} // namespace

std::string packedRules(const std::vector<std::string>& rules)
{
    std::string text;
    for (const std::string& rule : rules)
        text += rule + '\0';
    return text;
}

std::vector<std::string> unpackedRules(std::string_view text)
{
    std::vector<std::string> rules;
    while (!text.empty()) {
        const auto end = std::min(text.find('\0'), text.size());
        rules.emplace_back(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return rules;
}

PlaceNotes::PlaceNotes(SQLite::Database& database)
    : database_(withTable(database)),
      ofFolder_(database_, "SELECT name, kind, text FROM notes WHERE folder = ?"
                           " AND kind IS NOT NULL ORDER BY name"),
      byName_(database_, "SELECT kind, text FROM notes WHERE folder = ? AND name = ?"),
      put_(database_, "INSERT INTO notes (folder, name, changed_run, kind, text)"
                      " VALUES (?, ?, ?, ?, ?) ON CONFLICT (folder, name) DO UPDATE SET"
                      " changed_run = excluded.changed_run, kind = excluded.kind,"
                      " text = excluded.text"
                      " WHERE kind IS NOT excluded.kind OR text IS NOT excluded.text"),
      removeAt_(database_, "UPDATE notes SET changed_run = ?, kind = NULL, text = NULL"
                           " WHERE folder = ? AND name = ? AND kind IS NOT NULL"),
      removeBelow_(database_, "UPDATE notes SET changed_run = ?, kind = NULL, text = NULL"
                              " WHERE folder >= ? AND folder < ? AND kind IS NOT NULL")
{
}

std::vector<PlaceNote> PlaceNotes::in(std::string_view folder)
{
    const StatementUse use(ofFolder_);
    bindBytes(ofFolder_, 1, pathKey(folder));
    std::vector<PlaceNote> notes;
    while (ofFolder_.executeStep())
        notes.push_back(
            *noteOf(ofFolder_, 1, pathOfRow(folder, ofFolder_.getColumn(0).getString())));
    return notes;
}

std::optional<PlaceNote> PlaceNotes::at(std::string_view path)
{
    const StatementUse use(byName_);
    bindPlace(byName_, 1, path);
    return byName_.executeStep() ? noteOf(byName_, 0, std::string(path)) : std::nullopt;
}

void PlaceNotes::put(const PlaceNote& note, std::int64_t run)
{
    const StatementUse use(put_);
    bindPlace(put_, 1, note.path);
    put_.bind(3, run);
    put_.bind(4, static_cast<int>(note.kind));
    bindBytes(put_, 5, note.text);
    put_.exec();
}

void PlaceNotes::removeAt(std::string_view path, std::int64_t run)
{
    const StatementUse use(removeAt_);
    removeAt_.bind(1, run);
    bindPlace(removeAt_, 2, path);
    removeAt_.exec();
}

void PlaceNotes::removeBelow(std::string_view path, std::int64_t run)
{
    const KeyRange keys = keysAtAndBelow(path);
    const StatementUse use(removeBelow_);
    removeBelow_.bind(1, run);
    bindBytes(removeBelow_, 2, keys.first);
    bindBytes(removeBelow_, 3, keys.end);
    removeBelow_.exec();
}

void PlaceNotes::forEachChangeSince(
    std::int64_t run,
    const std::function<bool(const std::string&, const std::optional<PlaceNote>&)>& take)
{
    SQLite::Statement changed(database_, "SELECT folder, name, kind, text FROM notes WHERE"
                                         " changed_run > ?1 AND (?1 >= 0 OR kind IS NOT NULL)"
                                         " ORDER BY folder, name");
    changed.bind(1, run);
    while (changed.executeStep()) {
        const std::string path = pathOfRow(pathOfKey(changed.getColumn(0).getString()),
                                           changed.getColumn(1).getString());
        if (!take(path, noteOf(changed, 2, path)))
            return;
    }
}

std::uint64_t PlaceNotes::count(PlaceNote::Kind kind)
{
    SQLite::Statement counted(database_, "SELECT count(*) FROM notes WHERE kind = ?");
    counted.bind(1, static_cast<int>(kind));
    return counted.executeStep() ? static_cast<std::uint64_t>(counted.getColumn(0).getInt64()) : 0;
}

void PlaceNotes::forgetVanished(std::int64_t upToRun)
{
    SQLite::Statement forget(database_,
                             "DELETE FROM notes WHERE kind IS NULL AND changed_run <= ?");
    forget.bind(1, upToRun);
    forget.exec();
}

void PlaceNotes::clear()
{
    database_.exec("DELETE FROM notes");
}

} // namespace stowline::backup
