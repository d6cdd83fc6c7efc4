#include "stowline/backup/index/IndexFile.h"

#include "stowline/backup/index/ItemColumns.h"
#include "stowline/platform/files/FileHandle.h"
#include "stowline/platform/text/SystemErrorText.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <sqlite3.h>

#include <functional>
#include <optional>
#include <system_error>

namespace stowline::backup {

namespace {

namespace fs = std::filesystem;
using State = ItemIndex::State;

// Both stand in the header of the database (docs/formats/index.md).
constexpr std::int32_t kApplication = 0x53744978; // "StIx"
constexpr std::int32_t kVersion = 1;

constexpr int kPatienceMilliseconds = 5000;

constexpr const char* kSettings = R"sql(
    PRAGMA journal_mode = WAL;
    PRAGMA synchronous = NORMAL;
    PRAGMA journal_size_limit = 16777216;
)sql";

constexpr const char* kTables = R"sql(
    CREATE TABLE about (
        service     TEXT NOT NULL,
        username    TEXT NOT NULL,
        system_name TEXT NOT NULL,
        machine     TEXT NOT NULL,
        user        TEXT NOT NULL,
        profile     TEXT NOT NULL,
        run         INTEGER NOT NULL DEFAULT 0,
        digest      TEXT NOT NULL DEFAULT ''
    ) STRICT;
    CREATE TABLE folders (
        id          INTEGER PRIMARY KEY,
        path        BLOB NOT NULL UNIQUE,
        changed_run INTEGER NOT NULL
    ) STRICT;
    CREATE TABLE items (
        folder        INTEGER NOT NULL,
        name          BLOB NOT NULL,
        changed_run   INTEGER NOT NULL,
        confirmed_run INTEGER NOT NULL,
        kind          INTEGER,
        size          INTEGER,
        modified      INTEGER,
        modified_ns   INTEGER,
        changed       INTEGER,
        changed_ns    INTEGER,
        mode          INTEGER,
        owner         INTEGER,
        group_        INTEGER,
        owner_name    BLOB,
        group_name    BLOB,
        device        INTEGER,
        inode         INTEGER,
        links         INTEGER,
        link_target   BLOB,
        device_number INTEGER,
        attributes    BLOB,
        same_file_as  BLOB,
        read_began    INTEGER,
        read_began_ns INTEGER,
        flags         INTEGER,
        version       BLOB,
        list          BLOB,
        digest        ANY,
        checksum      INTEGER,
        stored_size   INTEGER,
        content_kind  TEXT,
        content_key   BLOB,
        baseline      BLOB,
        stored_run    INTEGER,
        PRIMARY KEY (folder, name)
    ) STRICT, WITHOUT ROWID;
    CREATE INDEX further_names ON items (same_file_as) WHERE same_file_as IS NOT NULL;
)sql";

/// Files that had content when a run found them without it, whatever is there now.
constexpr const char* kEmptied = R"sql(
    CREATE TABLE IF NOT EXISTS emptied (
        folder INTEGER NOT NULL,
        name   BLOB NOT NULL,
        run    INTEGER NOT NULL,
        PRIMARY KEY (folder, name)
    ) STRICT, WITHOUT ROWID
)sql";

constexpr const char* kKnownRecords = R"sql(
    CREATE TABLE IF NOT EXISTS records (
        run    INTEGER PRIMARY KEY,
        digest TEXT NOT NULL
    ) STRICT
)sql";

std::int32_t number(SQLite::Database& database, const char* query)
{
    return database.execAndGet(query).getInt();
}

void makeTables(SQLite::Database& database, const IndexOwner& owner)
{
    SQLite::Transaction transaction(database, SQLite::TransactionBehavior::IMMEDIATE);
    // They are there, or another process was quicker. To have begun shows that the file can be
    // written.
    if (number(database, "SELECT count(*) FROM sqlite_master") != 0)
        return;
    database.exec(kTables);
    SQLite::Statement about(database,
                            "INSERT INTO about (service, username, system_name, machine, user,"
                            " profile) VALUES (?, ?, ?, ?, ?, ?)");
    int at = 1;
    for (const std::string* word : {&owner.service, &owner.username, &owner.systemName,
                                    &owner.machine, &owner.user, &owner.profile})
        about.bind(at++, *word);
    about.exec();
    database.exec("PRAGMA application_id = " + std::to_string(kApplication));
    database.exec("PRAGMA user_version = " + std::to_string(kVersion));
    transaction.commit();
}

IndexOwner ownerIn(SQLite::Database& database)
{
    SQLite::Statement about(
        database, "SELECT service, username, system_name, machine, user, profile FROM about");
    if (!about.executeStep())
        throw SQLite::Exception("an index without an owner", SQLITE_CORRUPT);
    const auto word = [&about](int column) { return about.getColumn(column).getString(); };
    return {word(0), word(1), word(2), word(3), word(4), word(5)};
}

bool belongsTo(SQLite::Database& database, const IndexOwner& owner)
{
    return ownerIn(database) == owner;
}

/// Whether pages and tables are those of an index. What is torn or missing shows here, not in the
/// middle of a run.
bool isWhole(SQLite::Database& database, const fs::path& path)
{
    const auto pageSize = static_cast<std::uintmax_t>(number(database, "PRAGMA page_size"));
    const std::string columns = "SELECT folder, name, changed_run, confirmed_run, " +
                                itemColumns() +
                                " FROM items LIMIT 0; SELECT id, path, changed_run FROM folders";
    return fs::file_size(path) % pageSize == 0 && database.tryExec(columns) != SQLITE_ERROR &&
           database.execAndGet("PRAGMA quick_check(1)").getString() == "ok";
}

State look(SQLite::Database& database, const fs::path& path, const IndexOwner& owner)
{
    if (number(database, "SELECT count(*) FROM sqlite_master") == 0)
        return State::fresh;
    if (number(database, "PRAGMA application_id") != kApplication)
        return State::damaged;
    if (number(database, "PRAGMA user_version") > kVersion)
        return State::ofNewerVersion;
    if (number(database, "PRAGMA user_version") < 1 || !isWhole(database, path))
        return State::damaged;
    return belongsTo(database, owner) ? State::continued : State::ofAnotherOwner;
}

/// A file for the owner alone; SQLite gives those beside it the same mode.
void prepareFile(const fs::path& path)
{
    (void)platform::FileHandle::create(path);
    fs::permissions(path, fs::perms::owner_read | fs::perms::owner_write);
}

/// Moves the files of a closed database away, the main one last: as long as that is there, nothing
/// of the others is taken for a new one's.
void setAside(const fs::path& path)
{
    for (const char* suffix : {"-wal", "-shm"})
        fs::remove(path.string() + suffix);
    fs::remove_all(path.string() + ".unusable"); // a folder gives way to no file, nor the reverse
    fs::rename(path, path.string() + ".unusable");
}

IndexFault cannotBeMade(const fs::path& path, const std::string& reason)
{
    return {IndexFault::Kind::unwritable, "The index of the backup, " + path.string() +
                                              ", cannot be made or written: " + reason + "."};
}

/// One try. The state may be one that cannot be used; then there is no database.
IndexFile openOnce(const fs::path& path, const IndexOwner& owner)
{
    IndexFile file{path, nullptr, State::damaged};
    if (fs::exists(path) && !fs::is_regular_file(path)) // a pipe would be waited for
        return file;
    prepareFile(path);
    try {
        file.database = std::make_unique<SQLite::Database>(
            path.string(), SQLite::OPEN_READWRITE | SQLite::OPEN_NOMUTEX, kPatienceMilliseconds);
        file.state = look(*file.database, path, owner);
        if (file.state == State::fresh || file.state == State::continued) {
            file.database->exec(kSettings);
            makeTables(*file.database, owner);
            file.database->exec(kKnownRecords); // an index of before has none
            file.database->exec(kEmptied);
            return file;
        }
    } catch (const SQLite::Exception& fault) {
        const IndexFault said = faultOf(file, fault);
        if (said.kind() != IndexFault::Kind::damaged)
            throw said;
        file.state = State::damaged;
    }
    file.database.reset();
    return file;
}

} // namespace

IndexFault faultOf(const IndexFile& file, const SQLite::Exception& fault)
{
    const int systemError = file.database ? sqlite3_system_errno(file.database->getHandle()) : 0;
    return indexFault(file.path, fault, systemError);
}

IndexFile openIndexFile(const fs::path& path, const IndexOwner& owner)
{
    try {
        IndexFile file = openOnce(path, owner);
        if (file.database)
            return file;
        setAside(path);
        IndexFile fresh = openOnce(path, owner);
        if (!fresh.database)
            throw cannotBeMade(path, "a new one is damaged at once");
        fresh.state = file.state;
        return fresh;
    } catch (const platform::FileFault& fault) {
        throw cannotBeMade(path, platform::systemErrorText(fault.systemError()));
    } catch (const fs::filesystem_error& fault) {
        throw cannotBeMade(path, fault.code().message());
    }
}

namespace {

/// Reads from an index as it was last committed. Nothing when there is none that can be read.
void lookInto(const fs::path& path, const std::function<void(SQLite::Database&)>& read)
{
    std::error_code fault;
    if (!fs::is_regular_file(path, fault))
        return;
    try {
        SQLite::Database database(path.string(), SQLite::OPEN_READONLY | SQLite::OPEN_NOMUTEX,
                                  kPatienceMilliseconds);
        if (number(database, "PRAGMA application_id") == kApplication &&
            number(database, "PRAGMA user_version") == kVersion)
            read(database);
    } catch (const SQLite::Exception&) { // what cannot be read tells nothing
    }
}

void lookInto(const fs::path& path, const IndexOwner& owner,
              const std::function<void(SQLite::Database&)>& read)
{
    lookInto(path, [&](SQLite::Database& database) {
        if (belongsTo(database, owner))
            read(database);
    });
}

} // namespace

std::optional<IndexOwner> ownerOfIndexFile(const fs::path& path)
{
    std::optional<IndexOwner> owner;
    lookInto(path, [&owner](SQLite::Database& database) { owner = ownerIn(database); });
    return owner;
}

IndexPosition positionInIndexFile(const fs::path& path, const IndexOwner& owner)
{
    IndexPosition position;
    lookInto(path, owner, [&position](SQLite::Database& database) {
        SQLite::Statement about(database, "SELECT run, digest FROM about");
        if (about.executeStep())
            position = {static_cast<std::uint64_t>(about.getColumn(0).getInt64()),
                        about.getColumn(1).getString()};
    });
    return position;
}

std::vector<IndexPosition> knownRecordsIn(SQLite::Database& database)
{
    std::vector<IndexPosition> records;
    SQLite::Statement query(database, "SELECT run, digest FROM records ORDER BY run");
    while (query.executeStep())
        records.push_back({static_cast<std::uint64_t>(query.getColumn(0).getInt64()),
                           query.getColumn(1).getString()});
    return records;
}

std::vector<IndexPosition> knownRecordsInIndexFile(const fs::path& path, const IndexOwner& owner)
{
    std::vector<IndexPosition> records;
    lookInto(path, owner,
             [&records](SQLite::Database& database) { records = knownRecordsIn(database); });
    return records;
}

IndexFile temporaryIndexFile()
{
    IndexFile file;
    try {
        file.database = std::make_unique<SQLite::Database>(
            "", SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE | SQLite::OPEN_NOMUTEX);
        makeTables(*file.database, {});
        file.database->exec(kKnownRecords);
        file.database->exec(kEmptied);
        return file;
    } catch (const SQLite::Exception& fault) {
        throw faultOf(file, fault);
    }
}

} // namespace stowline::backup
