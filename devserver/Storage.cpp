#include "devserver/Storage.h"

#include "stowline/platform/ContentFile.h"
#include "stowline/platform/Cryptography.h"
#include "stowline/platform/FileHandle.h"
#include "stowline/platform/Text.h"

#include <fmt/format.h>
#include <sqlite3.h>
#include <zlib.h>

#include <algorithm>

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
        checksum    INTEGER NOT NULL
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
        list_id     TEXT NOT NULL UNIQUE
    ) STRICT;
    CREATE INDEX IF NOT EXISTS versions_of_item ON versions (item_id);
    CREATE TABLE IF NOT EXISTS packages (
        user_name TEXT NOT NULL,
        path      TEXT NOT NULL,
        bytes     INTEGER NOT NULL,
        PRIMARY KEY (user_name, path)
    ) STRICT;
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

std::uint32_t checksumOf(std::uint32_t start, std::string_view bytes)
{
    return static_cast<std::uint32_t>(
        crc32_z(start, reinterpret_cast<const Bytef*>(bytes.data()), bytes.size()));
}

/// The folder above a path, and its last name.
std::pair<std::string, std::string> split(const std::string& path)
{
    const auto slash = path.rfind('/');
    return {path.substr(0, slash), path.substr(slash + 1)};
}

/// A folder as it is stored: led by a slash, none at its end; "" for the root.
std::string normalized(std::string folder)
{
    while (folder.ends_with('/'))
        folder.pop_back();
    return folder.empty() || folder.starts_with('/') ? folder : "/" + folder;
}

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
    " v.server_file, v.checksum, v.is_delta, v.baseline, v.list_id"
    " FROM versions v JOIN items i ON i.id = v.item_id WHERE v.user_name = ?";

StoredVersion versionFrom(SQLite::Statement& row)
{
    return {.id = row.getColumn(0).getInt64(),
            .fileId = row.getColumn(1).getInt64(),
            .systemName = row.getColumn(2).getString(),
            .folder = row.getColumn(3).getString(),
            .name = row.getColumn(4).getString(),
            .size = static_cast<std::uint64_t>(row.getColumn(5).getInt64()),
            .clientDate = row.getColumn(6).getString(),
            .storedAt = row.getColumn(7).getString(),
            .serverFile = row.getColumn(8).getString(),
            .checksum = static_cast<std::uint32_t>(row.getColumn(9).getInt64()),
            .isDelta = row.getColumn(10).getInt() != 0,
            .baselineVersion = row.getColumn(11).getInt64(),
            .listId = row.getColumn(12).getString()};
}

} // namespace

Storage::Storage(std::filesystem::path dataFolder)
    : dataFolder_(std::move(dataFolder)),
      database_((dataFolder_ / "files.sqlite").string(),
                SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE, kBusyMilliseconds)
{
    database_.exec(kSchema);
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
    const std::string path = fmt::format("/vol1/{}/{}/", accountNumber, harmless(registryId));
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
    SQLite::Statement query(database_,
                            "SELECT 1 FROM upload_paths WHERE path = ? AND user_name = ?");
    query.bind(1, place.serverPath);
    query.bind(2, place.userName);
    if (!query.executeStep())
        return std::nullopt;
    return place.serverPath + harmless(place.guid);
}

HeldUpload Storage::heldAt(const std::string& serverFile)
{
    const Lock lock(mutex_);
    HeldUpload held{.serverFile = serverFile};
    SQLite::Statement version(database_, "SELECT size FROM versions WHERE server_file = ?");
    version.bind(1, serverFile);
    if (version.executeStep()) {
        held.isRegistered = true;
        held.receivedBytes = static_cast<std::uint64_t>(version.getColumn(0).getInt64());
        return held;
    }
    SQLite::Statement upload(database_,
                             "SELECT received, parts FROM uploads WHERE server_file = ?");
    upload.bind(1, serverFile);
    if (upload.executeStep()) {
        held.receivedBytes = static_cast<std::uint64_t>(upload.getColumn(0).getInt64());
        held.parts = static_cast<std::uint64_t>(upload.getColumn(1).getInt64());
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
    SQLite::Statement query(database_, "SELECT checksum FROM uploads WHERE server_file = ?");
    query.bind(1, serverFile);
    if (!query.executeStep())
        return std::nullopt;
    return static_cast<std::uint32_t>(query.getColumn(0).getInt64());
}

std::optional<HeldUpload> Storage::addPart(const UploadPlace& place, const UploadedPart& part)
{
    const auto serverFile = serverFileOf(place);
    if (!serverFile || (part.checksum && *part.checksum != checksumOf(0, part.bytes)))
        return std::nullopt;
    const std::lock_guard content(contentLock(*serverFile));
    HeldUpload held = heldAt(*serverFile);
    const std::uint64_t offset = part.offset.value_or(held.receivedBytes);
    if (held.isRegistered || offset < held.receivedBytes)
        return held;
    if (offset > held.receivedBytes)
        return std::nullopt;

    auto file = platform::ContentFile::openOrCreate(contentFile(*serverFile));
    file.truncate(held.receivedBytes); // what a part left that was broken off
    file.write(held.receivedBytes, part.bytes);
    const std::uint32_t checksum =
        checksumOf(checksumOfUpload(*serverFile).value_or(0), part.bytes);
    held.receivedBytes += part.bytes.size();
    ++held.parts;
    const Lock lock(mutex_);
    SQLite::Statement update(database_, "INSERT INTO uploads (server_file, user_name, file_name,"
                                        " received, parts, checksum) VALUES (?,?,?,?,?,?)"
                                        " ON CONFLICT DO UPDATE SET received = excluded.received,"
                                        " parts = excluded.parts, checksum = excluded.checksum");
    update.bind(1, *serverFile);
    update.bind(2, place.userName);
    update.bind(3, part.fileName.data(), static_cast<int>(part.fileName.size()));
    update.bind(4, static_cast<std::int64_t>(held.receivedBytes));
    update.bind(5, static_cast<std::int64_t>(held.parts));
    update.bind(6, static_cast<std::int64_t>(checksum));
    update.exec();
    return held;
}

void Storage::forgetUpload(const std::string& serverFile)
{
    const Lock lock(mutex_);
    SQLite::Statement remove(database_, "DELETE FROM uploads WHERE server_file = ?");
    remove.bind(1, serverFile);
    remove.exec();
}

bool Storage::hasBaseline(const Registration& registration)
{
    const auto baseline = version(registration.place.userName, registration.baselineVersion);
    return baseline && baseline->systemName == registration.systemName &&
           baseline->folder == registration.folder && baseline->name == registration.name;
}

std::string Storage::registerFile(const Registration& given)
{
    Registration registration = given;
    registration.folder = normalized(given.folder);
    const auto serverFile = serverFileOf(registration.place);
    if (!serverFile || registration.name.empty() ||
        registration.name.find('/') != std::string::npos)
        return "InvalidPath";
    const std::lock_guard content(contentLock(*serverFile));
    const HeldUpload held = heldAt(*serverFile);
    if (held.receivedBytes != registration.uploadedSize)
        return "IncompleteFile";
    if (held.isRegistered)
        return "Success";
    if (registration.isDelta && !hasBaseline(registration))
        return "InvalidBaseline";

    auto file = platform::ContentFile::openOrCreate(contentFile(*serverFile));
    file.truncate(held.receivedBytes);
    std::uint32_t checksum = 0;
    file.read([&checksum](std::string_view bytes) { checksum = checksumOf(checksum, bytes); });
    if (checksum != checksumOfUpload(*serverFile).value_or(0) ||
        checksum != registration.checksum.value_or(checksum)) {
        forgetUpload(*serverFile);
        return "ChecksumMismatch";
    }
    file.synchronize();
    const Lock lock(mutex_);
    SQLite::Transaction transaction(database_);
    insertVersion(registration, *serverFile, checksum);
    forgetUpload(*serverFile);
    transaction.commit();
    return "Success";
}

std::int64_t Storage::fileFor(const Registration& registration)
{
    // The folders on the way, from the file up to the first one that is known.
    SQLite::Statement insert(
        database_, "INSERT INTO items (user_name, system_name, folder, name, is_folder,"
                   " is_package) VALUES (?1, ?2, ?3, ?4, 1, EXISTS (SELECT 1 FROM packages"
                   " WHERE user_name = ?1 AND path = ?3 || '/' || ?4))"
                   " ON CONFLICT DO NOTHING");
    for (std::string path = registration.folder; !path.empty();) {
        const auto [folder, name] = split(path);
        insert.bind(1, registration.place.userName);
        insert.bind(2, registration.systemName);
        insert.bind(3, folder);
        insert.bind(4, name);
        const bool isNew = insert.exec() == 1;
        insert.reset();
        path = isNew ? folder : "";
    }
    SQLite::Statement file(database_,
                           "INSERT INTO items (user_name, system_name, folder, name, is_folder)"
                           " VALUES (?,?,?,?,0) ON CONFLICT DO UPDATE SET is_folder = 0"
                           " RETURNING id");
    file.bind(1, registration.place.userName);
    file.bind(2, registration.systemName);
    file.bind(3, registration.folder);
    file.bind(4, registration.name);
    file.executeStep();
    const std::int64_t id = file.getColumn(0).getInt64();
    file.executeStep(); // to its end, or the insertion is not done
    return id;
}

void Storage::insertVersion(const Registration& registration, const std::string& serverFile,
                            std::uint32_t checksum)
{
    const std::int64_t item = fileFor(registration);
    SQLite::Statement insert(database_, "INSERT INTO versions (item_id, user_name, size,"
                                        " client_date, server_file, checksum, is_delta, is_packed,"
                                        " baseline, list_id) VALUES (?,?,?,?,?,?,?,?,?,?)");
    insert.bind(1, item);
    insert.bind(2, registration.place.userName);
    insert.bind(3, static_cast<std::int64_t>(registration.size));
    insert.bind(4, registration.clientDate);
    insert.bind(5, serverFile);
    insert.bind(6, static_cast<std::int64_t>(checksum));
    insert.bind(7, registration.isDelta ? 1 : 0);
    insert.bind(8, registration.isCompressed ? 1 : 0);
    insert.bind(9, registration.baselineVersion);
    insert.bind(10, platform::hexadecimalText(platform::randomBytes(kListIdBytes)));
    insert.exec();
    SQLite::Statement update(database_, "UPDATE items SET size = ?, modified = ?, checksum = ?,"
                                        " versions = versions + 1 WHERE id = ?");
    update.bind(1, static_cast<std::int64_t>(registration.size));
    update.bind(2, registration.clientDate);
    update.bind(3, static_cast<std::int64_t>(checksum));
    update.bind(4, item);
    update.exec();
}

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
                            "SELECT coalesce(sum(size), 0) FROM versions WHERE user_name = ?");
    query.bind(1, userName);
    query.executeStep();
    return static_cast<std::uint64_t>(query.getColumn(0).getInt64());
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
    SQLite::Statement query(database_,
                            std::string(kVersionQuery) + " AND v.item_id = ? ORDER BY v.id DESC");
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
    SQLite::Statement query(database_, std::string(kVersionQuery) + " AND v.id = ?");
    query.bind(1, userName);
    query.bind(2, versionId);
    return query.executeStep() ? std::optional(versionFrom(query)) : std::nullopt;
}

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

bool Storage::deleteVersion(const std::string& userName, const std::string& listId)
{
    const Lock lock(mutex_);
    SQLite::Transaction transaction(database_);
    SQLite::Statement remove(database_, "DELETE FROM versions WHERE user_name = ? AND list_id = ?"
                                        " AND NOT EXISTS (SELECT 1 FROM versions delta WHERE"
                                        " delta.is_delta = 1 AND delta.baseline = versions.id)"
                                        " RETURNING item_id, server_file");
    remove.bind(1, userName);
    remove.bind(2, listId);
    if (!remove.executeStep())
        return false;
    const std::int64_t item = remove.getColumn(0).getInt64();
    const std::string serverFile = remove.getColumn(1).getString();
    remove.executeStep();
    SQLite::Statement update(
        database_, "UPDATE items SET versions = versions - 1, size = coalesce((SELECT size FROM"
                   " versions WHERE item_id = items.id ORDER BY id DESC LIMIT 1), 0),"
                   " modified = coalesce((SELECT client_date FROM versions WHERE"
                   " item_id = items.id ORDER BY id DESC LIMIT 1), ''),"
                   " checksum = coalesce((SELECT checksum FROM versions WHERE"
                   " item_id = items.id ORDER BY id DESC LIMIT 1), 0) WHERE id = ?");
    update.bind(1, item);
    update.exec();
    removeIfEmpty(item);
    transaction.commit();
    std::error_code unimportant; // content without a version is nobody's
    std::filesystem::remove(contentFile(serverFile), unimportant);
    return true;
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

std::vector<MachineSummary> Storage::machines()
{
    const Lock lock(mutex_);
    SQLite::Statement query(database_,
                            "SELECT i.user_name, i.system_name, count(*), sum(i.size),"
                            " (SELECT max(v.stored_at) FROM versions v JOIN items o ON"
                            " o.id = v.item_id WHERE o.user_name = i.user_name AND"
                            " o.system_name = i.system_name) FROM items i WHERE i.is_folder = 0"
                            " GROUP BY i.user_name, i.system_name ORDER BY 1, 2");
    std::vector<MachineSummary> found;
    while (query.executeStep())
        found.push_back({query.getColumn(0).getString(), query.getColumn(1).getString(),
                         query.getColumn(2).getInt64(),
                         static_cast<std::uint64_t>(query.getColumn(3).getInt64()),
                         query.getColumn(4).getString()});
    return found;
}

} // namespace stowline::devserver
