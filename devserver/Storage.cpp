#include "devserver/Storage.h"

#include "devserver/StoragePaths.h"
#include "stowline/logging/LogMacros.h"
#include "stowline/platform/desktop/Cryptography.h"
#include "stowline/platform/desktop/CyclicChecksum.h"
#include "stowline/platform/desktop/Sha256.h"
#include "stowline/platform/files/ContentFile.h"
#include "stowline/platform/files/FileHandle.h"
#include "stowline/platform/text/Text.h"

#include <fmt/format.h>
#include <sqlite3.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <set>
#include <utility>

namespace stowline::devserver {

namespace {

constexpr const char* kSchema = R"sql(
    PRAGMA journal_mode = WAL;
    PRAGMA synchronous = NORMAL;
    PRAGMA foreign_keys = ON;
    CREATE TABLE IF NOT EXISTS upload_paths (
        path      TEXT PRIMARY KEY,
        user_name TEXT NOT NULL
    ) STRICT;
    CREATE TABLE IF NOT EXISTS uploads (
        server_file TEXT PRIMARY KEY,
        user_name   TEXT NOT NULL,
        file_name   BLOB NOT NULL,
        received    INTEGER NOT NULL,
        parts       INTEGER NOT NULL,
        checksum    INTEGER NOT NULL,
        changed_at  INTEGER NOT NULL DEFAULT 0
    ) STRICT;
    CREATE TABLE IF NOT EXISTS items (
        id          INTEGER PRIMARY KEY AUTOINCREMENT,
        user_name   TEXT NOT NULL,
        system_name TEXT NOT NULL,
        folder      TEXT NOT NULL,
        name        TEXT NOT NULL,
        is_folder   INTEGER NOT NULL,
        is_package  INTEGER NOT NULL DEFAULT 0,
        size        INTEGER NOT NULL DEFAULT 0,
        modified    TEXT NOT NULL DEFAULT '',
        checksum    INTEGER NOT NULL DEFAULT 0,
        versions    INTEGER NOT NULL DEFAULT 0,
        UNIQUE (user_name, system_name, folder, name)
    ) STRICT;
    CREATE TABLE IF NOT EXISTS versions (
        id          INTEGER PRIMARY KEY AUTOINCREMENT,
        item_id     INTEGER NOT NULL REFERENCES items (id),
        user_name   TEXT NOT NULL,
        size        INTEGER NOT NULL,
        client_date TEXT NOT NULL,
        stored_at   TEXT NOT NULL DEFAULT CURRENT_TIMESTAMP,
        server_file TEXT NOT NULL UNIQUE,
        checksum    INTEGER NOT NULL,
        is_delta    INTEGER NOT NULL,
        is_packed   INTEGER NOT NULL,
        baseline    INTEGER NOT NULL,
        list_id     TEXT NOT NULL UNIQUE,
        stored_size INTEGER NOT NULL DEFAULT -1,
        digest      TEXT NOT NULL DEFAULT '',
        stamp       TEXT NOT NULL DEFAULT '',
        is_whole    INTEGER NOT NULL DEFAULT 1
    ) STRICT;
    CREATE INDEX IF NOT EXISTS versions_of_item ON versions (item_id);
    CREATE INDEX IF NOT EXISTS versions_against ON versions (baseline) WHERE is_delta = 1;
    CREATE TABLE IF NOT EXISTS deleted_versions (
        id          INTEGER PRIMARY KEY,
        item_id     INTEGER NOT NULL,
        user_name   TEXT NOT NULL,
        system_name TEXT NOT NULL,
        folder      TEXT NOT NULL,
        name        TEXT NOT NULL,
        size        INTEGER NOT NULL,
        client_date TEXT NOT NULL,
        stored_at   TEXT NOT NULL,
        server_file TEXT NOT NULL UNIQUE,
        checksum    INTEGER NOT NULL,
        is_delta    INTEGER NOT NULL,
        is_packed   INTEGER NOT NULL,
        baseline    INTEGER NOT NULL,
        list_id     TEXT NOT NULL UNIQUE,
        stored_size INTEGER NOT NULL,
        digest      TEXT NOT NULL,
        stamp       TEXT NOT NULL,
        is_whole    INTEGER NOT NULL,
        deleted_at  INTEGER NOT NULL,
        kept_until  INTEGER NOT NULL DEFAULT 0, -- by the clock
        due         INTEGER NOT NULL DEFAULT 0  -- by what passed of grace_clock
    ) STRICT;
    CREATE INDEX IF NOT EXISTS deleted_of_folder
        ON deleted_versions (user_name, system_name, folder);
    CREATE INDEX IF NOT EXISTS deleted_when ON deleted_versions (deleted_at);
    CREATE TABLE IF NOT EXISTS grace_clock (
        id      INTEGER PRIMARY KEY CHECK (id = 1),
        seen    INTEGER NOT NULL, -- when it was looked at last
        passed  INTEGER NOT NULL, -- seconds
        dropped INTEGER NOT NULL DEFAULT 0 -- nothing deleted later was taken away
    ) STRICT;
    CREATE TABLE IF NOT EXISTS packages (
        user_name TEXT NOT NULL,
        path      TEXT NOT NULL,
        bytes     INTEGER NOT NULL,
        PRIMARY KEY (user_name, path)
    ) STRICT;
    CREATE TABLE IF NOT EXISTS space_notes (
        user_name TEXT NOT NULL,
        at        INTEGER NOT NULL,
        bytes     INTEGER NOT NULL,
        deleted   INTEGER NOT NULL, -- of them
        PRIMARY KEY (user_name, at)
    ) STRICT, WITHOUT ROWID;
    CREATE TABLE IF NOT EXISTS reads (
        id          INTEGER PRIMARY KEY,
        user_name   TEXT NOT NULL,
        system_name TEXT NOT NULL,
        began       INTEGER NOT NULL,
        last_at     INTEGER NOT NULL,
        parts       INTEGER NOT NULL,
        bytes       INTEGER NOT NULL
    ) STRICT;
    CREATE INDEX IF NOT EXISTS reads_of_user ON reads (user_name, id);
)sql";

constexpr int kBusyMilliseconds = 5000;
constexpr std::size_t kListIdBytes = 12;

using Lock = std::lock_guard<std::recursive_mutex>;

/// A name that can stand in a path: as it is when it is harmless, else a digest of it.
std::string harmless(const std::string& name)
{
    constexpr std::size_t longest = 64;
    constexpr std::string_view allowed =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-";
    const bool isHarmless = !name.empty() && name.size() <= longest &&
                            name.find_first_not_of(allowed) == std::string::npos;
    return isHarmless ? name : "x-" + platform::keyedDigest(name, {});
}

/// What lies where an upload begins: the file may be that of a deleted version under another name,
/// so it is not written into.
void removeStray(const std::filesystem::path& file)
{
    std::error_code unimportant; // what cannot be removed is cut off
    std::filesystem::remove(file, unimportant);
}

} // namespace

Storage::Storage(std::filesystem::path dataFolder, std::function<Clock::time_point()> now,
                 std::chrono::seconds grace)
    : dataFolder_(std::move(dataFolder)), now_(std::move(now)), grace_(grace),
      database_((dataFolder_ / "files.sqlite").string(),
                SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE, kBusyMilliseconds)
{
    database_.exec(kSchema);
    migrate();
    takeBackAside();
}

Storage::~Storage()
{
    try {
        writeReads();
    } catch (const std::exception& fault) {
        STOWLINE_LOG_ERROR("What was read last cannot be noted: %@", fault.what());
    }
}

/// Adds what databases of earlier versions lack.
void Storage::migrate()
{
    const auto addColumn = [this](const char* table, const char* column, const char* kind) {
        SQLite::Statement known(database_, "SELECT 1 FROM pragma_table_info(?) WHERE name = ?");
        known.bind(1, table);
        known.bind(2, column);
        if (!known.executeStep())
            database_.exec(fmt::format("ALTER TABLE {} ADD COLUMN {} {}", table, column, kind));
    };
    addColumn("uploads", "changed_at", "INTEGER NOT NULL DEFAULT 0");
    addColumn("versions", "stored_size", "INTEGER NOT NULL DEFAULT -1");
    addColumn("versions", "digest", "TEXT NOT NULL DEFAULT ''");
    addColumn("versions", "stamp", "TEXT NOT NULL DEFAULT ''");
    addColumn("versions", "is_whole", "INTEGER NOT NULL DEFAULT 1");
    addColumn("deleted_versions", "kept_until", "INTEGER NOT NULL DEFAULT 0");
    addColumn("deleted_versions", "due", "INTEGER NOT NULL DEFAULT 0");
    addColumn("grace_clock", "dropped", "INTEGER NOT NULL DEFAULT 0");
    database_.exec(fmt::format("UPDATE deleted_versions SET kept_until = deleted_at + {0},"
                               " due = {1} + {0} WHERE kept_until = 0",
                               grace_.count(), passGrace()));
    database_.exec(
        fmt::format("UPDATE uploads SET changed_at = {} WHERE changed_at = 0", secondsNow()));
}

std::int64_t Storage::secondsNow() const
{
    return std::chrono::floor<std::chrono::seconds>(now_()).time_since_epoch().count();
}

std::filesystem::path Storage::contentFile(const std::string& serverFile) const
{
    return dataFolder_ / serverFile.substr(1);
}

std::mutex& Storage::contentLock(const std::string& serverFile)
{
    return contentLocks_.at(std::hash<std::string>()(serverFile) % contentLocks_.size());
}

std::string Storage::uploadPath(const std::string& userName, std::int64_t accountNumber,
                                const std::string& registryId)
{
    std::string path = fmt::format("/vol1/{}/{}/", accountNumber, harmless(registryId));
    const Lock lock(mutex_);
    SQLite::Statement insert(database_, "INSERT INTO upload_paths (path, user_name) VALUES (?,?)"
                                        " ON CONFLICT DO NOTHING");
    insert.bind(1, path);
    insert.bind(2, userName);
    insert.exec();
    return path;
}

std::optional<std::string> Storage::serverFileOf(const UploadPlace& place)
{
    const Lock lock(mutex_);
    KeptStatement query(statements_, "SELECT 1 FROM upload_paths WHERE path = ? AND user_name = ?");
    query->bind(1, place.serverPath);
    query->bind(2, place.userName);
    if (!query->executeStep())
        return std::nullopt;
    return place.serverPath + harmless(place.guid);
}

HeldUpload Storage::heldAt(const std::string& serverFile)
{
    HeldUpload held{.serverFile = serverFile};
    if (const auto version = versionAt(serverFile)) {
        if (judge(*version, false) == ContentState::whole) {
            held.isRegistered = true;
            held.receivedBytes = version->storedSize;
            held.versionId = version->id;
            held.listId = version->listId;
            return held;
        }
        setAside(*version);
    }
    setDeletedAside(serverFile);
    const Lock lock(mutex_);
    KeptStatement upload(statements_, "SELECT received, parts FROM uploads WHERE server_file = ?");
    upload->bind(1, serverFile);
    if (upload->executeStep()) {
        held.receivedBytes = static_cast<std::uint64_t>(upload->getColumn(0).getInt64());
        held.parts = static_cast<std::uint64_t>(upload->getColumn(1).getInt64());
    }
    return held;
}

std::optional<HeldUpload> Storage::held(const UploadPlace& place)
{
    const auto serverFile = serverFileOf(place);
    if (!serverFile)
        return std::nullopt;
    // Not while a part is being added: what is told must still hold when it arrives.
    const std::lock_guard content(contentLock(*serverFile));
    return heldAt(*serverFile);
}

std::optional<std::uint32_t> Storage::checksumOfUpload(const std::string& serverFile)
{
    const Lock lock(mutex_);
    KeptStatement query(statements_, "SELECT checksum FROM uploads WHERE server_file = ?");
    query->bind(1, serverFile);
    if (!query->executeStep())
        return std::nullopt;
    return static_cast<std::uint32_t>(query->getColumn(0).getInt64());
}

platform::Outcome<HeldUpload, PartRefusal> Storage::addPart(const UploadPlace& place,
                                                            const UploadedPart& part)
{
    const auto serverFile = serverFileOf(place);
    if (!serverFile)
        return PartRefusal::noSuchPath;
    if (part.checksum &&
        *part.checksum != platform::continuedCrc32(0, part.bytes.data(), part.bytes.size()))
        return PartRefusal::checksumMismatch;
    const std::lock_guard content(contentLock(*serverFile));
    HeldUpload held = heldAt(*serverFile);
    const std::uint64_t offset = part.offset.value_or(held.receivedBytes);
    if (held.isRegistered || offset < held.receivedBytes)
        return held;
    if (offset > held.receivedBytes)
        return PartRefusal::gap;

    if (held.receivedBytes == 0)
        removeStray(contentFile(*serverFile));
    auto file = platform::ContentFile::openOrCreate(contentFile(*serverFile));
    file.truncate(held.receivedBytes); // what a part left that was broken off
    file.write(held.receivedBytes, part.bytes);
    const std::uint32_t checksum = platform::continuedCrc32(
        checksumOfUpload(*serverFile).value_or(0), part.bytes.data(), part.bytes.size());
    held.receivedBytes += part.bytes.size();
    ++held.parts;
    const Lock lock(mutex_);
    KeptStatement update(statements_, "INSERT INTO uploads (server_file, user_name, file_name,"
                                      " received, parts, checksum, changed_at)"
                                      " VALUES (?,?,?,?,?,?,?)"
                                      " ON CONFLICT DO UPDATE SET received = excluded.received,"
                                      " parts = excluded.parts, checksum = excluded.checksum,"
                                      " changed_at = excluded.changed_at");
    update->bind(1, *serverFile);
    update->bind(2, place.userName);
    update->bind(3, part.fileName.data(), static_cast<int>(part.fileName.size()));
    update->bind(4, static_cast<std::int64_t>(held.receivedBytes));
    update->bind(5, static_cast<std::int64_t>(held.parts));
    update->bind(6, static_cast<std::int64_t>(checksum));
    update->bind(7, secondsNow());
    update->exec();
    return held;
}

void Storage::forgetUpload(const std::string& serverFile)
{
    const Lock lock(mutex_);
    KeptStatement remove(statements_, "DELETE FROM uploads WHERE server_file = ?");
    remove->bind(1, serverFile);
    remove->exec();
}

bool Storage::hasBaseline(const Registration& registration)
{
    const auto baseline = version(registration.place.userName, registration.baselineVersion);
    return baseline && baseline->systemName == registration.systemName &&
           baseline->folder == registration.folder && baseline->name == registration.name;
}

std::string codeOf(RegistrationOutcome outcome)
{
    switch (outcome) {
    case RegistrationOutcome::success:
        return "Success";
    case RegistrationOutcome::invalidPath:
        return "InvalidPath";
    case RegistrationOutcome::invalidSize:
        return "InvalidSize";
    case RegistrationOutcome::incompleteFile:
        return "IncompleteFile";
    case RegistrationOutcome::checksumMismatch:
        return "ChecksumMismatch";
    case RegistrationOutcome::invalidBaseline:
        return "InvalidBaseline";
    }
    return "";
}

RegistrationOutcome Storage::registerFile(const Registration& given)
{
    Registration registration = given;
    registration.folder = normalized(given.folder);
    const auto serverFile = serverFileOf(registration.place);
    if (!serverFile || registration.name.empty() ||
        registration.name.find('/') != std::string::npos)
        return RegistrationOutcome::invalidPath;
    constexpr auto largest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    if (registration.size > largest)
        return RegistrationOutcome::invalidSize;
    const std::lock_guard content(contentLock(*serverFile));
    const HeldUpload held = heldAt(*serverFile);
    if (held.receivedBytes != registration.uploadedSize)
        return RegistrationOutcome::incompleteFile;
    if (held.isRegistered)
        return RegistrationOutcome::success;
    if (registration.isDelta && !hasBaseline(registration))
        return RegistrationOutcome::invalidBaseline;

    if (held.receivedBytes == 0)
        removeStray(contentFile(*serverFile));
    auto file = platform::ContentFile::openOrCreate(contentFile(*serverFile));
    file.truncate(held.receivedBytes);
    std::uint32_t checksum = 0;
    platform::Sha256 digest;
    file.read([&](std::string_view bytes) {
        checksum = platform::continuedCrc32(checksum, bytes.data(), bytes.size());
        digest.update(bytes);
    });
    if (checksum != checksumOfUpload(*serverFile).value_or(0) ||
        checksum != registration.checksum.value_or(checksum)) {
        forgetUpload(*serverFile);
        return RegistrationOutcome::checksumMismatch;
    }
    try {
        file.synchronize();
    } catch (...) {
        forgetUpload(*serverFile); // see commitGroup()
        throw;
    }
    const Content whole{held.receivedBytes, checksum, digest.hexadecimal(), file.stamp()};
    NewVersion version{registration, *serverFile, whole};
    insertTogether(version);
    if (isRecord(registration.folder) && registration.name.ends_with("-finished"))
        noteEndOfRun(registration.place.userName);
    return RegistrationOutcome::success;
}

/// The first that comes commits for all that wait; those that come meanwhile are the next group.
void Storage::insertTogether(NewVersion& version)
{
    std::unique_lock lock(groupMutex_);
    group_.push_back(&version);
    groupDone_.wait(lock, [&] { return version.isDone || !isCommitting_; });
    if (!version.isDone) {
        isCommitting_ = true;
        const auto group = std::exchange(group_, {});
        lock.unlock();
        commitGroup(group);
        lock.lock();
        for (NewVersion* done : group)
            done->isDone = true;
        isCommitting_ = false;
        groupDone_.notify_all();
    }
    if (version.fault)
        std::rethrow_exception(version.fault);
}

/// What a disk did not keep it tells once; asked again it says that all is well. Content whose name
/// may be lost is therefore sent again, into a new file.
void Storage::commitGroup(const std::vector<NewVersion*>& group)
{
    try {
        synchronizeFoldersOf(group);
    } catch (...) {
        for (NewVersion* version : group)
            version->fault = std::current_exception();
        return forgetUploadsOf(group);
    }
    insertGroup(group);
}

void Storage::forgetUploadsOf(const std::vector<NewVersion*>& group)
{
    for (NewVersion* version : group) {
        try {
            forgetUpload(version->serverFile);
        } catch (...) {
            version->fault = std::current_exception(); // then it is the database's
        }
    }
}

void Storage::synchronizeFoldersOf(const std::vector<NewVersion*>& group)
{
    std::set<std::filesystem::path> folders;
    for (const NewVersion* version : group)
        folders.insert(contentFile(version->serverFile).parent_path());
    for (const auto& folder : folders)
        platform::synchronizeFolder(folder);
}

/// When all rows together cannot be written, each is tried alone, so that nobody suffers for
/// another.
void Storage::insertGroup(const std::vector<NewVersion*>& group)
{
    try {
        return insertRows(group);
    } catch (...) {
        if (group.size() == 1) {
            group.front()->fault = std::current_exception();
            return;
        }
    }
    for (NewVersion* const& version : group) {
        try {
            insertRows({&version, 1});
        } catch (...) {
            version->fault = std::current_exception();
        }
    }
}

void Storage::insertRows(std::span<NewVersion* const> versions)
{
    const Lock lock(mutex_);
    // Rows of parts need not outlive the machine; those of versions must.
    database_.exec("PRAGMA synchronous = FULL");
    const auto backToNormal = std::shared_ptr<void>(
        nullptr, [this](void*) { (void)database_.tryExec("PRAGMA synchronous = NORMAL"); });
    SQLite::Transaction transaction(database_);
    for (const NewVersion* version : versions) {
        insertVersion(version->registration, version->serverFile, version->content);
        forgetUpload(version->serverFile);
    }
    transaction.commit();
}

std::int64_t Storage::fileFor(const Registration& registration)
{
    // The folders on the way, from the file up to the first one that is known.
    KeptStatement insert(statements_,
                         "INSERT INTO items (user_name, system_name, folder, name, is_folder,"
                         " is_package) VALUES (?1, ?2, ?3, ?4, 1, EXISTS (SELECT 1 FROM packages"
                         " WHERE user_name = ?1 AND path = ?3 || '/' || ?4))"
                         " ON CONFLICT DO UPDATE SET is_folder = 1 WHERE is_folder = 0");
    for (std::string path = registration.folder; !path.empty();) {
        const auto [folder, name] = split(path);
        insert->bind(1, registration.place.userName);
        insert->bind(2, registration.systemName);
        insert->bind(3, folder);
        insert->bind(4, name);
        const bool isNew = insert->exec() == 1;
        insert->reset();
        path = isNew ? folder : "";
    }
    KeptStatement file(statements_,
                       "INSERT INTO items (user_name, system_name, folder, name, is_folder)"
                       " VALUES (?,?,?,?,0) ON CONFLICT DO UPDATE SET is_folder = 0"
                       " RETURNING id");
    file->bind(1, registration.place.userName);
    file->bind(2, registration.systemName);
    file->bind(3, registration.folder);
    file->bind(4, registration.name);
    file->executeStep();
    const std::int64_t id = file->getColumn(0).getInt64();
    file->executeStep(); // to its end, or the insertion is not done
    return id;
}

void Storage::insertVersion(const Registration& registration, const std::string& serverFile,
                            const Content& content)
{
    const std::int64_t item = fileFor(registration);
    KeptStatement insert(statements_, "INSERT INTO versions (item_id, user_name, size,"
                                      " client_date, server_file, checksum, is_delta, is_packed,"
                                      " baseline, list_id, stored_size, digest, stamp)"
                                      " VALUES (?,?,?,?,?,?,?,?,?,?,?,?,?)");
    insert->bind(1, item);
    insert->bind(2, registration.place.userName);
    insert->bind(3, static_cast<std::int64_t>(registration.size));
    insert->bind(4, registration.clientDate);
    insert->bind(5, serverFile);
    insert->bind(6, static_cast<std::int64_t>(content.checksum));
    insert->bind(7, registration.isDelta ? 1 : 0);
    insert->bind(8, registration.isCompressed ? 1 : 0);
    insert->bind(9, registration.baselineVersion);
    insert->bind(10, platform::hexadecimalText(platform::randomBytes(kListIdBytes)));
    insert->bind(11, static_cast<std::int64_t>(content.size));
    insert->bind(12, content.digest);
    insert->bind(13, content.stamp);
    insert->exec();
    KeptStatement update(statements_, "UPDATE items SET size = ?, modified = ?, checksum = ?,"
                                      " versions = versions + 1 WHERE id = ?");
    update->bind(1, static_cast<std::int64_t>(registration.size));
    update->bind(2, registration.clientDate);
    update->bind(3, static_cast<std::int64_t>(content.checksum));
    update->bind(4, item);
    update->exec();
}

} // namespace stowline::devserver
