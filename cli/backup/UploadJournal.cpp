#include "cli/backup/UploadJournal.h"

#include "stowline/platform/files/Files.h"
#include "stowline/platform/text/Text.h"
#include "stowline/platform/values/PropertyList.h"

#include <algorithm>

namespace stowline::cli {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view kSuffix = ".plist";

Dictionary dictionaryOf(const JournalEntry& entry)
{
    return {{"guid", entry.guid},
            {"username", platform::dataFromText(entry.username)},
            {"system", entry.systemName},
            {"path", platform::dataFromText(entry.file.path)},
            {"size", entry.file.size},
            {"modifiedMicroseconds", entry.file.modified.time_since_epoch().count()},
            {"device", entry.file.device},
            {"inode", entry.file.inode},
            {"contentMark", entry.file.contentMark},
            {"sentBytes", entry.sentBytes},
            {"parts", entry.parts},
            {"checksum", entry.checksum}};
}

/// A number that may have been written signed or unsigned.
std::uint64_t numberAt(const Dictionary& entry, std::string_view key)
{
    const Value* value = find(entry, key);
    if (value && value->unsignedInteger())
        return *value->unsignedInteger();
    return value && value->integer() ? static_cast<std::uint64_t>(*value->integer()) : 0;
}

std::string bytesAt(const Dictionary& entry, std::string_view key)
{
    const Value* value = find(entry, key);
    return value && value->data() ? platform::textFromData(*value->data()) : std::string();
}

std::optional<JournalEntry> entryIn(const fs::path& file)
{
    const auto bytes = platform::readFile(file);
    const auto reading =
        bytes ? platform::readPropertyList(*bytes) : platform::PropertyListReading();
    const Dictionary* fields = reading.value ? reading.value->dictionary() : nullptr;
    if (!fields || bytesAt(*fields, "path").empty())
        return std::nullopt;
    const auto modified = static_cast<std::int64_t>(numberAt(*fields, "modifiedMicroseconds"));
    return JournalEntry{.guid = platform::findText(*fields, "guid"),
                        .username = bytesAt(*fields, "username"),
                        .systemName = platform::findText(*fields, "system"),
                        .file = {.path = bytesAt(*fields, "path"),
                                 .size = numberAt(*fields, "size"),
                                 .modified = Date(std::chrono::microseconds(modified)),
                                 .device = numberAt(*fields, "device"),
                                 .inode = numberAt(*fields, "inode"),
                                 .contentMark = platform::findText(*fields, "contentMark")},
                        .sentBytes = numberAt(*fields, "sentBytes"),
                        .parts = numberAt(*fields, "parts"),
                        .checksum = static_cast<std::uint32_t>(numberAt(*fields, "checksum"))};
}

} // namespace

fs::path UploadJournal::fileFor(const std::string& guid) const
{
    return folder_ / (guid + std::string(kSuffix));
}

bool UploadJournal::write(const JournalEntry& entry) const
{
    const auto bytes = platform::writeBinaryPropertyList(dictionaryOf(entry));
    return bytes && platform::makePrivateFolder(folder_) &&
           platform::replaceFile(fileFor(entry.guid), *bytes);
}

std::optional<JournalEntry> UploadJournal::find(const std::string& guid) const
{
    return entryIn(fileFor(guid));
}

void UploadJournal::remove(const std::string& guid) const
{
    std::error_code unimportant; // an entry of a registered file costs a question, no more
    fs::remove(fileFor(guid), unimportant);
}

std::vector<JournalEntry> UploadJournal::entries() const
{
    std::vector<JournalEntry> found;
    std::error_code fault;
    for (fs::directory_iterator file(folder_, fault), end; !fault && file != end;
         file.increment(fault)) {
        if (!file->path().string().ends_with(kSuffix))
            continue;
        if (auto entry = entryIn(file->path()))
            found.push_back(std::move(*entry));
    }
    std::ranges::sort(found, {}, [](const JournalEntry& entry) { return entry.file.path; });
    return found;
}

} // namespace stowline::cli
