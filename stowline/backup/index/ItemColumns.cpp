#include "stowline/backup/index/ItemColumns.h"

#include <SQLiteCpp/Column.h>
#include <SQLiteCpp/Exception.h>
#include <SQLiteCpp/Statement.h>
#include <sqlite3.h>

#include <array>
#include <charconv>
#include <utility>

namespace stowline::backup {

namespace {

constexpr std::array kColumns{
    "kind",       "size",          "modified",     "modified_ns",   "changed",    "changed_ns",
    "mode",       "owner",         "group_",       "owner_name",    "group_name", "device",
    "inode",      "links",         "link_target",  "device_number", "attributes", "same_file_as",
    "read_began", "read_began_ns", "flags",        "version",       "list",       "digest",
    "checksum",   "stored_size",   "content_kind", "content_key",   "baseline",   "stored_run",
};

constexpr std::int64_t kStale = 1;
constexpr std::int64_t kChangedWhileRead = 2;
constexpr std::int64_t kMountPoint = 4;

constexpr std::size_t kDigestBytes = 32;

int digitValue(char digit)
{
    if (digit >= '0' && digit <= '9')
        return digit - '0';
    return digit >= 'a' && digit <= 'f' ? digit - 'a' + 10 : -1;
}

/// The digest in half the room; empty when it is not 64 lower-case hexadecimal digits.
std::string packedDigest(std::string_view digits)
{
    std::string packed;
    if (digits.size() != 2 * kDigestBytes)
        return packed;
    for (std::size_t at = 0; at < digits.size(); at += 2) {
        const int high = digitValue(digits[at]);
        const int low = digitValue(digits[at + 1]);
        if (high < 0 || low < 0)
            return {};
        packed.push_back(static_cast<char>(high << 4 | low));
    }
    return packed;
}

std::string unpackedDigest(std::string_view packed)
{
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string digits;
    digits.reserve(2 * packed.size());
    for (const char byte : packed) {
        digits.push_back(kDigits[static_cast<unsigned char>(byte) >> 4]);
        digits.push_back(kDigits[static_cast<unsigned char>(byte) & 0xf]);
    }
    return digits;
}

/// Binds values one after the other.
class Binder {
public:
    Binder(SQLite::Statement& statement, int first) : statement_(statement), at_(first) {}

    void number(std::uint64_t value) { statement_.bind(at_++, static_cast<std::int64_t>(value)); }
    void time(const Timestamp& time)
    {
        statement_.bind(at_++, time.seconds);
        statement_.bind(at_++, std::int64_t{time.nanoseconds});
    }
    /// Empty is NULL, which takes no room.
    void bytes(const std::string& value)
    {
        if (value.empty())
            statement_.bind(at_++);
        else
            statement_.bindNoCopy(at_++, value.data(), static_cast<int>(value.size()));
    }
    void copied(const std::string& value)
    {
        if (value.empty())
            statement_.bind(at_++);
        else
            statement_.bind(at_++, value.data(), static_cast<int>(value.size()));
    }
    void text(const std::string& value) { statement_.bindNoCopy(at_++, value); }
    void digest(const std::string& digits)
    {
        const std::string packed = packedDigest(digits);
        if (packed.empty())
            text(digits);
        else
            statement_.bind(at_++, packed.data(), static_cast<int>(packed.size()));
    }
    void none() { statement_.bind(at_++); }

private:
    SQLite::Statement& statement_;
    int at_;
};

/// Reads values one after the other.
class Reader {
public:
    Reader(const SQLite::Statement& row, int first) : row_(row), at_(first) {}

    std::uint64_t number() { return static_cast<std::uint64_t>(row_.getColumn(at_++).getInt64()); }
    std::uint32_t number32() { return static_cast<std::uint32_t>(number()); }
    Timestamp time()
    {
        const std::int64_t seconds = row_.getColumn(at_++).getInt64();
        return {seconds, number32()};
    }
    std::string bytes() { return row_.getColumn(at_++).getString(); }
    std::string digest()
    {
        const SQLite::Column column = row_.getColumn(at_++);
        return column.isBlob() ? unpackedDigest(column.getString()) : column.getString();
    }

private:
    const SQLite::Statement& row_;
    int at_;
};

template <typename Append> std::string joined(const Append& append)
{
    std::string text;
    for (const char* column : kColumns) {
        if (!text.empty())
            text += ", ";
        append(text, column);
    }
    return text;
}

void bindContent(Binder& binder, const std::optional<StoredContent>& content)
{
    if (!content) {
        for (int i = 0; i < 9; ++i)
            binder.none();
        return;
    }
    binder.bytes(content->version);
    binder.bytes(content->list);
    binder.digest(content->digest);
    binder.number(content->checksum);
    binder.number(content->storedSize);
    binder.text(content->kind);
    binder.bytes(content->key);
    binder.bytes(content->baseline);
    binder.number(content->run);
}

StoredContent readContent(Reader& reader)
{
    StoredContent content;
    content.version = reader.bytes();
    content.list = reader.bytes();
    content.digest = reader.digest();
    content.checksum = reader.number32();
    content.storedSize = reader.number();
    content.kind = reader.bytes();
    content.key = reader.bytes();
    content.baseline = reader.bytes();
    content.run = reader.number();
    return content;
}

/// One length, colon, bytes and comma from the front of a text.
bool takeNetstring(std::string_view& text, std::string& taken)
{
    std::size_t length = 0;
    const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), length);
    if (fault != std::errc())
        return false;
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    if (!text.starts_with(':') || text.size() < 2 || length > text.size() - 2 ||
        text[1 + length] != ',')
        return false;
    taken = text.substr(1, length);
    text.remove_prefix(length + 2);
    return true;
}

} // namespace

std::string itemColumns(std::string_view prefix)
{
    return joined(
        [prefix](std::string& text, const char* column) { text.append(prefix).append(column); });
}

int itemColumnCount()
{
    return static_cast<int>(kColumns.size());
}

std::string itemColumnsFromExcluded()
{
    return joined([](std::string& text, const char* column) {
        text.append(column).append(" = excluded.").append(column);
    });
}

std::string itemColumnsAsNull()
{
    return joined([](std::string& text, const char* column) { text.append(column) += " = NULL"; });
}

void bindItem(SQLite::Statement& statement, int first, const StoredItem& stored)
{
    const ItemRecord& item = stored.item;
    Binder binder(statement, first);
    binder.number(static_cast<std::uint64_t>(item.kind));
    binder.number(item.size);
    binder.time(item.modified);
    binder.time(item.changed);
    binder.number(item.mode);
    binder.number(item.owner);
    binder.number(item.group);
    binder.bytes(item.ownerName);
    binder.bytes(item.groupName);
    binder.number(item.device);
    binder.number(item.inode);
    binder.number(item.links);
    binder.bytes(item.linkTarget);
    binder.number(item.deviceNumber);
    binder.copied(packedAttributes(item.attributes));
    binder.bytes(stored.sameFileAs);
    binder.time(stored.readBegan);
    binder.number(static_cast<std::uint64_t>((stored.isStale ? kStale : 0) |
                                             (stored.changedWhileRead ? kChangedWhileRead : 0) |
                                             (item.isMountPoint ? kMountPoint : 0)));
    bindContent(binder, stored.content);
}

bool holdsItem(const SQLite::Statement& row, int first)
{
    return !row.getColumn(first).isNull();
}

StoredItem itemOfRow(const SQLite::Statement& row, int first, std::string path)
{
    Reader reader(row, first);
    StoredItem stored;
    ItemRecord& item = stored.item;
    item.path = std::move(path);
    const auto kind = reader.number();
    if (kind > static_cast<std::uint64_t>(ItemKind::blockDevice))
        throw SQLite::Exception("an item of an unknown kind", SQLITE_CORRUPT);
    item.kind = static_cast<ItemKind>(kind);
    item.size = reader.number();
    item.modified = reader.time();
    item.changed = reader.time();
    item.mode = reader.number32();
    item.owner = reader.number32();
    item.group = reader.number32();
    item.ownerName = reader.bytes();
    item.groupName = reader.bytes();
    item.device = reader.number();
    item.inode = reader.number();
    item.links = reader.number();
    item.linkTarget = reader.bytes();
    item.deviceNumber = reader.number();
    if (!unpackAttributes(reader.bytes(), item.attributes))
        throw SQLite::Exception("attributes in an unknown form", SQLITE_CORRUPT);
    stored.sameFileAs = reader.bytes();
    stored.readBegan = reader.time();
    const auto flags = static_cast<std::int64_t>(reader.number());
    stored.isStale = (flags & kStale) != 0;
    stored.changedWhileRead = (flags & kChangedWhileRead) != 0;
    item.isMountPoint = (flags & kMountPoint) != 0;
    constexpr int kContentKindColumn = 26;
    static_assert(std::string_view(kColumns[kContentKindColumn]) == "content_kind");
    if (!row.getColumn(first + kContentKindColumn).isNull())
        stored.content = readContent(reader);
    return stored;
}

std::string packedAttributes(const std::vector<ExtendedAttribute>& attributes)
{
    std::string packed;
    for (const ExtendedAttribute& attribute : attributes) {
        for (const std::string* part : {&attribute.name, &attribute.value})
            packed.append(std::to_string(part->size())).append(":").append(*part) += ',';
    }
    return packed;
}

bool unpackAttributes(std::string_view packed, std::vector<ExtendedAttribute>& attributes)
{
    while (!packed.empty()) {
        ExtendedAttribute attribute;
        if (!takeNetstring(packed, attribute.name) || !takeNetstring(packed, attribute.value))
            return false;
        attributes.push_back(std::move(attribute));
    }
    return true;
}

} // namespace stowline::backup
