// The binary form, and the writing of both forms, by way of libplist.
#include "stowline/platform/text/Text.h"
#include "stowline/platform/values/BinaryPropertyListGuard.h"
#include "stowline/platform/values/PropertyList.h"
#include "stowline/platform/values/PropertyListParts.h"

#include <plist/plist.h>

#include <cstdlib>
#include <limits>
#include <memory>

namespace stowline::platform {

namespace {

struct NodeDeleter {
    void operator()(void* node) const { plist_free(node); }
};
using Node = std::unique_ptr<void, NodeDeleter>;

/// Text that libplist made.
class LibraryText {
public:
    LibraryText(plist_t node, void (*write)(plist_t, char**, std::uint32_t*))
    {
        write(node, &bytes_, &length_); // the pointer must be null, or the library writes nothing
    }
    LibraryText(const LibraryText&) = delete;
    LibraryText& operator=(const LibraryText&) = delete;
    ~LibraryText() { std::free(bytes_); }

    /// Absent when the library made none.
    [[nodiscard]] std::optional<std::string> text() const
    {
        return bytes_ ? std::optional(std::string(bytes_, length_)) : std::nullopt;
    }

private:
    char* bytes_ = nullptr;
    std::uint32_t length_ = 0;
};

struct Unwritable {};

/// Property lists count seconds from the first moment of 2001.
constexpr std::chrono::seconds kPropertyListEpoch{978307200};

std::string xmlOf(plist_t node)
{
    return LibraryText(node, plist_to_xml).text().value_or("");
}

Node nodeFromXml(const std::string& element)
{
    const std::string document = "<plist version=\"1.0\">" + element + "</plist>";
    plist_t node = nullptr;
    plist_from_xml(document.data(), static_cast<std::uint32_t>(document.size()), &node);
    return Node(node);
}

/// libplist keeps the sign of a whole number but hands out the bare 64 bits; only its XML form
/// tells the two readings of a set top bit apart.
Value wholeNumberOf(plist_t node)
{
    std::uint64_t bits = 0;
    plist_get_uint_val(node, &bits);
    const bool topBit = bits > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    if (topBit && xmlOf(node).find(">-") == std::string::npos)
        return bits;
    return static_cast<std::int64_t>(bits);
}

Value dateOf(plist_t node)
{
    std::int32_t seconds = 0;
    std::int32_t microseconds = 0;
    plist_get_date_val(node, &seconds, &microseconds);
    return Date(kPropertyListEpoch + std::chrono::seconds(seconds) +
                std::chrono::microseconds(microseconds));
}

std::optional<Value> valueOf(plist_t node);

std::optional<Value> dictionaryOf(plist_t node)
{
    Dictionary entries;
    plist_dict_iter position = nullptr;
    plist_dict_new_iter(node, &position);
    const std::unique_ptr<void, decltype(&std::free)> owner(position, &std::free);
    for (std::uint32_t left = plist_dict_get_size(node); left > 0; --left) {
        char* key = nullptr;
        plist_t item = nullptr;
        plist_dict_next_item(node, position, &key, &item);
        const std::unique_ptr<char, decltype(&std::free)> keyOwner(key, &std::free);
        auto value = item ? valueOf(item) : std::nullopt;
        if (!key || !value)
            return std::nullopt;
        entries.insert_or_assign(key, std::move(*value));
    }
    return entries;
}

std::optional<Value> arrayOf(plist_t node)
{
    Array items;
    plist_array_iter position = nullptr;
    plist_array_new_iter(node, &position);
    const std::unique_ptr<void, decltype(&std::free)> owner(position, &std::free);
    for (std::uint32_t left = plist_array_get_size(node); left > 0; --left) {
        plist_t item = nullptr;
        plist_array_next_item(node, position, &item);
        auto value = item ? valueOf(item) : std::nullopt;
        if (!value)
            return std::nullopt;
        items.push_back(std::move(*value));
    }
    return items;
}

std::optional<Value> valueOf(plist_t node)
{
    std::uint64_t length = 0;
    switch (plist_get_node_type(node)) {
    case PLIST_STRING: {
        const char* text = plist_get_string_ptr(node, &length);
        return std::string(text ? text : "", text ? length : 0);
    }
    case PLIST_DATA: {
        const char* bytes = plist_get_data_ptr(node, &length);
        return bytes ? Data(bytes, bytes + length) : Data();
    }
    case PLIST_BOOLEAN: {
        std::uint8_t truth = 0;
        plist_get_bool_val(node, &truth);
        return truth != 0;
    }
    case PLIST_UINT:
        return wholeNumberOf(node);
    case PLIST_REAL: {
        double number = 0;
        plist_get_real_val(node, &number);
        return number;
    }
    case PLIST_DATE:
        return dateOf(node);
    case PLIST_ARRAY:
        return arrayOf(node);
    case PLIST_DICT:
        return dictionaryOf(node);
    default:
        return std::nullopt;
    }
}

Node nodeFor(const Value& value);

/// The library cuts a text at a NUL and garbles one that is not UTF-8.
void requireWritable(const std::string& text)
{
    if (text.find('\0') != std::string::npos || !isValidUtf8(text))
        throw Unwritable{};
}

Node dateNode(Date moment)
{
    using namespace std::chrono;
    const auto since = moment.time_since_epoch() - kPropertyListEpoch;
    const auto whole = floor<seconds>(since);
    return Node(plist_new_date(static_cast<std::int32_t>(whole.count()),
                               static_cast<std::int32_t>((since - whole).count())));
}

Node unsignedNode(std::uint64_t number)
{
    if (number <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
        return Node(plist_new_uint(number));
    return nodeFromXml("<integer>" + std::to_string(number) + "</integer>");
}

Node scalarNode(const Value& value)
{
    if (const auto* text = value.string()) {
        requireWritable(*text);
        return Node(plist_new_string(text->c_str()));
    }
    if (const auto* bytes = value.data())
        return Node(plist_new_data(reinterpret_cast<const char*>(bytes->data()), bytes->size()));
    if (const auto* truth = value.boolean())
        return Node(plist_new_bool(*truth ? 1 : 0));
    if (const auto* number = value.integer())
        return Node(plist_new_uint(static_cast<std::uint64_t>(*number)));
    if (const auto* number = value.unsignedInteger())
        return unsignedNode(*number);
    if (const auto* number = value.real())
        return Node(plist_new_real(*number));
    if (value.url())
        throw Unwritable{};
    return dateNode(*value.date());
}

Node nodeFor(const Value& value)
{
    if (const auto* items = value.array()) {
        Node node(plist_new_array());
        for (const Value& item : *items)
            plist_array_append_item(node.get(), nodeFor(item).release());
        return node;
    }
    if (const auto* entries = value.dictionary()) {
        Node node(plist_new_dict());
        for (const auto& [key, item] : *entries) {
            requireWritable(key);
            plist_dict_set_item(node.get(), key.c_str(), nodeFor(item).release());
        }
        return node;
    }
    return scalarNode(value);
}

using Writer = void (*)(plist_t, char**, std::uint32_t*);

std::optional<std::string> write(const Value& root, Writer writer)
{
    try {
        const Node node = nodeFor(root);
        return LibraryText(node.get(), writer).text();
    } catch (const Unwritable&) {
        return std::nullopt;
    }
}

} // namespace

PropertyListReading readBinaryPropertyList(std::string_view bytes)
{
    if (auto fault = faultInBinaryPropertyList(bytes))
        return {std::nullopt, *fault};
    plist_t root = nullptr;
    plist_from_bin(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &root);
    const Node owner(root);
    auto value = root ? valueOf(root) : std::nullopt;
    if (!value)
        return {std::nullopt, "The binary property list is cut or damaged"};
    return {std::move(value), ""};
}

std::optional<Data> decodePropertyListData(const std::string& base64)
{
    const Node node = nodeFromXml("<data>" + base64 + "</data>");
    if (!node || plist_get_node_type(node.get()) != PLIST_DATA)
        return std::nullopt;
    return *valueOf(node.get())->data();
}

std::optional<std::string> writeBinaryPropertyList(const Value& root)
{
    return write(root, [](plist_t node, char** bytes, std::uint32_t* length) {
        plist_to_bin(node, bytes, length);
    });
}

std::optional<std::string> writeXmlPropertyList(const Value& root)
{
    return write(root, [](plist_t node, char** bytes, std::uint32_t* length) {
        plist_to_xml(node, bytes, length);
    });
}

} // namespace stowline::platform
