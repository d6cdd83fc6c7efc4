// What people are shown of an account: machines, runs, what was fetched, what is kept, its size.
#include "devserver/Storage.h"
#include "devserver/StoragePaths.h"
#include "stowline/logging/LogMacros.h"

#include <fmt/format.h>

#include <algorithm>

namespace stowline::devserver {

namespace {

using Lock = std::lock_guard<std::recursive_mutex>;

constexpr std::int64_t kPauseInSpan = 600;    ///< seconds
constexpr std::int64_t kBetweenWrites = 10;   ///< of what is being read
constexpr int kMostSpans = 100;               ///< of an account
constexpr std::int64_t kInDetail = 2 * 86400; ///< seconds for which every note of space stays

/// The machines of a user ?1 one by one, by the index, without looking at each item.
constexpr const char* kSystems =
    "WITH RECURSIVE systems (name) AS (SELECT min(system_name) FROM items WHERE user_name = ?1"
    " UNION ALL SELECT (SELECT min(system_name) FROM items WHERE user_name = ?1 AND"
    " system_name > systems.name) FROM systems WHERE systems.name IS NOT NULL)";

std::uint64_t unsignedColumn(SQLite::Statement& row, int column)
{
    return static_cast<std::uint64_t>(row.getColumn(column).getInt64());
}

} // namespace

std::vector<MachineSummary> Storage::machines(const std::string& userName)
{
    const Lock lock(mutex_);
    std::map<std::string, MachineSummary> found;
    SQLite::Statement items(
        database_, "SELECT system_name, count(*) FILTER (WHERE folder NOT GLOB"
                   " '/=stowline=/records/*'), CAST(min(total(size) FILTER (WHERE folder NOT GLOB"
                   " '/=stowline=/records/*'), 9223372036854774784.0) AS INTEGER) FROM items"
                   " WHERE user_name = ? AND is_folder = 0 GROUP BY system_name");
    items.bind(1, userName);
    while (items.executeStep()) {
        MachineSummary& machine = found[items.getColumn(0).getString()];
        machine.systemName = items.getColumn(0).getString();
        machine.files = items.getColumn(1).getInt64();
        machine.bytes = unsignedColumn(items, 2);
    }
    SQLite::Statement versions(
        database_, "SELECT i.system_name, count(*), CAST(total(CASE WHEN v.stored_size < 0 THEN"
                   " v.size ELSE v.stored_size END) AS INTEGER), count(*) FILTER (WHERE"
                   " v.is_whole = 0), max(v.stored_at) FROM versions v JOIN items i ON"
                   " i.id = v.item_id WHERE v.user_name = ? GROUP BY i.system_name");
    versions.bind(1, userName);
    while (versions.executeStep()) {
        MachineSummary& machine = found[versions.getColumn(0).getString()];
        machine.versions = versions.getColumn(1).getInt64();
        machine.storedBytes = unsignedColumn(versions, 2);
        machine.damaged = versions.getColumn(3).getInt64();
        machine.lastStored = versions.getColumn(4).getString();
    }
    std::vector<MachineSummary> list;
    list.reserve(found.size());
    for (auto& [name, machine] : found)
        list.push_back(std::move(machine));
    return list;
}

std::vector<StoredRecord> Storage::records(const std::string& userName, int mostOfChain)
{
    constexpr std::size_t numberDigits = 8; // of a record's name, as "00000017-finished"
    const Lock lock(mutex_);
    SQLite::Statement query(
        database_,
        std::string(kSystems) +
            " SELECT system_name, folder, name, stored_at, id FROM (SELECT i.system_name, i.folder,"
            " i.name, v.stored_at, v.id, row_number() OVER (PARTITION BY i.system_name, i.folder"
            " ORDER BY v.id DESC) AS place FROM systems s JOIN items i ON i.user_name = ?1 AND"
            " i.system_name = s.name AND i.folder >= ?2 AND i.folder < ?3 JOIN versions v ON"
            " v.item_id = i.id WHERE s.name IS NOT NULL AND i.is_folder = 0) WHERE place <= ?4"
            " ORDER BY id DESC");
    query.bind(1, userName);
    std::string behind(kRecordsFolder);
    query.bind(2, behind);
    ++behind.back();
    query.bind(3, behind);
    query.bind(4, mostOfChain);
    std::vector<StoredRecord> found;
    while (query.executeStep()) {
        const std::string name = query.getColumn(2).getString();
        if (name.size() <= numberDigits + 1 || name[numberDigits] != '-' ||
            name.find_first_not_of("0123456789") != numberDigits)
            continue;
        found.push_back({.userName = userName,
                         .systemName = query.getColumn(0).getString(),
                         .chain = split(query.getColumn(1).getString()).second,
                         .run = name.substr(0, numberDigits),
                         .state = name.substr(numberDigits + 1),
                         .storedAt = query.getColumn(3).getString(),
                         .version = query.getColumn(4).getInt64()});
    }
    return found;
}

std::string Storage::beginningOf(const StoredRecord& record, std::size_t length)
{
    return readPart(record.userName, record.version, 0, length).bytes;
}

/// What was read is no less read where it cannot be noted.
void Storage::noteRead(const std::string& userName, const StoredVersion& version,
                       std::uint64_t bytes)
try {
    const Lock lock(mutex_);
    const std::int64_t now = secondsNow();
    OpenSpan& open = reads_[{userName, version.systemName}];
    if (open.id == 0 || now - open.span.lastAt >= kPauseInSpan || now < open.span.began) {
        if (open.id != 0)
            writeReads();
        SQLite::Statement insert(database_, "INSERT INTO reads (user_name, system_name, began,"
                                            " last_at, parts, bytes) VALUES (?1,?2,?3,?3,0,0)");
        insert.bind(1, userName);
        insert.bind(2, version.systemName);
        insert.bind(3, now);
        insert.exec();
        open = {database_.getLastInsertRowid(), {version.systemName, now, now, 0, 0}, now};
        SQLite::Statement thin(database_, "DELETE FROM reads WHERE user_name = ?1 AND id <= (SELECT"
                                          " id FROM reads WHERE user_name = ?1 ORDER BY id DESC"
                                          " LIMIT 1 OFFSET ?2)");
        thin.bind(1, userName);
        thin.bind(2, kMostSpans);
        thin.exec();
    }
    open.span.lastAt = now;
    ++open.span.parts;
    open.span.bytes += bytes;
    if (now - open.writtenAt >= kBetweenWrites)
        writeReads();
} catch (const SQLite::Exception& fault) {
    STOWLINE_LOG_ERROR("What was read cannot be noted: %@", fault.what());
}

/// With the lock, or when nobody else is left.
void Storage::writeReads()
{
    for (auto& [whose, open] : reads_) {
        SQLite::Statement update(database_,
                                 "UPDATE reads SET last_at = ?, parts = ?, bytes = ? WHERE id = ?");
        update.bind(1, open.span.lastAt);
        update.bind(2, static_cast<std::int64_t>(open.span.parts));
        update.bind(3, static_cast<std::int64_t>(open.span.bytes));
        update.bind(4, open.id);
        update.exec();
        open.writtenAt = open.span.lastAt;
    }
}

std::vector<ReadSpan> Storage::reads(const std::string& userName)
{
    const Lock lock(mutex_);
    writeReads();
    SQLite::Statement query(database_, "SELECT system_name, began, last_at, parts, bytes FROM reads"
                                       " WHERE user_name = ? ORDER BY id DESC");
    query.bind(1, userName);
    std::vector<ReadSpan> found;
    while (query.executeStep())
        found.push_back({query.getColumn(0).getString(), query.getColumn(1).getInt64(),
                         query.getColumn(2).getInt64(), unsignedColumn(query, 3),
                         unsignedColumn(query, 4)});
    return found;
}

std::vector<GraceGroup> Storage::graceGroups(const std::string& userName, int most)
{
    const Lock lock(mutex_);
    SQLite::Statement query(
        database_,
        "SELECT system_name, date(deleted_at, 'unixepoch') AS day, count(*), CAST(total(CASE WHEN"
        " stored_size < 0 THEN size ELSE stored_size END) AS INTEGER),"
        " max(min(max(kept_until - ?2, due - ?3)), 0) AS left FROM deleted_versions"
        " WHERE user_name = ?1 GROUP BY system_name, day ORDER BY left, day, system_name LIMIT ?4");
    query.bind(1, userName);
    query.bind(2, secondsNow());
    query.bind(3, passGrace());
    query.bind(4, most);
    std::vector<GraceGroup> found;
    while (query.executeStep())
        found.push_back({query.getColumn(0).getString(), query.getColumn(1).getString(),
                         query.getColumn(2).getInt64(), unsignedColumn(query, 3),
                         query.getColumn(4).getInt64()});
    return found;
}

void Storage::noteSpaceOf(const std::string& userName)
{
    const Lock lock(mutex_);
    SQLite::Statement insert(
        database_, "INSERT OR REPLACE INTO space_notes (user_name, at, bytes, deleted)"
                   " SELECT ?1, ?2, ?3, ?4 WHERE NOT EXISTS (SELECT 1 FROM (SELECT bytes, deleted"
                   " FROM space_notes WHERE user_name = ?1 ORDER BY at DESC LIMIT 1)"
                   " WHERE bytes = ?3 AND deleted = ?4)");
    insert.bind(1, userName);
    insert.bind(2, secondsNow());
    insert.bind(3, static_cast<std::int64_t>(usedBytes(userName)));
    insert.bind(4, static_cast<std::int64_t>(graceBytes(userName)));
    insert.exec();
}

/// The run is a success without it.
void Storage::noteEndOfRun(const std::string& userName)
try {
    noteSpaceOf(userName);
} catch (const SQLite::Exception& fault) {
    STOWLINE_LOG_ERROR("What an account holds cannot be noted: %@", fault.what());
}

void Storage::noteSpace()
{
    std::vector<std::string> users;
    {
        const Lock lock(mutex_);
        SQLite::Statement query(database_, "SELECT DISTINCT user_name FROM upload_paths");
        while (query.executeStep())
            users.push_back(query.getColumn(0).getString());
    }
    for (const std::string& user : users) // others may have their turn in between
        noteSpaceOf(user);
    const Lock lock(mutex_);
    SQLite::Statement thin(database_,
                           "DELETE FROM space_notes AS note WHERE at < ?1 AND EXISTS (SELECT 1 FROM"
                           " space_notes later WHERE later.user_name = note.user_name AND"
                           " later.at > note.at AND later.at < (note.at / 86400 + 1) * 86400)");
    thin.bind(1, secondsNow() - kInDetail);
    thin.exec();
}

std::vector<SpaceNote> Storage::spaceNotes(const std::string& userName)
{
    const Lock lock(mutex_);
    SQLite::Statement query(database_, "SELECT at, bytes, deleted FROM space_notes"
                                       " WHERE user_name = ? ORDER BY at");
    query.bind(1, userName);
    std::vector<SpaceNote> found;
    while (query.executeStep())
        found.push_back(
            {query.getColumn(0).getInt64(), unsignedColumn(query, 1), unsignedColumn(query, 2)});
    return found;
}

} // namespace stowline::devserver
