#include "stowline/backup/transfer/UploadJournal.h"

#include "stowline/platform/desktop/MachineIdentity.h"
#include "stowline/platform/files/Files.h"
#include "stowline/platform/text/Text.h"
#include "stowline/platform/values/PropertyList.h"

#include <algorithm>
#include <array>
#include <cerrno>

namespace stowline::backup {

namespace fs = std::filesystem;
using platform::StatusTime;

namespace {

constexpr std::string_view kSuffix = ".plist";

Array arrayOf(const StatusTime& time)
{
    return {time.seconds, std::int64_t{time.nanoseconds}};
}

Dictionary dictionaryOf(const JournalEntry& entry)
{
    const UploadOwner& owner = entry.owner;
    return {{"guid", entry.guid},
            {"service", owner.service},
            {"username", platform::dataFromText(owner.username)},
            {"system", platform::dataFromText(owner.systemName)},
            {"machine", owner.identity.machine},
            {"user", platform::dataFromText(owner.identity.user)},
            {"profile", platform::dataFromText(owner.identity.profile)},
            {"path", platform::dataFromText(entry.path)},
            {"size", entry.state.size},
            {"modified", arrayOf(entry.state.modified)},
            {"changed", arrayOf(entry.state.changed)},
            {"inode", entry.state.inode},
            {"sentBytes", entry.sentBytes},
            {"parts", entry.parts},
            {"checksum", entry.checksum}};
}

/// A number that may have been written signed or unsigned.
std::uint64_t numberOf(const Value* value)
{
    if (value && value->unsignedInteger())
        return *value->unsignedInteger();
    return value && value->integer() ? static_cast<std::uint64_t>(*value->integer()) : 0;
}

std::uint64_t numberAt(const Dictionary& entry, std::string_view key)
{
    return numberOf(find(entry, key));
}

std::optional<StatusTime> timeAt(const Dictionary& entry, std::string_view key)
{
    const Value* value = find(entry, key);
    const Array* pair = value ? value->array() : nullptr;
    if (!pair || pair->size() != 2)
        return std::nullopt;
    return StatusTime{static_cast<std::int64_t>(numberOf(&pair->front())),
                      static_cast<std::uint32_t>(numberOf(&pair->back()))};
}

std::string bytesAt(const Dictionary& entry, std::string_view key)
{
    const Value* value = find(entry, key);
    return value && value->data() ? platform::textFromData(*value->data()) : std::string();
}

std::optional<JournalEntry> entryIn(const fs::path& file)
{
    const auto bytes = platform::readRegularFile(file);
    const auto reading =
        bytes ? platform::readPropertyList(*bytes) : platform::PropertyListReading();
    const Dictionary* fields = reading.value ? reading.value->dictionary() : nullptr;
    if (!fields || bytesAt(*fields, "path").empty() || !timeAt(*fields, "changed"))
        return std::nullopt;
    return JournalEntry{.guid = platform::findText(*fields, "guid"),
                        .owner = {.service = platform::findText(*fields, "service"),
                                  .username = bytesAt(*fields, "username"),
                                  .systemName = bytesAt(*fields, "system"),
                                  .identity = {.machine = platform::findText(*fields, "machine"),
                                               .user = bytesAt(*fields, "user"),
                                               .profile = bytesAt(*fields, "profile")}},
                        .path = bytesAt(*fields, "path"),
                        .state = {.size = numberAt(*fields, "size"),
                                  .modified = timeAt(*fields, "modified").value_or(StatusTime()),
                                  .changed = timeAt(*fields, "changed").value_or(StatusTime()),
                                  .inode = numberAt(*fields, "inode")},
                        .sentBytes = numberAt(*fields, "sentBytes"),
                        .parts = numberAt(*fields, "parts"),
                        .checksum = static_cast<std::uint32_t>(numberAt(*fields, "checksum"))};
}

/// Whether the file of an entry may still be the one that was begun: also where it cannot be looked
/// at just now.
bool canGoOn(const JournalEntry& entry)
{
    int error = 0;
    const auto file =
        platform::SourceFile::open(platform::SourceFile::kNoFolder, entry.path, error);
    constexpr std::array another{ENOENT, ENOTDIR, ELOOP, EISDIR, ENXIO, EINVAL};
    if (!file)
        return std::ranges::find(another, error) == another.end();
    const auto now = file->state();
    return !now || isSameState(*now, entry.state);
}

} // namespace

bool isSameState(const platform::FileState& left, const platform::FileState& right)
{
    return left.size == right.size && left.modified == right.modified &&
           left.changed == right.changed && left.inode == right.inode;
}

fs::path UploadJournal::fileFor(const UploadOwner& owner, const std::string& path) const
{
    std::string text;
    for (const std::string& part :
         {owner.service, owner.username, owner.systemName, owner.identity.machine,
          owner.identity.user, owner.identity.profile, path})
        text += std::to_string(part.size()) + ":" + part;
    return folder_ / (platform::derivedUuid("com.stowline.journal.2", text) + std::string(kSuffix));
}

bool UploadJournal::write(const JournalEntry& entry, int& error) const
{
    const auto bytes = platform::writeBinaryPropertyList(dictionaryOf(entry));
    error = bytes ? 0 : EINVAL;
    return bytes && platform::makePrivateFolder(folder_, error) &&
           platform::replaceFile(fileFor(entry.owner, entry.path), *bytes, error);
}

std::optional<JournalEntry> UploadJournal::find(const UploadOwner& owner,
                                                const std::string& path) const
{
    auto entry = entryIn(fileFor(owner, path));
    if (!entry || entry->owner != owner || entry->path != path)
        return std::nullopt;
    return entry;
}

void UploadJournal::remove(const UploadOwner& owner, const std::string& path) const
{
    std::error_code unimportant; // an entry of a stored file costs a question, no more
    fs::remove(fileFor(owner, path), unimportant);
}

std::vector<JournalEntry> UploadJournal::entries(int& error) const
{
    std::vector<JournalEntry> found;
    const auto names = platform::namesInFolder(folder_, error);
    if (error == ENOENT)
        error = 0; // nothing was ever begun
    for (const std::string& name : names) {
        if (!name.ends_with(kSuffix))
            continue;
        if (auto entry = entryIn(folder_ / name))
            found.push_back(std::move(*entry));
    }
    std::ranges::sort(found, {}, &JournalEntry::path);
    return found;
}

std::vector<JournalEntry> UploadJournal::entries() const
{
    int unimportant = 0;
    return entries(unimportant);
}

void UploadJournal::removeOvertaken() const
{
    for (const std::string& name : platform::namesInFolder(folder_)) {
        const auto entry = name.ends_with(kSuffix) ? entryIn(folder_ / name) : std::nullopt;
        std::error_code unimportant; // the next run tries again
        if (!entry || fileFor(entry->owner, entry->path) != folder_ / name || !canGoOn(*entry))
            fs::remove(folder_ / name, unimportant);
    }
}

} // namespace stowline::backup
