// The writing of the XML form, and the bytes in it, by way of libplist.
#include "stowline/platform/text/Text.h"
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

struct Unwritable {};

Node nodeFromXml(const std::string& element)
{
    const std::string document = "<plist version=\"1.0\">" + element + "</plist>";
    plist_t node = nullptr;
    plist_from_xml(document.data(), static_cast<std::uint32_t>(document.size()), &node);
    return Node(node);
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

} // namespace

std::optional<Data> decodePropertyListData(const std::string& base64)
{
    const Node node = nodeFromXml("<data>" + base64 + "</data>");
    if (!node || plist_get_node_type(node.get()) != PLIST_DATA)
        return std::nullopt;
    std::uint64_t length = 0;
    const char* bytes = plist_get_data_ptr(node.get(), &length);
    return bytes ? Data(bytes, bytes + length) : Data();
}

std::optional<std::string> writeXmlPropertyList(const Value& root)
{
    try {
        const Node node = nodeFor(root);
        char* bytes = nullptr; // or the library writes nothing
        std::uint32_t length = 0;
        plist_to_xml(node.get(), &bytes, &length);
        const std::unique_ptr<char, decltype(&std::free)> owner(bytes, &std::free);
        return bytes ? std::optional(std::string(bytes, length)) : std::nullopt;
    } catch (const Unwritable&) {
        return std::nullopt;
    }
}

} // namespace stowline::platform
