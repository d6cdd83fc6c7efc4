// Whether content is still what was registered; handing it out; dropping what belongs to nobody.
#include "devserver/Storage.h"
#include "devserver/StoragePaths.h"
#include "stowline/platform/desktop/CyclicChecksum.h"
#include "stowline/platform/desktop/Sha256.h"
#include "stowline/platform/files/ContentFile.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>

namespace stowline::devserver {

namespace {

using Lock = std::lock_guard<std::recursive_mutex>;

constexpr std::chrono::hours kAbandonedAfter{7 * 24};

/// Reads all of a file and compares it with what was registered.
bool isAsRegistered(const platform::ContentFile& file, const StoredVersion& version)
{
    std::uint64_t size = 0;
    std::uint32_t checksum = 0;
    platform::Sha256 digest;
    file.read([&](std::string_view bytes) {
        size += bytes.size();
        checksum = platform::continuedCrc32(checksum, bytes.data(), bytes.size());
        digest.update(bytes);
    });
    return size == version.storedSize && checksum == version.checksum &&
           (version.digest.empty() || digest.hexadecimal() == version.digest);
}

} // namespace

ContentState Storage::contentState(const StoredVersion& version, bool readsAll)
{
    const std::lock_guard content(contentLock(version.serverFile));
    return judge(version, readsAll);
}

/// With the content's lock.
ContentState Storage::judge(const StoredVersion& version, bool readsAll)
{
    const auto file = platform::ContentFile::open(contentFile(version.serverFile));
    if (!file)
        return ContentState::missing;
    const std::string stamp = file->stamp();
    if (!readsAll) {
        const Lock lock(mutex_);
        KeptStatement known(statements_,
                            "SELECT is_whole FROM versions WHERE id = ? AND stamp = ?");
        known->bind(1, version.id);
        known->bind(2, stamp);
        if (known->executeStep())
            return known->getColumn(0).getInt() != 0 ? ContentState::whole : ContentState::damaged;
        if (file->size() != version.storedSize)
            return ContentState::damaged;
    }
    const bool isWhole = isAsRegistered(*file, version);
    noteJudged(version.id, stamp, isWhole);
    return isWhole ? ContentState::whole : ContentState::damaged;
}

void Storage::noteJudged(std::int64_t versionId, const std::string& stamp, bool isWhole)
{
    const Lock lock(mutex_);
    SQLite::Statement update(database_, "UPDATE versions SET stamp = ?, is_whole = ? WHERE id = ?");
    update.bind(1, stamp);
    update.bind(2, isWhole ? 1 : 0);
    update.bind(3, versionId);
    update.exec();
}

/// Makes the place of a version whose content is lost free for another upload.
void Storage::setAside(const StoredVersion& version)
{
    const std::string aside = fmt::format("{}.lost-{}", version.serverFile, version.id);
    const Lock lock(mutex_);
    SQLite::Statement update(database_, "UPDATE versions SET server_file = ? WHERE id = ?");
    update.bind(1, aside);
    update.bind(2, version.id);
    update.exec();
    std::error_code unimportant; // what is damaged stays so, or is overwritten
    std::filesystem::rename(contentFile(version.serverFile), contentFile(aside), unimportant);
}

ContentPart Storage::readPart(const std::string& userName, std::int64_t versionId,
                              std::uint64_t offset, std::size_t length)
{
    using enum ContentPart::Outcome;
    const auto found = version(userName, versionId);
    if (!found)
        return {};
    const std::lock_guard content(contentLock(found->serverFile));
    ContentPart part{.version = *found};
    const ContentState state = judge(*found, false);
    if (state != ContentState::whole) {
        part.outcome = state == ContentState::missing ? missing : damaged;
        return part;
    }
    part.outcome = offset > found->storedSize ? outOfRange : read;
    if (part.outcome == outOfRange)
        return part;
    const auto file = platform::ContentFile::open(contentFile(found->serverFile));
    const std::uint64_t wanted = std::min<std::uint64_t>(length, found->storedSize - offset);
    if (file)
        part.bytes = file->read(offset, wanted);
    if (!file || part.bytes.size() != wanted) {
        part.outcome = file ? damaged : missing; // it went while it was read
        part.bytes.clear();
    }
    part.checksum = platform::continuedCrc32(0, part.bytes.data(), part.bytes.size());
    if (part.outcome == read && !isRecord(found->folder))
        noteRead(userName, *found, part.bytes.size());
    return part;
}

/// @param before seconds of the clock: what changed later stays
bool Storage::dropAbandonedFile(const std::string& serverFile, std::int64_t before)
{
    const std::lock_guard content(contentLock(serverFile));
    {
        const Lock lock(mutex_);
        SQLite::Statement used(database_, "SELECT 1 FROM versions WHERE server_file = ?1 UNION ALL"
                                          " SELECT 1 FROM deleted_versions WHERE server_file = ?1"
                                          " UNION ALL"
                                          " SELECT 1 FROM uploads WHERE server_file = ?1 AND"
                                          " changed_at > ?2");
        used.bind(1, serverFile);
        used.bind(2, before);
        if (used.executeStep())
            return false;
    }
    // The file first: a row without it is an upload of which nothing is held.
    std::error_code fault;
    std::filesystem::remove(contentFile(serverFile), fault);
    if (!fault)
        forgetUpload(serverFile);
    return !fault;
}

std::size_t Storage::dropAbandoned()
{
    namespace fs = std::filesystem;
    const std::int64_t before =
        secondsNow() - std::chrono::duration_cast<std::chrono::seconds>(kAbandonedAfter).count();
    std::set<std::string> candidates;
    {
        const Lock lock(mutex_);
        SQLite::Statement old(database_, "SELECT server_file FROM uploads WHERE changed_at <= ?");
        old.bind(1, before);
        while (old.executeStep())
            candidates.insert(old.getColumn(0).getString());
    }
    // Files that have no row at all: their version was deleted, or their first part broken off.
    const auto oldest = fs::file_time_type::clock::now() - kAbandonedAfter;
    std::error_code fault;
    for (fs::recursive_directory_iterator entry(dataFolder_ / "vol1", fault), end;
         !fault && entry != end; entry.increment(fault)) {
        std::error_code unknown;
        if (entry->is_regular_file(unknown) && entry->last_write_time(unknown) <= oldest)
            candidates.insert("/" + entry->path().lexically_relative(dataFolder_).string());
    }
    return static_cast<std::size_t>(
        std::ranges::count_if(candidates, [&](const std::string& serverFile) {
            return dropAbandonedFile(serverFile, before);
        }));
}

} // namespace stowline::devserver
