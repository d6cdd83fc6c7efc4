#include "stowline/backup/record/RecordLines.h"

#include "stowline/backup/record/RecordFault.h"
#include "stowline/platform/text/Numbers.h"
#include "stowline/platform/text/Text.h"
#include "stowline/util/Base64.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>

namespace stowline::backup {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t kLongestPath = 65536;
constexpr std::uint32_t kNanosecondsInASecond = 1'000'000'000;
constexpr std::uint32_t kModeBits = 07777;
constexpr const char* kRecordMark = "stowline run";

constexpr std::array kKinds{std::pair{ItemKind::file, "file"},
                            std::pair{ItemKind::folder, "folder"},
                            std::pair{ItemKind::link, "link"},
                            std::pair{ItemKind::pipe, "pipe"},
                            std::pair{ItemKind::socket, "socket"},
                            std::pair{ItemKind::characterDevice, "character-device"},
                            std::pair{ItemKind::blockDevice, "block-device"}};
constexpr std::array kStates{
    std::pair{RecordState::begun, "begun"}, std::pair{RecordState::unfinished, "unfinished"},
    std::pair{RecordState::finished, "finished"}, std::pair{RecordState::forgotten, "forgotten"}};

constexpr std::array kNotes{
    std::pair{PlaceNote::Kind::walked, "walked"}, std::pair{PlaceNote::Kind::missed, "missed"},
    std::pair{PlaceNote::Kind::leftOut, "left_out"}, std::pair{PlaceNote::Kind::cutOff, "cut_off"}};

template <class Table, class Value> const char* nameIn(const Table& table, Value value)
{
    for (const auto& [known, name] : table) {
        if (known == value)
            return name;
    }
    return "";
}

[[noreturn]] void refuse(const std::string& what)
{
    throw RecordFault(RecordFault::Kind::damaged, "The record is damaged: " + what + ".");
}

// ---- writing ----

std::string base64(std::string_view bytes)
{
    return Base64::base64EncodingWithLineLength(bytes, 0);
}

/// Text under its name; bytes that are not UTF-8 in Base64 under the name and "_b64".
void putText(Json& object, const std::string& name, const std::string& text)
{
    if (platform::isValidUtf8(text))
        object[name] = text;
    else
        object[name + "_b64"] = base64(text);
}

Json listOf(const std::vector<std::string>& texts)
{
    Json list = Json::array();
    for (const std::string& text : texts)
        list.push_back(platform::isValidUtf8(text) ? Json(text) : Json{{"b64", base64(text)}});
    return list;
}

Json listOf(const std::vector<RunLoss>& losses)
{
    Json list = Json::array();
    for (const RunLoss& loss : losses)
        list.push_back({{"run", loss.run}, {"gone", loss.gone}, {"items", loss.items}});
    return list;
}

Json momentOf(const Timestamp& moment)
{
    return Json::array({moment.seconds, moment.nanoseconds});
}

Json linkOf(const RecordLink& link)
{
    return {{"run", link.run}, {"sha256", link.digest}};
}

Json contentOf(const StoredContent& content)
{
    std::array<char, 9> checksum{};
    (void)std::snprintf(checksum.data(), checksum.size(), "%08x", content.checksum);
    return {{"version", content.version},
            {"list", content.list},
            {"sha256", content.digest},
            {"crc32", checksum.data()},
            {"stored_size", content.storedSize},
            {"kind", content.kind},
            {"key", content.key},
            {"baseline", content.baseline},
            {"run", content.run}};
}

Json attributesOf(const std::vector<ExtendedAttribute>& attributes)
{
    Json list = Json::array();
    for (const ExtendedAttribute& attribute : attributes) {
        Json entry = Json::object();
        putText(entry, "name", attribute.name);
        entry["value"] = base64(attribute.value);
        list.push_back(std::move(entry));
    }
    return list;
}

std::string line(const Json& object)
{
    return object.dump() + "\n";
}

// ---- reading ----

Json parsed(std::string_view text)
{
    Json object = Json::parse(text, nullptr, false);
    if (!object.is_object())
        refuse("a line is not a JSON object");
    return object;
}

std::string unpacked(const Json& value, const std::string& name)
{
    if (!value.is_string())
        refuse(name + " is not text");
    const auto& text = value.get_ref<const std::string&>();
    const Data bytes = Base64::dataWithBase64EncodedString(text);
    std::string result(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    if (base64(result) != text)
        refuse(name + " is not Base64");
    return result;
}

bool holdsText(const Json& object, const std::string& name)
{
    return object.contains(name) || object.contains(name + "_b64");
}

/// Empty when it is not there.
std::string textIn(const Json& object, const std::string& name)
{
    if (const auto packed = object.find(name + "_b64"); packed != object.end())
        return unpacked(*packed, name);
    const auto found = object.find(name);
    if (found == object.end())
        return {};
    if (!found->is_string())
        refuse(name + " is not text");
    return found->get<std::string>();
}

/// 0 when it is not there.
template <class Number = std::uint64_t> Number numberIn(const Json& object, const char* name)
{
    const auto found = object.find(name);
    if (found == object.end())
        return 0;
    if (!found->is_number_unsigned())
        refuse(std::string(name) + " is not a number");
    const auto number = found->get<std::uint64_t>();
    if (number > std::numeric_limits<Number>::max())
        refuse(std::string(name) + " is too large");
    return static_cast<Number>(number);
}

bool isTrueIn(const Json& object, const char* name)
{
    const auto found = object.find(name);
    if (found != object.end() && !found->is_boolean())
        refuse(std::string(name) + " is neither true nor false");
    return found != object.end() && found->get<bool>();
}

/// The beginning of 1970 when it is not there.
Timestamp momentIn(const Json& object, const char* name)
{
    const auto found = object.find(name);
    if (found == object.end())
        return {};
    if (!found->is_array() || found->size() != 2 || !(*found)[0].is_number_integer() ||
        !(*found)[1].is_number_unsigned() ||
        (*found)[1].get<std::uint64_t>() >= kNanosecondsInASecond)
        refuse(std::string(name) + " is not a moment");
    return {(*found)[0].get<std::int64_t>(), (*found)[1].get<std::uint32_t>()};
}

/// The part of an object under a name, which must be an object; null when it is not there.
const Json* objectIn(const Json& object, const char* name)
{
    const auto found = object.find(name);
    if (found == object.end())
        return nullptr;
    if (!found->is_object())
        refuse(std::string(name) + " is not an object");
    return &*found;
}

const Json* arrayIn(const Json& object, const char* name)
{
    const auto found = object.find(name);
    if (found == object.end())
        return nullptr;
    if (!found->is_array())
        refuse(std::string(name) + " is not a list");
    return &*found;
}

template <class Value, std::size_t count>
Value oneOf(const std::array<std::pair<Value, const char*>, count>& table, const Json& object,
            const char* name)
{
    const std::string text = textIn(object, name);
    for (const auto& [value, known] : table) {
        if (text == known)
            return value;
    }
    refuse("an unknown " + std::string(name));
}

std::string digestIn(const Json& object, const char* name)
{
    constexpr std::size_t digits = 64;
    std::string digest = textIn(object, name);
    const bool isDigest =
        digest.size() == digits && std::ranges::all_of(digest, [](char digit) {
            return (digit >= '0' && digit <= '9') || (digit >= 'a' && digit <= 'f');
        });
    if (!isDigest)
        refuse(std::string(name) + " is not a SHA-256 digest");
    return digest;
}

std::optional<RecordLink> linkIn(const Json& object, const char* name)
{
    const Json* link = objectIn(object, name);
    if (link == nullptr)
        return std::nullopt;
    return RecordLink{numberIn(*link, "run"), digestIn(*link, "sha256")};
}

std::vector<std::string> listIn(const Json& object, const char* name)
{
    std::vector<std::string> texts;
    if (const Json* list = arrayIn(object, name)) {
        for (const Json& entry : *list)
            texts.push_back(entry.is_object() && entry.contains("b64")
                                ? unpacked(entry["b64"], name)
                                : textIn(Json{{name, entry}}, name));
    }
    return texts;
}

std::vector<RunLoss> lossesIn(const Json& object)
{
    std::vector<RunLoss> losses;
    if (const Json* list = arrayIn(object, "losses")) {
        for (const Json& entry : *list) {
            if (!entry.is_object())
                refuse("a loss is not an object");
            losses.push_back(
                {numberIn(entry, "run"), numberIn(entry, "gone"), numberIn(entry, "items")});
        }
    }
    return losses;
}

std::string pathIn(const Json& object, const char* name)
{
    std::string path = textIn(object, name);
    if (!isItemPath(path))
        refuse("a path that no item can have");
    return path;
}

std::uint32_t checksumIn(const Json& object)
{
    constexpr int hexadecimal = 16;
    const std::string text = textIn(object, "crc32");
    const auto checksum = platform::wholeNumber<std::uint32_t>(text, hexadecimal);
    if (!checksum || text.size() != 8)
        refuse("crc32 is not a checksum");
    return *checksum;
}

std::optional<StoredContent> contentIn(const Json& object)
{
    const Json* content = objectIn(object, "content");
    if (content == nullptr)
        return std::nullopt;
    return StoredContent{.version = textIn(*content, "version"),
                         .list = textIn(*content, "list"),
                         .digest = digestIn(*content, "sha256"),
                         .checksum = checksumIn(*content),
                         .storedSize = numberIn(*content, "stored_size"),
                         .kind = textIn(*content, "kind"),
                         .key = textIn(*content, "key"),
                         .baseline = textIn(*content, "baseline"),
                         .run = numberIn(*content, "run")};
}

std::vector<ExtendedAttribute> attributesIn(const Json& object)
{
    std::vector<ExtendedAttribute> attributes;
    if (const Json* list = arrayIn(object, "attributes")) {
        for (const Json& entry : *list) {
            if (!entry.is_object() || !entry.contains("value"))
                refuse("an attribute is not an object");
            std::string name = textIn(entry, "name");
            if (name.empty() || name.contains('\0'))
                refuse("an attribute without a name");
            attributes.push_back({std::move(name), unpacked(entry["value"], "value")});
        }
    }
    return attributes;
}

ItemRecord itemIn(const Json& object)
{
    ItemRecord item{.path = pathIn(object, "path"),
                    .kind = oneOf(kKinds, object, "kind"),
                    .size = numberIn(object, "size"),
                    .modified = momentIn(object, "modified"),
                    .changed = momentIn(object, "changed"),
                    .mode = numberIn<std::uint32_t>(object, "mode"),
                    .owner = numberIn<std::uint32_t>(object, "owner"),
                    .group = numberIn<std::uint32_t>(object, "group"),
                    .ownerName = textIn(object, "owner_name"),
                    .groupName = textIn(object, "group_name"),
                    .device = numberIn(object, "device"),
                    .inode = numberIn(object, "inode"),
                    .links = numberIn(object, "links"),
                    .linkTarget = textIn(object, "target"),
                    .deviceNumber = numberIn(object, "device_number"),
                    .attributes = attributesIn(object),
                    .isMountPoint = isTrueIn(object, "mount_point")};
    if ((item.mode & ~kModeBits) != 0)
        refuse("a mode with more than permissions");
    if (item.linkTarget.contains('\0') || item.linkTarget.size() > kLongestPath)
        refuse("a link that leads nowhere");
    return item;
}

StoredItem storedItemIn(const Json& object)
{
    StoredItem stored{.item = itemIn(object),
                      .content = contentIn(object),
                      .sameFileAs = textIn(object, "same_file_as"),
                      .readBegan = momentIn(object, "read_began"),
                      .isStale = isTrueIn(object, "stale"),
                      .changedWhileRead = isTrueIn(object, "changed_while_read")};
    const bool isFurtherName = !stored.sameFileAs.empty();
    if (isFurtherName && (!isItemPath(stored.sameFileAs) || stored.sameFileAs == stored.item.path))
        refuse("a hard link to a path that no item can have");
    if (stored.content && (stored.item.kind != ItemKind::file || isFurtherName))
        refuse("content of what has none");
    return stored;
}

PlaceLine placeIn(const Json& object)
{
    PlaceLine place{.path = pathIn(object, "place"), .note = std::nullopt};
    if (!object.contains("note"))
        return place;
    PlaceNote note{.path = place.path, .kind = oneOf(kNotes, object, "note"), .text = {}};
    note.text = note.kind == PlaceNote::Kind::walked ? packedRules(listIn(object, "rules"))
                                                     : textIn(object, "why");
    place.note = std::move(note);
    return place;
}

} // namespace

bool isItemPath(std::string_view path)
{
    if (path == "/")
        return true;
    if (path.size() < 2 || path.size() > kLongestPath || path[0] != '/' || path.contains('\0'))
        return false;
    for (std::size_t at = 1; at <= path.size();) {
        const auto slash = std::min(path.find('/', at), path.size());
        const auto name = path.substr(at, slash - at);
        if (name.empty() || name == "." || name == "..")
            return false;
        at = slash + 1;
    }
    return !path.ends_with('/');
}

std::string lineOf(const RecordHead& head)
{
    const RunDescription& run = head.description;
    Json object{{"record", kRecordMark},
                {"format", kRecordFormat},
                {"run", head.run},
                {"state", nameIn(kStates, head.state)},
                {"predecessor", linkOf(head.predecessor)}};
    if (head.baseline)
        object["baseline"] = linkOf(*head.baseline);
    object["differences"] = {{"records", head.differences.records},
                             {"bytes", head.differences.bytes},
                             {"full_bytes", head.differences.fullBytes}};
    putText(object, "machine", run.identity.machine);
    putText(object, "user", run.identity.user);
    putText(object, "profile", run.identity.profile);
    putText(object, "username", run.username);
    putText(object, "system", run.systemName);
    putText(object, "host", run.host);
    putText(object, "client", run.clientVersion);
    putText(object, "key", run.key);
    object["begun"] = momentOf(run.begun);
    if (head.ended)
        object["ended"] = momentOf(*head.ended);
    object["paths"] = listOf(run.namedPaths);
    object["rules"] = listOf(run.rules);
    object["items"] = head.items;
    object["failed"] = head.failed;
    object["new_bytes"] = head.newBytes;
    object["bytes"] = head.bytes;
    if (!head.losses.empty())
        object["losses"] = listOf(head.losses);
    return line(object);
}

std::string lineOf(const StoredItem& stored)
{
    const ItemRecord& item = stored.item;
    Json object = Json::object();
    putText(object, "path", item.path);
    object["kind"] = nameIn(kKinds, item.kind);
    if (item.kind == ItemKind::file)
        object["size"] = item.size;
    object["modified"] = momentOf(item.modified);
    object["changed"] = momentOf(item.changed);
    object["mode"] = item.mode;
    object["owner"] = item.owner;
    object["group"] = item.group;
    putText(object, "owner_name", item.ownerName);
    putText(object, "group_name", item.groupName);
    object["device"] = item.device;
    object["inode"] = item.inode;
    object["links"] = item.links;
    if (item.kind == ItemKind::link)
        putText(object, "target", item.linkTarget);
    if (item.deviceNumber != 0)
        object["device_number"] = item.deviceNumber;
    if (!item.attributes.empty())
        object["attributes"] = attributesOf(item.attributes);
    if (item.isMountPoint)
        object["mount_point"] = true;
    if (stored.content)
        object["content"] = contentOf(*stored.content);
    if (!stored.sameFileAs.empty())
        putText(object, "same_file_as", stored.sameFileAs);
    if (stored.readBegan != Timestamp{})
        object["read_began"] = momentOf(stored.readBegan);
    if (stored.isStale)
        object["stale"] = true;
    if (stored.changedWhileRead)
        object["changed_while_read"] = true;
    return line(object);
}

std::string lineOf(const GoneItem& gone)
{
    Json object = Json::object();
    putText(object, "gone", gone.path);
    return line(object);
}

std::string lineOf(const PlaceLine& place)
{
    Json object = Json::object();
    putText(object, "place", place.path);
    if (place.note) {
        object["note"] = nameIn(kNotes, place.note->kind);
        if (place.note->kind == PlaceNote::Kind::walked)
            object["rules"] = listOf(unpackedRules(place.note->text));
        else
            putText(object, "why", place.note->text);
    }
    return line(object);
}

std::string lineOf(const RecordEnd& end)
{
    return line({{"end", {{"items", end.items}, {"sha256", end.digest}}}});
}

RecordHead headOf(std::string_view line)
{
    const Json object = parsed(line);
    if (textIn(object, "record") != kRecordMark)
        refuse("it does not begin as one");
    if (numberIn(object, "format") > kRecordFormat)
        throw RecordFault(RecordFault::Kind::tooNew,
                          "The record was written by a newer program. Please use that one.");
    const Json* differences = objectIn(object, "differences");
    RecordHead head{.run = numberIn(object, "run"),
                    .state = oneOf(kStates, object, "state"),
                    .description = {.username = textIn(object, "username"),
                                    .systemName = textIn(object, "system"),
                                    .host = textIn(object, "host"),
                                    .identity = {textIn(object, "machine"), textIn(object, "user"),
                                                 textIn(object, "profile")},
                                    .namedPaths = listIn(object, "paths"),
                                    .rules = listIn(object, "rules"),
                                    .clientVersion = textIn(object, "client"),
                                    .key = textIn(object, "key"),
                                    .begun = momentIn(object, "begun")},
                    .ended = std::nullopt,
                    .baseline = linkIn(object, "baseline"),
                    .predecessor = {},
                    .differences = {},
                    .items = numberIn(object, "items"),
                    .failed = numberIn(object, "failed"),
                    .newBytes = numberIn(object, "new_bytes"),
                    .bytes = numberIn(object, "bytes"),
                    .losses = lossesIn(object)};
    if (differences != nullptr)
        head.differences = {numberIn(*differences, "records"), numberIn(*differences, "bytes"),
                            numberIn(*differences, "full_bytes")};
    if (object.contains("ended"))
        head.ended = momentIn(object, "ended");
    if (const Json* predecessor = objectIn(object, "predecessor"))
        head.predecessor = {numberIn(*predecessor, "run"), textIn(*predecessor, "sha256")};
    const std::uint64_t earliest = head.baseline ? head.baseline->run : 0;
    if (head.run == 0 || earliest >= head.run || head.predecessor.run >= head.run)
        refuse("it builds on a later run");
    return head;
}

RecordLine recordLineOf(std::string_view line)
{
    const Json object = parsed(line);
    if (const Json* end = objectIn(object, "end"))
        return RecordEnd{numberIn(*end, "items"), digestIn(*end, "sha256")};
    if (holdsText(object, "gone"))
        return GoneItem{pathIn(object, "gone")};
    if (holdsText(object, "place"))
        return placeIn(object);
    return storedItemIn(object);
}

} // namespace stowline::backup
